#include "tests/support/SyncWatch.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace TestSupport
{

std::function<void()> whenSynced;
std::function<void()> whenFileSynced;
std::function<void(off_t size)> whenAwaited;

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

extern "C" int sync_file_range(int descriptor, off_t offset, off_t size, unsigned int flags)
{
    if (TestSupport::whenAwaited && (flags & SYNC_FILE_RANGE_WAIT_AFTER) != 0)
        TestSupport::whenAwaited(size);
    return static_cast<int>(syscall(SYS_sync_file_range, descriptor, offset, size, flags));
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
