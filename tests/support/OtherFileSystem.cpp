#include "tests/support/OtherFileSystem.h"

#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <atomic>

namespace
{

std::atomic<long> pretended = 0;

} // namespace

TestSupport::OtherFileSystem::OtherFileSystem(long type)
{
    pretended = type;
}

TestSupport::OtherFileSystem::~OtherFileSystem()
{
    pretended = 0;
}

// Stands in front of the C library's function of that name.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
extern "C" int fstatfs(int descriptor, struct statfs *fileSystem) noexcept
{
    const int result = static_cast<int>(syscall(SYS_fstatfs, descriptor, fileSystem));
    if (result == 0 && pretended != 0)
        fileSystem->f_type = pretended;
    return result;
}
