// The launcher's text is private to its source.
#include "deployment/PortableBundleManager.cpp"

#include "tests/deployment/ExpectedTexts.h"
#include "tests/support/Drive.h"
#include "tests/support/TestMain.h"
#include "tests/support/Waiting.h"

#include <QTest>

using namespace Tessarine::Deployment;
using TestSupport::Drive;
using TestSupport::longestWait;

namespace
{

// What a run of the launcher showed.
struct Run {
    int status = -1;
    QString output;
    QString errors;
};

// A drive with the launcher, and a machine that has nothing but the commands that it needs.
class LaunchableDrive
{
public:
    explicit LaunchableDrive(const Drive &drive, const QString &directory = {})
        : m_root(directory.isEmpty() ? drive.path() : drive.makeDirectory(directory))
    {
        const QString launcher = path("Tessarine-Linux.sh");
        PortableBundleResult result;
        PortableBundleManager().writeTextFile(launcher, linuxLauncherText, &result);
        makeExecutable(launcher);
        for (const char *command : {"dirname", "chmod"})
            m_commands.link(command, QStringLiteral("/usr/bin/") + command);
        setEnvironment("PATH", m_commands.path());
        for (const char *name : {"CDPATH", "LD_LIBRARY_PATH", "QT_PLUGIN_PATH"})
            m_environment.remove(name);
    }

    QString path(const QString &name) const { return m_root + u'/' + name; }

    void setEnvironment(const QString &name, const QString &value)
    {
        m_environment.insert(name, value);
    }

    // The main application: a shell script in its place.
    void installApplication(const QByteArray &script, bool executable = true) const
    {
        QDir().mkpath(path("Tessarine/linux"));
        QFile file(path("Tessarine/linux/Tessarine"));
        file.open(QIODevice::WriteOnly);
        file.write("#!/bin/sh\n" + script + '\n');
        file.close();
        if (executable)
            makeExecutable(file.fileName());
    }

    // A command that writes down its name and its arguments, one a line.
    void installDialog(const QString &name) const
    {
        makeExecutable(m_commands.write(
            name, "#!/bin/sh\nprintf '%s\\n' \"${0##*/}\" \"$@\" >\"$0.shown\"\n"));
    }
    QString shown(const QString &name) const
    {
        return QString::fromUtf8(m_commands.read(name + ".shown"));
    }

    Run run(const QString &launcher, const QStringList &arguments = {},
            const QString &from = "/") const
    {
        QProcess process;
        process.setProcessEnvironment(m_environment);
        process.setWorkingDirectory(from);
        process.start("/bin/sh", QStringList{launcher} + arguments);
        process.waitForFinished(longestWait);
        return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
                QString::fromUtf8(process.readAllStandardError())};
    }
    Run run(const QStringList &arguments = {}) const
    {
        return run(path("Tessarine-Linux.sh"), arguments);
    }

private:
    QString m_root;
    Drive m_commands;
    QProcessEnvironment m_environment = QProcessEnvironment::systemEnvironment();
};

} // namespace

