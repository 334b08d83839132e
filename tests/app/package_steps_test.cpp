#define main tessarineConfigMain
#include "app/TessarineConfig.cpp"
#undef main

#include "tests/support/ChildProcess.h"
#include "tests/support/OwnClock.h"
#include "tests/support/PeakMemory.h"
#include "tests/support/StubCommand.h"
#include "tests/support/SyncWatch.h"
#include "tests/support/TestMain.h"
#include "tests/support/ZipFile.h"

#include <QTemporaryDir>
#include <QTest>

#include <pty.h>
#include <signal.h>
#include <utmp.h>

using TestSupport::completePackage;
using TestSupport::inChild;
using TestSupport::whenSynced;
using TestSupport::ZipFile;

namespace
{

void writeFile(const QString &path, const QByteArray &content)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        TestSupport::reportMissing(path + QStringLiteral(": ") + file.errorString());
}

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
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

    std::unique_ptr<QTemporaryDir> directory;
    QString error;

    QString path(const QString &name) const { return directory->filePath(name); }

    QStringList names(const QString &name = QStringLiteral(".")) const
    {
        return QDir(path(name))
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    }

    // Mounts a file system that the next clean-up takes away again.
    void mountTmpfs(const QString &name, const char *options)
    {
        QDir().mkpath(path(name));
        if (mount("tmpfs", qPrintable(path(name)), "tmpfs", 0, options) != 0)
            TestSupport::reportMissing(QStringLiteral("Can't mount ") + path(name));
        mounted.prepend(path(name));
    }
    QStringList mounted;

    bool extract(const QByteArray &zip)
    {
        writeFile(path(QStringLiteral("package.zip")), zip);
        return extractZip(path(QStringLiteral("package.zip")), path(QStringLiteral("extracted")),
                          &error);
    }

    // The first program called unzip that the extraction finds.
    void stubUnzip(const QByteArray &script)
    {
        const QString stub = path(QStringLiteral("bin/unzip"));
        writeFile(stub, "#!/bin/sh\n" + script);
        QFile::setPermissions(stub, QFileDevice::ReadOwner | QFileDevice::ExeOwner);
        qputenv("PATH", qPrintable(path(QStringLiteral("bin"))) + QByteArray(":/usr/bin:/bin"));
    }

    bool swap()
    {
        return replaceBundleDirectory(path(QStringLiteral("drive/windows")),
                                      path(QStringLiteral("drive/staged")),
                                      path(QStringLiteral("drive/backup")), &error);
    }

    const QByteArray formerPath = qgetenv("PATH");

