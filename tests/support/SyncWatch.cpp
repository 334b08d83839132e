#include "tests/support/SyncWatch.h"

#include <sys/syscall.h>
#include <unistd.h>

namespace TestSupport
{

std::function<void()> whenSynced;
std::function<void()> whenFileSynced;

} // namespace TestSupport

// These stand in front of the C library's functions of their names.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
extern "C" int syncfs(int descriptor)
{
    if (TestSupport::whenSynced)
        TestSupport::whenSynced();
    return static_cast<int>(syscall(SYS_syncfs, descriptor));
}

extern "C" int fsync(int descriptor)
{
    if (TestSupport::whenFileSynced)
        TestSupport::whenFileSynced();
    return static_cast<int>(syscall(SYS_fsync, descriptor));
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
