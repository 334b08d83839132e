// Its private functions are tested too.
#include "deployment/PortableBundleManager.cpp"

#include "tests/support/BindMount.h"
#include "tests/support/Drive.h"
#include "tests/support/StubCommand.h"
#include "tests/support/TestMain.h"

#include <QTest>

using namespace Tessarine::Deployment;
using TestSupport::BindMount;
using TestSupport::Drive;
using TestSupport::SearchPath;
using TestSupport::StubCommand;

// Assembling "lib" and "plugins" from the machine that prepares the drive.
class LinuxRuntimeTest : public QObject
{
    Q_OBJECT

    const PortableBundleManager m_manager{};
    PortableBundleResult m_result;

    static QString qtPlugins() { return QLibraryInfo::path(QLibraryInfo::PluginsPath); }

    static QStringList sorted(QStringList list)
    {
        list.sort();
        return list;
    }

    static QByteArray contentsOf(const QString &path)
    {
        QFile file(path);
        file.open(QIODevice::ReadOnly);
        return file.readAll();
    }

    // Commands that answer in the ways that end in a failure.
    static void addFailingCommands()
    {
        QTest::addColumn<QByteArray>("script");
        QTest::newRow("exits with a failure") << QByteArray("echo '\tlib => /bin/sh'; exit 1");
        QTest::newRow("crashes") << QByteArray("echo '\tlib => /bin/sh'; kill -SEGV $$");
        QTest::newRow("says it on the wrong channel")
            << QByteArray("echo '\tlibssl.so.3 (libc6) => /bin/sh' >&2; exit 2");
    }

    // A script that prints the lines.
    static QByteArray printing(const QStringList &lines)
    {
        return "cat <<'END'\n" + lines.join(u'\n').toLocal8Bit() + "\nEND";
    }

    static QString libsslLine(const QString &path, const QString &arch = "libc6,x86-64")
    {
        return "\t" + QFileInfo(path).fileName() + " (" + arch + ") => " + path;
    }

private Q_SLOTS:
    void init() { m_result = {}; }
    void cleanup() { QVERIFY(!m_result.success); }

    // What ldd's output means

