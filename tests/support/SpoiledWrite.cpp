// Preloaded (ld.so(8)), spoils the write number $SPOILED_WRITE to a regular file on the file system
// of the directory $SPOILED_DRIVE. $SPOILED_HOW says how: "half" takes half of the bytes, as
// write(2) may when a drive is nearly full or a signal comes; "kill" ends the process before the
// write; "stop" stops it behind the write; a number is the error, as in errno(3). The link
// $SPOILED_NOTE then leads to the file. Programs that the process starts write as ever.

#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <string>
#include <string_view>

namespace
{

bool isOnDrive(int descriptor)
{
    struct stat file = {};
    struct stat drive = {};
    return fstat(descriptor, &file) == 0 && S_ISREG(file.st_mode)
           && stat(getenv("SPOILED_DRIVE"), &drive) == 0 && file.st_dev == drive.st_dev;
}

ssize_t writeAsEver(int descriptor, const void *bytes, size_t size)
{
    return syscall(SYS_write, descriptor, bytes, size);
}

void noteFile(int descriptor)
{
    std::string path(PATH_MAX, '\0');
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    if (readlink(link.c_str(), path.data(), path.size() - 1) < 0
        || symlink(path.c_str(), getenv("SPOILED_NOTE")) != 0)
        abort();
}

__attribute__((constructor)) void leaveChildrenAlone()
{
    unsetenv("LD_PRELOAD");
}

} // namespace

// Stands in front of the C library's function of that name.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
extern "C" ssize_t write(int descriptor, const void *bytes, size_t size)
{
    static int writesToCome = atoi(getenv("SPOILED_WRITE"));
    if (!isOnDrive(descriptor) || --writesToCome != 0)
        return writeAsEver(descriptor, bytes, size);
    noteFile(descriptor);
    const std::string_view how = getenv("SPOILED_HOW");
    if (how == "half")
        return writeAsEver(descriptor, bytes, size / 2);
    if (how == "kill")
        raise(SIGKILL);
    if (how == "stop") {
        const ssize_t written = writeAsEver(descriptor, bytes, size);
        raise(SIGSTOP);
        return written;
    }
    errno = atoi(how.data());
    return -1;
}
