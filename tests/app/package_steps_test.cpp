#define main tessarineConfigMain
#include "app/TessarineConfig.cpp"
#undef main

#include "tests/support/ChildProcess.h"
#include "tests/support/Drive.h"
#include "tests/support/ListComparison.h"
#include "tests/support/OwnClock.h"
#include "tests/support/PeakMemory.h"
#include "tests/support/StubCommand.h"
#include "tests/support/SyncWatch.h"
#include "tests/support/TestMain.h"
#include "tests/support/Waiting.h"
#include "tests/support/ZipFile.h"

#include <QTest>

#include <pty.h>
#include <signal.h>
#include <sys/stat.h>
#include <utmp.h>

using TestSupport::asUnprivileged;
using TestSupport::completePackage;
using TestSupport::Drive;
using TestSupport::inChild;
using TestSupport::longestWait;
using TestSupport::whenSynced;
using TestSupport::ZipFile;

namespace
{

const QString done = QStringLiteral("done");

// What comes of a step that may say why it failed, and says nothing otherwise.
template <typename Step>
QString outcomeOf(const Step &step)
{
    QString error;
    return step(&error) ? done + error : error;
}

QByteArray processName(const QProcess &process)
{
    QFile file(QStringLiteral("/proc/%1/comm").arg(process.processId()));
    return file.open(QIODevice::ReadOnly) ? file.readAll().trimmed() : QByteArray();
}

mode_t permissionsOf(const QByteArray &file)
{
    struct stat status = {};
    return stat(file.constData(), &status) == 0 ? status.st_mode & 0777U : 0;
}

volatile sig_atomic_t minutesPassed;

void letAMinutePass(int)
{
    TestSupport::advanceClock(60);
    minutesPassed = minutesPassed + 1;
}

} // namespace

class PackageStepsTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<Drive> drive;

    QString path(const QString &name) const { return drive->path(name); }

    // Mounts a file system that the next clean-up takes away again.
    void mountTmpfs(const QString &name, const char *options)
    {
        drive->makeDirectory(name);
        if (mount("tmpfs", qPrintable(path(name)), "tmpfs", 0, options) != 0)
            TestSupport::reportMissing(QStringLiteral("Can't mount ") + path(name));
        mounted.prepend(path(name));
    }
    QStringList mounted;

    QString extract(const QByteArray &zip)
    {
        const QString package = drive->write(QStringLiteral("package.zip"), zip);
        return outcomeOf([&](QString *error) {
            return extractZip(package, path(QStringLiteral("extracted")), error);
        });
    }
    void compareUnzipsOwnWords(const QByteArray &zip)
    {
        const QString outcome = extract(zip);
        const QString head = QStringLiteral("Falha ao extrair ZIP: ");
        QVERIFY2(outcome.startsWith(head) && outcome.size() > head.size(), qPrintable(outcome));
    }

    QString extractCompletePackage()
    {
        return extract(completePackage(QStringLiteral("1")).bytes());
    }

    QString validate() const
    {
        return outcomeOf([this](QString *error) {
            return validateExtractedPackage(path(QStringLiteral("extracted")), error);
        });
    }

    // The first program called unzip that the extraction finds.
    void stubUnzip(const QByteArray &script)
    {
        const QString stub = drive->write(QStringLiteral("bin/unzip"), "#!/bin/sh\n" + script);
        QFile::setPermissions(stub, QFileDevice::ReadOwner | QFileDevice::ExeOwner);
        qputenv("PATH", qPrintable(path(QStringLiteral("bin"))) + QByteArray(":/usr/bin:/bin"));
    }

    void writeOldBundle() const { drive->write(QStringLiteral("drive/windows/a"), "old"); }
    void writeNewBundle() const { drive->write(QStringLiteral("drive/staged/a"), "new"); }

    QString swap() const
    {
        return outcomeOf([this](QString *error) {
            return replaceBundleDirectory(path(QStringLiteral("drive/windows")),
                                          path(QStringLiteral("drive/staged")),
                                          path(QStringLiteral("drive/backup")), error);
        });
    }
    QStringList swapped() const { return drive->tree(QStringLiteral("drive")); }

    QString applyingFailed() const
    {
        return QStringLiteral("Não foi possível aplicar novo bundle em: ")
               + path(QStringLiteral("drive/windows"));
    }

    QString remove(const QString &name) const
    {
        return outcomeOf([&](QString *error) { return removeDirectory(path(name), error); });
    }

    const QByteArray formerPath = qgetenv("PATH");

