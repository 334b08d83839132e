// Linked into every suite that opens windows. Started by hand without a display, such a suite says
// what gives it one, where Qt would advise to reinstall the program and abort.

#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace
{

__attribute__((constructor)) void requireDisplay()
{
    if (std::getenv("DISPLAY") || std::getenv("QT_QPA_PLATFORM"))
        return;
    std::fprintf(stderr,
                 "This suite opens windows and there is no display: "
                 "start it with tests/support/with-display %s\n",
                 program_invocation_name);
    std::exit(EXIT_FAILURE);
}

} // namespace
