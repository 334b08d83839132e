#include "deployment/PortableBundleManager.h"
#include "tests/deployment/ExpectedTexts.h"
#include "tests/support/BindMount.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Drive.h"
#include "tests/support/StubCommand.h"
#include "tests/support/SyncWatch.h"
#include "tests/support/TestMain.h"

#include <QCoreApplication>
#include <QLibraryInfo>
#include <QTest>
#include <QTimer>

#include <sys/stat.h>

using Tessarine::Deployment::PortableBundleManager;
using Tessarine::Deployment::PortableBundleOptions;
using Tessarine::Deployment::PortableBundleResult;
using Tessarine::Deployment::PreparationProgress;
using TestSupport::asUnprivileged;
using TestSupport::BindMount;
using TestSupport::Drive;
using TestSupport::StubCommand;
using TestSupport::whenSynced;

namespace
{

constexpr qint64 mebibyte = 1'048'576;

const QString prepared = QStringLiteral("USB preparado com estrutura portatil Tessarine.");

const QStringList layoutWithoutBundles{"Tessarine-Linux.sh", "Tessarine-Windows.bat",
                                       "Tessarine/",         "Tessarine/README.txt",
                                       "Tessarine/linux/",   "Tessarine/windows/"};

QString qtPlugins()
{
    return QLibraryInfo::path(QLibraryInfo::PluginsPath);
}

// Complete bundles of both platforms, a few bytes each.
class Bundles
{
public:
    Bundles()
    {
        m_host.write("windows/Tessarine.exe", "windows program");
        m_host.write("windows/Qt6Core.dll", "dll");
        m_host.write("windows/platforms/qwindows.dll", "plugin");
        m_host.write("linux/Tessarine", "linux program");
        m_host.write("linux/lib/libQt6Core.so.6", "library");
        m_host.write("linux/qt.conf", "[Paths]");
    }

    const Drive &host() const { return m_host; }
    PortableBundleOptions windows() const
    {
        return {m_host.path("windows/Tessarine.exe"), {}, {}, {}};
    }
    PortableBundleOptions linux() const { return {{}, {}, m_host.path("linux/Tessarine"), {}}; }
    PortableBundleOptions both() const
    {
        return {m_host.path("windows/Tessarine.exe"), {}, m_host.path("linux/Tessarine"), {}};
    }

private:
    Drive m_host;
};

// A Linux executable that is all of its source.
class LoneExecutable
{
public:
    explicit LoneExecutable(const QString &program = TINY_QT_PROGRAM)
    {
        QFile::copy(program, m_host.path("program"));
    }
    PortableBundleOptions options() const { return {{}, {}, m_host.path("program"), {}}; }
    QString path() const { return m_host.path("program"); }

private:
    Drive m_host;
};

} // namespace

// The whole preparation of a drive.
class PreparationTest : public QObject
{
    Q_OBJECT

    const PortableBundleManager m_manager{};
    QStringList m_reports;

    PreparationProgress recorded()
    {
        return [this](int step, int stepCount, const QString &text) {
            m_reports << QStringLiteral("%1/%2 %3")
                             .arg(QString::number(step), QString::number(stepCount), text);
        };
    }

    PortableBundleResult prepare(const Drive &drive, const PortableBundleOptions &options)
    {
        return m_manager.preparePortableBundle(drive.path(), options, recorded());
    }

    static QStringList pathsOn(const Drive &drive, const QStringList &names)
    {
        QStringList paths;
        for (const QString &name : names)
            paths << drive.path(name);
        return paths;
    }

private Q_SLOTS:
    void init() { m_reports.clear(); }

    // Records

    void optionsAndResultsStartEmpty()
    {
        const PortableBundleOptions options;
        const PortableBundleResult result;
        QCOMPARE(options.windowsExecutablePath + options.windowsSourceDirectory
                     + options.linuxExecutablePath + options.linuxSourceDirectory,
                 QString());
        QCOMPARE(result.success, false);
        QCOMPARE(result.message, QString());
        QCOMPARE(result.touchedPaths, QStringList());
    }

    // Success

    void completeSourcesAreCopiedWhole()
    {
        const Bundles bundles;
        const Drive drive;
        const PortableBundleResult result = prepare(drive, bundles.both());
        QCOMPARE(result.message, prepared);
        QVERIFY(result.success);
        QCOMPARE(drive.tree("Tessarine/windows"), bundles.host().tree("windows"));
        QCOMPARE(drive.tree("Tessarine/linux"), bundles.host().tree("linux"));
        QCOMPARE(drive.read("Tessarine-Windows.bat"), expectedWindowsLauncher);
        QCOMPARE(drive.read("Tessarine-Linux.sh"), expectedLinuxLauncher);
        QCOMPARE(drive.read("Tessarine/README.txt"), expectedReadme);
        QCOMPARE(drive.names().size(), 6 + 4 + 4);
    }

