// copy_limit SOURCE TARGET: copies the files of a directory with nothing but the calls that a copy
// can't do without when each file is to be on the medium before it has its name: read, write,
// fdatasync, rename, and one syncfs at the end. Nothing is checked or kept: no permissions, no
// links.
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

void copyFile(const std::string &source, const std::string &target)
{
    const std::string unfinished = target + "~";
    const int input = open(source.c_str(), O_RDONLY | O_CLOEXEC);
    const int output = open(unfinished.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    check(input >= 0 && output >= 0, source);
    ssize_t count = 0;
    while ((count = read(input, buffer, sizeof buffer)) > 0)
        check(write(output, buffer, static_cast<size_t>(count)) == count, source);
    check(count == 0 && fdatasync(output) == 0, target);
    close(input);
    close(output);
    check(rename(unfinished.c_str(), target.c_str()) == 0, target);
}

void copyDirectory(const std::string &source, const std::string &target)
{
    check(mkdir(target.c_str(), 0755) == 0 || errno == EEXIST, target);
    DIR *directory = opendir(source.c_str());
    if (directory == nullptr)
        fail(source);
    while (const dirent *entry = readdir(directory)) {
        const std::string name = std::string("/") + entry->d_name;
        if (entry->d_type == DT_REG)
            copyFile(source + name, target + name);
        else if (name != "/." && name != "/..")
            copyDirectory(source + name, target + name);
    }
    closedir(directory);
}

} // namespace

int main(int argc, char *argv[])
{
    if (argc != 3)
        return 2;
    const std::string target = argv[2];
    const auto begin = std::chrono::steady_clock::now();
    copyDirectory(argv[1], target);
    const int directory = open(target.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    check(syncfs(directory) == 0, target);
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
    std::printf("%.6f\n", time.count());
    return 0;
}
