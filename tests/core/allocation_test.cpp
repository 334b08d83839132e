#include "core/CryptoManager.h"

#include <QTest>

#include <array>
#include <cstdlib>

using Tessarine::Core::CryptoManager;

// This program's malloc and its relatives stand before the C library's, and note what they are
// asked for while a test looks. QByteArray and `new` end here too.
namespace
{

struct Request {
    size_t size;
    const char *memory;
};
std::array<Request, 100> requests;
size_t requestCount = 0;
bool noting = false;

void *note(size_t size, void *memory)
{
    if (noting && requestCount < requests.size())
        requests.at(requestCount++) = {size, static_cast<const char *>(memory)};
    return memory;
}

const CryptoManager manager;
const QByteArray key(32, 'k');
const QByteArray nonce(24, 'n');

template <typename Operation>
QByteArray noted(const Operation &operation)
{
    requestCount = 0;
    noting = true;
    QByteArray result = operation();
    noting = false;
    return result;
}

void addSizes()
{
    QTest::addColumn<int>("size");
    for (const int size : {1, 4096, 1 << 20})
        QTest::addRow("%d bytes", size) << size;
}

// Whether `result` lies in the one block that was allocated, which is no larger than it needs
// beside QByteArray's own header and terminating zero.
bool liesInTheOnlyBlock(const QByteArray &result)
{
    const auto [size, memory] = requests.at(0);
    return requestCount == 1 && size <= static_cast<size_t>(result.size()) + 64
           && result.constData() >= memory && result.constData() + result.size() < memory + size;
}

} // namespace

extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier,readability-inconsistent-declaration-parameter-name):
// the C library's own names.
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *memory, size_t size);

void *malloc(size_t size)
{
    return note(size, __libc_malloc(size));
}

void *calloc(size_t count, size_t size)
{
    return note(count * size, __libc_calloc(count, size));
}

void *realloc(void *memory, size_t size)
{
    return note(size, __libc_realloc(memory, size));
}
// NOLINTEND(bugprone-reserved-identifier,readability-inconsistent-declaration-parameter-name)
}

class AllocationTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void copyIsSeenByThisProgramsAllocator()
    {
        const QByteArray bytes(4096, 'x');
        const QByteArray copy = noted([&] { return QByteArray(bytes.constData(), bytes.size()); });
        QVERIFY(liesInTheOnlyBlock(copy));
        const QByteArray grown = noted([&] { return QByteArray(bytes + bytes).repeated(2); });
        QCOMPARE(requestCount, size_t(2));
        QVERIFY(!liesInTheOnlyBlock(grown));
    }

    void encryptAllocatesItsResultAndNothingElse_data() { addSizes(); }
    void encryptAllocatesItsResultAndNothingElse()
    {
        QFETCH(int, size);
        const QByteArray plaintext(size, 'p');
        const QByteArray sealed =
            noted([&] { return manager.encrypt(plaintext, key, nonce, key); });
        QCOMPARE(sealed.size(), size + 16);
        QVERIFY(liesInTheOnlyBlock(sealed));
    }

    void decryptAllocatesItsResultAndNothingElse_data() { addSizes(); }
    void decryptAllocatesItsResultAndNothingElse()
    {
        QFETCH(int, size);
        const QByteArray sealed = manager.encrypt(QByteArray(size, 'p'), key, nonce, key);
        const QByteArray opened = noted([&] { return manager.decrypt(sealed, key, nonce, key); });
        QCOMPARE(opened.size(), size);
        QVERIFY(liesInTheOnlyBlock(opened));
    }

    void wrongSizesAllocateNothing()
    {
        QVERIFY(noted([&] { return manager.encrypt(nonce, nonce, nonce, {}); }).isNull());
        QCOMPARE(requestCount, size_t(0));
        QVERIFY(noted([&] { return manager.decrypt(nonce, nonce, nonce, {}); }).isNull());
        QCOMPARE(requestCount, size_t(0));
    }
};

QTEST_GUILESS_MAIN(AllocationTest)

#include "allocation_test.moc"
