#include "tests/deployment/OperationSituation.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TestMain.h"

#include <QCoreApplication>

#include <sys/stat.h>

using TestSupport::asUnprivileged;

// Files that don't reach the drive: it is said why, and what stood in their place still stands.
class CopyFailureTest : public OperationSituation
{
    Q_OBJECT

private Q_SLOTS:
    void init() { begin(); }
    void cleanup() { end(); }

    // ---- the source

    void aVanishedSourceIsNamedWithoutItsDirectory()
    {
        const Drive drive;
        drive.write("target", "kept");
        QCOMPARE(copyFile(drive.path("gone%1"), drive.path("target")),
                 "Nao foi possivel copiar o arquivo: gone%1");
        QCOMPARE(m_result.touchedPaths, QStringList());
        QCOMPARE(drive.tree(), QStringList{"target: kept"});
    }

    void aSourceThatIsADirectoryIsNotCopied()
    {
        const Drive drive;
        drive.makeDirectory("source");
        QCOMPARE(copyFile(drive.path("source"), drive.path("target")),
                 "Nao foi possivel copiar o arquivo: source");
        QCOMPARE(drive.tree(), QStringList{"source/"});
    }

    void anUnreadableSourceIsNotCopied()
    {
        const Drive drive;
        const QString source = drive.write("source", "secret");
        QFile::setPermissions(source, QFile::Permissions());
        drive.giveAway();
        QCOMPARE(
            asUnprivileged([&] { return QStringList{copyFile(source, drive.path("target"))}; }),
            QStringList{"Nao foi possivel copiar o arquivo: source"});
        QVERIFY(!drive.exists("target"));
    }

    void aSourceThatStopsToBeReadableIsNamedWithoutItsDirectory()
    {
        const Drive host = Drive::ext4(8 * mebibyte);
        const Drive drive;
        const QString source = host.write("bad%1", QByteArray(3 * mebibyte, 's'));
        drive.write("target", "kept");
        host.dropCache("bad%1");
        host.loseMedium();
        QCOMPARE(copyFile(source, drive.path("target")), "Nao foi possivel ler o arquivo: bad%1");
        QCOMPARE(drive.tree(), QStringList{"target: kept"});
    }

    void aSourceThatGivesLessThanItPromisesEndsTheCopy()
    {
        const QString promisesAPage = QStringLiteral("/sys/kernel/uevent_seqnum");
        const Drive drive;
        drive.write("target", "kept");
        QVERIFY(QFileInfo(promisesAPage).size() > 100);
        QCOMPARE(copyFile(promisesAPage, drive.path("target")),
                 "Nao foi possivel ler o arquivo: uevent_seqnum");
        QCOMPARE(drive.tree(), QStringList{"target: kept"});
    }

    // ---- the target

    void aTargetThatIsADirectoryIsNotReplaced()
    {
        const Drive drive;
        const QString source = drive.write("source", "contents");
        drive.write("target%1%2/file", "kept");
        QCOMPARE(copyFile(source, drive.path("target%1%2")),
                 "Nao foi possivel criar o arquivo: " + drive.path("target%1%2"));
        QCOMPARE(drive.tree(),
                 (QStringList{"source: contents", "target%1%2/", "target%1%2/file: kept"}));
    }

    void aTargetInAnAbsentDirectoryIsNotCreated()
    {
        const Drive drive;
        const QString source = drive.write("source", "contents");
        QCOMPARE(copyFile(source, drive.path("absent/target")),
                 "Nao foi possivel criar o arquivo: " + drive.path("absent/target"));
        QCOMPARE(drive.tree(), QStringList{"source: contents"});
    }

    void aTargetOnAReadOnlyDriveIsKept()
    {
        const Drive drive = Drive::tmpfs(mebibyte);
        const QString source = drive.write("source", "contents");
        drive.write("target", "kept");
        drive.makeReadOnly();
        QCOMPARE(copyFile(source, drive.path("target")),
                 "Nao foi possivel criar o arquivo: " + drive.path("target"));
        QCOMPARE(drive.tree(), (QStringList{"source: contents", "target: kept"}));
    }

    // No writing straight into the old file where a temporary one can't stand beside it.
    void aTargetInADirectoryWithoutPermissionIsKept()
    {
        const Drive drive;
        const QString source = drive.write("source", "contents");
        const QString target = drive.write("directory/target", "kept");
        drive.giveAway();
        chmod(QFile::encodeName(drive.path("directory")).constData(), 0555);
        QCOMPARE(asUnprivileged([&] { return QStringList{copyFile(source, target)}; }),
                 QStringList{"Nao foi possivel criar o arquivo: " + target});
        QCOMPARE(drive.read("directory/target"), QByteArray("kept"));
    }