private Q_SLOTS:
    void initTestCase() { qputenv("LC_ALL", "C.UTF-8"); }

    void init()
    {
        directory = std::make_unique<QTemporaryDir>();
        error = QStringLiteral("before");
    }

    void cleanup()
    {
        whenSynced = nullptr;
        qputenv("PATH", formerPath);
        for (const QString &mountPoint : std::as_const(mounted))
            umount2(qPrintable(mountPoint), MNT_DETACH);
        mounted.clear();
        directory.reset();
    }

    // ---- extraction

    void wholeZipIsExtracted()
    {
        QVERIFY2(extract(ZipFile()
                             .file(QStringLiteral("a/b.txt"), QStringLiteral("content"))
                             .directory(QStringLiteral("empty/"))
                             .bytes()),
                 qPrintable(error));
        QCOMPARE(names(QStringLiteral("extracted")), QStringList({"a", "empty"}));
        QCOMPARE(contentOf(path(QStringLiteral("extracted/a/b.txt"))), QByteArray("content"));
        QCOMPARE(error, QStringLiteral("before"));
    }

    void namesWithBlanksAndAccentsAreKept()
    {
        const QString name = QStringLiteral("Ação de graças/não é %1.txt");
        QVERIFY2(extract(ZipFile().file(name, QStringLiteral("x")).bytes()), qPrintable(error));
        QCOMPARE(contentOf(path(QStringLiteral("extracted/") + name)), QByteArray("x"));
    }

    void executeBitsAreThoseOfTheZip()
    {
        QVERIFY2(extract(ZipFile()
                             .file(QStringLiteral("program"), QStringLiteral("x"), true)
                             .file(QStringLiteral("text"), QStringLiteral("x"))
                             .bytes()),
                 qPrintable(error));
        QVERIFY(QFileInfo(path(QStringLiteral("extracted/program"))).isExecutable());
        QVERIFY(
            !(QFile::permissions(path(QStringLiteral("extracted/text"))) & QFileDevice::ExeOwner));
    }

    void nameThatStandsTwiceIsOverwrittenWithoutAQuestion()
    {
        QVERIFY2(extract(ZipFile()
                             .file(QStringLiteral("a"), QStringLiteral("first"))
                             .file(QStringLiteral("a"), QStringLiteral("second"))
                             .bytes()),
                 qPrintable(error));
        QCOMPARE(contentOf(path(QStringLiteral("extracted/a"))), QByteArray("second"));
    }

    void entryThatPointsUpwardsStaysInTheDestination()
    {
        extract(ZipFile()
                    .file(QStringLiteral("../outside"), QStringLiteral("x"))
                    .file(QStringLiteral("a/../../outside"), QStringLiteral("x"))
                    .bytes());
        QCOMPARE(names(), QStringList({"extracted", "package.zip"}));
    }

    void entryWithAnAbsoluteNameIsRefused()
    {
        const QString outside = path(QStringLiteral("outside"));
        QVERIFY(!extract(ZipFile().file(outside, QStringLiteral("x")).bytes()));
        QVERIFY2(error.startsWith(QStringLiteral("Falha ao extrair ZIP: ")), qPrintable(error));
        QVERIFY(!QFileInfo::exists(outside));
    }

    void linkDoesNotLeadAnEntryOutOfTheDestination()
    {
        QDir().mkpath(path(QStringLiteral("outside")));
        extract(ZipFile()
                    .link(QStringLiteral("link"), path(QStringLiteral("outside")))
                    .file(QStringLiteral("link/file"), QStringLiteral("x"))
                    .bytes());
        QCOMPARE(names(QStringLiteral("outside")), QStringList());
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
        QVERIFY(!extract(zip));
        const QString head = QStringLiteral("Falha ao extrair ZIP: ");
        QVERIFY2(error.startsWith(head) && error.size() > head.size(), qPrintable(error));
    }

    void encryptedEntryIsRefusedWithoutAskingForItsPassword()
    {
        writeFile(path(QStringLiteral("a")), "secret");
        QProcess zip;
        zip.setWorkingDirectory(directory->path());
        zip.start(QStringLiteral("zip"),
                  {QStringLiteral("-q"), QStringLiteral("-P"), QStringLiteral("password"),
                   QStringLiteral("package.zip"), QStringLiteral("a")});
        QVERIFY(zip.waitForFinished() && zip.exitCode() == 0);
        // At a terminal, where a person has already typed an answer.
        const QStringList report = inChild([this]() -> QStringList {
            int person = -1;
            int terminal = -1;
            if (openpty(&person, &terminal, nullptr, nullptr, nullptr) != 0
                || login_tty(terminal) != 0 || write(person, "password\n", 9) != 9)
                return {QStringLiteral("no terminal")};
            extract(contentOf(path(QStringLiteral("package.zip"))));
            return {error};
        });
        QVERIFY2(report.first().contains(QStringLiteral("unable to get password")),
                 qPrintable(report.join(u'\n')));
    }

    void driveThatFillsUpEndsTheExtractionAtOnce()
    {
        mountTmpfs(QStringLiteral("extracted"), "size=1m");
        QVERIFY(!extract(ZipFile()
                             .zeros(QStringLiteral("bomb"), 50000000)
                             .file(QStringLiteral("after"), QStringLiteral("x"))
                             .bytes()));
        QVERIFY2(error.contains(QStringLiteral("write error (disk full?)")), qPrintable(error));
    }

    void destinationThatCannotBeMadeIsNamed()
    {
        writeFile(path(QStringLiteral("extracted")), "in the way");
        QVERIFY(!extract(ZipFile().file(QStringLiteral("a"), QStringLiteral("x")).bytes()));
        QCOMPARE(error, QStringLiteral("Não foi possível criar staging: %1")
                            .arg(path(QStringLiteral("extracted"))));
    }

    void absentToolLeavesJustTheSentencesHead()
    {
        qputenv("PATH", qPrintable(path(QStringLiteral("bin"))));
        QVERIFY(!extract("x"));
        QCOMPARE(error, QStringLiteral("Falha ao extrair ZIP: "));
    }

    void toolsOutputStandsBeforeItsErrorsWithNothingBetween()
    {
        stubUnzip("echo -n errors >&2; echo -n 'output %2'; exit 1\n");
        QVERIFY(!extract("x"));
        QCOMPARE(error, QStringLiteral("Falha ao extrair ZIP: output %2errors"));
    }

    void killedToolIsAFailureWithWhatItPrinted()
    {
        stubUnzip("echo -n begun; kill -9 $$\n");
        QVERIFY(!extract("x"));
        QCOMPARE(error, QStringLiteral("Falha ao extrair ZIP: begun"));
    }

    void toolThatNeverEndsIsAFailureAfterThreeMinutes()
    {
        minutesPassed = 0;
        signal(SIGUSR1, letAMinutePass);
        // Each minute passes while this process waits.
        stubUnzip("echo begun\nwhile :; do\n"
                  "until grep -q '^State:.S' /proc/$PPID/status; do :; done\n"
                  "kill -USR1 $PPID\ndone\n");
        QVERIFY(!extract("x"));
        signal(SIGUSR1, SIG_DFL);
        QCOMPARE(error, QStringLiteral("Falha ao extrair ZIP: begun\n"));
        QCOMPARE(int(minutesPassed), 3);
    }

    void toolThatPrintsWithoutEndIsKilledBeforeItFillsTheMemory()
    {
        stubUnzip("exec yes error >&2\n");
        const qint64 before = TestSupport::peakMemory();
        QVERIFY(!extract("zip"));
        QVERIFY(error.startsWith(QStringLiteral("Falha ao extrair ZIP: error\n")));
        QVERIFY(TestSupport::peakMemory() - before < 256'000'000);
    }

    void toolIsCalledQuietlyAndOverwriting()
    {
        stubUnzip("printf '<%s>' \"$@\"; exit 3\n");
        QVERIFY(!extract("x"));
        QCOMPARE(error,
                 QStringLiteral("Falha ao extrair ZIP: <-q><-o><%1><-d><%2>")
                     .arg(path(QStringLiteral("package.zip")), path(QStringLiteral("extracted"))));
    }

    // ---- validation

    void completePackageIsAccepted()
    {
        QVERIFY2(extract(completePackage(QStringLiteral("1")).bytes()), qPrintable(error));
        QVERIFY(validateExtractedPackage(path(QStringLiteral("extracted")), &error));
        QCOMPARE(error, QStringLiteral("before"));
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
        QVERIFY2(extract(completePackage(QStringLiteral("1")).bytes()), qPrintable(error));
        QVERIFY(QFile::remove(missing));
        // What stands behind it in the order isn't looked at any more.
        if (!name.contains(QStringLiteral("openssl")))
            QDir(path(QStringLiteral("extracted/Tessarine/linux/plugins"))).removeRecursively();
        QVERIFY(!validateExtractedPackage(path(QStringLiteral("extracted")), &error));
        QCOMPARE(error, QStringLiteral("Pacote sem arquivo obrigatório: %1").arg(missing));
    }

    void packageWithoutItsTopDirectoryFailsWithTheFirstFile()
    {
        QVERIFY2(extract(ZipFile()
                             .file(QStringLiteral("windows/Tessarine.exe"), QStringLiteral("x"))
                             .bytes()),
                 qPrintable(error));
        QVERIFY(!validateExtractedPackage(path(QStringLiteral("extracted")), &error));
        QCOMPARE(error,
                 QStringLiteral("Pacote sem arquivo obrigatório: %1")
                     .arg(path(QStringLiteral("extracted/Tessarine/windows/Tessarine.exe"))));
    }

    void packageWithOnlyALinuxBundleFailsWithTheFirstFile()
    {
        QVERIFY2(extract(completePackage(QStringLiteral("1")).bytes()), qPrintable(error));
        QVERIFY(QDir(path(QStringLiteral("extracted/Tessarine/windows"))).removeRecursively());
        QVERIFY(!validateExtractedPackage(path(QStringLiteral("extracted")), &error));
        QCOMPARE(error,
                 QStringLiteral("Pacote sem arquivo obrigatório: %1")
                     .arg(path(QStringLiteral("extracted/Tessarine/windows/Tessarine.exe"))));
    }

    void emptyFileOrDirectoryOfARequiredNamePasses()
    {
        QVERIFY2(extract(completePackage(QStringLiteral("1")).bytes()), qPrintable(error));
        const QString executable = path(QStringLiteral("extracted/Tessarine/linux/Tessarine"));
        QVERIFY(QFile::remove(executable) && QDir().mkpath(executable));
        writeFile(path(QStringLiteral("extracted/Tessarine/linux/qt.conf")), "");
        QVERIFY(validateExtractedPackage(path(QStringLiteral("extracted")), &error));
    }

    // ---- replacement

    void swapKeepsTheOldDirectoryAsBackup()
    {
        writeFile(path(QStringLiteral("drive/windows/a")), "old");
        writeFile(path(QStringLiteral("drive/staged/a")), "new");
        QVERIFY2(swap(), qPrintable(error));
        QCOMPARE(names(QStringLiteral("drive")), QStringList({"backup", "windows"}));
        QCOMPARE(contentOf(path(QStringLiteral("drive/windows/a"))), QByteArray("new"));
        QCOMPARE(contentOf(path(QStringLiteral("drive/backup/a"))), QByteArray("old"));
        QCOMPARE(error, QStringLiteral("before"));
    }

    void absentTargetGetsTheSourceWithoutABackup()
    {
        writeFile(path(QStringLiteral("drive/staged/a")), "new");
        QVERIFY2(swap(), qPrintable(error));
        QCOMPARE(names(QStringLiteral("drive")), QStringList({"windows"}));
        QCOMPARE(error, QStringLiteral("before"));
    }

    void backupOfAnEarlierRunIsEmptiedFirst()
    {
        writeFile(path(QStringLiteral("drive/windows/a")), "old");
        writeFile(path(QStringLiteral("drive/staged/a")), "new");
        writeFile(path(QStringLiteral("drive/backup/older")), "older");
        QVERIFY2(swap(), qPrintable(error));
        QCOMPARE(names(QStringLiteral("drive/backup")), QStringList({"a"}));
    }

    void backupOfAnEarlierRunIsLostEvenIfTheSwapFails()
    {
        writeFile(path(QStringLiteral("drive/windows/a")), "old");
        writeFile(path(QStringLiteral("drive/backup/older")), "older");
        QVERIFY(!swap());
        QCOMPARE(names(QStringLiteral("drive")), QStringList({"windows"}));
        QCOMPARE(contentOf(path(QStringLiteral("drive/windows/a"))), QByteArray("old"));
    }

    void backupThatCannotBeRemovedLeavesTheTargetUntouched()
    {
        writeFile(path(QStringLiteral("drive/windows/a")), "old");
        writeFile(path(QStringLiteral("drive/staged/a")), "new");
        mountTmpfs(QStringLiteral("drive/backup/mounted"), "size=1m");
        QVERIFY(!swap());
        QCOMPARE(error, QStringLiteral("Não foi possível remover: %1")
                            .arg(path(QStringLiteral("drive/backup"))));
        QCOMPARE(contentOf(path(QStringLiteral("drive/windows/a"))), QByteArray("old"));
        QCOMPARE(contentOf(path(QStringLiteral("drive/staged/a"))), QByteArray("new"));
    }

    void targetThatCannotBeMovedStaysInPlace()
    {
        mountTmpfs(QStringLiteral("drive/windows"), "size=1m");
        writeFile(path(QStringLiteral("drive/windows/a")), "old");
        writeFile(path(QStringLiteral("drive/staged/a")), "new");
        QVERIFY(!swap());
        QCOMPARE(error, QStringLiteral("Não foi possível criar backup de: %1")
                            .arg(path(QStringLiteral("drive/windows"))));
        QCOMPARE(names(QStringLiteral("drive")), QStringList({"staged", "windows"}));
        QCOMPARE(contentOf(path(QStringLiteral("drive/windows/a"))), QByteArray("old"));
    }

    void sourceThatCannotBeMovedBringsTheOldDirectoryBack()
    {
        writeFile(path(QStringLiteral("drive/windows/a")), "old");
        mountTmpfs(QStringLiteral("drive/staged"), "size=1m");
        writeFile(path(QStringLiteral("drive/staged/a")), "new");
        QVERIFY(!swap());
        QCOMPARE(error, QStringLiteral("Não foi possível aplicar novo bundle em: %1")
                            .arg(path(QStringLiteral("drive/windows"))));
        QCOMPARE(names(QStringLiteral("drive")), QStringList({"staged", "windows"}));
        QCOMPARE(contentOf(path(QStringLiteral("drive/windows/a"))), QByteArray("old"));
        QCOMPARE(contentOf(path(QStringLiteral("drive/staged/a"))), QByteArray("new"));
    }

    void absentSourceBringsTheOldDirectoryBack()
    {
        writeFile(path(QStringLiteral("drive/windows/a")), "old");
        QVERIFY(!swap());
        QCOMPARE(error, QStringLiteral("Não foi possível aplicar novo bundle em: %1")
                            .arg(path(QStringLiteral("drive/windows"))));
        QCOMPARE(names(QStringLiteral("drive")), QStringList({"windows"}));
    }

    void absentSourceAndTargetLeaveNothing()
    {
        QDir().mkpath(path(QStringLiteral("drive")));
        QVERIFY(!swap());
        QCOMPARE(error, QStringLiteral("Não foi possível aplicar novo bundle em: %1")
                            .arg(path(QStringLiteral("drive/windows"))));
        QCOMPARE(names(QStringLiteral("drive")), QStringList());
    }

    void driveThatTurnsReadOnlyBetweenTheRenamesKeepsTheOldDirectoryAsBackup()
    {
        mountTmpfs(QStringLiteral("drive"), "size=1m");
        writeFile(path(QStringLiteral("drive/windows/a")), "old");
        writeFile(path(QStringLiteral("drive/staged/a")), "new");
        whenSynced = [this] {
            mount(nullptr, qPrintable(path(QStringLiteral("drive"))), nullptr,
                  MS_REMOUNT | MS_RDONLY, nullptr);
        };
        QVERIFY(!swap());
        QCOMPARE(error, QStringLiteral("Não foi possível aplicar novo bundle em: %1")
                            .arg(path(QStringLiteral("drive/windows"))));
        QCOMPARE(names(QStringLiteral("drive")), QStringList({"backup", "staged"}));
        QCOMPARE(contentOf(path(QStringLiteral("drive/backup/a"))), QByteArray("old"));
    }

    void driveIsSyncedAfterEachRename()
    {
        writeFile(path(QStringLiteral("drive/windows/a")), "old");
        writeFile(path(QStringLiteral("drive/staged/a")), "new");
        QList<QStringList> seen;
        whenSynced = [&] { seen.append(names(QStringLiteral("drive"))); };
        QVERIFY2(swap(), qPrintable(error));
        QCOMPARE(seen, QList<QStringList>({{"backup", "staged"}, {"backup", "windows"}}));
    }

    // ---- removal

    void absentPathIsAlreadyRemoved()
    {
        QVERIFY(removeDirectory(path(QStringLiteral("absent")), &error));
        QCOMPARE(error, QStringLiteral("before"));
        QVERIFY(removeDirectory(path(QStringLiteral("absent")), nullptr));
    }

    void wholeTreeIsRemoved()
    {
        writeFile(path(QStringLiteral("tree/a/.hidden")), "x");
        writeFile(path(QStringLiteral("tree/b")), "x");
        QVERIFY(removeDirectory(path(QStringLiteral("tree")), nullptr));
        QCOMPARE(names(), QStringList());
    }

    void linkInATreeIsRemovedAndNotFollowed()
    {
        writeFile(path(QStringLiteral("document")), "precious");
        writeFile(path(QStringLiteral("folder/document")), "precious");
        QDir().mkpath(path(QStringLiteral("tree")));
        QFile::link(path(QStringLiteral("document")), path(QStringLiteral("tree/to file")));
        QFile::link(path(QStringLiteral("folder")), path(QStringLiteral("tree/to folder")));
        QVERIFY(removeDirectory(path(QStringLiteral("tree")), &error));
        QCOMPARE(names(), QStringList({"document", "folder"}));
        QCOMPARE(contentOf(path(QStringLiteral("folder/document"))), QByteArray("precious"));
    }

    void linkInTheDirectorysPlaceIsRemovedAndNotFollowed()
    {
        writeFile(path(QStringLiteral("folder/document")), "precious");
        QFile::link(path(QStringLiteral("folder")), path(QStringLiteral("link")));
        QVERIFY(removeDirectory(path(QStringLiteral("link")), &error));
        QCOMPARE(names(), QStringList{QStringLiteral("folder")});
        QCOMPARE(contentOf(path(QStringLiteral("folder/document"))), QByteArray("precious"));
    }

    void failedRemovalNamesThePathAndLeavesWhatItCouldNotDelete()
    {
        mountTmpfs(QStringLiteral("tree/mounted"), "size=1m");
        writeFile(path(QStringLiteral("tree/a")), "x");
        QVERIFY(!removeDirectory(path(QStringLiteral("tree")), &error));
        QCOMPARE(error,
                 QStringLiteral("Não foi possível remover: %1").arg(path(QStringLiteral("tree"))));
        QCOMPARE(names(QStringLiteral("tree")), QStringList({"mounted"}));
        QVERIFY(!removeDirectory(path(QStringLiteral("tree")), nullptr));
    }

    void missingToolToAskForTheMainApplicationCountsAsRunning()
    {
        qputenv("PATH", qPrintable(path(QStringLiteral("bin"))));
        QVERIFY(isMainApplicationRunning());
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
        const qint64 before = TestSupport::peakMemory();
        QVERIFY(isMainApplicationRunning());
        QVERIFY(TestSupport::peakMemory() - before < 128'000'000);
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
        QVERIFY(!isMainApplicationRunning());
        QVERIFY(QFile::copy(QStringLiteral("/usr/bin/sleep"), path(name)));
        QProcess process;
        process.start(path(name), {QStringLiteral("60")});
        QVERIFY(process.waitForStarted());
        QTRY_COMPARE(contentOf(QStringLiteral("/proc/%1/comm").arg(process.processId())).trimmed(),
                     name.toLatin1());
        QCOMPARE(isMainApplicationRunning(), running);
        process.kill();
        process.waitForFinished();
    }
};

TESSARINE_MOUNTING_TEST_MAIN(QCoreApplication, PackageStepsTest)

#include "package_steps_test.moc"
