#include "deployment/PortableBundleManager.h"
#include "tests/deployment/LinuxTools.h"
#include "tests/support/PeakMemory.h"
#include "tests/support/TestMain.h"

#include <QCoreApplication>
#include <QElapsedTimer>

using Tessarine::Deployment::PortableBundleManager;
using Tessarine::Deployment::PortableBundleResult;
using TestSupport::Drive;
using TestSupport::PeakMemoryWatch;
using TestSupport::StubCommand;

// ldd and ldconfig as a hostile host may have them.
class HostileCommandTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void aCommandThatPrintsWithoutEndFailsBeforeItFillsTheMemory_data()
    {
        QTest::addColumn<QByteArray>("script");
        QTest::newRow("output") << QByteArray("exec yes '\tlib => /bin/sh'");
        QTest::newRow("errors") << QByteArray("exec yes '\tlib => /bin/sh' >&2");
    }
    void aCommandThatPrintsWithoutEndFailsBeforeItFillsTheMemory()
    {
        QFETCH(QByteArray, script);
        const StubCommand ldd("ldd", script);
        const StubCommand ldconfig("ldconfig", script);
        const PeakMemoryWatch memory;
        QElapsedTimer clock;
        clock.start();
        QCOMPARE(PortableBundleManager().linuxLibraryDependencies("/bin/sh"), QStringList());
        const Drive drive;
        PortableBundleResult result;
        QVERIFY(!PortableBundleManager().copyLinuxTlsLibraries(drive.path(), &result));
        QCOMPARE(result.message, "Nao foi possivel localizar bibliotecas TLS do Linux.");
        QVERIFY(memory.growth() < 128'000'000);
        QVERIFY2(clock.elapsed() < 30'000, "it is killed and not waited for");
    }

    void aChildThatHoldsThePipeIsNotWaitedFor()
    {
        const StubCommand ldd("ldd",
                              "echo '\tlib => /bin/sh'\ntail -f /dev/null &\necho $! >\"$0.pid\"");
        QElapsedTimer clock;
        clock.start();
        QCOMPARE(PortableBundleManager().linuxLibraryDependencies("/bin/sh"),
                 QStringList{"/bin/sh"});
        QVERIFY2(clock.elapsed() < 30'000, "the child is waited for");
        QProcess::execute("kill", {ldd.directory().read("ldd.pid").trimmed()});
    }
};

TESSARINE_MOUNTING_TEST_MAIN(QCoreApplication, HostileCommandTest)
#include "hostile_command_test.moc"
