#include "deployment/PortableBundleManager.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Drive.h"
#include "tests/support/LiveMemory.h"
#include "tests/support/TestMain.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QTest>
#include <QThread>
#include <QTimer>

#include <sys/stat.h>

using Tessarine::Deployment::PortableBundleManager;
using Tessarine::Deployment::PortableBundleResult;
using TestSupport::asUnprivileged;
using TestSupport::Drive;

namespace
{

constexpr qint64 mebibyte = 1'048'576;

// An event loop that does nothing but note which events it is asked to deliver.
class RecordingDispatcher : public QAbstractEventDispatcher
{
public:
    explicit RecordingDispatcher(QList<QEventLoop::ProcessEventsFlags> *turns)
        : m_turns(turns)
    {
    }

    bool processEvents(QEventLoop::ProcessEventsFlags flags) override
    {
        m_turns->append(flags);
        return false;
    }
    void registerSocketNotifier(QSocketNotifier *) override {}
    void unregisterSocketNotifier(QSocketNotifier *) override {}
    void registerTimer(int, qint64, Qt::TimerType, QObject *) override {}
    bool unregisterTimer(int) override { return false; }
    bool unregisterTimers(QObject *) override { return false; }
    QList<TimerInfo> registeredTimers(QObject *) const override { return {}; }
    int remainingTime(int) override { return -1; }
    void wakeUp() override {}
    void interrupt() override {}

private:
    QList<QEventLoop::ProcessEventsFlags> *m_turns;
};

} // namespace

// The operations through which every byte reaches the drive.
class CopyTest : public QObject
{
    Q_OBJECT

    const PortableBundleManager m_manager{};
    PortableBundleResult m_result;

    // Lets something happen at the first turn of the event loop, that is after the first chunk.
    static void afterTheFirstChunk(const std::function<void()> &event)
    {
        QTimer::singleShot(0, event);
    }

private Q_SLOTS:
    void init() { m_result = {}; }

    // Every operation leaves this to the whole preparation.
    void cleanup() { QVERIFY(!m_result.success); }

    // ensureDirectory

    void missingDirectoriesAreCreatedWithTheirParents()
    {
        const Drive drive;
        QVERIFY(m_manager.ensureDirectory(drive.path("a/b/c"), &m_result));
        QCOMPARE(drive.tree(), (QStringList{"a/", "a/b/", "a/b/c/"}));
        QCOMPARE(m_result.touchedPaths, QStringList{drive.path("a/b/c")});
        QCOMPARE(m_result.message, QString());
    }

    void aDirectoryInPlaceIsTouchedAgain()
    {
        const Drive drive;
        drive.write("a/file", "kept");
        QVERIFY(m_manager.ensureDirectory(drive.path("a"), &m_result));
        QCOMPARE(drive.tree(), (QStringList{"a/", "a/file: kept"}));
        QCOMPARE(m_result.touchedPaths, QStringList{drive.path("a")});
    }

    void aFileInTheWayOfADirectoryIsNamedAndKept()
    {
        const Drive drive;
        drive.write("100%1", "kept");
        QVERIFY(!m_manager.ensureDirectory(drive.path("100%1/b"), &m_result));
        QCOMPARE(m_result.message, "Nao foi possivel criar a pasta: " + drive.path("100%1/b"));
        QCOMPARE(m_result.touchedPaths, QStringList());
        QCOMPARE(drive.tree(), QStringList{"100%1: kept"});
    }

    void aDirectoryOnAReadOnlyDriveIsNotCreated()
    {
        const Drive drive = Drive::tmpfs(mebibyte);
        drive.makeReadOnly();
        QVERIFY(!m_manager.ensureDirectory(drive.path("a"), &m_result));
        QCOMPARE(m_result.message, "Nao foi possivel criar a pasta: " + drive.path("a"));
    }

    void aDirectoryWithoutPermissionIsNotCreated()
    {
        const Drive drive;
        const QStringList report = asUnprivileged([&]() -> QStringList {
            return {QString::number(m_manager.ensureDirectory(drive.path("a"), &m_result)),
                    m_result.message};
        });
        QCOMPARE(report, (QStringList{"0", "Nao foi possivel criar a pasta: " + drive.path("a")}));
    }

    // copyFileReplacing

    void aFileIsCopied_data()
    {
        QTest::addColumn<qint64>("size");
        QTest::newRow("empty") << qint64(0);
        QTest::newRow("one byte") << qint64(1);
        QTest::newRow("a chunk less one byte") << mebibyte - 1;
        QTest::newRow("a chunk") << mebibyte;
        QTest::newRow("a chunk and one byte") << mebibyte + 1;
        QTest::newRow("several chunks") << 3 * mebibyte + 12'345;
    }