    void everyStageIsReportedInItsOrder()
    {
        const Bundles bundles;
        const Drive drive;
        QVERIFY(prepare(drive, bundles.both()).success);
        QCOMPARE(m_reports,
                 (QStringList{"0/7 Validando unidade USB...", "1/7 Criando estrutura de pastas...",
                              "2/7 Copiando bundle Windows...", "3/7 Copiando bundle Linux...",
                              "5/7 Criando inicializador Windows...",
                              "6/7 Criando arquivos auxiliares...", "7/7 Preparacao concluida."}));
    }

    void eachReportComesBeforeItsWork()
    {
        const Bundles bundles;
        const Drive drive;
        QMap<int, QStringList> found;
        m_manager.preparePortableBundle(
            drive.path(), bundles.both(),
            [&](int step, int, const QString &) { found[step] = drive.names(); });
        QCOMPARE(found[0], QStringList());
        QCOMPARE(found[1], QStringList());
        QCOMPARE(found[2], (QStringList{"Tessarine/", "Tessarine/linux/", "Tessarine/windows/"}));
        QCOMPARE(found[3].size(), found[2].size() + 4);
        QCOMPARE(found[5].size(), found[3].size() + 4);
        QVERIFY(!found[5].contains("Tessarine-Windows.bat"));
        QVERIFY(found[6].contains("Tessarine-Windows.bat"));
        QVERIFY(!found[6].contains("Tessarine-Linux.sh"));
        QCOMPARE(found[7], drive.names());
    }

    void touchedPathsTellTheOrderOfEvents()
    {
        const Drive host;
        const Drive drive;
        const BindMount noPlugins(host.makeDirectory("none"), qtPlugins());
        host.write("w/manager.exe", "program");
        const StubCommand ldd("ldd", "echo 'a => " + host.write("liba.so", "a").toUtf8() + "'");
        const StubCommand ldconfig("ldconfig", "echo ' libssl.so.3 (x) => "
                                                   + host.write("libssl.so.3", "ssl").toUtf8()
                                                   + "'");
        const PortableBundleResult result = prepare(
            drive, {host.path("w/manager.exe"), {}, host.write("l/manager", "program"), {}});
        QVERIFY2(result.success, qPrintable(result.message));
        QCOMPARE(result.touchedPaths,
                 pathsOn(drive,
                         {"Tessarine", "Tessarine/windows", "Tessarine/linux",
                          "Tessarine/windows/Tessarine.exe", "Tessarine/windows/Tessarine.exe",
                          "Tessarine/linux/Tessarine", "Tessarine/linux/Tessarine",
                          "Tessarine/linux/lib", "Tessarine/linux/plugins",
                          "Tessarine/linux/lib/liba.so", "Tessarine/linux/lib/libssl.so.3",
                          "Tessarine-Windows.bat", "Tessarine-Linux.sh", "Tessarine/README.txt"}));
    }

    void nobodyNeedsToListen()
    {
        const Bundles bundles;
        const Drive drive;
        const Drive other;
        const PortableBundleResult silent =
            m_manager.preparePortableBundle(drive.path(), bundles.both(), {});
        QVERIFY(silent.success);
        QVERIFY(prepare(other, bundles.both()).success);
        QCOMPARE(drive.tree(), other.tree());
    }

    void oneManagerPreparesDriveAfterDrive()
    {
        const Bundles bundles;
        const Drive first;
        const Drive second;
        QVERIFY(prepare(first, bundles.windows()).success);
        const PortableBundleResult result = prepare(second, bundles.linux());
        QCOMPARE(result.touchedPaths.first(), second.path("Tessarine"));
        QCOMPARE(second.tree("Tessarine/windows"), QStringList());
        QCOMPARE(first.tree("Tessarine/linux"), QStringList());
    }

    void aLinuxBundleAloneLeavesTheWindowsDirectoryEmpty()
    {
        const Bundles bundles;
        const Drive drive;
        QVERIFY(prepare(drive, bundles.linux()).success);
        QCOMPARE(m_reports.value(2), "2/7 Copiando bundle Windows...");
        QCOMPARE(drive.tree("Tessarine/windows"), QStringList());
        QVERIFY(drive.exists("Tessarine/windows"));
        QCOMPARE(drive.tree("Tessarine/linux"), bundles.host().tree("linux"));
        QCOMPARE(drive.read("Tessarine-Windows.bat"), expectedWindowsLauncher);
    }

