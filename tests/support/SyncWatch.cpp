#include "tests/support/SyncWatch.h"

#include <sys/syscall.h>
#include <unistd.h>

std::function<void()> TestSupport::whenSynced;

// Stands in front of the C library's function of that name.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
extern "C" int syncfs(int descriptor)
{
    if (TestSupport::whenSynced)
        TestSupport::whenSynced();
    return static_cast<int>(syscall(SYS_syncfs, descriptor));
}