    void aLineOfLddNamesALibrary_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<QStringList>("libraries");
        const auto row = [](const char *name, const QString &line, const QStringList &libraries) {
            QTest::newRow(name) << line << libraries;
        };
        row("resolved", "\tlibz.so.1 => /lib/libz.so.1 (0x00007f12)", {"/lib/libz.so.1"});
        row("loader", "\t/lib64/ld-linux-x86-64.so.2 (0x00007f12)",
            {"/lib64/ld-linux-x86-64.so.2"});
        row("loader without indentation", "/lib/ld.so (0x1)", {"/lib/ld.so"});
        row("loader behind an arrow", "\t/lib64/ld.so => /usr/lib64/ld.so (0x1)",
            {"/usr/lib64/ld.so"});
        row("virtual library", "\tlinux-vdso.so.1 (0x00007ffd)", {});
        row("virtual library with a path", "\tlinux-vdso.so.1 => /lib/linux-vdso.so.1 (0x1)", {});
        row("virtual library as a line's path", "\t/lib/linux-vdso.so.1 (0x1)", {});
        row("a directory named like the virtual library", "\ta => /opt/linux-vdso/liba.so (0x1)",
            {});
        row("the virtual library in other letters", "\ta => /lib/LINUX-VDSO.so (0x1)",
            {"/lib/LINUX-VDSO.so"});
        row("not found", "\tlibgone.so.1 => not found", {});
        row("relative", "\tliba.so => ./liba.so (0x1)", {});
        row("no blank behind the arrow", "\tliba.so =>/lib/liba.so (0x1)", {});
        row("several blanks behind the arrow", "\tliba.so => \t /lib/liba.so (0x1)",
            {"/lib/liba.so"});
        row("no load address", "\tliba.so => /lib/liba.so", {"/lib/liba.so"});
        row("a blank ends the path", "\tliba.so => /my lib/liba.so (0x1)", {"/my"});
        row("accents", "\tliba.so => /opt/ção/liba.so (0x1)", {"/opt/ção/liba.so"});
        row("statically linked", "\tstatically linked", {});
        row("a path in the middle", "see /lib/liba.so", {});
        row("blank", "   \t", {});
        row("carriage return", "\tliba.so => /lib/liba.so (0x1)\r", {"/lib/liba.so"});
    }

    void aLineOfLddNamesALibrary()
    {
        QFETCH(QString, line);
        QFETCH(QStringList, libraries);
        QCOMPARE(librariesInLddOutput(line + u'\n'), libraries);
    }

    void aLibraryThatLddListsTwiceStandsOnce()
    {
        QCOMPARE(sorted(librariesInLddOutput("\ta => /l/a (0x1)\n\n\tb => /l/b (0x1)\n"
                                             "\ta2 => /l/a (0x2)\n\t/l/b (0x3)")),
                 (QStringList{"/l/a", "/l/b"}));
    }

    void emptyOutputNamesNothing()
    {
        QCOMPARE(librariesInLddOutput(""), QStringList());
        QCOMPARE(libsslInLdconfigOutput(""), QStringList());
    }

    // What ldconfig's output means

    void aLineOfLdconfigNamesLibssl_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<QStringList>("libraries");
        const auto row = [](const char *name, const QString &line, const QStringList &libraries) {
            QTest::newRow(name) << line << libraries;
        };
        row("version 3", "\tlibssl.so.3 (libc6,x86-64) => /lib/libssl.so.3", {"/lib/libssl.so.3"});
        row("version 1.1", "\tlibssl.so.1.1 (libc6) => /lib/libssl.so.1.1", {"/lib/libssl.so.1.1"});
        row("a longer class",
            "\tlibssl.so.3 (libc6,x86-64, OS ABI: Linux 3.2.0) => /lib/libssl.so.3",
            {"/lib/libssl.so.3"});
        row("another architecture", "\tlibssl.so.3 (libc6,AArch64) => /lib/arm/libssl.so.3",
            {"/lib/arm/libssl.so.3"});
        row("several blanks", "  libssl.so.3  (libc6)  =>  /lib/libssl.so.3", {"/lib/libssl.so.3"});
        row("development name", "\tlibssl.so (libc6,x86-64) => /lib/libssl.so", {});
        row("a name with its version before", "\tlibssl3.so (libc6,x86-64) => /lib/libssl3.so", {});
        row("a version that is a word", "\tlibssl.so.x (libc6) => /lib/libssl.so.x", {});
        row("a name that ends alike", "\tmylibssl.so.3 (libc6) => /lib/mylibssl.so.3", {});
        row("libcrypto", "\tlibcrypto.so.3 (libc6) => /lib/libcrypto.so.3", {});
        row("no indentation", "libssl.so.3 (libc6) => /lib/libssl.so.3", {});
        row("no class", "\tlibssl.so.3 => /lib/libssl.so.3", {});
        row("empty class", "\tlibssl.so.3 () => /lib/libssl.so.3", {});
        row("relative", "\tlibssl.so.3 (libc6) => lib/libssl.so.3", {});
        row("headline", "1234 libs found in cache `/etc/ld.so.cache'", {});
    }

    void aLineOfLdconfigNamesLibssl()
    {
        QFETCH(QString, line);
        QFETCH(QStringList, libraries);
        QCOMPARE(libsslInLdconfigOutput("1 libs found\n" + line + "\nCache generated by: x\n"),
                 libraries);
    }

    void libsslIsNamedInTheOrderOfLdconfig()
    {
        QCOMPARE(libsslInLdconfigOutput("\tlibssl.so.3 (a) => /b/libssl.so.3\n"
                                        "\tlibssl.so.1.1 (a) => /c/libssl.so.1.1\n"
                                        "\tlibssl.so.3 (b) => /a/libssl.so.3\n"
                                        "\tlibssl.so.3 (c) => /b/libssl.so.3\n"),
                 (QStringList{"/b/libssl.so.3", "/c/libssl.so.1.1", "/a/libssl.so.3"}));
    }

    // linuxLibraryDependencies

    void aRealProgramNeedsQtTheLibraryOfCAndTheLoader()
    {
        const QStringList libraries = m_manager.linuxLibraryDependencies(TINY_QT_PROGRAM);
        QStringList names;
        for (const QString &library : libraries) {
            QVERIFY2(QFileInfo(library).isFile() && library.startsWith(u'/'), qPrintable(library));
            names << QFileInfo(library).fileName();
        }
        for (const char *name : {"libQt6Core.so.6", "libc.so.6", "ld-linux-x86-64.so.2"})
            QVERIFY2(names.contains(name), name);
        QVERIFY(names.filter("linux-vdso").isEmpty());
        names.removeDuplicates();
        QCOMPARE(names.size(), libraries.size());
    }

    void aRealPluginNeedsLibraries()
    {
        const QStringList libraries =
            m_manager.linuxLibraryDependencies(qtPlugins() + "/platforms/libqxcb.so");
        QVERIFY(!libraries.filter("/libQt6Gui.so.6").isEmpty());
    }

    void whatLddCannotReadNeedsNothing_data()
    {
        QTest::addColumn<QString>("path");
        QTest::newRow("static program") << STATIC_PROGRAM;
        QTest::newRow("no program") << "/etc/hostname";
        QTest::newRow("absent") << "/absent";
        QTest::newRow("directory") << "/";
    }

    void whatLddCannotReadNeedsNothing()
    {
        QFETCH(QString, path);
        QCOMPARE(m_manager.linuxLibraryDependencies(path), QStringList());
    }

    void aFailingLddFindsNothing_data() { addFailingCommands(); }
    void aFailingLddFindsNothing()
    {
        QFETCH(QByteArray, script);
        const StubCommand ldd("ldd", script);
        QCOMPARE(m_manager.linuxLibraryDependencies(TINY_QT_PROGRAM), QStringList());
    }

    void anAbsentLddFindsNothing()
    {
        const SearchPath nothing("/absent");
        QCOMPARE(m_manager.linuxLibraryDependencies(TINY_QT_PROGRAM), QStringList());
    }

    void whatLddSaysOnStandardErrorIsNotRead()
    {
        const StubCommand ldd("ldd", "echo '\ta => /l/a (0x1)'; echo '\tb => /l/b (0x1)' >&2");
        QCOMPARE(m_manager.linuxLibraryDependencies("program"), QStringList{"/l/a"});
    }

    void lddGetsThePathAsItsOnlyArgument()
    {
        const StubCommand ldd("ldd", "[ $# = 1 ] && echo \"x => /given/$1\"");
        QCOMPARE(m_manager.linuxLibraryDependencies("a%1*"), QStringList{"/given/a%1*"});
    }

    void lddInheritsTheEnvironment()
    {
        qputenv("TESSARINE_TEST", "inherited");
        const StubCommand ldd("ldd", "echo \"x => /$TESSARINE_TEST\"");
        QCOMPARE(m_manager.linuxLibraryDependencies("program"), QStringList{"/inherited"});
        qunsetenv("TESSARINE_TEST");
    }

    // copyLinuxLibraryDependencies

    void librariesAreCopiedUnderTheNamesThatTheLoaderAsksFor()
    {
        const Drive host;
        const Drive drive;
        host.write("liba.so.1.2.3", "a");
        const QString a = host.link("liba.so.1", "liba.so.1.2.3");
        const QString b = host.write("libb.so.2", "b");
        const StubCommand ldd(
            "ldd",
            printing({"\tliba => " + a + " (0x1)", "\t" + b + " (0x1)", "\tlibgone.so => not found",
                      "\tx => " + host.path("absent.so"), "\td => " + host.path() + " (0x1)"}));
        QVERIFY(m_manager.copyLinuxLibraryDependencies("program", drive.path(), &m_result));
        QCOMPARE(drive.tree(), (QStringList{"liba.so.1: a", "libb.so.2: b"}));
        QCOMPARE(sorted(m_result.touchedPaths),
                 (QStringList{drive.path("liba.so.1"), drive.path("libb.so.2")}));
        QCOMPARE(m_result.message, QString());
    }

    void librariesThatAreNoFilesLeaveNothingToCopy()
    {
        const Drive drive;
        const StubCommand ldd("ldd", "echo '\ta => /absent/liba.so (0x1)'");
        QVERIFY(m_manager.copyLinuxLibraryDependencies("program", drive.path(), &m_result));
        QCOMPARE(drive.tree(), QStringList());
    }

    void aProgramWithoutLibrariesIsNamed_data()
    {
        QTest::addColumn<QString>("path");
        QTest::newRow("static program") << STATIC_PROGRAM;
        QTest::newRow("no program") << "/etc/hostname";
        QTest::newRow("absent, with placeholders") << "/absent%1%2";
    }

    void aProgramWithoutLibrariesIsNamed()
    {
        QFETCH(QString, path);
        const Drive drive;
        QVERIFY(!m_manager.copyLinuxLibraryDependencies(path, drive.path(), &m_result));
        QCOMPARE(m_result.message, "Nao foi possivel identificar dependencias Linux para: " + path);
        QCOMPARE(m_result.touchedPaths, QStringList());
        QCOMPARE(drive.tree(), QStringList());
    }

    void aLibraryThatCannotBeCopiedEndsTheCopying()
    {
        const Drive host;
        const Drive drive;
        drive.makeDirectory("liba.so");
        const StubCommand ldd("ldd", "echo 'a => " + host.write("liba.so", "a").toUtf8() + "'");
        QVERIFY(!m_manager.copyLinuxLibraryDependencies("program", drive.path(), &m_result));
        QCOMPARE(m_result.message, "Nao foi possivel criar o arquivo: " + drive.path("liba.so"));
        QCOMPARE(drive.tree(), QStringList{"liba.so/"});
    }

    // copyLinuxTlsLibraries

    void theRealLibsslIsCopied()
    {
        const Drive drive;
        QVERIFY(m_manager.copyLinuxTlsLibraries(drive.path(), &m_result));
        QCOMPARE(drive.names(), QStringList{"libssl.so.3"});
        QVERIFY(drive.read("libssl.so.3") == contentsOf("/lib/x86_64-linux-gnu/libssl.so.3"));
        QCOMPARE(m_result.touchedPaths, QStringList{drive.path("libssl.so.3")});
    }

    void ldconfigIsAskedForItsCache()
    {
        const Drive host;
        const Drive drive;
        const QString library = host.write("libssl.so.3", "ssl");
        const StubCommand ldconfig("ldconfig",
                                   "[ \"$*\" = -p ] && " + printing({libsslLine(library)}));
        QVERIFY(m_manager.copyLinuxTlsLibraries(drive.path(), &m_result));
        QCOMPARE(drive.tree(), QStringList{"libssl.so.3: ssl"});
    }

    void aFailingLdconfigIsSaid_data() { addFailingCommands(); }
    void aFailingLdconfigIsSaid()
    {
        QFETCH(QByteArray, script);
        const Drive drive;
        const StubCommand ldconfig("ldconfig", script);
        QVERIFY(!m_manager.copyLinuxTlsLibraries(drive.path(), &m_result));
        QCOMPARE(m_result.message, "Nao foi possivel localizar bibliotecas TLS do Linux.");
        QCOMPARE(drive.tree(), QStringList());
    }

    // As on Debian for a user whose PATH lacks /usr/sbin.
    void anLdconfigThatIsNotOnThePathIsSaid()
    {
        const Drive drive;
        const SearchPath ordinary("/usr/local/bin:/usr/bin:/bin");
        QVERIFY(!m_manager.copyLinuxTlsLibraries(drive.path(), &m_result));
        QCOMPARE(m_result.message, "Nao foi possivel localizar bibliotecas TLS do Linux.");
        QCOMPARE(m_result.touchedPaths, QStringList());
    }

    void aMachineWithoutLibsslIsSaid_data()
    {
        QTest::addColumn<QStringList>("lines");
        QTest::newRow("no output") << QStringList{};
        QTest::newRow("development name only")
            << QStringList{"\tlibssl.so (libc6,x86-64) => /lib/x86_64-linux-gnu/libssl.so.3"};
        QTest::newRow("vanished file")
            << QStringList{"\tlibssl.so.3 (libc6) => /absent/libssl.so.3"};
        QTest::newRow("directory") << QStringList{"\tlibssl.so.3 (libc6) => /"};
    }

    void aMachineWithoutLibsslIsSaid()
    {
        QFETCH(QStringList, lines);
        const Drive drive;
        const StubCommand ldconfig("ldconfig", printing(lines));
        QVERIFY(!m_manager.copyLinuxTlsLibraries(drive.path(), &m_result));
        QCOMPARE(m_result.message, "Biblioteca libssl.so nao encontrada no ambiente Linux.");
        QCOMPARE(drive.tree(), QStringList());
    }

    void aVanishedLibsslIsPassedOverForAnother()
    {
        const Drive host;
        const Drive drive;
        const QString library = host.write("libssl.so.3", "ssl");
        const StubCommand ldconfig(
            "ldconfig", printing({libsslLine("/absent/libssl.so.1.1"), libsslLine(library)}));
        QVERIFY(m_manager.copyLinuxTlsLibraries(drive.path(), &m_result));
        QCOMPARE(drive.tree(), QStringList{"libssl.so.3: ssl"});
    }

    void everyVersionOfLibsslIsCopied()
    {
        const Drive host;
        const Drive drive;
        const StubCommand ldconfig("ldconfig",
                                   printing({libsslLine(host.write("libssl.so.3", "three")),
                                             libsslLine(host.write("libssl.so.1.1", "one"))}));
        QVERIFY(m_manager.copyLinuxTlsLibraries(drive.path(), &m_result));
        QCOMPARE(drive.tree(), (QStringList{"libssl.so.1.1: one", "libssl.so.3: three"}));
    }

    void theSameLibsslListedTwiceIsCopiedOnce()
    {
        const Drive host;
        const Drive drive;
        const QString library = host.write("libssl.so.3", "ssl");
        const StubCommand ldconfig(
            "ldconfig", printing({libsslLine(library, "libc6"), libsslLine(library, "libc6,x32")}));
        QVERIFY(m_manager.copyLinuxTlsLibraries(drive.path(), &m_result));
        QCOMPARE(m_result.touchedPaths, QStringList{drive.path("libssl.so.3")});
    }

    void ofTwoArchitecturesTheLaterReplacesTheFirstUnlessItHasItsSize_data()
    {
        QTest::addColumn<QByteArray>("second");
        QTest::addColumn<QString>("tree");
        QTest::newRow("same size") << QByteArray("B") << "libssl.so.3: A";
        QTest::newRow("another size") << QByteArray("BB") << "libssl.so.3: BB";
    }

    void ofTwoArchitecturesTheLaterReplacesTheFirstUnlessItHasItsSize()
    {
        QFETCH(QByteArray, second);
        QFETCH(QString, tree);
        const Drive host;
        const Drive drive;
        const StubCommand ldconfig(
            "ldconfig", printing({libsslLine(host.write("64/libssl.so.3", "A")),
                                  libsslLine(host.write("32/libssl.so.3", second), "libc6")}));
        QVERIFY(m_manager.copyLinuxTlsLibraries(drive.path(), &m_result));
        QCOMPARE(drive.tree(), QStringList{tree});
        QCOMPARE(m_result.touchedPaths.size(), 2);
    }

    void aLibsslThatCannotBeCopiedEndsTheCopying()
    {
        const Drive host;
        const Drive drive;
        drive.makeDirectory("libssl.so.3");
        const StubCommand ldconfig("ldconfig",
                                   printing({libsslLine(host.write("libssl.so.3", "ssl"))}));
        QVERIFY(!m_manager.copyLinuxTlsLibraries(drive.path(), &m_result));
        QCOMPARE(m_result.message,
                 "Nao foi possivel criar o arquivo: " + drive.path("libssl.so.3"));
    }

    // copyQtLinuxPlugins

    void fourPluginFamiliesAreCopiedWithTheirLibraries()
    {
        const Drive host;
        const Drive plugins;
        const Drive drive;
        for (const char *file : {"platforms/a.so", "imageformats/b.SO", "xcbglintegrations/c.so",
                                 "tls/d.so", "tls/deep/e.so", "tls/readme.txt", "sqldrivers/f.so"})
            plugins.write(file, file);
        host.write("libneeded.so", "needed");
        const BindMount place(plugins.path(), qtPlugins());
        const StubCommand ldd("ldd", "echo \"$1\" >>\"$(dirname \"$0\")/asked\"; echo 'x => "
                                         + host.path("libneeded.so").toUtf8() + "'");
        drive.makeDirectory("lib");
        QVERIFY(m_manager.copyQtLinuxPlugins(drive.path("plugins"), &m_result));
        QCOMPARE(drive.tree("plugins"),
                 (QStringList{"imageformats/", "imageformats/b.SO: imageformats/b.SO", "platforms/",
                              "platforms/a.so: platforms/a.so", "tls/", "tls/d.so: tls/d.so",
                              "tls/deep/", "tls/deep/e.so: tls/deep/e.so",
                              "tls/readme.txt: tls/readme.txt", "xcbglintegrations/",
                              "xcbglintegrations/c.so: xcbglintegrations/c.so"}));
        QCOMPARE(drive.tree("lib"), QStringList{"libneeded.so: needed"});
        QCOMPARE(m_result.touchedPaths.count(drive.path("lib/libneeded.so")), 4);
        QString asked;
        for (const char *plugin :
             {"platforms/a.so", "imageformats/b.SO", "xcbglintegrations/c.so", "tls/d.so"})
            asked += drive.path("plugins/") + plugin + u'\n';
        QCOMPARE(QString::fromUtf8(ldd.directory().read("asked")), asked);
    }

    void aQtWithoutAPluginFamilyIsNoFailure()
    {
        const Drive plugins;
        const Drive drive;
        plugins.makeDirectory("tls");
        const BindMount place(plugins.path(), qtPlugins());
        QVERIFY(m_manager.copyQtLinuxPlugins(drive.path("plugins"), &m_result));
        QCOMPARE(drive.tree(), (QStringList{"plugins/", "plugins/tls/"}));
        QCOMPARE(m_result.touchedPaths, QStringList{drive.path("plugins/tls")});
    }

    void aPluginThatLddCannotReadIsNamedByItsCopy()
    {
        const Drive plugins;
        const Drive drive;
        plugins.write("platforms/broken.so", "no library");
        plugins.write("tls/d.so", "not reached");
        const BindMount place(plugins.path(), qtPlugins());
        QVERIFY(!m_manager.copyQtLinuxPlugins(drive.path("plugins"), &m_result));
        QCOMPARE(m_result.message, "Nao foi possivel identificar dependencias Linux para: "
                                       + drive.path("plugins/platforms/broken.so"));
        QCOMPARE(drive.tree(), (QStringList{"plugins/", "plugins/platforms/",
                                            "plugins/platforms/broken.so: no library"}));
    }

    void aPluginFamilyThatCannotBeCopiedEndsTheCopying()
    {
        const Drive plugins;
        const Drive drive;
        plugins.makeDirectory("platforms");
        plugins.makeDirectory("tls");
        drive.write("plugins/platforms", "in the way");
        const BindMount place(plugins.path(), qtPlugins());
        QVERIFY(!m_manager.copyQtLinuxPlugins(drive.path("plugins"), &m_result));
        QCOMPARE(m_result.message,
                 "Nao foi possivel criar a pasta: " + drive.path("plugins/platforms"));
        QCOMPARE(drive.tree(), (QStringList{"plugins/", "plugins/platforms: in the way"}));
    }

    // The plugins that are examined are those on the drive, an earlier preparation's among them.
    void anOlderPluginOnTheDriveIsExaminedToo()
    {
        const Drive plugins;
        const Drive drive;
        plugins.makeDirectory("tls");
        drive.write("plugins/tls/older.so", "no library");
        const BindMount place(plugins.path(), qtPlugins());
        QVERIFY(!m_manager.copyQtLinuxPlugins(drive.path("plugins"), &m_result));
        QCOMPARE(m_result.message, "Nao foi possivel identificar dependencias Linux para: "
                                       + drive.path("plugins/tls/older.so"));
    }

    void theRealPluginsBringAllTheirLibraries()
    {
        const Drive drive = Drive::tmpfs(1'073'741'824);
        drive.makeDirectory("lib");
        QVERIFY2(m_manager.copyQtLinuxPlugins(drive.path("plugins"), &m_result),
                 qPrintable(m_result.message));
        const QStringList libraries = drive.names("lib");
        for (const char *family : {"platforms", "imageformats", "xcbglintegrations", "tls"}) {
            const QDir source(qtPlugins() + u'/' + family);
            QCOMPARE(QDir(drive.path("plugins/") + family).entryList(QDir::Files),
                     source.entryList(QDir::Files));
            for (const QFileInfo &plugin : source.entryInfoList({"*.so"}, QDir::Files))
                for (const QString &needed :
                     m_manager.linuxLibraryDependencies(plugin.absoluteFilePath()))
                    QVERIFY2(libraries.contains(QFileInfo(needed).fileName()), qPrintable(needed));
        }
        QVERIFY(libraries.filter(" -> ").isEmpty());
        QVERIFY(m_result.touchedPaths.count(drive.path("lib/libc.so.6")) > 10);
    }

    // deployLinuxRuntime

    void theRuntimeIsAssembledBesideTheExecutable()
    {
        const Drive plugins;
        const Drive drive;
        QFile::copy(TINY_PLUGIN, plugins.makeDirectory("tls") + "/libtiny.so");
        const BindMount place(plugins.path(), qtPlugins());
        const QString executable = drive.path("Tessarine");
        QFile::copy(TINY_QT_PROGRAM, executable);
        QVERIFY(m_manager.deployLinuxRuntime(executable, &m_result));
        QStringList expected{
            "Tessarine",      "lib/", "plugins/", "plugins/tls/", "plugins/tls/libtiny.so",
            "lib/libssl.so.3"};
        for (const QString &library : m_manager.linuxLibraryDependencies(executable)
                                          + m_manager.linuxLibraryDependencies(TINY_PLUGIN))
            expected << "lib/" + QFileInfo(library).fileName();
        expected.removeDuplicates();
        QCOMPARE(drive.names(), sorted(expected));
        QCOMPARE(m_result.touchedPaths.mid(0, 2),
                 (QStringList{drive.path("lib"), drive.path("plugins")}));
    }

    void pluginsStandsEvenWhereQtHasNone()
    {
        const Drive plugins;
        const Drive drive;
        const BindMount place(plugins.path(), qtPlugins());
        QFile::copy(TINY_QT_PROGRAM, drive.path("Tessarine"));
        QVERIFY(m_manager.deployLinuxRuntime(drive.path("Tessarine"), &m_result));
        QCOMPARE(drive.tree("plugins"), QStringList());
        QVERIFY(drive.exists("plugins"));
    }

    void aStaticProgramHasNoRuntimeToAssemble()
    {
        const Drive drive;
        QFile::copy(STATIC_PROGRAM, drive.path("Tessarine"));
        QVERIFY(!m_manager.deployLinuxRuntime(drive.path("Tessarine"), &m_result));
        QCOMPARE(m_result.message, "Nao foi possivel identificar dependencias Linux para: "
                                       + drive.path("Tessarine"));
        QCOMPARE(drive.names(), (QStringList{"Tessarine", "lib/", "plugins/"}));
        QCOMPARE(m_result.touchedPaths, (QStringList{drive.path("lib"), drive.path("plugins")}));
    }

    void aRuntimeWithoutLibsslEndsBeforeThePlugins()
    {
        const Drive host;
        const Drive drive;
        const StubCommand ldd("ldd", "echo 'a => " + host.write("liba.so", "a").toUtf8() + "'");
        const StubCommand ldconfig("ldconfig", "exit 0");
        QVERIFY(!m_manager.deployLinuxRuntime(drive.path("Tessarine"), &m_result));
        QCOMPARE(m_result.message, "Biblioteca libssl.so nao encontrada no ambiente Linux.");
        QCOMPARE(drive.tree(), (QStringList{"lib/", "lib/liba.so: a", "plugins/"}));
    }

    void aFileInTheWayOfTheRuntimesDirectoriesIsNamed_data()
    {
        QTest::addColumn<QString>("name");
        QTest::newRow("lib") << "lib";
        QTest::newRow("plugins") << "plugins";
    }

    void aFileInTheWayOfTheRuntimesDirectoriesIsNamed()
    {
        QFETCH(QString, name);
        const Drive drive;
        drive.write(name, "in the way");
        QVERIFY(!m_manager.deployLinuxRuntime(drive.path("Tessarine"), &m_result));
        QCOMPARE(m_result.message, "Nao foi possivel criar a pasta: " + drive.path(name));
        QVERIFY(drive.tree().contains(name + ": in the way"));
    }
};

TESSARINE_MOUNTING_TEST_MAIN(QCoreApplication, LinuxRuntimeTest)
#include "linux_runtime_test.moc"