    void aWindowsBundleAloneLeavesTheLinuxDirectoryEmpty()
    {
        const Bundles bundles;
        const Drive drive;
        QVERIFY(prepare(drive, bundles.windows()).success);
        QCOMPARE(m_reports.value(3), "3/7 Copiando bundle Linux...");
        QCOMPARE(drive.tree("Tessarine/linux"), QStringList());
        QVERIFY(drive.exists("Tessarine/linux"));
        QCOMPARE(drive.tree("Tessarine/windows"), bundles.host().tree("windows"));
        QCOMPARE(drive.read("Tessarine-Linux.sh"), expectedLinuxLauncher);
    }

    void theLinuxLauncherMayBeExecuted()
    {
        const Bundles bundles;
        const Drive drive;
        const mode_t before = umask(022);
        const PortableBundleResult result = prepare(drive, bundles.windows());
        umask(before);
        QVERIFY(result.success);
        struct stat launcher = {};
        struct stat other = {};
        stat(QFile::encodeName(drive.path("Tessarine-Linux.sh")).constData(), &launcher);
        stat(QFile::encodeName(drive.path("Tessarine-Windows.bat")).constData(), &other);
        QCOMPARE(launcher.st_mode & 07777U, 0755U);
        QCOMPARE(other.st_mode & 07777U, 0644U);
    }

    void whatElseIsOnTheDriveStays()
    {
        const Bundles bundles;
        const Drive drive;
        drive.write("tessarine.tsrn", "the user's vault");
        drive.write("letters/to mother.txt", "dear mother");
        drive.write("Tessarine/update-state.json", "{}");
        drive.write("Tessarine/linux/mine", "kept");
        drive.write("Tessarine/.update-1/package", "kept");
        const QStringList before = drive.tree();
        QVERIFY(prepare(drive, bundles.both()).success);
        const QStringList after = drive.tree();
        for (const QString &line : before)
            QVERIFY2(after.contains(line), qPrintable(line));
    }

