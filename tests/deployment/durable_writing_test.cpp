#include "deployment/DurableWriting.h"
#include "tests/support/Drive.h"
#include "tests/support/OtherFileSystem.h"
#include "tests/support/TestMain.h"

#include <QSaveFile>
#include <QTest>

#include <linux/magic.h>

using Tessarine::Deployment::commitFlushed;
using Tessarine::Deployment::FileSystemSync;
using Tessarine::Deployment::makeDirectory;
using Tessarine::Deployment::writeBackChunk;
using TestSupport::Drive;
using TestSupport::OtherFileSystem;

namespace
{

constexpr qint64 mebibyte = 1'048'576;

qsizetype openDescriptors()
{
    return QDir("/proc/self/fd").entryList(QDir::AllEntries | QDir::NoDotAndDotDot).size();
}

} // namespace

// What replacing a file's contents does on drives that have no room, or that fail, and what a sync
// of the whole drive tells about it.
class DurableWritingTest : public QObject
{
    Q_OBJECT

    static bool replace(const QString &path, const QByteArray &contents)
    {
        QSaveFile file(path);
        return file.open(QIODevice::WriteOnly) && file.write(contents) == contents.size()
               && commitFlushed(&file);
    }

    static void addFatAndExfat()
    {
        QTest::addColumn<long>("type");
        QTest::newRow("FAT") << long(MSDOS_SUPER_MAGIC);
        QTest::newRow("exFAT") << long(EXFAT_SUPER_MAGIC);
    }

private Q_SLOTS:
    void aFileThatFitsIsReplaced()
    {
        const Drive drive;
        drive.write("file", "old");
        QVERIFY(replace(drive.path("file"), "new"));
        QCOMPARE(drive.tree(), QStringList{"file: new"});
    }