private Q_SLOTS:
    void initTestCase() { qputenv("LC_ALL", "C.UTF-8"); }

    void init() { drive = std::make_unique<Drive>(); }

    void cleanup()
    {
        whenSynced = nullptr;
        qputenv("PATH", formerPath);
        for (const QString &mountPoint : std::as_const(mounted))
            umount2(qPrintable(mountPoint), MNT_DETACH);
        mounted.clear();
        drive.reset();
    }

    // ---- extraction

    void wholeZipIsExtracted()
    {
        QCOMPARE(extract(ZipFile()
                             .file(QStringLiteral("a/b.txt"), QStringLiteral("content"))
                             .directory(QStringLiteral("empty/"))
                             .bytes()),
                 done);
        QCOMPARE(drive->tree(QStringLiteral("extracted")),
                 QStringList({"a/", "a/b.txt: content", "empty/"}));
    }

    void namesWithBlanksAndAccentsAreKept()
    {
        const QString name = QStringLiteral("Ação de graças/não é %1.txt");
        QCOMPARE(extract(ZipFile().file(name, QStringLiteral("x")).bytes()), done);
        QCOMPARE(drive->read(QStringLiteral("extracted/") + name), QByteArray("x"));
    }

    void executeBitsAreThoseOfTheZip()
    {
        QCOMPARE(extract(ZipFile()
                             .file(QStringLiteral("program"), QStringLiteral("x"), true)
                             .file(QStringLiteral("text"), QStringLiteral("x"))
                             .bytes()),
                 done);
        QCOMPARE(QFileInfo(path(QStringLiteral("extracted/program"))).isExecutable(), true);
        QCOMPARE(QFileInfo(path(QStringLiteral("extracted/text"))).isExecutable(), false);
    }

    void nameThatStandsTwiceIsOverwrittenWithoutAQuestion()
    {
        QCOMPARE(extract(ZipFile()
                             .file(QStringLiteral("a"), QStringLiteral("first"))
                             .file(QStringLiteral("a"), QStringLiteral("second"))
                             .bytes()),
                 done);
        QCOMPARE(drive->read(QStringLiteral("extracted/a")), QByteArray("second"));
    }

    void entryThatPointsUpwardsStaysInTheDestination()
    {
        extract(ZipFile()
                    .file(QStringLiteral("../outside"), QStringLiteral("x"))
                    .file(QStringLiteral("a/../../outside"), QStringLiteral("x"))
                    .bytes());
        QCOMPARE(drive->names().filter(QStringLiteral("outside")),
                 QStringList({"extracted/a/outside", "extracted/outside"}));
    }

    void entryWithAnAbsoluteNameIsRefused()
    {
        const QString outside = path(QStringLiteral("outside"));
        compareUnzipsOwnWords(ZipFile().file(outside, QStringLiteral("x")).bytes());
        QVERIFY2(!QFileInfo::exists(outside), qPrintable(outside));
    }

    void linkDoesNotLeadAnEntryOutOfTheDestination()
    {
        drive->makeDirectory(QStringLiteral("outside"));
        extract(ZipFile()
                    .link(QStringLiteral("link"), path(QStringLiteral("outside")))
                    .file(QStringLiteral("link/file"), QStringLiteral("x"))
                    .bytes());
        QCOMPARE(drive->names(QStringLiteral("outside")), QStringList());
    }

    void brokenZipEndsWithTheToolsOwnWords_data()
    {
        QTest::addColumn<QByteArray>("zip");
        const QByteArray whole = completePackage(QStringLiteral("1")).bytes();
        QTest::newRow("no zip") << QByteArray("this is no zip file");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("cut") << whole.left(whole.size() / 2);
        QByteArray flipped = ZipFile().zeros(QStringLiteral("a"), 100000).bytes();
        flipped[45] = static_cast<char>(~flipped.at(45));
        QTest::newRow("damaged content") << flipped;
    }
    void brokenZipEndsWithTheToolsOwnWords()
    {
        QFETCH(QByteArray, zip);
        compareUnzipsOwnWords(zip);
    }

    void encryptedEntryIsRefusedWithoutAskingForItsPassword()
    {
        drive->write(QStringLiteral("a"), "secret");
        QProcess zip;
        zip.setWorkingDirectory(drive->path());
        zip.start(QStringLiteral("zip"),
                  {QStringLiteral("-q"), QStringLiteral("-P"), QStringLiteral("password"),
                   QStringLiteral("package.zip"), QStringLiteral("a")});
        QVERIFY2(zip.waitForFinished(longestWait), qPrintable(zip.errorString()));
        QCOMPARE(zip.exitCode(), 0);
        // At a terminal, where a person has already typed an answer.
        const QStringList report = inChild([this]() -> QStringList {
            int person = -1;
            int terminal = -1;
            if (openpty(&person, &terminal, nullptr, nullptr, nullptr) != 0
                || login_tty(terminal) != 0 || write(person, "password\n", 9) != 9)
                return {QStringLiteral("no terminal")};
            return {extract(drive->read(QStringLiteral("package.zip")))};
        });
        QVERIFY2(report.first().contains(QStringLiteral("unable to get password")),
                 qPrintable(report.join(u'\n')));
    }

    void driveThatFillsUpEndsTheExtractionAtOnce()
    {
        mountTmpfs(QStringLiteral("extracted"), "size=1m");
        const QString outcome = extract(ZipFile()
                                            .zeros(QStringLiteral("bomb"), 50000000)
                                            .file(QStringLiteral("after"), QStringLiteral("x"))
                                            .bytes());
        QVERIFY2(outcome.contains(QStringLiteral("write error (disk full?)")), qPrintable(outcome));
    }

    void destinationThatCannotBeMadeIsNamed()
    {
        drive->write(QStringLiteral("extracted"), "in the way");
        QCOMPARE(extract(ZipFile().file(QStringLiteral("a"), QStringLiteral("x")).bytes()),
                 QStringLiteral("Não foi possível criar staging: %1")
                     .arg(path(QStringLiteral("extracted"))));
    }

    void absentToolLeavesJustTheSentencesHead()
    {
        qputenv("PATH", qPrintable(path(QStringLiteral("bin"))));
        QCOMPARE(extract("x"), QStringLiteral("Falha ao extrair ZIP: "));
    }

    void toolsOutputStandsBeforeItsErrorsWithNothingBetween()
    {
        stubUnzip("echo -n errors >&2; echo -n 'output %2'; exit 1\n");
        QCOMPARE(extract("x"), QStringLiteral("Falha ao extrair ZIP: output %2errors"));
    }

    void killedToolIsAFailureWithWhatItPrinted()
    {
        stubUnzip("echo -n begun; kill -9 $$\n");
        QCOMPARE(extract("x"), QStringLiteral("Falha ao extrair ZIP: begun"));
    }

    void toolThatNeverEndsIsAFailureAfterThreeMinutes()
    {
        minutesPassed = 0;
        signal(SIGUSR1, letAMinutePass);
        // Each minute passes while this process waits.
        stubUnzip("echo begun\nwhile :; do\n"
                  "until grep -q '^State:.S' /proc/$PPID/status; do :; done\n"
                  "kill -USR1 $PPID\ndone\n");
        QCOMPARE(extract("x"), QStringLiteral("Falha ao extrair ZIP: begun\n"));
        signal(SIGUSR1, SIG_DFL);
        QCOMPARE(int(minutesPassed), 3);
    }

    void toolThatPrintsWithoutEndIsKilledBeforeItFillsTheMemory()
    {
        stubUnzip("exec yes error >&2\n");
        const TestSupport::PeakMemoryWatch memory;
        const QString outcome = extract("zip").left(100);
        QVERIFY2(outcome.startsWith(QStringLiteral("Falha ao extrair ZIP: error\n")),
                 qPrintable(outcome));
        QVERIFY(memory.growth() < 256'000'000);
    }

    // So it goes where the drive's files are another user's, whose permissions can't be changed.
    void complaintAboutEachOfThousandsOfFilesIsNoFailure()
    {
        stubUnzip("yes 'fchmod (file attributes) error: Operation not permitted' | "
                  "head -n 70000 >&2\n");
        QCOMPARE(extract("x"), done);
    }

    void toolIsCalledQuietlyAndOverwriting()
    {
        stubUnzip("printf '<%s>' \"$@\"; exit 3\n");
        QCOMPARE(extract("x"),
                 QStringLiteral("Falha ao extrair ZIP: <-q><-o><%1><-d><%2>")
                     .arg(path(QStringLiteral("package.zip")), path(QStringLiteral("extracted"))));
    }

    // ---- validation

    void completePackageIsAccepted()
    {
        QCOMPARE(extractCompletePackage(), done);
        QCOMPARE(validate(), done);
    }

    void firstMissingFileIsNamed_data()
    {
        QTest::addColumn<QString>("name");
        for (const char *name :
             {"windows/Tessarine.exe", "windows/platforms/qwindows.dll", "linux/Tessarine",
              "linux/Tessarine-Linux.sh", "linux/qt.conf", "linux/lib/libssl.so.3",
              "linux/plugins/tls/libqopensslbackend.so"})
            QTest::newRow(name) << QString::fromLatin1(name);
    }
    void firstMissingFileIsNamed()
    {
        QFETCH(QString, name);
        const QString missing = path(QStringLiteral("extracted/Tessarine/") + name);
        QCOMPARE(extractCompletePackage(), done);
        QVERIFY2(QFile::remove(missing), qPrintable(missing));
        // What stands behind it in the order isn't looked at any more.
        if (!name.contains(QStringLiteral("openssl")))
            QDir(path(QStringLiteral("extracted/Tessarine/linux/plugins"))).removeRecursively();
        QCOMPARE(validate(), QStringLiteral("Pacote sem arquivo obrigatório: %1").arg(missing));
    }

    void packageWithoutItsTopDirectoryFailsWithTheFirstFile()
    {
        QCOMPARE(extract(ZipFile()
                             .file(QStringLiteral("windows/Tessarine.exe"), QStringLiteral("x"))
                             .bytes()),
                 done);
        QCOMPARE(validate(),
                 QStringLiteral("Pacote sem arquivo obrigatório: %1")
                     .arg(path(QStringLiteral("extracted/Tessarine/windows/Tessarine.exe"))));
    }

    void packageWithOnlyALinuxBundleFailsWithTheFirstFile()
    {
        QCOMPARE(extractCompletePackage(), done);
        QVERIFY(QDir(path(QStringLiteral("extracted/Tessarine/windows"))).removeRecursively());
        QCOMPARE(validate(),
                 QStringLiteral("Pacote sem arquivo obrigatório: %1")
                     .arg(path(QStringLiteral("extracted/Tessarine/windows/Tessarine.exe"))));
    }

    void emptyFileOrDirectoryOfARequiredNamePasses()
    {
        QCOMPARE(extractCompletePackage(), done);
        const QString executable = path(QStringLiteral("extracted/Tessarine/linux/Tessarine"));
        QVERIFY2(QFile::remove(executable) && QDir().mkpath(executable), qPrintable(executable));
        drive->write(QStringLiteral("extracted/Tessarine/linux/qt.conf"), "");
        QCOMPARE(validate(), done);
    }

    // ---- replacement

    void swapKeepsTheOldDirectoryAsBackup()
    {
        writeOldBundle();
        writeNewBundle();
        QCOMPARE(swap(), done);
        QCOMPARE(swapped(),
                 QStringList({"backup/", "backup/a: old", "windows/", "windows/a: new"}));
    }

    void absentTargetGetsTheSourceWithoutABackup()
    {
        writeNewBundle();
        QCOMPARE(swap(), done);
        QCOMPARE(swapped(), QStringList({"windows/", "windows/a: new"}));
    }

    void backupOfAnEarlierRunIsEmptiedFirst()
    {
        writeOldBundle();
        writeNewBundle();
        drive->write(QStringLiteral("drive/backup/older"), "older");
        QCOMPARE(swap(), done);
        QCOMPARE(swapped(),
                 QStringList({"backup/", "backup/a: old", "windows/", "windows/a: new"}));
    }

    void backupOfAnEarlierRunIsLostEvenIfTheSwapFails()
    {
        writeOldBundle();
        drive->write(QStringLiteral("drive/backup/older"), "older");
        QCOMPARE(swap(), applyingFailed());
        QCOMPARE(swapped(), QStringList({"windows/", "windows/a: old"}));
    }

    void backupThatCannotBeRemovedLeavesTheTargetUntouched()
    {
        writeOldBundle();
        writeNewBundle();
        mountTmpfs(QStringLiteral("drive/backup/mounted"), "size=1m");
        QCOMPARE(swap(), QStringLiteral("Não foi possível remover: %1")
                             .arg(path(QStringLiteral("drive/backup"))));
        QCOMPARE(swapped(), QStringList({"backup/", "backup/mounted/", "staged/", "staged/a: new",
                                         "windows/", "windows/a: old"}));
    }

    void targetThatCannotBeMovedStaysInPlace()
    {
        mountTmpfs(QStringLiteral("drive/windows"), "size=1m");
        writeOldBundle();
        writeNewBundle();
        QCOMPARE(swap(), QStringLiteral("Não foi possível criar backup de: %1")
                             .arg(path(QStringLiteral("drive/windows"))));
        QCOMPARE(swapped(),
                 QStringList({"staged/", "staged/a: new", "windows/", "windows/a: old"}));
    }

    void sourceThatCannotBeMovedBringsTheOldDirectoryBack()
    {
        writeOldBundle();
        mountTmpfs(QStringLiteral("drive/staged"), "size=1m");
        writeNewBundle();
        QCOMPARE(swap(), applyingFailed());
        QCOMPARE(swapped(),
                 QStringList({"staged/", "staged/a: new", "windows/", "windows/a: old"}));
    }

    void absentSourceBringsTheOldDirectoryBack()
    {
        writeOldBundle();
        QCOMPARE(swap(), applyingFailed());
        QCOMPARE(swapped(), QStringList({"windows/", "windows/a: old"}));
    }

    void absentSourceAndTargetLeaveNothing()
    {
        drive->makeDirectory(QStringLiteral("drive"));
        QCOMPARE(swap(), applyingFailed());
        QCOMPARE(swapped(), QStringList());
    }

    void driveThatTurnsReadOnlyBetweenTheRenamesKeepsTheOldDirectoryAsBackup()
    {
        mountTmpfs(QStringLiteral("drive"), "size=1m");
        writeOldBundle();
        writeNewBundle();
        whenSynced = [this] {
            mount(nullptr, qPrintable(path(QStringLiteral("drive"))), nullptr,
                  MS_REMOUNT | MS_RDONLY, nullptr);
        };
        QCOMPARE(swap(), applyingFailed());
        QCOMPARE(swapped(), QStringList({"backup/", "backup/a: old", "staged/", "staged/a: new"}));
    }

    void driveIsSyncedAfterEachRename()
    {
        writeOldBundle();
        writeNewBundle();
        QStringList seen;
        whenSynced = [&] { seen.append(swapped().filter(QStringLiteral(": ")).join(u' ')); };
        QCOMPARE(swap(), done);
        QCOMPARE(seen,
                 QStringList({"backup/a: old staged/a: new", "backup/a: old windows/a: new"}));
    }

    // ---- removal

    void absentPathIsAlreadyRemoved() { QCOMPARE(remove(QStringLiteral("absent")), done); }

    void removalNeedsNobodyToTell()
    {
        mountTmpfs(QStringLiteral("mounted"), "size=1m");
        QCOMPARE(removeDirectory(path(QStringLiteral("absent")), nullptr), true);
        QCOMPARE(removeDirectory(path(QStringLiteral("mounted")), nullptr), false);
    }

    void wholeTreeIsRemoved()
    {
        drive->write(QStringLiteral("tree/a/.hidden"), "x");
        drive->write(QStringLiteral("tree/b"), "x");
        QCOMPARE(remove(QStringLiteral("tree")), done);
        QCOMPARE(drive->names(), QStringList());
    }

    void namesThatAreNoUtf8AreRemovedToo()
    {
        const QByteArray name = QFile::encodeName(drive->makeDirectory(QStringLiteral("tree")));
        QCOMPARE(mkdir(name + "/\xFF", 0700), 0);
        QCOMPARE(mknod(name + "/\xFF/\xE7", S_IFREG | 0600, 0), 0);
        QCOMPARE(remove(QStringLiteral("tree")), done);
        QCOMPARE(drive->names(), QStringList());
    }

    void linkInATreeIsRemovedAndNotFollowed()
    {
        drive->write(QStringLiteral("document"), "precious");
        drive->write(QStringLiteral("folder/document"), "precious");
        drive->link(QStringLiteral("tree/to file"), path(QStringLiteral("document")));
        drive->link(QStringLiteral("tree/to folder"), path(QStringLiteral("folder")));
        QCOMPARE(remove(QStringLiteral("tree")), done);
        QCOMPARE(drive->tree(),
                 QStringList({"document: precious", "folder/", "folder/document: precious"}));
    }

    void linkInTheDirectorysPlaceIsRemovedAndNotFollowed()
    {
        drive->write(QStringLiteral("folder/document"), "precious");
        drive->link(QStringLiteral("link"), path(QStringLiteral("folder")));
        QCOMPARE(remove(QStringLiteral("link")), done);
        QCOMPARE(drive->tree(), QStringList({"folder/", "folder/document: precious"}));
    }

    void directoriesThatAreReadOnlyAreRemovedAndWhatLinksInThemLeadToStaysReadOnly()
    {
        const QByteArray document =
            QFile::encodeName(drive->write(QStringLiteral("document"), "precious"));
        drive->write(QStringLiteral("tree/closed/locked/a"), "x");
        drive->link(QStringLiteral("tree/closed/link"), path(QStringLiteral("document")));
        drive->giveAway();
        QCOMPARE(chmod(document.constData(), 0400), 0);
        QCOMPARE(chmod(qPrintable(path(QStringLiteral("tree/closed/locked"))), 0), 0);
        QCOMPARE(chmod(qPrintable(path(QStringLiteral("tree/closed"))), 0500), 0);
        QCOMPARE(asUnprivileged([this] { return QStringList{remove(QStringLiteral("tree"))}; }),
                 QStringList{done});
        QCOMPARE(drive->names(), QStringList{"document"});
        QCOMPARE(permissionsOf(document), 0400U);
    }

    void fileInTheDirectorysPlaceIsNotMadeWritable()
    {
        const QByteArray document =
            QFile::encodeName(drive->write(QStringLiteral("document"), "precious"));
        QCOMPARE(chmod(document.constData(), 0400), 0);
        QCOMPARE(remove(QStringLiteral("document")), done);
        QCOMPARE(drive->tree(), QStringList{"document: precious"});
        QCOMPARE(permissionsOf(document), 0400U);
    }

    void linkThatCannotBeRemovedDoesNotMakeWhatItLeadsToWritable()
    {
        const Drive host;
        const QByteArray document =
            QFile::encodeName(host.write(QStringLiteral("document"), "precious"));
        host.giveAway();
        QCOMPARE(chmod(document.constData(), 0400), 0);
        mountTmpfs(QStringLiteral("tree"), "size=1m");
        drive->link(QStringLiteral("tree/link"), host.path(QStringLiteral("document")));
        drive->giveAway();
        mount(nullptr, qPrintable(path(QStringLiteral("tree"))), nullptr, MS_REMOUNT | MS_RDONLY,
              nullptr);
        QCOMPARE(asUnprivileged([this] { return QStringList{remove(QStringLiteral("tree"))}; }),
                 QStringList{QStringLiteral("Não foi possível remover: ")
                             + path(QStringLiteral("tree"))});
        QCOMPARE(permissionsOf(document), 0400U);
    }

    void failedRemovalNamesThePathAndLeavesWhatItCouldNotDelete()
    {
        mountTmpfs(QStringLiteral("tree/mounted"), "size=1m");
        drive->write(QStringLiteral("tree/a"), "x");
        QCOMPARE(remove(QStringLiteral("tree")),
                 QStringLiteral("Não foi possível remover: ") + path(QStringLiteral("tree")));
        QCOMPARE(drive->names(QStringLiteral("tree")), QStringList({"mounted/"}));
    }

    void missingToolToAskForTheMainApplicationCountsAsRunning()
    {
        qputenv("PATH", qPrintable(path(QStringLiteral("bin"))));
        QCOMPARE(isMainApplicationRunning(), true);
    }

    void toolThatDiesOrPrintsWithoutEndCountsAsRunning_data()
    {
        QTest::addColumn<QByteArray>("script");
        QTest::newRow("dies") << QByteArray("kill -SEGV $$");
        QTest::newRow("prints without end") << QByteArray("exec yes");
    }
    void toolThatDiesOrPrintsWithoutEndCountsAsRunning()
    {
        QFETCH(QByteArray, script);
        const TestSupport::StubCommand pgrep(QStringLiteral("pgrep"), script);
        const TestSupport::PeakMemoryWatch memory;
        QCOMPARE(isMainApplicationRunning(), true);
        QVERIFY(memory.growth() < 128'000'000);
    }

    void mainApplicationIsFoundByItsExactName_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("running");
        QTest::newRow("its name") << QStringLiteral("Tessarine") << true;
        QTest::newRow("a longer name") << QStringLiteral("TessarineConfig") << false;
        QTest::newRow("other capitals") << QStringLiteral("tessarine") << false;
    }
    void mainApplicationIsFoundByItsExactName()
    {
        QFETCH(QString, name);
        QFETCH(bool, running);
        QCOMPARE(isMainApplicationRunning(), false);
        QVERIFY(QFile::copy(QStringLiteral("/usr/bin/sleep"), path(name)));
        QProcess process;
        process.start(path(name), {QStringLiteral("60")});
        QVERIFY2(process.waitForStarted(longestWait), qPrintable(process.errorString()));
        QTRY_COMPARE_WITH_TIMEOUT(processName(process), name.toLatin1(), longestWait);
        QCOMPARE(isMainApplicationRunning(), running);
        process.kill();
        process.waitForFinished(longestWait);
    }
};

TESSARINE_MOUNTING_TEST_MAIN(QCoreApplication, PackageStepsTest)

#include "package_steps_test.moc"