    void aWriteProtectedTargetIsKept()
    {
        const Drive drive;
        const QString source = drive.write("source", "contents");
        const QString target = drive.write("target", "kept");
        chmod(QFile::encodeName(target).constData(), 0444);
        drive.giveAway();
        QCOMPARE(asUnprivileged([&] { return QStringList{copyFile(source, target)}; }),
                 QStringList{"Nao foi possivel criar o arquivo: " + target});
        QCOMPARE(drive.read("target"), QByteArray("kept"));
    }

    // ---- the drive, in the middle of a copy

    void aDriveThatFillsUpInTheMiddleKeepsTheOldFile_data()
    {
        QTest::addColumn<qint64>("size");
        QTest::newRow("chunks before the last") << 4 * mebibyte;
        QTest::newRow("the middle of the last chunk") << 2 * mebibyte;
    }

    void aDriveThatFillsUpInTheMiddleKeepsTheOldFile()
    {
        QFETCH(qint64, size);
        const Drive host;
        const Drive drive = Drive::tmpfs(2 * mebibyte);
        const QString source = host.writeSparse("source", size);
        drive.write("target%1", "kept");
        QCOMPARE(copyFile(source, drive.path("target%1")),
                 "Nao foi possivel gravar o arquivo: " + drive.path("target%1"));
        QCOMPARE(m_result.touchedPaths, QStringList());
        QCOMPARE(drive.tree(), QStringList{"target%1: kept"});
    }

    void aFullDriveKeepsTheOldFile_data()
    {
        QTest::addColumn<qint64>("room");
        QTest::addColumn<qint64>("size");
        QTest::newRow("a small file, no room") << qint64(0) << qint64(100);
        QTest::newRow("a small file, too little room") << qint64(4096) << qint64(9000);
        QTest::newRow("room for all but the rest after a chunk") << mebibyte << mebibyte + 100;
    }

    void aFullDriveKeepsTheOldFile()
    {
        QFETCH(qint64, room);
        QFETCH(qint64, size);
        const Drive host;
        const Drive drive = Drive::tmpfs(2 * mebibyte);
        const QString source = host.writeSparse("source", size);
        drive.write("target%1", "kept");
        drive.fill(room);
        const QStringList before = drive.tree();
        QCOMPARE(copyFile(source, drive.path("target%1")),
                 "Nao foi possivel finalizar o arquivo: " + drive.path("target%1"));
        QCOMPARE(m_result.touchedPaths, QStringList());
        QCOMPARE(drive.tree(), before);
    }

    void aDriveThatLosesItsMediumDuringACopyLeavesNoPartOfIt_data()
    {
        QTest::addColumn<qint64>("size");
        QTest::addColumn<QString>("message");
        QTest::newRow("before the next chunk")
            << 3 * mebibyte << "Nao foi possivel gravar o arquivo: ";
        QTest::newRow("with several chunks on their way")
            << 12 * mebibyte << "Nao foi possivel gravar o arquivo: ";
        QTest::newRow("after the last chunk")
            << qint64(9) << "Nao foi possivel finalizar o arquivo: ";
    }

    void aDriveThatLosesItsMediumDuringACopyLeavesNoPartOfIt()
    {
        QFETCH(qint64, size);
        QFETCH(QString, message);
        const Drive host;
        const Drive drive = Drive::ext4(16 * mebibyte);
        const QString source = host.write("source", QByteArray(size, 'x'));
        afterTheFirstChunk([&] { drive.loseMedium(); });
        QCOMPARE(copyFile(source, drive.path("target")), message + drive.path("target"));
        QCOMPARE(drive.names().filter("target"), QStringList());
    }

    void aDriveThatIsUnmountedDuringACopyLeavesNoPartOfIt()
    {
        const Drive host;
        const Drive drive = Drive::tmpfs(8 * mebibyte);
        const QString source = host.writeSparse("source", 3 * mebibyte);
        afterTheFirstChunk(
            [&] { umount2(QFile::encodeName(drive.path()).constData(), MNT_DETACH); });
        QCOMPARE(copyFile(source, drive.path("target")),
                 "Nao foi possivel finalizar o arquivo: " + drive.path("target"));
        QCOMPARE(drive.tree(), QStringList());
    }
};

TESSARINE_MOUNTING_TEST_MAIN(QCoreApplication, CopyFailureTest)
#include "copy_failure_test.moc"