    void aFileIsCopied()
    {
        QFETCH(qint64, size);
        QByteArray contents(size, Qt::Uninitialized);
        for (qsizetype i = 0; i < size; ++i)
            contents[i] = static_cast<char>(i / 1021 + i);
        const Drive drive;
        const QString source = drive.write("source", contents);
        QVERIFY(m_manager.copyFileReplacing(source, drive.path("target"), &m_result));
        QVERIFY(drive.read("target") == contents);
        QCOMPARE(drive.names(), (QStringList{"source", "target"}));
        QCOMPARE(m_result.touchedPaths, QStringList{drive.path("target")});
        QCOMPARE(m_result.message, QString());
    }

    void anOlderFileIsReplaced()
    {
        const Drive drive;
        const QString source = drive.write("source", "new");
        drive.write("target", "older");
        QVERIFY(m_manager.copyFileReplacing(source, drive.path("target"), &m_result));
        QCOMPARE(drive.tree(), (QStringList{"source: new", "target: new"}));
    }

    void anEmptySourceEmptiesTheTarget()
    {
        const Drive drive;
        const QString source = drive.write("source", "");
        drive.write("target", "old");
        QVERIFY(m_manager.copyFileReplacing(source, drive.path("target"), &m_result));
        QCOMPARE(drive.tree(), (QStringList{"source: ", "target: "}));
    }

    void equalSizeInPlaceIsNotCopiedAgain()
    {
        const Drive drive;
        const QString source = drive.write("source", "new!");
        drive.write("target", "old!");
        QVERIFY(m_manager.copyFileReplacing(source, drive.path("target"), &m_result));
        QCOMPARE(drive.tree(), (QStringList{"source: new!", "target: old!"}));
        QCOMPARE(m_result.touchedPaths, QStringList{drive.path("target")});
    }

    void equalSizeInPlaceKeepsItsPermissions()
    {
        const Drive drive;
        const QString source = drive.write("source", "new!");
        const QString target = drive.write("target", "old!");
        QFile::setPermissions(target, QFile::ReadOwner);
        const QFile::Permissions before = QFile::permissions(target);
        QVERIFY(m_manager.copyFileReplacing(source, target, &m_result));
        QCOMPARE(QFile::permissions(target), before);
    }

    void aFileIsNotCopiedOntoItself()
    {
        const Drive drive;
        const QString file = drive.write("file", "kept");
        QVERIFY(m_manager.copyFileReplacing(file, file, &m_result));
        QCOMPARE(drive.tree(), QStringList{"file: kept"});
        QCOMPARE(m_result.touchedPaths, QStringList{file});
    }

    // The paths alone decide: nothing has to be there.
    void anAbsentFileIsAlreadyInItsOwnPlace()
    {
        const Drive drive;
        const QString file = drive.path("absent");
        QVERIFY(m_manager.copyFileReplacing(file, file, &m_result));
        QCOMPARE(drive.tree(), QStringList());
        QCOMPARE(m_result.touchedPaths, QStringList{file});
    }

    void aRelativePathAndItsAbsoluteOneAreTheSameFile()
    {
        const Drive drive;
        const QString before = QDir::currentPath();
        QDir::setCurrent(drive.path());
        const bool copied = m_manager.copyFileReplacing("absent", drive.path("absent"), &m_result);
        QDir::setCurrent(before);
        QVERIFY(copied);
        QCOMPARE(drive.tree(), QStringList());
        QCOMPARE(m_result.touchedPaths, QStringList{drive.path("absent")});
    }

    void namesThatDifferInCaseAreDifferentFiles()
    {
        const Drive drive;
        const QString source = drive.write("File", "contents");
        QVERIFY(m_manager.copyFileReplacing(source, drive.path("file"), &m_result));
        QCOMPARE(drive.tree(), (QStringList{"File: contents", "file: contents"}));
    }

    // The paths are compared as text: equal size ends this copy, not the link.
    void aLinkToTheSourceIsLeftAlone()
    {
        const Drive drive;
        const QString source = drive.write("source", "contents");
        drive.link("target", source);
        QVERIFY(m_manager.copyFileReplacing(source, drive.path("target"), &m_result));
        QCOMPARE(drive.tree(), (QStringList{"source: contents", "target -> " + source}));
    }

