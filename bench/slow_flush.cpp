// Preloaded into a program, makes each of its flushes of a drive's cache take five milliseconds
// longer, as on a stick. sync_file_range(2) isn't among them: it doesn't flush that cache.

#include <dlfcn.h>
#include <unistd.h>

namespace
{

int slowly(const char *function, int descriptor)
{
    usleep(5000);
    return reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, function))(descriptor);
}

} // namespace

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
extern "C" {

int fsync(int descriptor)
{
    return slowly("fsync", descriptor);
}

int fdatasync(int descriptor)
{
    return slowly("fdatasync", descriptor);
}

int syncfs(int descriptor) noexcept
{
    return slowly("syncfs", descriptor);
}
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
