#include "tests/deployment/PreparationSituation.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Waiting.h"

#include <sys/stat.h>

using TestSupport::asUnprivileged;
using TestSupport::longestWait;

// Which road a source takes: copied whole, or assembled around its executable.
class PreparationSourcesTest : public PreparationSituation
{
    Q_OBJECT

private Q_SLOTS:
    void init() { begin(); }
    void cleanup() { end(); }

    // ---- Windows

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
        QCOMPARE(prepare(drive, {program, {}, {}, {}}), prepared);
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
        QCOMPARE(prepare(drive, {other.write("manager.exe", "not looked at"),
                                 bundles.host().path("windows"),
                                 {},
                                 {}}),
                 prepared);
        QCOMPARE(drive.tree("Tessarine/windows"), bundles.host().tree("windows"));
    }

    void aCompleteWindowsSourceNeedsNoExecutable()
    {
        const Bundles bundles;
        const Drive drive;
        QFile::remove(bundles.host().path("windows/Tessarine.exe"));
        QCOMPARE(prepare(drive, bundles.windows()), prepared);
        QCOMPARE(drive.tree("Tessarine/windows"), bundles.host().tree("windows"));
    }

    void anIncompleteWindowsSourceNeedsItsExecutable()
    {
        const Bundles bundles;
        const Drive drive;
        QFile::remove(bundles.host().path("windows/Tessarine.exe"));
        QFile::remove(bundles.host().path("windows/platforms/qwindows.dll"));
        QCOMPARE(prepare(drive, bundles.windows()),
                 "Executavel do Tessarine nao encontrado: "
                     + bundles.host().path("windows/Tessarine.exe"));
    }

    void anAbsentWindowsSourceHasNoLibrariesToGive()
    {
        const Drive host;
        const Drive drive;
        host.write("a.exe", "1");
        QCOMPARE(prepare(drive, {host.path("a.exe"), host.path("absent"), {}, {}}), prepared);
        QCOMPARE(drive.tree("Tessarine/windows"), QStringList{"Tessarine.exe: 1"});
    }

    // ---- Linux

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
        QCOMPARE(prepare(drive, {{}, {}, host.path("any name"), {}}), prepared);
        QCOMPARE(drive.tree("Tessarine/linux"), host.tree());
        QVERIFY(!ldd.directory().exists("ldd.called"));
        QVERIFY(!ldconfig.directory().exists("ldconfig.called"));
    }

    void theNamedLinuxSourceDecidesNotTheExecutablesDirectory()
    {
        const Bundles bundles;
        const Drive other;
        const Drive drive;
        QCOMPARE(
            prepare(
                drive,
                {{}, {}, other.write("manager", "not looked at"), bundles.host().path("linux")}),
            prepared);
        QCOMPARE(drive.tree("Tessarine/linux"), bundles.host().tree("linux"));
    }

    void aLoneLinuxExecutableIsMadeExecutableAndGetsARuntime()
    {
        const QtPlugins plugins;
        const Drive drive;
        QFile::copy(TINY_PLUGIN, plugins.makeDirectory("tls") + "/libtiny.so");
        const LoneExecutable program;
        chmod(QFile::encodeName(program.path()).constData(), 0600);
        QCOMPARE(prepare(drive, program.options()), prepared);
        struct stat copy = {};
        stat(QFile::encodeName(drive.path("Tessarine/linux/Tessarine")).constData(), &copy);
        QCOMPARE(QString::number(copy.st_mode & 07777U, 8), "711");
        const QStringList names = drive.names("Tessarine/linux");
        for (const char *name :
             {"Tessarine", "lib/libQt6Core.so.6", "lib/libssl.so.3", "plugins/tls/libtiny.so"})
            QVERIFY2(names.contains(name), name);
        QCOMPARE(m_result.touchedPaths.count(drive.path("Tessarine/linux/Tessarine")), 2);
    }

    // The machine's own Qt, its tools and its plugins; then the drive runs by itself.
    void whatIsAssembledRunsWithTheDrivesLibrariesOnly()
    {
        const Drive drive = Drive::tmpfs(4'294'967'296);
        const LoneExecutable program;
        QCOMPARE(prepare(drive, program.options()), prepared);
        const QtPlugins none;
        QProcess launcher;
        launcher.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        launcher.start(drive.path("Tessarine-Linux.sh"), QStringList());
        QVERIFY2(launcher.waitForFinished(longestWait), qPrintable(launcher.errorString()));
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
        const QtPlugins plugins;
        const LoneExecutable program;
        drive.makeDirectory("Tessarine/linux");
        drive.giveAway();
        const QString copy = drive.path("Tessarine/linux/Tessarine");
        QFile::copy(program.path(), copy);
        chmod(QFile::encodeName(copy).constData(), 0644);
        QCOMPARE(asUnprivileged([&] { return QStringList{prepare(drive, program.options())}; }),
                 QStringList{prepared});
        QVERIFY(!QFileInfo(copy).isExecutable());
    }
};

TESSARINE_MOUNTING_TEST_MAIN(QCoreApplication, PreparationSourcesTest)
#include "preparation_sources_test.moc"