    void aLinkedSourceBecomesARealFile()
    {
        const Drive drive;
        drive.write("real", "contents");
        const QString source = drive.link("link", "real");
        QVERIFY(m_manager.copyFileReplacing(source, drive.path("target"), &m_result));
        QVERIFY(!QFileInfo(drive.path("target")).isSymLink());
        QCOMPARE(drive.read("target"), QByteArray("contents"));
    }

    void theCopyGetsTheSourcesPermissions()
    {
        const Drive drive;
        const QString source = drive.write("source", "contents");
        chmod(QFile::encodeName(source).constData(), 0750);
        QVERIFY(m_manager.copyFileReplacing(source, drive.path("target"), &m_result));
        QCOMPARE(QFile::permissions(drive.path("target")), QFile::permissions(source));
        QVERIFY(QFile::permissions(source).testFlag(QFile::ExeGroup));
    }

    void aVanishedSourceIsNamedWithoutItsDirectory()
    {
        const Drive drive;
        drive.write("target", "kept");
        QVERIFY(
            !m_manager.copyFileReplacing(drive.path("gone%1"), drive.path("target"), &m_result));
        QCOMPARE(m_result.message, "Nao foi possivel copiar o arquivo: gone%1");
        QCOMPARE(m_result.touchedPaths, QStringList());
        QCOMPARE(drive.tree(), QStringList{"target: kept"});
    }

    void aSourceThatIsADirectoryIsNotCopied()
    {
        const Drive drive;
        drive.makeDirectory("source");
        QVERIFY(
            !m_manager.copyFileReplacing(drive.path("source"), drive.path("target"), &m_result));
        QCOMPARE(m_result.message, "Nao foi possivel copiar o arquivo: source");
        QCOMPARE(drive.tree(), QStringList{"source/"});
    }

    void anUnreadableSourceIsNotCopied()
    {
        const Drive drive;
        const QString source = drive.write("source", "secret");
        QFile::setPermissions(source, QFile::Permissions());
        drive.giveAway();
        const QStringList report = asUnprivileged([&]() -> QStringList {
            return {QString::number(
                        m_manager.copyFileReplacing(source, drive.path("target"), &m_result)),
                    m_result.message};
        });
        QCOMPARE(report, (QStringList{"0", "Nao foi possivel copiar o arquivo: source"}));
        QVERIFY(!drive.exists("target"));
    }

    void aTargetThatIsADirectoryIsNotReplaced()
    {
        const Drive drive;
        const QString source = drive.write("source", "contents");
        drive.write("target%1%2/file", "kept");
        QVERIFY(!m_manager.copyFileReplacing(source, drive.path("target%1%2"), &m_result));
        QCOMPARE(m_result.message, "Nao foi possivel criar o arquivo: " + drive.path("target%1%2"));
        QCOMPARE(drive.tree(),
                 (QStringList{"source: contents", "target%1%2/", "target%1%2/file: kept"}));
    }

    void aTargetInAnAbsentDirectoryIsNotCreated()
    {
        const Drive drive;
        const QString source = drive.write("source", "contents");
        QVERIFY(!m_manager.copyFileReplacing(source, drive.path("absent/target"), &m_result));
        QCOMPARE(m_result.message,
                 "Nao foi possivel criar o arquivo: " + drive.path("absent/target"));
        QCOMPARE(drive.tree(), QStringList{"source: contents"});
    }

    void aTargetOnAReadOnlyDriveIsKept()
    {
        const Drive drive = Drive::tmpfs(mebibyte);
        const QString source = drive.write("source", "contents");
        drive.write("target", "kept");
        drive.makeReadOnly();
        QVERIFY(!m_manager.copyFileReplacing(source, drive.path("target"), &m_result));
        QCOMPARE(m_result.message, "Nao foi possivel criar o arquivo: " + drive.path("target"));
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
        const QStringList report = asUnprivileged([&]() -> QStringList {
            return {QString::number(m_manager.copyFileReplacing(source, target, &m_result)),
                    m_result.message};
        });
        QCOMPARE(report, (QStringList{"0", "Nao foi possivel criar o arquivo: " + target}));
        QCOMPARE(drive.read("directory/target"), QByteArray("kept"));
    }

    void aWriteProtectedTargetIsKept()
    {
        const Drive drive;
        const QString source = drive.write("source", "contents");
        const QString target = drive.write("target", "kept");
        chmod(QFile::encodeName(target).constData(), 0444);
        drive.giveAway();
        const QStringList report = asUnprivileged([&]() -> QStringList {
            return {QString::number(m_manager.copyFileReplacing(source, target, &m_result)),
                    m_result.message};
        });
        QCOMPARE(report, (QStringList{"0", "Nao foi possivel criar o arquivo: " + target}));
        QCOMPARE(drive.read("target"), QByteArray("kept"));
    }