// The texts that a prepared drive holds, and what its Linux launcher does when dash runs it.
class LauncherTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QCOMPARE(QFileInfo("/bin/sh").canonicalFilePath(), "/usr/bin/dash"); }

    void theTextsHaveTheirExactBytes()
    {
        QCOMPARE(windowsLauncherText.toUtf8(), expectedWindowsLauncher);
        QCOMPARE(linuxLauncherText.toUtf8(), expectedLinuxLauncher);
        QCOMPARE(readmeText.toUtf8(), expectedReadme);
        QCOMPARE(windowsLauncherText.size(), 88);
        QCOMPARE(linuxLauncherText.size(), 917);
        QCOMPARE(readmeText.size(), 455);
    }

    void theApplicationFindsItsLibrariesAndPluginsOnTheDrive()
    {
        const Drive drive;
        const LaunchableDrive launchable(drive);
        launchable.installApplication(
            R"(printf '%s\n' "$0" "$PWD" "$LD_LIBRARY_PATH" "$QT_PLUGIN_PATH")");
        const Run run = launchable.run();
        const QString application = drive.path("Tessarine/linux");
        QCOMPARE(run.output, application + "/Tessarine\n" + application + "\n" + application
                                 + "/lib\n" + application + "/plugins\n");
        QCOMPARE(run.errors, QString());
        QCOMPARE(run.status, 0);
    }

    void earlierLibraryAndPluginPathsStayBehindTheDrives()
    {
        const Drive drive;
        LaunchableDrive launchable(drive);
        launchable.setEnvironment("LD_LIBRARY_PATH", "/opt/my lib:/b");
        launchable.setEnvironment("QT_PLUGIN_PATH", "/opt/plugins");
        launchable.installApplication(R"(printf '%s\n' "$LD_LIBRARY_PATH" "$QT_PLUGIN_PATH")");
        const QString application = drive.path("Tessarine/linux");
        QCOMPARE(launchable.run().output,
                 application + "/lib:/opt/my lib:/b\n" + application + "/plugins:/opt/plugins\n");
    }

    // An empty element would mean the current directory.
    void emptyEarlierPathsAddNoElement()
    {
        const Drive drive;
        LaunchableDrive launchable(drive);
        launchable.setEnvironment("LD_LIBRARY_PATH", "");
        launchable.setEnvironment("QT_PLUGIN_PATH", "");
        launchable.installApplication(R"(printf '%s\n' "$LD_LIBRARY_PATH" "$QT_PLUGIN_PATH")");
        const QString application = drive.path("Tessarine/linux");
        QCOMPARE(launchable.run().output, application + "/lib\n" + application + "/plugins\n");
    }

    void argumentsReachTheApplicationAsTheyAre()
    {
        const Drive drive;
        const LaunchableDrive launchable(drive);
        launchable.installApplication(R"(printf '<%s>' "$@")");
        QCOMPARE(launchable.run({"a b", "", "*", "$HOME", "--x=\"y\"", "%1"}).output,
                 "<a b><><*><$HOME><--x=\"y\"><%1>");
    }

    void theLauncherFindsItsDriveFromAnywhere_data()
    {
        QTest::addColumn<QString>("directory");
        QTest::addColumn<QString>("launcher");
        QTest::addColumn<QString>("from");
        QTest::newRow("absolute") << ""
                                  << "%ROOT%/Tessarine-Linux.sh"
                                  << "/";
        QTest::newRow("its own directory, bare name") << ""
                                                      << "Tessarine-Linux.sh"
                                                      << "%ROOT%";
        QTest::newRow("relative") << ""
                                  << "../Tessarine-Linux.sh"
                                  << "%ROOT%/sub";
        QTest::newRow("roundabout") << ""
                                    << "%ROOT%/sub/../Tessarine-Linux.sh"
                                    << "/usr";
        QTest::newRow("blanks") << "USB  DRIVE de Zé"
                                << "%ROOT%/Tessarine-Linux.sh"
                                << "/";
        QTest::newRow("blanks, relative") << "a b"
                                          << "./Tessarine-Linux.sh"
                                          << "%ROOT%";
        QTest::newRow("leading dash, relative") << "-L"
                                                << "./-L/Tessarine-Linux.sh"
                                                << "%ABOVE%";
        QTest::newRow("shell's own characters") << "a'b\"c$HOME`x`;*?&"
                                                << "%ROOT%/Tessarine-Linux.sh"
                                                << "/";
        QTest::newRow("placeholders") << "%1%2%s"
                                      << "%ROOT%/Tessarine-Linux.sh"
                                      << "/";
    }

    void theLauncherFindsItsDriveFromAnywhere()
    {
        QFETCH(QString, directory);
        QFETCH(QString, launcher);
        QFETCH(QString, from);
        const Drive drive;
        const QString root = drive.path(directory);
        drive.makeDirectory(directory.isEmpty() ? "sub" : directory + "/sub");
        LaunchableDrive launchable(drive, directory);
        // With it, cd would print where it went and could go elsewhere.
        launchable.setEnvironment("CDPATH", "/usr:/");
        launchable.installApplication(R"(printf '%s' "$0")");
        const Run run =
            launchable.run(launcher.replace("%ROOT%", root), {},
                           from.replace("%ROOT%", root).replace("%ABOVE%", drive.path()));
        QCOMPARE(run.output, root + "/Tessarine/linux/Tessarine");
        QCOMPARE(run.errors, QString());
    }

    void aLinkToTheDrivesDirectoryWorks()
    {
        const Drive elsewhere;
        const Drive drive;
        const LaunchableDrive launchable(drive);
        launchable.installApplication("echo started");
        const QString link = elsewhere.link("my drive", drive.path());
        QCOMPARE(launchable.run(link + "/Tessarine-Linux.sh").output, "started\n");
    }

    void aLinkToTheLauncherLooksBesideTheLink()
    {
        const Drive elsewhere;
        const Drive drive;
        const LaunchableDrive launchable(drive);
        launchable.installApplication("echo started");
        const QString link = elsewhere.link("start", drive.path("Tessarine-Linux.sh"));
        const Run run = launchable.run(link);
        QCOMPARE(run.errors, "Tessarine: Executavel Linux nao encontrado em: "
                                 + elsewhere.path("Tessarine/linux/Tessarine") + "\n");
        QCOMPARE(run.output, QString());
        QCOMPARE(run.status, 1);
    }

    void aDriveWithoutALinuxBundleIsExplained()
    {
        const Drive drive;
        const LaunchableDrive launchable(drive, "a %s\\n b");
        const Run run = launchable.run();
        QCOMPARE(run.errors, "Tessarine: Executavel Linux nao encontrado em: "
                                 + drive.path("a %s\\n b/Tessarine/linux/Tessarine") + "\n");
        QCOMPARE(run.status, 1);
    }

    void aDirectoryIsNoExecutable()
    {
        const Drive drive;
        const LaunchableDrive launchable(drive);
        drive.makeDirectory("Tessarine/linux/Tessarine");
        QCOMPARE(launchable.run().status, 1);
    }

    void anApplicationThatLostItsExecuteBitsGetsThemBack()
    {
        const Drive drive;
        const LaunchableDrive launchable(drive);
        launchable.installApplication("echo started", false);
        const Run run = launchable.run();
        QCOMPARE(run.output, "started\n");
        QCOMPARE(run.status, 0);
        QVERIFY(QFileInfo(drive.path("Tessarine/linux/Tessarine")).isExecutable());
    }

    void aDriveOnWhichNothingMayExecuteIsExplained()
    {
        const Drive drive = Drive::tmpfs(1'048'576);
        const LaunchableDrive launchable(drive);
        launchable.installApplication("echo started");
        drive.forbidExecution();
        const Run run = launchable.run();
        QCOMPARE(run.output, QString());
        QVERIFY2(run.errors.endsWith("\nTessarine: Nao foi possivel iniciar o Tessarine. "
                                     "Codigo de saida: 126\n"),
                 qPrintable(run.errors));
        QCOMPARE(run.status, 126);
    }

    void anUnwritableDriveHidesTheFailureToGiveExecuteBitsBack()
    {
        const Drive drive = Drive::tmpfs(1'048'576);
        const LaunchableDrive launchable(drive);
        launchable.installApplication("echo started", false);
        drive.makeReadOnly();
        const Run run = launchable.run();
        QVERIFY2(!run.errors.contains("chmod"), qPrintable(run.errors));
        QCOMPARE(run.status, 126);
    }

    void theStatusOfTheApplicationIsShownAndPassedOn_data()
    {
        QTest::addColumn<QByteArray>("script");
        QTest::addColumn<int>("status");
        QTest::newRow("failure") << QByteArray("exit 3") << 3;
        QTest::newRow("largest") << QByteArray("exit 255") << 255;
        QTest::newRow("ended by a signal") << QByteArray("kill -KILL $$") << 137;
        QTest::newRow("later") << QByteArray("echo work >&2; exit 1") << 1;
    }

    void theStatusOfTheApplicationIsShownAndPassedOn()
    {
        QFETCH(QByteArray, script);
        QFETCH(int, status);
        const Drive drive;
        const LaunchableDrive launchable(drive);
        launchable.installApplication(script);
        const Run run = launchable.run();
        QVERIFY2(run.errors.endsWith("Tessarine: Nao foi possivel iniciar o Tessarine. "
                                     "Codigo de saida: "
                                     + QString::number(status) + "\n"),
                 qPrintable(run.errors));
        QCOMPARE(run.status, status);
    }

    void zenityShowsAnErrorWhereItExists()
    {
        const Drive drive;
        const LaunchableDrive launchable(drive);
        launchable.installDialog("zenity");
        launchable.installDialog("xmessage");
        launchable.installApplication("exit 7");
        const Run run = launchable.run();
        QCOMPARE(launchable.shown("zenity"),
                 "zenity\n--error\n--title=Tessarine\n"
                 "--text=Nao foi possivel iniciar o Tessarine. Codigo de saida: 7\n");
        QCOMPARE(launchable.shown("xmessage"), QString());
        QCOMPARE(run.errors, QString());
        QCOMPARE(run.status, 7);
    }

    void xmessageShowsAnErrorWhereZenityIsAbsent()
    {
        const Drive drive;
        const LaunchableDrive launchable(drive);
        launchable.installDialog("xmessage");
        const Run run = launchable.run();
        QCOMPARE(launchable.shown("xmessage"),
                 "xmessage\n-center\nTessarine: Executavel Linux nao encontrado em: "
                     + drive.path("Tessarine/linux/Tessarine") + "\n");
        QCOMPARE(run.errors, QString());
        QCOMPARE(run.status, 1);
    }
};

TESSARINE_MOUNTING_TEST_MAIN(QCoreApplication, LauncherTest)
#include "launcher_test.moc"
