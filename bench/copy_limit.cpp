// copy_limit SOURCE TARGET: copies the files of a directory with nothing but the calls that a copy
// can't do without when each file is to be on the medium before it has its name: read, write,
// fdatasync, rename, and one syncfs at the end. Nothing is checked or kept: no permissions, no
// links.
// copy_limit judged SOURCE TARGET: does so with the calls by which a QSaveFile names a file, and
// those by which the program judges it before and sets its permissions, before and after.
// Prints the seconds that it took.

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace
{

char buffer[1'048'576];

[[noreturn]] void fail(const std::string &what)
{
    std::perror(what.c_str());
    std::exit(1);
}

void check(bool succeeded, const std::string &what)
{
    if (!succeeded)
        fail(what);
}

using CopyFile = void (*)(const std::string &source, const std::string &target);

void copyContents(const std::string &source, int output)
{
    const int input = open(source.c_str(), O_RDONLY | O_CLOEXEC);
    check(input >= 0 && output >= 0, source);
    ssize_t count = 0;
    while ((count = read(input, buffer, sizeof buffer)) > 0)
        check(write(output, buffer, static_cast<size_t>(count)) == count, source);
    check(count == 0, source);
    close(input);
}

void copyFile(const std::string &source, const std::string &target)
{
    const std::string unfinished = target + "~";
    const int output = open(unfinished.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    copyContents(source, output);
    check(fdatasync(output) == 0, target);
    close(output);
    check(rename(unfinished.c_str(), target.c_str()) == 0, target);
}

void copyJudgedFile(const std::string &source, const std::string &target)
{
    const std::string directory = target.substr(0, target.rfind('/'));
    const int output = open(directory.c_str(), O_RDWR | O_TMPFILE | O_CLOEXEC, 0644);
    copyContents(source, output);
    constexpr unsigned int writeAndWait =
        SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER;
    check(fchmod(output, 0644) == 0, target);
    check(sync_file_range(output, 0, 0, writeAndWait) == 0 && fdatasync(output) == 0, target);
    const std::string unnamed = "/proc/self/fd/" + std::to_string(output);
    check(linkat(AT_FDCWD, unnamed.c_str(), AT_FDCWD, target.c_str(), AT_SYMLINK_FOLLOW) == 0,
          target);
    check(chmod(target.c_str(), 0644) == 0, target);
    close(output);
}

void copyDirectory(const std::string &source, const std::string &target, CopyFile copy)
{
    check(mkdir(target.c_str(), 0755) == 0 || errno == EEXIST, target);
    DIR *directory = opendir(source.c_str());
    if (directory == nullptr)
        fail(source);
    while (const dirent *entry = readdir(directory)) {
        const std::string name = std::string("/") + entry->d_name;
        if (entry->d_type == DT_REG)
            copy(source + name, target + name);
        else if (entry->d_type == DT_DIR && entry->d_name[0] != '.')
            copyDirectory(source + name, target + name, copy);
    }
    closedir(directory);
}

} // namespace

int main(int argc, char *argv[])
{
    const bool isJudged = argc == 4 && std::string(argv[1]) == "judged";
    if (argc != 3 && !isJudged)
        return 2;
    const std::string source = argv[argc - 2];
    const std::string target = argv[argc - 1];
    const auto begin = std::chrono::steady_clock::now();
    copyDirectory(source, target, isJudged ? copyJudgedFile : copyFile);
    const int directory = open(target.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    check(syncfs(directory) == 0, target);
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
    std::printf("%.6f\n", time.count());
    return 0;
}
