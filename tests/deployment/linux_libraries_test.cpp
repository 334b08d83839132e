// Its private functions are tested too.
#include "deployment/PortableBundleManager.cpp"

#include "tests/deployment/LinuxTools.h"
#include "tests/deployment/OperationSituation.h"
#include "tests/support/TestMain.h"

using namespace Tessarine::Deployment;
using TestSupport::SearchPath;
using TestSupport::StubCommand;

// Which libraries a Linux program needs, as ldd and ldconfig tell, and how they reach the drive.
class LinuxLibrariesTest : public OperationSituation
{
    Q_OBJECT

    QString copyLibraries(const QString &program, const QString &target)
    {
        return outcome(m_manager.copyLinuxLibraryDependencies(program, target, &m_result));
    }

    static void row(const char *name, const QString &line, const QStringList &libraries)
    {
        QTest::newRow(name) << line << libraries;
    }

private Q_SLOTS:
    void init() { begin(); }
    void cleanup() { end(); }

    // ---- what a line of their output means

    void aLineOfLddNamesALibrary_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<QStringList>("libraries");
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

    void aLineOfLdconfigNamesLibssl_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<QStringList>("libraries");
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

    // ---- what a program needs

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

    // ---- what is copied

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
        QCOMPARE(copyLibraries("program", drive.path()), done);
        QCOMPARE(drive.tree(), (QStringList{"liba.so.1: a", "libb.so.2: b"}));
        QCOMPARE(sorted(m_result.touchedPaths),
                 (QStringList{drive.path("liba.so.1"), drive.path("libb.so.2")}));
    }

    void librariesThatAreNoFilesLeaveNothingToCopy()
    {
        const Drive drive;
        const StubCommand ldd("ldd", "echo '\ta => /absent/liba.so (0x1)'");
        QCOMPARE(copyLibraries("program", drive.path()), done);
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
        QCOMPARE(copyLibraries(path, drive.path()),
                 "Nao foi possivel identificar dependencias Linux para: " + path);
        QCOMPARE(m_result.touchedPaths, QStringList());
        QCOMPARE(drive.tree(), QStringList());
    }

    void aLibraryThatCannotBeCopiedEndsTheCopying()
    {
        const Drive host;
        const Drive drive;
        drive.makeDirectory("liba.so");
        const StubCommand ldd("ldd", "echo 'a => " + host.write("liba.so", "a").toUtf8() + "'");
        QCOMPARE(copyLibraries("program", drive.path()),
                 "Nao foi possivel criar o arquivo: " + drive.path("liba.so"));
        QCOMPARE(drive.tree(), QStringList{"liba.so/"});
    }
};

TESSARINE_MOUNTING_TEST_MAIN(QCoreApplication, LinuxLibrariesTest)
#include "linux_libraries_test.moc"
