#include "tests/deployment/OperationSituation.h"
#include "tests/support/LiveMemory.h"
#include "tests/support/SyncWatch.h"
#include "tests/support/TestMain.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QThread>
#include <QTimer>

#include <sys/stat.h>

namespace
{

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

// Files and executables that reach the drive.
class CopyTest : public OperationSituation
{
    Q_OBJECT

private Q_SLOTS:
    void init() { begin(); }
    void cleanup()
    {
        TestSupport::whenAwaited = nullptr;
        end();
    }

    // ---- what stands on the drive then

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
        QCOMPARE(copyFile(source, drive.path("target")), done);
        QCOMPARE(drive.read("target"), contents);
        QCOMPARE(drive.names(), (QStringList{"source", "target"}));
        QCOMPARE(m_result.touchedPaths, QStringList{drive.path("target")});
    }

    void anOlderFileIsReplaced()
    {
        const Drive drive;
        const QString source = drive.write("source", "new");
        drive.write("target", "older");
        QCOMPARE(copyFile(source, drive.path("target")), done);
        QCOMPARE(drive.tree(), (QStringList{"source: new", "target: new"}));
    }

    void anEmptySourceEmptiesTheTarget()
    {
        const Drive drive;
        const QString source = drive.write("source", "");
        drive.write("target", "old");
        QCOMPARE(copyFile(source, drive.path("target")), done);
        QCOMPARE(drive.tree(), (QStringList{"source: ", "target: "}));
    }

    void equalSizeInPlaceIsNotCopiedAgain()
    {
        const Drive drive;
        const QString source = drive.write("source", "new!");
        drive.write("target", "old!");
        QCOMPARE(copyFile(source, drive.path("target")), done);
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
        QCOMPARE(copyFile(source, target), done);
        QCOMPARE(QFile::permissions(target), before);
    }

    void aFileIsNotCopiedOntoItself()
    {
        const Drive drive;
        const QString file = drive.write("file", "kept");
        QCOMPARE(copyFile(file, file), done);
        QCOMPARE(drive.tree(), QStringList{"file: kept"});
        QCOMPARE(m_result.touchedPaths, QStringList{file});
    }

    // The paths alone decide: nothing has to be there.
    void anAbsentFileIsAlreadyInItsOwnPlace()
    {
        const Drive drive;
        const QString file = drive.path("absent");
        QCOMPARE(copyFile(file, file), done);
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
        QCOMPARE(copyFile(source, drive.path("file")), done);
        QCOMPARE(drive.tree(), (QStringList{"File: contents", "file: contents"}));
    }

    // The paths are compared as text: equal size ends this copy, not the link.
    void aLinkToTheSourceIsLeftAlone()
    {
        const Drive drive;
        const QString source = drive.write("source", "contents");
        drive.link("target", source);
        QCOMPARE(copyFile(source, drive.path("target")), done);
        QCOMPARE(drive.tree(), (QStringList{"source: contents", "target -> " + source}));
    }

    void aLinkedSourceBecomesARealFile()
    {
        const Drive drive;
        drive.write("real", "contents");
        const QString source = drive.link("link", "real");
        QCOMPARE(copyFile(source, drive.path("target")), done);
        QVERIFY(!QFileInfo(drive.path("target")).isSymLink());
        QCOMPARE(drive.read("target"), QByteArray("contents"));
    }

    void theCopyGetsTheSourcesPermissions()
    {
        const Drive drive;
        const QString source = drive.write("source", "contents");
        chmod(QFile::encodeName(source).constData(), 0750);
        QCOMPARE(copyFile(source, drive.path("target")), done);
        QCOMPARE(QFile::permissions(drive.path("target")), QFile::permissions(source));
        QVERIFY(QFile::permissions(source).testFlag(QFile::ExeGroup));
    }

    // ---- while the copy runs

    void theOldFileStandsUntilTheNewOneIsWhole()
    {
        const Drive drive;
        const QString source = drive.writeSparse("source", 3 * mebibyte);
        const QString target = drive.write("target", "old");
        QByteArray during;
        afterTheFirstChunk([&] { during = drive.read("target"); });
        QCOMPARE(copyFile(source, target), done);
        QCOMPARE(during, QByteArray("old"));
        QCOMPARE(drive.names(), (QStringList{"source", "target"}));
        QCOMPARE(QFileInfo(target).size(), 3 * mebibyte);
    }

    void aSourceThatIsCutDuringTheCopyEndsWhereItNowEnds()
    {
        const Drive drive;
        const QString source = drive.write("source", QByteArray(3 * mebibyte, 's'));
        afterTheFirstChunk([&] { QFile::resize(source, mebibyte); });
        QCOMPARE(copyFile(source, drive.path("target")), done);
        QCOMPARE(QFileInfo(drive.path("target")).size(), mebibyte);
        QCOMPARE(drive.read("target"), QByteArray(mebibyte, 's'));
    }

