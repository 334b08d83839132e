#pragma once

#include <QTest>

#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace TestSupport
{

// Gives this process a mount table of its own, so that nothing that a test mounts is seen by the
// machine or outlives the test. Call it before the first thread starts. With MS_SLAVE it follows
// what is mounted and unmounted outside.
inline void enterPrivateMountNamespace(unsigned long propagation = MS_PRIVATE)
{
    if (unshare(CLONE_NEWNS) != 0
        || mount(nullptr, "/", nullptr, MS_REC | propagation, nullptr) != 0) {
        std::perror("The tests mount file systems and need root");
        std::exit(EXIT_FAILURE);
    }
}

// Gives this process a network of its own that reaches nothing but itself, so that a server of the
// test can take any port. Call it before the first thread starts.
inline void enterPrivateNetwork()
{
    const int descriptor = unshare(CLONE_NEWNET) == 0 ? socket(AF_INET, SOCK_DGRAM, 0) : -1;
    ifreq loopback{{"lo"}, {}};
    loopback.ifr_flags = IFF_UP;
    if (descriptor < 0 || ioctl(descriptor, SIOCSIFFLAGS, &loopback) != 0) {
        std::perror("The tests make a network of their own and need root");
        std::exit(EXIT_FAILURE);
    }
    close(descriptor);
}

} // namespace TestSupport

// The main function of a suite whose tests mount file systems of their own.
#define TESSARINE_MOUNTING_TEST_MAIN(Application, Suite)                                           \
    int main(int argc, char *argv[])                                                               \
    {                                                                                              \
        TestSupport::enterPrivateMountNamespace();                                                 \
        Application application(argc, argv);                                                       \
        Suite suite;                                                                               \
        return QTest::qExec(&suite, argc, argv);                                                   \
    }
