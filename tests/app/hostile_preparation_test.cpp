#include "tests/deployment/PreparationSituation.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/PeakMemory.h"

#include <sys/stat.h>

using TestSupport::asUnprivileged;

// A drive that somebody else has prepared for this: what a preparation writes stays on it.
class HostileDrivePreparationTest : public PreparationSituation
{
    Q_OBJECT

    const Drive m_host;
    const Bundles m_bundles;

private Q_SLOTS:
    void init()
    {
        begin();
        m_host.write("document", "precious");
    }
    void cleanup() { end(); }

    void aLinkOffTheDriveIsNotWrittenThrough_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("target");
        QTest::addColumn<QString>("message");
        const QString directory = "Nao foi possivel criar a pasta: ";
        const QString file = "Nao foi possivel criar o arquivo: ";
        for (const char *name : {"Tessarine", "Tessarine/windows", "Tessarine/linux/lib"})
            QTest::newRow(name) << QString(name) << m_host.path() << directory;
        for (const char *name : {"Tessarine-Windows.bat", "Tessarine-Linux.sh",
                                 "Tessarine/README.txt", "Tessarine/windows/Qt6Core.dll"}) {
            QTest::newRow(name) << QString(name) << m_host.path("document") << file;
            QTest::addRow("%s to nowhere", name) << QString(name) << m_host.path("absent") << file;
        }
        QTest::newRow("to itself") << "Tessarine"
                                   << "Tessarine" << directory;
    }
    void aLinkOffTheDriveIsNotWrittenThrough()
    {
        QFETCH(QString, name);
        QFETCH(QString, target);
        QFETCH(QString, message);
        const Drive drive = Drive::tmpfs(16 * mebibyte);
        drive.link(name, target == name ? drive.path(name) : target);
        const QStringList before = m_host.tree();
        QCOMPARE(prepare(drive, m_bundles.both()), message + drive.path(name));
        QCOMPARE(m_host.tree(), before);
    }

    void aLinkToAFileOfTheUsersIsNotWrittenThrough()
    {
        const Drive drive = Drive::tmpfs(16 * mebibyte);
        drive.write("carta.txt", "precious");
        const QString text = drive.link("Tessarine/README.txt", drive.path("carta.txt"));
        QCOMPARE(prepare(drive, m_bundles.both()), "Nao foi possivel criar o arquivo: " + text);
        QCOMPARE(drive.read("carta.txt"), QByteArray("precious"));
    }

    void aLinkToADirectoryWithinTheDriveIsFollowed()
    {
        const Drive drive = Drive::tmpfs(16 * mebibyte);
        drive.write("other/library", "x");
        drive.link("Tessarine/linux/lib", drive.path("other"));
        QCOMPARE(prepare(drive, m_bundles.both()), prepared);
        QCOMPARE(drive.read("other/libQt6Core.so.6"), QByteArray("library"));
    }

    void aDirectoryWithoutPermissionsIsRefused_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("refused");
        QTest::newRow("Tessarine") << "Tessarine"
                                   << "Tessarine/windows";
        QTest::newRow("windows") << "Tessarine/windows"
                                 << "Tessarine/windows/platforms";
    }
    void aDirectoryWithoutPermissionsIsRefused()
    {
        QFETCH(QString, name);
        QFETCH(QString, refused);
        const Drive drive = Drive::tmpfs(16 * mebibyte);
        drive.makeDirectory(name);
        drive.giveAway();
        QCOMPARE(chmod(QFile::encodeName(drive.path(name)).constData(), 0), 0);
        QCOMPARE(asUnprivileged([&] { return QStringList{prepare(drive, m_bundles.both())}; }),
                 QStringList{"Nao foi possivel criar a pasta: " + drive.path(refused)});
        QCOMPARE(drive.names(name), QStringList());
    }

    void aPipeInThePlaceOfAFileIsNotWaitedFor_data()
    {
        QTest::addColumn<QString>("name");
        for (const char *name :
             {"Tessarine-Windows.bat", "Tessarine/README.txt", "Tessarine/windows/Qt6Core.dll"})
            QTest::newRow(name) << QString(name);
    }
    void aPipeInThePlaceOfAFileIsNotWaitedFor()
    {
        QFETCH(QString, name);
        const Drive drive = Drive::tmpfs(16 * mebibyte);
        drive.makeDirectory(QFileInfo(name).path());
        QCOMPARE(mkfifo(QFile::encodeName(drive.path(name)).constData(), 0600), 0);
        QCOMPARE(prepare(drive, m_bundles.both()), prepared);
        QVERIFY(QFileInfo(drive.path(name)).isFile());
    }

    void tenThousandFilesInTheBundleRootAreNoBurden()
    {
        const Drive drive = Drive::tmpfs(64 * mebibyte);
        for (int number = 0; number < 10'000; ++number)
            drive.write(QStringLiteral("Tessarine/garbage %1").arg(number), {});
        const TestSupport::PeakMemoryWatch memory;
        QCOMPARE(prepare(drive, m_bundles.both()), prepared);
        QVERIFY(memory.growth() < 32'000'000 + TestSupport::freedMemoryKept);
        QVERIFY(drive.exists("Tessarine/garbage 9999"));
    }
};

TESSARINE_MOUNTING_TEST_MAIN(QCoreApplication, HostileDrivePreparationTest)
#include "hostile_drive_preparation_test.moc"
