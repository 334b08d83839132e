// FUZZ_TARGET=NAME fuzz [libFuzzer's options] CORPUS...: lets libFuzzer look for bytes with which
// that target ends the program.

#include "tests/fuzz/Fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, std::size_t size)
{
    static const Fuzz::Target target = Fuzz::targets().at(std::getenv("FUZZ_TARGET"));
    target(QByteArray(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size)));
    return 0;
}
