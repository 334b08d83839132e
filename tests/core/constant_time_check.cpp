// Compares secrets under valgrind's memcheck. Their bytes are marked as undefined, so memcheck
// reports every jump and every address that depends on them.
//
//     valgrind --error-exitcode=99 constant_time_check comparison
//     valgrind --error-exitcode=99 constant_time_check leak
//
// "comparison" runs CryptoManager::constantTimeEquals, in which nothing may be found. "leak" runs
// a comparison that branches on the secret, to show that memcheck finds it in this very build.
// Exits with 1 when it can't check: not under valgrind, a wrong answer, or an answer that doesn't
// depend on the marked bytes, as if the marks had been lost.

#include "core/CryptoManager.h"

#include <valgrind/memcheck.h>

#include <cstdio>
#include <cstring>

using Tessarine::Core::CryptoManager;

namespace
{

bool leakyEquals(const QByteArray &left, const QByteArray &right)
{
    for (qsizetype i = 0; i < left.size(); ++i) {
        if (left.at(i) != right.at(i))
            return false;
    }
    return true;
}

bool constantTimeEquals(const QByteArray &left, const QByteArray &right)
{
    static const CryptoManager manager;
    return manager.constantTimeEquals(left, right);
}

using Comparison = bool (*)(const QByteArray &, const QByteArray &);

// Whether the comparison answers right, and its answer comes from the secrets.
bool comparesSecrets(Comparison equals, qsizetype size, qsizetype difference)
{
    QByteArray left(size, 's');
    QByteArray right(size, 's');
    const bool expected = difference >= size;
    if (!expected)
        right[difference] = 'x';

    VALGRIND_MAKE_MEM_UNDEFINED(left.data(), size);
    VALGRIND_MAKE_MEM_UNDEFINED(right.data(), size);
    bool equal = equals(left, right);
    unsigned char undefinedBits = 0;
    VALGRIND_GET_VBITS(&equal, &undefinedBits, sizeof equal);
    VALGRIND_MAKE_MEM_DEFINED(&equal, sizeof equal);
    VALGRIND_MAKE_MEM_DEFINED(left.data(), size);
    VALGRIND_MAKE_MEM_DEFINED(right.data(), size);

    return equal == expected && undefinedBits != 0;
}

} // namespace

int main(int argc, char *argv[])
{
    if (argc != 2 || RUNNING_ON_VALGRIND == 0) {
        std::fputs("usage: valgrind constant_time_check comparison|leak\n", stderr);
        return 1;
    }
    const Comparison equals = std::strcmp(argv[1], "leak") == 0 ? leakyEquals : constantTimeEquals;

    bool good = true;
    for (const qsizetype size : {1, 15, 16, 32, 67, 1000}) {
        for (const qsizetype difference : {qsizetype(0), size / 2, size - 1, size})
            good &= comparesSecrets(equals, size, difference);
    }
    return good ? 0 : 1;
}