    // The reason why the function exists: older Qt commits without a look at its last writing, so
    // that nothing is left of the file. Newer Qt looks for itself.
    void committingAloneCutsAFileOnAFullDriveUnlessQtLooks()
    {
        const Drive drive = Drive::tmpfs(65'536);
        drive.write("file", "old");
        drive.fill();
        QSaveFile file(drive.path("file"));
        QVERIFY2(file.open(QIODevice::WriteOnly), qPrintable(file.errorString()));
        QCOMPARE(file.write(QByteArray(100, 'n')), 100);
        const bool committed = file.commit();
        qInfo("This Qt %s", committed ? "cuts the file" : "looks for itself");
        QCOMPARE(drive.read("file"), committed ? QByteArray() : QByteArray("old"));
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
        QVERIFY2(file.open(QIODevice::WriteOnly), qPrintable(file.errorString()));
        QCOMPARE(file.write(QByteArray(524'288, 'n')), 524'288);
        QCOMPARE(file.write("the rest"), 8);
        QVERIFY(!commitFlushed(&file));
        QCOMPARE(drive.tree(), before);
    }

    // The cache takes the bytes; that the medium doesn't shows only when they are synced to it.
    void aFailingMediumLeavesTheOldFile()
    {
        const Drive drive = Drive::ext4OnShortMedium(16'777'216, 3'145'728);
        drive.write("file", "old");
        QVERIFY(FileSystemSync(drive.path()).sync());
        const QStringList before = drive.tree();
        QVERIFY(!replace(drive.path("file"), QByteArray(6'000'000, 'n')));
        QCOMPARE(drive.tree(), before);
    }

    void aFailingMediumShowsWhileTheFileIsWritten()
    {
        const Drive drive = Drive::ext4(16 * mebibyte);
        QSaveFile file(drive.path("file"));
        QVERIFY2(file.open(QIODevice::WriteOnly), qPrintable(file.errorString()));
        const auto writeChunk = [&file] {
            return file.write(QByteArray(mebibyte, 'n')) == mebibyte
                   && writeBackChunk(&file, mebibyte, mebibyte);
        };
        QVERIFY(writeChunk());
        QVERIFY(writeChunk());
        drive.loseMedium();
        QVERIFY(!(writeChunk() && writeChunk()));
    }

    // Of a file that is still being written only the last chunk may be missing on the medium.
    void theMediumKeepsUpWithTheWriter()
    {
        const Drive drive = Drive::ext4(16 * mebibyte);
        QSaveFile file(drive.path("file"));
        QVERIFY2(file.open(QIODevice::WriteOnly), qPrintable(file.errorString()));
        const QByteArray first("first chunk" + QByteArray(mebibyte, 'x'));
        const QByteArray second("second chunk" + QByteArray(mebibyte, 'x'));
        QCOMPARE(file.write(first), first.size());
        QVERIFY(writeBackChunk(&file, first.size(), first.size()));
        QCOMPARE(file.write(second), second.size());
        QVERIFY(writeBackChunk(&file, second.size(), second.size()));
        QVERIFY(drive.medium().contains("first chunk"));
    }

    void aFileThatCannotBeWrittenBackIsLeftToTheCommit()
    {
        QSaveFile file("/dev/null");
        file.setDirectWriteFallback(true);
        QVERIFY2(file.open(QIODevice::WriteOnly), qPrintable(file.errorString()));
        QCOMPARE(file.write(QByteArray(mebibyte, 'n')), mebibyte);
        QVERIFY(writeBackChunk(&file, mebibyte, mebibyte));
        file.cancelWriting();
    }

    void syncingReachesTheMedium()
    {
        const Drive drive = Drive::ext4(8 * mebibyte);
        const QByteArray marker("not in the image before it is synced");
        drive.write("file", marker);
        QVERIFY(!drive.medium().contains(marker));
        QVERIFY(FileSystemSync(drive.path()).sync());
        QVERIFY(drive.medium().contains(marker));
    }

    void syncingReportsWhatWasLostSinceItsObjectWasMade()
    {
        const Drive drive = Drive::ext4(8 * mebibyte);
        FileSystemSync before(drive.path());
        drive.write("file", "lost");
        drive.loseMedium();
        QVERIFY(!before.sync());
        QCOMPARE(before.errorString(), QString::fromLocal8Bit(strerror(EIO)));
    }

    void aNewNameThatTheJournalCannotTakeIsReported()
    {
        const Drive drive = Drive::ext4(8 * mebibyte);
        drive.write("old name", "x");
        FileSystemSync directory(drive.path());
        QVERIFY(directory.sync());
        QVERIFY(QFile::rename(drive.path("old name"), drive.path("name")));
        drive.loseMedium();
        QVERIFY(!directory.syncRenamed("name"));
    }

    // The error is reported to whoever asks first, and to all who had the drive open before.
    void aLossThatSomebodyElseWasToldOfIsReportedToo()
    {
        const Drive drive = Drive::ext4(8 * mebibyte);
        FileSystemSync before(drive.path());
        drive.write("file", "lost");
        drive.loseMedium();
        QVERIFY(!FileSystemSync(drive.path()).sync());
        QVERIFY(!before.sync());
    }

    void syncingAnAbsentDirectoryFails()
    {
        const Drive drive;
        FileSystemSync absent(drive.path("absent"));
        QVERIFY(!absent.sync());
        QCOMPARE(absent.errorString(), QString::fromLocal8Bit(strerror(EBADF)));
        QVERIFY(!absent.fileSystem());
        QCOMPARE(drive.tree(), QStringList());
    }

    void theFileSystemsOfTwoDrivesAreTold()
    {
        const Drive first = Drive::tmpfs(mebibyte);
        const Drive second = Drive::tmpfs(mebibyte);
        first.makeDirectory("directory");
        const auto fileSystem = FileSystemSync(first.path()).fileSystem();
        QVERIFY(fileSystem.has_value());
        QCOMPARE(FileSystemSync(first.path("directory")).fileSystem(), fileSystem);
        QVERIFY(FileSystemSync(second.path()).fileSystem() != fileSystem);
    }

    void onFatAFileIsReplacedAndSyncedUnderItsName_data() { addFatAndExfat(); }

    void onFatAFileIsReplacedAndSyncedUnderItsName()
    {
        QFETCH(long, type);
        const OtherFileSystem fat(type);
        const Drive drive;
        drive.write("file", "old");
        QVERIFY(replace(drive.path("file"), "new"));
        QCOMPARE(drive.tree(), QStringList{"file: new"});
    }

    void onFatADirectoryIsMadeWithThoseAboveIt_data() { addFatAndExfat(); }

    void onFatADirectoryIsMadeWithThoseAboveIt()
    {
        QFETCH(long, type);
        const OtherFileSystem fat(type);
        const Drive drive;
        const QStringList made{"one/", "one/two/", "one/two/three/"};
        QVERIFY(makeDirectory(drive.path("one/two/three/")));
        QCOMPARE(drive.tree(), made);
        QVERIFY(makeDirectory(drive.path("one/two")));
        QCOMPARE(drive.tree(), made);
    }

    void onFatADirectoryThatTheMediumDoesNotTakeIsNotThere()
    {
        const OtherFileSystem fat(MSDOS_SUPER_MAGIC);
        const Drive drive = Drive::ext4(8 * mebibyte);
        drive.loseMedium();
        QVERIFY(!makeDirectory(drive.path("directory")));
        QVERIFY(!QFileInfo::exists(drive.path("directory")));
    }

    void noDescriptorStaysOpen()
    {
        const Drive drive;
        const qsizetype before = openDescriptors();
        QVERIFY(FileSystemSync(drive.path()).sync());
        QVERIFY(replace(drive.path("file"), "new"));
        QVERIFY(FileSystemSync(drive.path()).syncRenamed("file"));
        QCOMPARE(openDescriptors(), before);
    }
};

TESSARINE_MOUNTING_TEST_MAIN(QCoreApplication, DurableWritingTest)
#include "durable_writing_test.moc"
