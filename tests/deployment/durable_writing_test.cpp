#include "deployment/DurableWriting.h"
#include "tests/support/Drive.h"
#include "tests/support/TestMain.h"

#include <QSaveFile>
#include <QTest>

using TestSupport::Drive;

// What replacing a file's contents does on drives that have no room, or that fail.
class DurableWritingTest : public QObject
{
    Q_OBJECT

    static bool replace(const QString &path, const QByteArray &contents)
    {
        QSaveFile file(path);
        return file.open(QIODevice::WriteOnly) && file.write(contents) == contents.size()
               && Tessarine::Deployment::commitFlushed(&file);
    }

private Q_SLOTS:
    void aFileThatFitsIsReplaced()
    {
        const Drive drive;
        drive.write("file", "old");
        QVERIFY(replace(drive.path("file"), "new"));
        QCOMPARE(drive.tree(), QStringList{"file: new"});
    }

    // The reason why the function exists: this fails once a later Qt looks for itself.
    void committingAloneCutsAFileOnAFullDrive()
    {
        const Drive drive = Drive::tmpfs(65'536);
        drive.write("file", "old");
        drive.fill();
        QSaveFile file(drive.path("file"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(QByteArray(100, 'n')), 100);
        QVERIFY(file.commit());
        QCOMPARE(drive.read("file"), QByteArray());
    }

    void bufferedBytesThatDoNotFitLeaveTheOldFile_data()
    {
        QTest::addColumn<qint64>("room");
        QTest::addColumn<int>("size");
        QTest::newRow("nothing fits") << qint64(0) << 100;
        QTest::newRow("the beginning fits") << qint64(4096) << 9000;
        QTest::newRow("all but the last byte fits") << qint64(4096) << 4097;
        QTest::newRow("a full buffer") << qint64(8192) << 16'384;
    }

    void bufferedBytesThatDoNotFitLeaveTheOldFile()
    {
        QFETCH(qint64, room);
        QFETCH(int, size);
        const Drive drive = Drive::tmpfs(65'536);
        drive.write("file", "old");
        drive.fill(room);
        const QStringList before = drive.tree();
        QVERIFY(!replace(drive.path("file"), QByteArray(size, 'n')));
        QCOMPARE(drive.tree(), before);
    }

    void bufferedBytesThatJustFitAreWritten()
    {
        const Drive drive = Drive::tmpfs(65'536);
        drive.fill(4096);
        QVERIFY(replace(drive.path("file"), QByteArray(4096, 'n')));
        QCOMPARE(drive.read("file"), QByteArray(4096, 'n'));
    }

    void theLastPartialBufferThatDoesNotFitLeavesTheOldFile()
    {
        const Drive drive = Drive::tmpfs(1'048'576);
        drive.write("file", "old");
        drive.fill(524'288);
        const QStringList before = drive.tree();
        QSaveFile file(drive.path("file"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(QByteArray(524'288, 'n')), 524'288);
        QCOMPARE(file.write("the rest"), 8);
        QVERIFY(!Tessarine::Deployment::commitFlushed(&file));
        QCOMPARE(drive.tree(), before);
    }

    // The cache takes the bytes; that the medium doesn't shows only when they are synced to it.
    void aFailingMediumLeavesTheOldFile()
    {
        const Drive drive = Drive::ext4OnShortMedium(16'777'216, 3'145'728);
        drive.write("file", "old");
        Tessarine::Deployment::syncFileSystem(drive.path());
        const QStringList before = drive.tree();
        QVERIFY(!replace(drive.path("file"), QByteArray(6'000'000, 'n')));
        QCOMPARE(drive.tree(), before);
    }

    void syncingReachesTheMedium()
    {
        const Drive drive = Drive::ext4(8'388'608);
        const QByteArray marker("not in the image before it is synced");
        drive.write("file", marker);
        QVERIFY(!drive.medium().contains(marker));
        Tessarine::Deployment::syncFileSystem(drive.path());
        QVERIFY(drive.medium().contains(marker));
    }

    void syncingAnAbsentPathDoesNothing()
    {
        const Drive drive;
        Tessarine::Deployment::syncFileSystem(drive.path("absent"));
        QCOMPARE(drive.tree(), QStringList());
    }
};

TESSARINE_MOUNTING_TEST_MAIN(QCoreApplication, DurableWritingTest)
#include "durable_writing_test.moc"