    // A QByteArray may take twice the room of what it holds.
    void aCopyHoldsNoMoreThanAChunk()
    {
        const Drive drive;
        const QString source = drive.writeSparse("source", 32 * mebibyte);
        const TestSupport::LiveMemoryWatch memory;
        QCOMPARE(copyFile(source, drive.path("target")), done);
        const qint64 growth = memory.growth();
        QVERIFY2(growth >= mebibyte && growth < 3 * mebibyte, qPrintable(QString::number(growth)));
    }

    // Of twenty chunks eight are on their way, then one fewer with each that is written, and none
    // when the file gets its name.
    void theMediumIsSoManyChunksBehindAndCatchesUpTowardsTheEnd()
    {
        const Drive host;
        const Drive drive = Drive::ext4(32 * mebibyte);
        const QString source = host.writeSparse("source", 20 * mebibyte);
        QList<qint64> awaited;
        TestSupport::whenAwaited = [&awaited](off_t size) { awaited << size; };
        QCOMPARE(copyFile(source, drive.path("target")), done);
        QList<qint64> expected;
        for (const int chunks : {1, 2, 3, 4, 6, 8, 10, 12, 14, 16, 18, 19})
            expected << chunks * mebibyte;
        constexpr qint64 all = 0;
        QCOMPARE(awaited, expected << all);
    }

    void theEventLoopTurnsAfterEveryChunk()
    {
        const Drive drive;
        const QString source = drive.writeSparse("source", 4 * mebibyte + 1);
        QTimer timer;
        int turns = 0;
        connect(&timer, &QTimer::timeout, this, [&turns] { ++turns; });
        timer.start(0);
        QCOMPARE(copyFile(source, drive.path("target")), done);
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

    // ---- executables

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
        QCOMPARE(outcome(m_manager.copyExecutable(host.write(source, "program"), drive.path(),
                                                  &copied, &m_result)),
                 done);
        QCOMPARE(drive.tree(), QStringList{target + ": program"});
        QCOMPARE(copied, drive.path(target));
        QCOMPARE(m_result.touchedPaths, (QStringList{copied, copied}));
    }

    void theCopiedPathNeedNotBeAskedFor()
    {
        const Drive drive;
        const QString source = drive.write("program", "program");
        QCOMPARE(outcome(m_manager.copyExecutable(source, drive.path(), nullptr, &m_result)), done);
        QCOMPARE(drive.tree(), (QStringList{"Tessarine: program", "program: program"}));
    }

    void anExecutableInItsPlaceIsTouchedOnce()
    {
        const Drive drive;
        const QString source = drive.write("Tessarine", "program");
        QString copied;
        QCOMPARE(outcome(m_manager.copyExecutable(source, drive.path(), &copied, &m_result)), done);
        QCOMPARE(copied, source);
        QCOMPARE(m_result.touchedPaths, QStringList{source});
        QCOMPARE(drive.tree(), QStringList{"Tessarine: program"});
    }

    void anAbsentExecutableIsNamedAsGiven()
    {
        const Drive drive;
        const QString source = drive.path("x/../absent%1%2");
        QString copied = "untouched";
        QCOMPARE(outcome(m_manager.copyExecutable(source, drive.path(), &copied, &m_result)),
                 "Executavel do Tessarine nao encontrado: " + source);
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
        QCOMPARE(outcome(m_manager.copyExecutable(source, drive.path("bin%1"), &copied, &m_result)),
                 "Nao foi possivel copiar o executavel para: " + drive.path("bin%1/Tessarine"));
        QCOMPARE(copied, "untouched");
        QCOMPARE(m_result.touchedPaths, QStringList());
    }

    void theRunningProgramIsCopied()
    {
        const Drive drive;
        QString copied;
        QCOMPARE(outcome(m_manager.copyCurrentExecutable(drive.path(), &copied, &m_result)), done);
        QCOMPARE(copied, drive.path("Tessarine"));
        QFile program(QCoreApplication::applicationFilePath());
        QVERIFY2(program.open(QIODevice::ReadOnly), qPrintable(program.errorString()));
        QCOMPARE(drive.read("Tessarine"), program.readAll());
        QCOMPARE(QFile::permissions(copied), program.permissions());
        QCOMPARE(m_result.touchedPaths, (QStringList{copied, copied}));
    }
};

TESSARINE_MOUNTING_TEST_MAIN(QCoreApplication, CopyTest)
#include "copy_test.moc"