    void aSourceThatStopsToBeReadableIsNamedWithoutItsDirectory()
    {
        const Drive host = Drive::ext4(8 * mebibyte);
        const Drive drive;
        const QString source = host.write("bad%1", QByteArray(3 * mebibyte, 's'));
        drive.write("target", "kept");
        host.dropCache("bad%1");
        host.loseMedium();
        QVERIFY(!m_manager.copyFileReplacing(source, drive.path("target"), &m_result));
        QCOMPARE(m_result.message, "Nao foi possivel ler o arquivo: bad%1");
        QCOMPARE(drive.tree(), QStringList{"target: kept"});
    }

    void aSourceThatGivesLessThanItPromisesEndsTheCopy()
    {
        const QString promisesAPage = QStringLiteral("/sys/kernel/uevent_seqnum");
        const Drive drive;
        drive.write("target", "kept");
        QVERIFY(QFileInfo(promisesAPage).size() > 100);
        QVERIFY(!m_manager.copyFileReplacing(promisesAPage, drive.path("target"), &m_result));
        QCOMPARE(m_result.message, "Nao foi possivel ler o arquivo: uevent_seqnum");
        QCOMPARE(drive.tree(), QStringList{"target: kept"});
    }

    void aSourceThatIsCutDuringTheCopyEndsWhereItNowEnds()
    {
        const Drive drive;
        const QString source = drive.write("source", QByteArray(3 * mebibyte, 's'));
        afterTheFirstChunk([&] { QFile::resize(source, mebibyte); });
        QVERIFY(m_manager.copyFileReplacing(source, drive.path("target"), &m_result));
        QVERIFY(drive.read("target") == QByteArray(mebibyte, 's'));
    }

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
        QVERIFY(!m_manager.copyFileReplacing(source, drive.path("target%1"), &m_result));
        QCOMPARE(m_result.message, "Nao foi possivel gravar o arquivo: " + drive.path("target%1"));
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
        QVERIFY(!m_manager.copyFileReplacing(source, drive.path("target%1"), &m_result));
        QCOMPARE(m_result.message,
                 "Nao foi possivel finalizar o arquivo: " + drive.path("target%1"));
        QCOMPARE(m_result.touchedPaths, QStringList());
        QCOMPARE(drive.tree(), before);
    }

    // Whether the next chunk still gets into the cache, or already fails, is the kernel's choice.
    void aDriveThatLosesItsMediumDuringACopyLeavesNoPartOfIt()
    {
        const Drive host;
        const Drive drive = Drive::ext4(8 * mebibyte);
        const QString source = host.writeSparse("source", 3 * mebibyte);
        afterTheFirstChunk([&] { drive.loseMedium(); });
        QVERIFY(!m_manager.copyFileReplacing(source, drive.path("target"), &m_result));
        QCOMPARE(m_result.message, "Nao foi possivel gravar o arquivo: " + drive.path("target"));
        QVERIFY(!drive.exists("target"));
    }

    // So few bytes are handed on by the last flush only.
    void aDriveThatLosesItsMediumAfterTheLastChunkLeavesNoCopy()
    {
        const Drive host;
        const Drive drive = Drive::ext4(8 * mebibyte);
        const QString source = host.write("source", "few bytes");
        afterTheFirstChunk([&] { drive.loseMedium(); });
        QVERIFY(!m_manager.copyFileReplacing(source, drive.path("target"), &m_result));
        QCOMPARE(m_result.message, "Nao foi possivel finalizar o arquivo: " + drive.path("target"));
        QVERIFY(!drive.exists("target"));
    }

    void aDriveThatIsUnmountedDuringACopyLeavesNoPartOfIt()
    {
        const Drive host;
        const Drive drive = Drive::tmpfs(8 * mebibyte);
        const QString source = host.writeSparse("source", 3 * mebibyte);
        afterTheFirstChunk(
            [&] { umount2(QFile::encodeName(drive.path()).constData(), MNT_DETACH); });
        QVERIFY(!m_manager.copyFileReplacing(source, drive.path("target"), &m_result));
        QCOMPARE(m_result.message, "Nao foi possivel finalizar o arquivo: " + drive.path("target"));
        QCOMPARE(drive.tree(), QStringList());
    }

    void theOldFileStandsUntilTheNewOneIsWhole()
    {
        const Drive drive;
        const QString source = drive.writeSparse("source", 3 * mebibyte);
        const QString target = drive.write("target", "old");
        QByteArray during;
        afterTheFirstChunk([&] { during = drive.read("target"); });
        QVERIFY(m_manager.copyFileReplacing(source, target, &m_result));
        QCOMPARE(during, QByteArray("old"));
        QCOMPARE(drive.names(), (QStringList{"source", "target"}));
        QCOMPARE(QFileInfo(target).size(), 3 * mebibyte);
    }

    // A QByteArray may take twice the room of what it holds.
    void aCopyHoldsNoMoreThanAChunk()
    {
        const Drive drive;
        const QString source = drive.writeSparse("source", 32 * mebibyte);
        const TestSupport::LiveMemoryWatch memory;
        QVERIFY(m_manager.copyFileReplacing(source, drive.path("target"), &m_result));
        const qint64 growth = memory.growth();
        QVERIFY2(growth >= mebibyte && growth < 3 * mebibyte, qPrintable(QString::number(growth)));
    }

    void theEventLoopTurnsAfterEveryChunk()
    {
        const Drive drive;
        const QString source = drive.writeSparse("source", 4 * mebibyte + 1);
        QTimer timer;
        int turns = 0;
        connect(&timer, &QTimer::timeout, this, [&turns] { ++turns; });
        timer.start(0);
        QVERIFY(m_manager.copyFileReplacing(source, drive.path("target"), &m_result));
        QCOMPARE(turns, 5);
    }

    // Else a second command could start in the middle of a copy.
    void userInputWaitsUntilTheCopyIsDone()
    {
        const Drive drive;
        const QString source = drive.writeSparse("source", mebibyte + 1);
        QList<QEventLoop::ProcessEventsFlags> turns;
        const std::unique_ptr<QThread> thread(QThread::create(
            [&] { m_manager.copyFileReplacing(source, drive.path("target"), &m_result); }));
        thread->setEventDispatcher(new RecordingDispatcher(&turns));
        thread->start();
        QVERIFY(thread->wait());
        const QEventLoop::ProcessEventsFlags noInput = QEventLoop::ExcludeUserInputEvents;
        QCOMPARE(turns, (QList{noInput, noInput}));
    }

    // copyExecutable

    void anExecutableGetsTheNameThatTheLauncherStarts_data()
    {
        QTest::addColumn<QString>("source");
        QTest::addColumn<QString>("target");
        QTest::newRow("Windows") << "manager.exe"
                                 << "Tessarine.exe";
        QTest::newRow("upper case") << "MANAGER.EXE"
                                    << "Tessarine.exe";
        QTest::newRow("mixed case") << "a.ExE"
                                    << "Tessarine.exe";
        QTest::newRow("nothing but the extension") << ".exe"
                                                   << "Tessarine.exe";
        QTest::newRow("Linux") << "manager"
                               << "Tessarine";
        QTest::newRow("another extension") << "manager.exe.bin"
                                           << "Tessarine";
        QTest::newRow("no dot") << "managerexe"
                                << "Tessarine";
    }

    void anExecutableGetsTheNameThatTheLauncherStarts()
    {
        QFETCH(QString, source);
        QFETCH(QString, target);
        const Drive host;
        const Drive drive;
        QString copied;
        QVERIFY(m_manager.copyExecutable(host.write(source, "program"), drive.path(), &copied,
                                         &m_result));
        QCOMPARE(drive.tree(), QStringList{target + ": program"});
        QCOMPARE(copied, drive.path(target));
        QCOMPARE(m_result.touchedPaths, (QStringList{copied, copied}));
    }

    void theCopiedPathNeedNotBeAskedFor()
    {
        const Drive drive;
        const QString source = drive.write("program", "program");
        QVERIFY(m_manager.copyExecutable(source, drive.path(), nullptr, &m_result));
        QCOMPARE(drive.tree(), (QStringList{"Tessarine: program", "program: program"}));
    }

    void anExecutableInItsPlaceIsTouchedOnce()
    {
        const Drive drive;
        const QString source = drive.write("Tessarine", "program");
        QString copied;
        QVERIFY(m_manager.copyExecutable(source, drive.path(), &copied, &m_result));
        QCOMPARE(copied, source);
        QCOMPARE(m_result.touchedPaths, QStringList{source});
        QCOMPARE(drive.tree(), QStringList{"Tessarine: program"});
    }

    void anAbsentExecutableIsNamedAsGiven()
    {
        const Drive drive;
        const QString source = drive.path("x/../absent%1%2");
        QString copied = "untouched";
        QVERIFY(!m_manager.copyExecutable(source, drive.path(), &copied, &m_result));
        QCOMPARE(m_result.message, "Executavel do Tessarine nao encontrado: " + source);
        QCOMPARE(copied, "untouched");
        QCOMPARE(m_result.touchedPaths, QStringList());
        QCOMPARE(drive.tree(), QStringList());
    }

    void anExecutableThatCannotBeCopiedIsNamedByItsTarget()
    {
        const Drive host;
        const Drive drive;
        const QString source = host.write("program", "program");
        drive.makeDirectory("bin%1/Tessarine");
        QString copied = "untouched";
        QVERIFY(!m_manager.copyExecutable(source, drive.path("bin%1"), &copied, &m_result));
        QCOMPARE(m_result.message,
                 "Nao foi possivel copiar o executavel para: " + drive.path("bin%1/Tessarine"));
        QCOMPARE(copied, "untouched");
        QCOMPARE(m_result.touchedPaths, QStringList());
    }

    void theRunningProgramIsCopied()
    {
        const Drive drive;
        QString copied;
        QVERIFY(m_manager.copyCurrentExecutable(drive.path(), &copied, &m_result));
        QCOMPARE(copied, drive.path("Tessarine"));
        QFile program(QCoreApplication::applicationFilePath());
        QVERIFY(program.open(QIODevice::ReadOnly));
        QVERIFY(program.readAll() == drive.read("Tessarine"));
        QCOMPARE(QFile::permissions(copied), program.permissions());
        QCOMPARE(m_result.touchedPaths, (QStringList{copied, copied}));
    }

    // copyDirectoryContents

    void aTreeIsCopiedWhole()
    {
        const Drive source;
        const Drive drive;
        source.write("a", "1");
        source.write("b c/ção", "2");
        source.write("b c/d/e", "");
        source.makeDirectory("empty");
        QVERIFY(m_manager.copyDirectoryContents(source.path(), drive.path("x/y"), &m_result));
        QCOMPARE(drive.tree("x/y"), source.tree());
        m_result.touchedPaths.sort();
        QCOMPARE(m_result.touchedPaths,
                 (QStringList{drive.path("x/y"), drive.path("x/y/a"), drive.path("x/y/b c"),
                              drive.path("x/y/b c/d"), drive.path("x/y/b c/d/e"),
                              drive.path("x/y/b c/ção"), drive.path("x/y/empty")}));
        QCOMPARE(m_result.message, QString());
    }

    void whatTheSourceLacksStaysInTheTarget()
    {
        const Drive source;
        const Drive drive;
        source.write("a", "new");
        drive.write("a", "older");
        drive.write("mine/letter", "kept");
        QVERIFY(m_manager.copyDirectoryContents(source.path(), drive.path(), &m_result));
        QCOMPARE(drive.tree(), (QStringList{"a: new", "mine/", "mine/letter: kept"}));
    }

    void hiddenEntriesStayBehind()
    {
        const Drive source;
        const Drive drive;
        source.write(".hidden", "1");
        source.write(".directory/file", "2");
        source.write("seen", "3");
        QVERIFY(m_manager.copyDirectoryContents(source.path(), drive.path(), &m_result));
        QCOMPARE(drive.tree(), QStringList{"seen: 3"});
    }

    void linksBecomeWhatTheyLeadTo()
    {
        const Drive source;
        const Drive drive;
        source.write("file", "1");
        source.write("directory/inner", "2");
        source.link("linkToFile", "file");
        source.link("linkToDirectory", "directory");
        QVERIFY(m_manager.copyDirectoryContents(source.path(), drive.path(), &m_result));
        QCOMPARE(drive.tree(),
                 (QStringList{"directory/", "directory/inner: 2", "file: 1", "linkToDirectory/",
                              "linkToDirectory/inner: 2", "linkToFile: 1"}));
    }

    void danglingLinksAndSpecialFilesArePassedOver()
    {
        const Drive source;
        const Drive drive;
        source.write("file", "1");
        source.link("dangling", "nowhere");
        QCOMPARE(mkfifo(QFile::encodeName(source.path("pipe")).constData(), 0644), 0);
        QVERIFY(m_manager.copyDirectoryContents(source.path(), drive.path(), &m_result));
        QCOMPARE(drive.tree(), QStringList{"file: 1"});
    }

    void unreadableEntriesStayBehind()
    {
        const Drive source;
        const Drive drive;
        source.write("file", "1");
        source.write("secret", "2");
        source.write("private/file", "3");
        QFile::setPermissions(source.path("secret"), QFile::Permissions());
        QFile::setPermissions(source.path("private"), QFile::Permissions());
        source.giveAway();
        drive.giveAway();
        const QStringList report = asUnprivileged([&]() -> QStringList {
            return {QString::number(
                m_manager.copyDirectoryContents(source.path(), drive.path(), &m_result))};
        });
        QCOMPARE(report, QStringList{"1"});
        QCOMPARE(drive.tree(), QStringList{"file: 1"});
    }

    void anAbsentSourceDirectoryIsNamed()
    {
        const Drive drive;
        QVERIFY(!m_manager.copyDirectoryContents(drive.path("absent%1"), drive.path("target"),
                                                 &m_result));
        QCOMPARE(m_result.message, "Pasta de origem nao encontrada: " + drive.path("absent%1"));
        QCOMPARE(m_result.touchedPaths, QStringList());
        QCOMPARE(drive.tree(), QStringList());
    }

    void aSourceThatIsAFileIsNoSourceDirectory()
    {
        const Drive drive;
        const QString source = drive.write("file", "contents");
        QVERIFY(!m_manager.copyDirectoryContents(source, drive.path("target"), &m_result));
        QCOMPARE(m_result.message, "Pasta de origem nao encontrada: " + source);
    }

    void aFileInTheWayOfTheTargetDirectoryIsKept()
    {
        const Drive source;
        const Drive drive;
        source.write("a/b", "1");
        drive.write("a", "in the way");
        QVERIFY(!m_manager.copyDirectoryContents(source.path(), drive.path(), &m_result));
        QCOMPARE(m_result.message, "Nao foi possivel criar a pasta: " + drive.path("a"));
        QCOMPARE(drive.tree(), QStringList{"a: in the way"});
    }

    void theFirstFailureEndsTheWalk()
    {
        const Drive source;
        const Drive drive = Drive::tmpfs(2 * mebibyte);
        for (const char *name : {"a", "b", "c", "d"})
            source.writeSparse(name, 3 * mebibyte / 2);
        QVERIFY(!m_manager.copyDirectoryContents(source.path(), drive.path(), &m_result));
        QVERIFY(m_result.message.startsWith("Nao foi possivel gravar o arquivo: " + drive.path()));
        QCOMPARE(drive.names().size(), 1);
        QCOMPARE(m_result.touchedPaths,
                 (QStringList{drive.path(), drive.path(drive.names().first())}));
    }

    void aFileThatVanishesDuringTheWalkEndsIt()
    {
        const Drive source;
        const Drive drive;
        source.writeSparse("a", 3 * mebibyte);
        source.writeSparse("b", 3 * mebibyte);
        afterTheFirstChunk([&] {
            QFile::remove(source.path("a"));
            QFile::remove(source.path("b"));
        });
        QVERIFY(!m_manager.copyDirectoryContents(source.path(), drive.path(), &m_result));
        const QString copied = drive.names().value(0);
        const QString vanished = copied == "a" ? "b" : "a";
        QCOMPARE(m_result.message, "Nao foi possivel copiar o arquivo: " + vanished);
        QCOMPARE(drive.names(), QStringList{copied});
    }

    void aTargetInsideTheSourceIsNotCopiedIntoItself()
    {
        const Drive drive;
        drive.write("manager", "1");
        drive.write("lib/library", "2");
        drive.makeDirectory("Tessarine/linux");
        QVERIFY(m_manager.copyDirectoryContents(drive.path(), drive.path("Tessarine/linux"),
                                                &m_result));
        QCOMPARE(drive.tree("Tessarine"),
                 (QStringList{"linux/", "linux/lib/", "linux/lib/library: 2", "linux/manager: 1"}));
    }

    void aTargetInsideTheSourceIsRecognisedThroughALinkToo()
    {
        const Drive drive;
        drive.write("manager", "1");
        drive.makeDirectory("Tessarine/linux");
        const Drive elsewhere;
        const QString link = elsewhere.link("link", drive.path("Tessarine"));
        QVERIFY(m_manager.copyDirectoryContents(drive.path(), link + "/linux", &m_result));
        QCOMPARE(drive.tree("Tessarine"), (QStringList{"linux/", "linux/manager: 1"}));
    }

    void aLinkBackIntoItsOwnTreeIsPassedOver_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("target");
        QTest::newRow("to its own directory") << "lib/self"
                                              << ".";
        QTest::newRow("to the directory above") << "lib/up"
                                                << "..";
        QTest::newRow("to a directory further up") << "lib/deep/root"
                                                   << "../..";
    }

    void aLinkBackIntoItsOwnTreeIsPassedOver()
    {
        QFETCH(QString, name);
        QFETCH(QString, target);
        const Drive source;
        source.write("lib/deep/library", "1");
        source.link(name, target);
        const Drive drive;
        QVERIFY(m_manager.copyDirectoryContents(source.path(), drive.path(), &m_result));
        QCOMPARE(drive.tree(), (QStringList{"lib/", "lib/deep/", "lib/deep/library: 1"}));
    }

    void aDirectoryThatIsLinkedTwiceSideBySideIsCopiedTwice()
    {
        const Drive source;
        source.write("1/library", "1");
        source.link("2", "1");
        const Drive drive;
        QVERIFY(m_manager.copyDirectoryContents(source.path(), drive.path(), &m_result));
        QCOMPARE(drive.tree(), (QStringList{"1/", "1/library: 1", "2/", "2/library: 1"}));
    }

    // writeTextFile

    void aTextIsWrittenAsItIs_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("line ends of both kinds, none added")
            << "a\nb\r\nc" << QByteArray("a\nb\r\nc");
        QTest::newRow("UTF-8 without a mark")
            << QStringLiteral("ação €") << QByteArray("a\xc3\xa7\xc3\xa3o \xe2\x82\xac");
        QTest::newRow("percent signs") << "%~dp0 %1 %2" << QByteArray("%~dp0 %1 %2");
        QTest::newRow("empty") << "" << QByteArray("");
        QTest::newRow("longer than every buffer")
            << QString(100'000, u'x') << QByteArray(100'000, 'x');
    }

    void aTextIsWrittenAsItIs()
    {
        QFETCH(QString, text);
        QFETCH(QByteArray, bytes);
        const Drive drive;
        QVERIFY(m_manager.writeTextFile(drive.path("text"), text, &m_result));
        QCOMPARE(drive.read("text"), bytes);
        QCOMPARE(drive.names(), QStringList{"text"});
        QCOMPARE(m_result.touchedPaths, QStringList{drive.path("text")});
        QCOMPARE(m_result.message, QString());
    }

    void aTextReplacesAFileOfTheSameSize()
    {
        const Drive drive;
        drive.write("text", "old!");
        QVERIFY(m_manager.writeTextFile(drive.path("text"), "new!", &m_result));
        QCOMPARE(drive.tree(), QStringList{"text: new!"});
    }

    void aNewTextFileHasTheProcesssPermissions()
    {
        const Drive drive;
        const mode_t before = umask(027);
        const bool written = m_manager.writeTextFile(drive.path("text"), "text", &m_result);
        umask(before);
        QVERIFY(written);
        QCOMPARE(QFile::permissions(drive.path("text")), QFile::ReadOwner | QFile::WriteOwner
                                                             | QFile::ReadUser | QFile::WriteUser
                                                             | QFile::ReadGroup);
    }

    void aTextThatCannotBeCreatedIsNamed()
    {
        const Drive drive;
        drive.makeDirectory("text%1");
        QVERIFY(!m_manager.writeTextFile(drive.path("text%1"), "new", &m_result));
        QCOMPARE(m_result.message, "Nao foi possivel criar o arquivo: " + drive.path("text%1"));
        QCOMPARE(m_result.touchedPaths, QStringList());
        QCOMPARE(drive.tree(), QStringList{"text%1/"});
    }

    void aFullDriveKeepsTheOldText_data()
    {
        QTest::addColumn<qint64>("room");
        QTest::addColumn<int>("size");
        QTest::newRow("less than a buffer, no room") << qint64(0) << 100;
        QTest::newRow("less than a buffer, too little room") << qint64(4096) << 9000;
        QTest::newRow("more than a buffer") << qint64(4096) << 100'000;
        QTest::newRow("more than a buffer, all but the last page") << qint64(40'960) << 40'961;
    }

    void aFullDriveKeepsTheOldText()
    {
        QFETCH(qint64, room);
        QFETCH(int, size);
        const Drive drive = Drive::tmpfs(mebibyte);
        drive.write("text%1", "kept");
        drive.fill(room);
        const QStringList before = drive.tree();
        QVERIFY(!m_manager.writeTextFile(drive.path("text%1"), QString(size, u'n'), &m_result));
        QCOMPARE(m_result.message, "Nao foi possivel salvar o arquivo: " + drive.path("text%1"));
        QCOMPARE(m_result.touchedPaths, QStringList());
        QCOMPARE(drive.tree(), before);
    }
};

TESSARINE_MOUNTING_TEST_MAIN(QCoreApplication, CopyTest)
#include "copy_test.moc"
