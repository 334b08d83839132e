// Linked into every suite that opens windows. Started by hand where no display answers, such a
// suite says what gives it one, where Qt would advise to reinstall the program and abort.

#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace
{

__attribute__((constructor)) void requireDisplay()
{
    if (std::getenv("QT_QPA_PLATFORM") || std::system("exec xdpyinfo >/dev/null 2>&1") == 0)
        return;
    std::fprintf(stderr,
                 "This suite opens windows and no display answers: "
                 "start it with tests/support/with-display %s\n",
                 program_invocation_name);
    std::exit(EXIT_FAILURE);
}

} // namespace
