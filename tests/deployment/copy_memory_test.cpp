#include "deployment/PortableBundleManager.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Drive.h"
#include "tests/support/TestMain.h"

#include <QCoreApplication>
#include <QTest>

using Tessarine::Deployment::PortableBundleManager;
using Tessarine::Deployment::PortableBundleResult;
using TestSupport::Drive;

namespace
{

// Highest resident set of this process so far in KiB, as proc(5) gives it.
qint64 peakMemory()
{
    QFile status(QStringLiteral("/proc/self/status"));
    status.open(QIODevice::ReadOnly);
    const QByteArray text = status.readAll();
    return text.mid(text.indexOf("VmHWM:") + 6).trimmed().split(' ').first().toLongLong();
}

} // namespace

// The address sanitizer would keep freed memory for a while.
extern "C" const char *__asan_default_options() // NOLINT(bugprone-reserved-identifier)
{
    return "quarantine_size_mb=0:thread_local_quarantine_size_kb=0";
}

class CopyMemoryTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void aGibibyteIsCopiedInNoMoreThanEightMebibytes()
    {
        const Drive host;
        const Drive drive = Drive::tmpfs(1'200'000'000);
        const QString source = host.writeSparse("source", 1'073'741'824);
        const QStringList report = TestSupport::inChild([&]() -> QStringList {
            const qint64 before = peakMemory();
            PortableBundleResult result;
            const bool copied =
                PortableBundleManager().copyFileReplacing(source, drive.path("target"), &result);
            return {QString::number(copied), QString::number(peakMemory() - before)};
        });
        QCOMPARE(report.value(0), "1");
        QCOMPARE(QFileInfo(drive.path("target")).size(), 1'073'741'824);
        const qint64 growth = report.value(1).toLongLong();
        QVERIFY2(growth > 0 && growth <= 8192, qPrintable(report.value(1) + " KiB"));
    }
};

TESSARINE_MOUNTING_TEST_MAIN(QCoreApplication, CopyMemoryTest)
#include "copy_memory_test.moc"
