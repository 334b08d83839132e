#include "deployment/PortableBundleManager.h"
#include "tests/support/Drive.h"
#include "tests/support/StubCommand.h"
#include "tests/support/TestMain.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTest>

#include <signal.h>
#include <sys/stat.h>

using Tessarine::Deployment::PortableBundleManager;
using Tessarine::Deployment::PortableBundleResult;
using TestSupport::Drive;
using TestSupport::StubCommand;

// A suite of its own, since each command has to be waited for as long as the program waits.
class CommandTimeLimitTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void aCommandThatNeverEndsFailsAfterThirtySeconds()
    {
        const Drive drive;
        const StubCommand ldconfig("ldconfig", "echo $$ >\"$0.pid\"\n"
                                               "echo '\tlibssl.so.3 (libc6) => /bin/sh'\n"
                                               "exec cat \"$0.pipe\"");
        QCOMPARE(mkfifo(qPrintable(ldconfig.directory().path("ldconfig.pipe")), 0600), 0);
        PortableBundleResult result;
        QElapsedTimer clock;
        clock.start();
        QVERIFY(!PortableBundleManager().copyLinuxTlsLibraries(drive.path(), &result));
        QVERIFY(clock.elapsed() >= 30'000);
        QCOMPARE(result.message, "Nao foi possivel localizar bibliotecas TLS do Linux.");
        QCOMPARE(drive.tree(), QStringList());
        const pid_t process = ldconfig.directory().read("ldconfig.pid").trimmed().toInt();
        QVERIFY(process > 0);
        QVERIFY2(kill(process, 0) != 0, "The command still runs");
    }
};

TESSARINE_MOUNTING_TEST_MAIN(QCoreApplication, CommandTimeLimitTest)
#include "command_time_limit_test.moc"