    void nothingIsWrittenOutsideTheLayout()
    {
        const Bundles bundles;
        const Drive drive;
        QVERIFY(prepare(drive, bundles.both()).success);
        QCOMPARE(
            QDir(drive.path())
                .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                           QDir::Name),
            (QStringList{"Tessarine", "Tessarine-Linux.sh", "Tessarine-Windows.bat"}));
        QCOMPARE(
            QDir(drive.path("Tessarine"))
                .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                           QDir::Name),
            (QStringList{"README.txt", "linux", "windows"}));
    }

    void aSecondPreparationRewritesTheTexts()
    {
        const Bundles bundles;
        const Drive drive;
        QVERIFY(prepare(drive, bundles.both()).success);
        const QStringList once = drive.tree();
        drive.write("Tessarine-Windows.bat", QByteArray(88, 'x'));
        drive.write("Tessarine-Linux.sh", QByteArray(917, 'x'));
        drive.write("Tessarine/README.txt", QByteArray(455, 'x'));
        QVERIFY(prepare(drive, bundles.both()).success);
        QCOMPARE(drive.tree(), once);
    }

    void aSecondPreparationGoesOnWhereAFailedOneStopped()
    {
        const Bundles bundles;
        const Drive drive;
        drive.makeDirectory("Tessarine-Linux.sh");
        const PortableBundleResult first = prepare(drive, bundles.both());
        QCOMPARE(first.message,
                 "Nao foi possivel criar o arquivo: " + drive.path("Tessarine-Linux.sh"));
        QDir(drive.path()).rmdir("Tessarine-Linux.sh");
        const qint64 copiedAt = QFileInfo(drive.path("Tessarine/linux/Tessarine"))
                                    .metadataChangeTime()
                                    .toMSecsSinceEpoch();
        QVERIFY(prepare(drive, bundles.both()).success);
        QCOMPARE(QFileInfo(drive.path("Tessarine/linux/Tessarine"))
                     .metadataChangeTime()
                     .toMSecsSinceEpoch(),
                 copiedAt);
    }

    // The launcher's name in its directory reaches the medium only when the whole drive is synced.
    void theDriveIsSyncedBeforeTheLastReport()
    {
        const Bundles bundles;
        const Drive drive = Drive::ext4(16 * mebibyte);
        bool beforeTheLastStage = true;
        bool atTheLastReport = false;
        const QByteArray name("README.txt");
        m_manager.preparePortableBundle(drive.path(), bundles.both(),
                                        [&](int step, int, const QString &) {
                                            if (step == 6)
                                                beforeTheLastStage = drive.medium().contains(name);
                                            if (step == 7)
                                                atTheLastReport = drive.medium().contains(name);
                                        });
        QVERIFY(!beforeTheLastStage);
        QVERIFY(atTheLastReport);
    }

    void aDriveThatFailsAtTheLastSyncIsNotPrepared()
    {
        const Bundles bundles;
        const Drive drive = Drive::ext4(16 * mebibyte);
        int lastStep = -1;
        whenSynced = [&] { drive.loseMedium(); };
        const PortableBundleResult result = m_manager.preparePortableBundle(
            drive.path(), bundles.both(), [&](int step, int, const QString &) { lastStep = step; });
        whenSynced = nullptr;
        QVERIFY(!result.success);
        QCOMPARE(result.message, "Nao foi possivel finalizar o arquivo: " + drive.path());
        QCOMPARE(lastStep, 6);
    }

    void theRunningProgramIsPreparedByTheShorterCall()
    {
        const Drive directory;
        const Drive drive;
        const QString program = QCoreApplication::applicationFilePath();
        const QString name = QFileInfo(program).fileName();
        QFile::copy(program, directory.path(name));
        directory.write("qt.conf", "[Paths]");
        const BindMount place(directory.path(), QCoreApplication::applicationDirPath());
        const PortableBundleResult result =
            m_manager.preparePortableBundle(drive.path(), recorded());
        QVERIFY2(result.success, qPrintable(result.message));
        QCOMPARE(m_reports.size(), 7);
        QCOMPARE(drive.tree("Tessarine/linux"), directory.tree());
        QCOMPARE(drive.tree("Tessarine/windows"), QStringList());
    }

    // Which road a Windows source takes

    void anIncompleteWindowsSourceGivesItsLibrariesOnly_data()
    {
        QTest::addColumn<QString>("mark");
        QTest::newRow("no plugin") << "Qt6Core.dll";
        QTest::newRow("no core library") << "platforms/qwindows.dll";
        QTest::newRow("neither") << "readme.txt";
    }

    void anIncompleteWindowsSourceGivesItsLibrariesOnly()
    {
        QFETCH(QString, mark);
        const Drive host;
        const Drive drive;
        const QString program = host.write("manager.EXE", "program");
        host.write("other.dll", "other");
        host.write("styles/style.dll", "stays behind");
        host.write(mark, "mark");
        const PortableBundleResult result = prepare(drive, {program, {}, {}, {}});
        QVERIFY2(result.success, qPrintable(result.message));
        QStringList expected{"Tessarine.exe: program", "other.dll: other"};
        if (mark == "Qt6Core.dll")
            expected << "Qt6Core.dll: mark";
        expected.sort();
        QCOMPARE(drive.tree("Tessarine/windows"), expected);
    }

    void theNamedWindowsSourceDecidesNotTheExecutablesDirectory()
    {
        const Bundles bundles;
        const Drive other;
        const Drive drive;
        const PortableBundleResult result = prepare(
            drive,
            {other.write("manager.exe", "not looked at"), bundles.host().path("windows"), {}, {}});
        QVERIFY(result.success);
        QCOMPARE(drive.tree("Tessarine/windows"), bundles.host().tree("windows"));
    }

    void aCompleteWindowsSourceNeedsNoExecutable()
    {
        const Bundles bundles;
        const Drive drive;
        QFile::remove(bundles.host().path("windows/Tessarine.exe"));
        QVERIFY(prepare(drive, bundles.windows()).success);
        QCOMPARE(drive.tree("Tessarine/windows"), bundles.host().tree("windows"));
    }

    void anIncompleteWindowsSourceNeedsItsExecutable()
    {
        const Bundles bundles;
        const Drive drive;
        QFile::remove(bundles.host().path("windows/Tessarine.exe"));
        QFile::remove(bundles.host().path("windows/platforms/qwindows.dll"));
        const PortableBundleResult result = prepare(drive, bundles.windows());
        QCOMPARE(result.message, "Executavel do Tessarine nao encontrado: "
                                     + bundles.host().path("windows/Tessarine.exe"));
        QVERIFY(!result.success);
    }

    // Which road a Linux source takes

    void oneMarkMakesALinuxSourceComplete_data()
    {
        QTest::addColumn<QString>("entry");
        QTest::newRow("directory lib") << "lib/file";
        QTest::newRow("directory plugins") << "plugins/file";
        QTest::newRow("file qt.conf") << "qt.conf";
        QTest::newRow("file lib") << "lib";
        QTest::newRow("directory qt.conf") << "qt.conf/file";
    }

    void oneMarkMakesALinuxSourceComplete()
    {
        QFETCH(QString, entry);
        const Drive host;
        const Drive drive;
        const StubCommand ldd("ldd", "touch \"$0.called\"; exit 1");
        const StubCommand ldconfig("ldconfig", "touch \"$0.called\"; exit 1");
        host.write("any name", "program");
        host.write(entry, "mark");
        const PortableBundleResult result = prepare(drive, {{}, {}, host.path("any name"), {}});
        QVERIFY2(result.success, qPrintable(result.message));
        QCOMPARE(drive.tree("Tessarine/linux"), host.tree());
        QVERIFY(!ldd.directory().exists("ldd.called"));
        QVERIFY(!ldconfig.directory().exists("ldconfig.called"));
    }

    void theNamedLinuxSourceDecidesNotTheExecutablesDirectory()
    {
        const Bundles bundles;
        const Drive other;
        const Drive drive;
        const PortableBundleResult result = prepare(
            drive, {{}, {}, other.write("manager", "not looked at"), bundles.host().path("linux")});
        QVERIFY(result.success);
        QCOMPARE(drive.tree("Tessarine/linux"), bundles.host().tree("linux"));
    }

    void aLoneLinuxExecutableIsMadeExecutableAndGetsARuntime()
    {
        const Drive plugins;
        const Drive drive;
        QFile::copy(TINY_PLUGIN, plugins.makeDirectory("tls") + "/libtiny.so");
        const BindMount place(plugins.path(), qtPlugins());
        const LoneExecutable program;
        chmod(QFile::encodeName(program.path()).constData(), 0600);
        const PortableBundleResult result = prepare(drive, program.options());
        QVERIFY2(result.success, qPrintable(result.message));
        struct stat copy = {};
        stat(QFile::encodeName(drive.path("Tessarine/linux/Tessarine")).constData(), &copy);
        QCOMPARE(copy.st_mode & 07777U, 0711U);
        const QStringList names = drive.names("Tessarine/linux");
        for (const char *name :
             {"Tessarine", "lib/libQt6Core.so.6", "lib/libssl.so.3", "plugins/tls/libtiny.so"})
            QVERIFY2(names.contains(name), name);
        QCOMPARE(result.touchedPaths.count(drive.path("Tessarine/linux/Tessarine")), 2);
    }

    // The machine's own Qt, its tools and its plugins; then the drive runs by itself.
    void whatIsAssembledRunsWithTheDrivesLibrariesOnly()
    {
        const Drive drive = Drive::tmpfs(4'294'967'296);
        const LoneExecutable program;
        const PortableBundleResult result = prepare(drive, program.options());
        QVERIFY2(result.success, qPrintable(result.message));
        const Drive empty;
        const BindMount hidden(empty.path(), qtPlugins());
        QProcess launcher;
        launcher.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        launcher.start(drive.path("Tessarine-Linux.sh"), QStringList());
        QVERIFY(launcher.waitForFinished());
        QCOMPARE(launcher.exitCode(), 0);
        const QStringList lines = QString::fromUtf8(launcher.readAll()).split(u'\n');
        const QString library = drive.path("Tessarine/linux/lib/");
        QVERIFY(lines.contains(library + "libQt6Core.so.6"));
        QVERIFY(lines.contains(drive.path("Tessarine/linux/plugins")));
        for (const QString &line : lines.filter(".so"))
            QVERIFY2(line.startsWith(library) || line.contains("/ld-linux"), qPrintable(line));
    }

    void executeBitsThatCannotBeSetAreNoFailure()
    {
        const Drive drive;
        const Drive plugins;
        const BindMount place(plugins.path(), qtPlugins());
        const LoneExecutable program;
        drive.makeDirectory("Tessarine/linux");
        drive.giveAway();
        const QString copy = drive.path("Tessarine/linux/Tessarine");
        QFile::copy(program.path(), copy);
        chmod(QFile::encodeName(copy).constData(), 0644);
        const QStringList report = asUnprivileged(
            [&]() -> QStringList { return {prepare(drive, program.options()).message}; });
        QCOMPARE(report, QStringList{prepared});
        QVERIFY(!QFileInfo(copy).isExecutable());
    }

    // Failures

    void anAbsentDriveIsInvalid()
    {
        const Bundles bundles;
        const Drive drive;
        const PortableBundleResult result =
            m_manager.preparePortableBundle(drive.path("absent"), bundles.both(), recorded());
        QCOMPARE(result.message, "Unidade USB invalida.");
        QVERIFY(!result.success);
        QCOMPARE(result.touchedPaths, QStringList());
        QCOMPARE(m_reports, QStringList{"0/7 Validando unidade USB..."});
        QCOMPARE(drive.tree(), QStringList());
    }

    void aDriveThatIsAFileIsInvalid()
    {
        const Bundles bundles;
        const Drive drive;
        const PortableBundleResult result = m_manager.preparePortableBundle(
            drive.write("file", "kept"), bundles.both(), recorded());
        QCOMPARE(result.message, "Unidade USB invalida.");
        QCOMPARE(drive.tree(), QStringList{"file: kept"});
    }

    void withoutBundlesOnlyTheDirectoriesAreMade()
    {
        const Drive drive;
        const PortableBundleResult result = prepare(drive, {});
        QCOMPARE(result.message,
                 "Nenhum bundle valido foi encontrado para preparar a unidade USB.");
        QVERIFY(!result.success);
        QCOMPARE(drive.tree(),
                 (QStringList{"Tessarine/", "Tessarine/linux/", "Tessarine/windows/"}));
        QCOMPARE(result.touchedPaths,
                 pathsOn(drive, {"Tessarine", "Tessarine/windows", "Tessarine/linux"}));
        QCOMPARE(m_reports.size(), 2);
    }

    void aRefusedDriveKeepsItsNewDirectories()
    {
        const Drive host;
        const Drive drive = Drive::tmpfs(mebibyte);
        drive.write("letter", "kept");
        const PortableBundleResult result =
            prepare(drive, {host.writeSparse("a.exe", mebibyte / 4 + 1), {}, {}, {}});
        QVERIFY(result.message.startsWith("A unidade USB nao e recomendada para Tessarine."));
        QCOMPARE(drive.tree(), (QStringList{"Tessarine/", "Tessarine/linux/", "Tessarine/windows/",
                                            "letter: kept"}));
        QCOMPARE(m_reports.size(), 2);
    }

    void aReadOnlyDriveIsLeftAsItIs()
    {
        const Bundles bundles;
        const Drive drive = Drive::tmpfs(mebibyte);
        drive.write("letter", "kept");
        drive.makeReadOnly();
        const PortableBundleResult result = prepare(drive, bundles.both());
        QCOMPARE(result.message, "Nao foi possivel criar a pasta: " + drive.path("Tessarine"));
        QCOMPARE(drive.tree(), QStringList{"letter: kept"});
    }

    void anAbsentWindowsSourceHasNoLibrariesToGive()
    {
        const Drive host;
        const Drive drive;
        host.write("a.exe", "1");
        const PortableBundleResult result =
            prepare(drive, {host.path("a.exe"), host.path("absent"), {}, {}});
        QVERIFY2(result.success, qPrintable(result.message));
        QCOMPARE(drive.tree("Tessarine/windows"), QStringList{"Tessarine.exe: 1"});
    }

    // Each thing in the way ends the run at its stage, and what was there stays.
    void whatIsInTheWayIsNamedAndEndsTheRun_data()
    {
        QTest::addColumn<QString>("obstacle");
        QTest::addColumn<QString>("message");
        QTest::addColumn<int>("reports");
        const auto directory = [](const char *path, const QString &message, int reports) {
            QTest::newRow(path) << path + QStringLiteral("/kept") << message << reports;
        };
        const auto file = [](const char *path, const QString &message, int reports) {
            QTest::newRow(path) << QString(path) << message << reports;
        };
        const QString noDirectory = "Nao foi possivel criar a pasta: ";
        const QString noFile = "Nao foi possivel criar o arquivo: ";
        file("Tessarine", noDirectory + "DRIVE/Tessarine", 2);
        file("Tessarine/windows", noDirectory + "DRIVE/Tessarine/windows", 2);
        file("Tessarine/linux", noDirectory + "DRIVE/Tessarine/linux", 2);
        file("Tessarine/windows/platforms", noDirectory + "DRIVE/Tessarine/windows/platforms", 3);
        directory("Tessarine/windows/Qt6Core.dll", noFile + "DRIVE/Tessarine/windows/Qt6Core.dll",
                  3);
        file("Tessarine/linux/lib", noDirectory + "DRIVE/Tessarine/linux/lib", 4);
        directory("Tessarine-Windows.bat", noFile + "DRIVE/Tessarine-Windows.bat", 5);
        directory("Tessarine-Linux.sh", noFile + "DRIVE/Tessarine-Linux.sh", 6);
        directory("Tessarine/README.txt", noFile + "DRIVE/Tessarine/README.txt", 6);
    }

    void whatIsInTheWayIsNamedAndEndsTheRun()
    {
        QFETCH(QString, obstacle);
        QFETCH(QString, message);
        QFETCH(int, reports);
        const Bundles bundles;
        const Drive drive;
        drive.write("100%1 %2/" + obstacle, "kept");
        const QString root = drive.path("100%1 %2");
        const PortableBundleResult result =
            m_manager.preparePortableBundle(root, bundles.both(), recorded());
        QCOMPARE(result.message, message.replace("DRIVE", root));
        QVERIFY(!result.success);
        QCOMPARE(m_reports.size(), reports);
        QCOMPARE(drive.read("100%1 %2/" + obstacle), QByteArray("kept"));
    }

    void anExecutableThatCannotBeCopiedEndsTheRun_data()
    {
        QTest::addColumn<bool>("isWindows");
        QTest::newRow("Windows") << true;
        QTest::newRow("Linux") << false;
    }

    void anExecutableThatCannotBeCopiedEndsTheRun()
    {
        QFETCH(bool, isWindows);
        const Drive host;
        const Drive drive;
        const QString program = host.write(isWindows ? "m.exe" : "m", "program");
        const QString place =
            isWindows ? "Tessarine/windows/Tessarine.exe" : "Tessarine/linux/Tessarine";
        drive.write(place + "/kept", "kept");
        const PortableBundleOptions options = isWindows
                                                  ? PortableBundleOptions{program, {}, {}, {}}
                                                  : PortableBundleOptions{{}, {}, program, {}};
        const PortableBundleResult result = prepare(drive, options);
        QCOMPARE(result.message, "Nao foi possivel copiar o executavel para: " + drive.path(place));
        QCOMPARE(m_reports.size(), isWindows ? 3 : 4);
        QCOMPARE(drive.read(place + "/kept"), QByteArray("kept"));
    }

    void aWindowsLibraryThatCannotBeCopiedEndsTheRun()
    {
        const Drive host;
        const Drive drive;
        host.write("m.exe", "program");
        host.write("a.dll", "library");
        drive.write("Tessarine/windows/a.dll/kept", "kept");
        const PortableBundleResult result = prepare(drive, {host.path("m.exe"), {}, {}, {}});
        QCOMPARE(result.message, "Nao foi possivel copiar a biblioteca: a.dll");
        QCOMPARE(m_reports.size(), 3);
        QCOMPARE(drive.tree("Tessarine/windows"),
                 (QStringList{"Tessarine.exe: program", "a.dll/", "a.dll/kept: kept"}));
    }

    void aLinuxExecutableThatCannotBeExaminedEndsTheRun_data()
    {
        QTest::addColumn<QString>("lddScript");
        QTest::addColumn<QString>("ldconfigScript");
        QTest::addColumn<QString>("message");
        QTest::newRow("ldd fails") << "exit 1"
                                   << "exit 0"
                                   << "Nao foi possivel identificar dependencias Linux para: "
                                      "DRIVE/Tessarine/linux/Tessarine";
        QTest::newRow("ldconfig fails") << "echo 'a => /bin/sh'"
                                        << "exit 1"
                                        << "Nao foi possivel localizar bibliotecas TLS do Linux.";
        QTest::newRow("no libssl") << "echo 'a => /bin/sh'"
                                   << "exit 0"
                                   << "Biblioteca libssl.so nao encontrada no ambiente Linux.";
    }

    void aLinuxExecutableThatCannotBeExaminedEndsTheRun()
    {
        QFETCH(QString, lddScript);
        QFETCH(QString, ldconfigScript);
        QFETCH(QString, message);
        const Drive drive;
        const LoneExecutable program;
        const StubCommand ldd("ldd", lddScript.toUtf8());
        const StubCommand ldconfig("ldconfig", ldconfigScript.toUtf8());
        const PortableBundleResult result = prepare(drive, program.options());
        QCOMPARE(result.message, message.replace("DRIVE", drive.path()));
        QVERIFY(!result.success);
        QCOMPARE(m_reports.size(), 4);
        QVERIFY(!drive.exists("Tessarine-Linux.sh"));
    }

    void aFailedRunKeepsAnEarlierPreparationsLaunchers()
    {
        const Bundles bundles;
        const Drive drive;
        drive.write("Tessarine-Windows.bat", "earlier");
        drive.write("Tessarine-Linux.sh", "earlier");
        drive.write("Tessarine/README.txt", "earlier");
        drive.write("Tessarine/linux/lib", "in the way");
        QVERIFY(!prepare(drive, bundles.both()).success);
        for (const char *name :
             {"Tessarine-Windows.bat", "Tessarine-Linux.sh", "Tessarine/README.txt"})
            QCOMPARE(drive.read(name), QByteArray("earlier"));
    }

    void aSourceThatVanishesDuringThePreparationEndsIt()
    {
        const Drive host;
        const Drive drive;
        host.writeSparse("qt.conf", 3 * mebibyte);
        host.writeSparse("Tessarine", 3 * mebibyte);
        QTimer::singleShot(0, [&] {
            QFile::remove(host.path("qt.conf"));
            QFile::remove(host.path("Tessarine"));
        });
        const PortableBundleResult result = prepare(drive, {{}, {}, host.path("Tessarine"), {}});
        const QStringList copied = drive.names("Tessarine/linux");
        QCOMPARE(copied.size(), 1);
        QCOMPARE(result.message,
                 "Nao foi possivel copiar o arquivo: "
                     + QString(copied == QStringList{"qt.conf"} ? "Tessarine" : "qt.conf"));
        QVERIFY(!result.success);
    }

    // What an earlier bundle takes counts as room although it isn't given back, so that a drive
    // which passes the check can still fill up, at any point. Page by page more room, until it
    // suffices: after each failure every file is the old one or the new one, never a part of it.
    void aDriveThatFillsUpAnywhereHoldsWholeFilesOnly()
    {
        const Drive host;
        host.write("w/Qt6Core.dll", QByteArray(9'000, 'c'));
        host.write("w/platforms/qwindows.dll", QByteArray(20'000, 'p'));
        host.write("w/Tessarine.exe", QByteArray(5'000, 't'));
        host.write("l/lib/libQt6Core.so.6", QByteArray(30'000, 'l'));
        host.write("l/Tessarine", QByteArray(3'000, 'm'));
        const PortableBundleOptions options{
            host.path("w/Tessarine.exe"), {}, host.path("l/Tessarine"), {}};
        const QMap<QString, QByteArray> newFiles{
            {"Tessarine/windows/Qt6Core.dll", host.read("w/Qt6Core.dll")},
            {"Tessarine/windows/platforms/qwindows.dll", host.read("w/platforms/qwindows.dll")},
            {"Tessarine/windows/Tessarine.exe", host.read("w/Tessarine.exe")},
            {"Tessarine/linux/lib/libQt6Core.so.6", host.read("l/lib/libQt6Core.so.6")},
            {"Tessarine/linux/Tessarine", host.read("l/Tessarine")},
            {"Tessarine-Windows.bat", expectedWindowsLauncher},
            {"Tessarine-Linux.sh", expectedLinuxLauncher},
            {"Tessarine/README.txt", expectedReadme}};
        const QMap<QString, QByteArray> oldFiles{{"Tessarine/windows/Qt6Core.dll", "old core"},
                                                 {"Tessarine/linux/Tessarine", "old program"},
                                                 {"Tessarine-Windows.bat", "old launcher"},
                                                 {"Tessarine/README.txt", "old text"}};
        int failures = 0;
        bool success = false;
        for (qint64 room = 0; !success; room += 4096) {
            const Drive drive = Drive::tmpfs(mebibyte);
            drive.write("tessarine.tsrn", "the user's vault");
            for (auto file = oldFiles.begin(); file != oldFiles.end(); ++file)
                drive.write(file.key(), file.value());
            drive.writeSparse("Tessarine/old", 200'000);
            for (const char *directory : {"windows/platforms", "linux/lib"})
                drive.makeDirectory(QStringLiteral("Tessarine/") + directory);
            drive.fill(room);
            const PortableBundleResult result = prepare(drive, options);
            success = result.success;
            failures += success ? 0 : 1;
            for (const QString &line : drive.names()) {
                if (line.endsWith(u'/') || QStringList{"fill", "Tessarine/old"}.contains(line))
                    continue;
                if (line == "tessarine.tsrn") {
                    QCOMPARE(drive.read(line), QByteArray("the user's vault"));
                    continue;
                }
                QVERIFY2(newFiles.contains(line), qPrintable(line));
                const QByteArray contents = drive.read(line);
                QVERIFY2(contents == newFiles[line]
                             || (oldFiles.contains(line) && contents == oldFiles[line]),
                         qPrintable(line));
                if (success)
                    QVERIFY(contents == newFiles[line]);
            }
            for (auto file = oldFiles.begin(); file != oldFiles.end(); ++file)
                QVERIFY(drive.exists(file.key()));
            if (!success)
                QVERIFY2(result.message.startsWith("Nao foi possivel gravar o arquivo: ")
                             || result.message.startsWith("Nao foi possivel finalizar o arquivo: ")
                             || result.message.startsWith("Nao foi possivel salvar o arquivo: ")
                             || result.message.startsWith("Nao foi possivel criar o arquivo: "),
                         qPrintable(result.message));
        }
        QVERIFY2(failures >= 10, qPrintable(QString::number(failures)));
    }
};

TESSARINE_MOUNTING_TEST_MAIN(QCoreApplication, PreparationTest)
#include "preparation_test.moc"
