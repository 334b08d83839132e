#pragma once

#include <QTest>

#include <sched.h>
#include <sys/mount.h>

#include <cstdio>
#include <cstdlib>

namespace TestSupport
{

// Gives this process a mount table of its own, so that nothing that a test mounts is seen by the
// machine or outlives the test. Call it before the first thread starts.
inline void enterPrivateMountNamespace()
{
    if (unshare(CLONE_NEWNS) != 0
        || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        std::perror("The tests mount file systems and need root");
        std::exit(EXIT_FAILURE);
    }
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
