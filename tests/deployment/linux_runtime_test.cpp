#include "tests/deployment/LinuxTools.h"
#include "tests/deployment/OperationSituation.h"
#include "tests/support/TestMain.h"

#include <QCoreApplication>

using TestSupport::SearchPath;
using TestSupport::StubCommand;

// Assembling "lib" and "plugins" from the machine that prepares the drive.
class LinuxRuntimeTest : public OperationSituation
{
    Q_OBJECT

    static QByteArray contentsOf(const QString &path)
    {
        QFile file(path);
        file.open(QIODevice::ReadOnly);
        return file.readAll();
    }

    static QString libsslLine(const QString &path, const QString &arch = "libc6,x86-64")
    {
        return "\t" + QFileInfo(path).fileName() + " (" + arch + ") => " + path;
    }

    QString copyLibssl(const Drive &drive)
    {
        return outcome(m_manager.copyLinuxTlsLibraries(drive.path(), &m_result));
    }

    QString copyPlugins(const Drive &drive)
    {
        return outcome(m_manager.copyQtLinuxPlugins(drive.path("plugins"), &m_result));
    }

    QString deployRuntime(const Drive &drive)
    {
        return outcome(m_manager.deployLinuxRuntime(drive.path("Tessarine"), &m_result));
    }

private Q_SLOTS:
    void init() { begin(); }
    void cleanup() { end(); }

    // ---- libssl

    void theRealLibsslIsCopied()
    {
        const Drive drive;
        QCOMPARE(copyLibssl(drive), done);
        QCOMPARE(drive.names(), QStringList{"libssl.so.3"});
        QCOMPARE(drive.read("libssl.so.3"), contentsOf("/lib/x86_64-linux-gnu/libssl.so.3"));
        QCOMPARE(m_result.touchedPaths, QStringList{drive.path("libssl.so.3")});
    }

    void ldconfigIsAskedForItsCache()
    {
        const Drive host;
        const Drive drive;
        const QString library = host.write("libssl.so.3", "ssl");
        const StubCommand ldconfig("ldconfig",
                                   "[ \"$*\" = -p ] && " + printing({libsslLine(library)}));
        QCOMPARE(copyLibssl(drive), done);
        QCOMPARE(drive.tree(), QStringList{"libssl.so.3: ssl"});
    }

    void aFailingLdconfigIsSaid_data() { addFailingCommands(); }
    void aFailingLdconfigIsSaid()
    {
        QFETCH(QByteArray, script);
        const Drive drive;
        const StubCommand ldconfig("ldconfig", script);
        QCOMPARE(copyLibssl(drive), "Nao foi possivel localizar bibliotecas TLS do Linux.");
        QCOMPARE(drive.tree(), QStringList());
    }

    // As on Debian for a user whose PATH lacks /usr/sbin.
    void anLdconfigThatIsNotOnThePathIsSaid()
    {
        const Drive drive;
        const SearchPath ordinary("/usr/local/bin:/usr/bin:/bin");
        QCOMPARE(copyLibssl(drive), "Nao foi possivel localizar bibliotecas TLS do Linux.");
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
        QCOMPARE(copyLibssl(drive), "Biblioteca libssl.so nao encontrada no ambiente Linux.");
        QCOMPARE(drive.tree(), QStringList());
    }

    void aVanishedLibsslIsPassedOverForAnother()
    {
        const Drive host;
        const Drive drive;
        const QString library = host.write("libssl.so.3", "ssl");
        const StubCommand ldconfig(
            "ldconfig", printing({libsslLine("/absent/libssl.so.1.1"), libsslLine(library)}));
        QCOMPARE(copyLibssl(drive), done);
        QCOMPARE(drive.tree(), QStringList{"libssl.so.3: ssl"});
    }

    void everyVersionOfLibsslIsCopied()
    {
        const Drive host;
        const Drive drive;
        const StubCommand ldconfig("ldconfig",
                                   printing({libsslLine(host.write("libssl.so.3", "three")),
                                             libsslLine(host.write("libssl.so.1.1", "one"))}));
        QCOMPARE(copyLibssl(drive), done);
        QCOMPARE(drive.tree(), (QStringList{"libssl.so.1.1: one", "libssl.so.3: three"}));
    }

    void theSameLibsslListedTwiceIsCopiedOnce()
    {
        const Drive host;
        const Drive drive;
        const QString library = host.write("libssl.so.3", "ssl");
        const StubCommand ldconfig(
            "ldconfig", printing({libsslLine(library, "libc6"), libsslLine(library, "libc6,x32")}));
        QCOMPARE(copyLibssl(drive), done);
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
        QCOMPARE(copyLibssl(drive), done);
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
        QCOMPARE(copyLibssl(drive),
                 "Nao foi possivel criar o arquivo: " + drive.path("libssl.so.3"));
    }

    // ---- Qt's plugins

    void fourPluginFamiliesAreCopiedWithTheirLibraries()
    {
        const Drive host;
        const QtPlugins plugins;
        const Drive drive;
        for (const char *file : {"platforms/a.so", "imageformats/b.SO", "xcbglintegrations/c.so",
                                 "tls/d.so", "tls/deep/e.so", "tls/readme.txt", "sqldrivers/f.so"})
            plugins.write(file, file);
        host.write("libneeded.so", "needed");
        const StubCommand ldd("ldd", "echo \"$1\" >>\"$(dirname \"$0\")/asked\"; echo 'x => "
                                         + host.path("libneeded.so").toUtf8() + "'");
        drive.makeDirectory("lib");
        QCOMPARE(copyPlugins(drive), done);
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
        const QtPlugins plugins;
        const Drive drive;
        plugins.makeDirectory("tls");
        QCOMPARE(copyPlugins(drive), done);
        QCOMPARE(drive.tree(), (QStringList{"plugins/", "plugins/tls/"}));
        QCOMPARE(m_result.touchedPaths, QStringList{drive.path("plugins/tls")});
    }

    void aPluginThatLddCannotReadIsNamedByItsCopy()
    {
        const QtPlugins plugins;
        const Drive drive;
        plugins.write("platforms/broken.so", "no library");
        plugins.write("tls/d.so", "not reached");
        QCOMPARE(copyPlugins(drive), "Nao foi possivel identificar dependencias Linux para: "
                                         + drive.path("plugins/platforms/broken.so"));
        QCOMPARE(drive.tree(), (QStringList{"plugins/", "plugins/platforms/",
                                            "plugins/platforms/broken.so: no library"}));
    }

    void aPluginFamilyThatCannotBeCopiedEndsTheCopying()
    {
        const QtPlugins plugins;
        const Drive drive;
        plugins.makeDirectory("platforms");
        plugins.makeDirectory("tls");
        drive.write("plugins/platforms", "in the way");
        QCOMPARE(copyPlugins(drive),
                 "Nao foi possivel criar a pasta: " + drive.path("plugins/platforms"));
        QCOMPARE(drive.tree(), (QStringList{"plugins/", "plugins/platforms: in the way"}));
    }

    // The plugins that are examined are those on the drive, an earlier preparation's among them.
    void anOlderPluginOnTheDriveIsExaminedToo()
    {
        const QtPlugins plugins;
        const Drive drive;
        plugins.makeDirectory("tls");
        drive.write("plugins/tls/older.so", "no library");
        QCOMPARE(copyPlugins(drive), "Nao foi possivel identificar dependencias Linux para: "
                                         + drive.path("plugins/tls/older.so"));
    }

    void theRealPluginsBringAllTheirLibraries()
    {
        const Drive drive = Drive::tmpfs(1'073'741'824);
        drive.makeDirectory("lib");
        QCOMPARE(copyPlugins(drive), done);
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

    // ---- all of it

    void theRuntimeIsAssembledBesideTheExecutable()
    {
        const QtPlugins plugins;
        const Drive drive;
        QFile::copy(TINY_PLUGIN, plugins.makeDirectory("tls") + "/libtiny.so");
        const QString executable = drive.path("Tessarine");
        QFile::copy(TINY_QT_PROGRAM, executable);
        QCOMPARE(deployRuntime(drive), done);
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
        const QtPlugins plugins;
        const Drive drive;
        QFile::copy(TINY_QT_PROGRAM, drive.path("Tessarine"));
        QCOMPARE(deployRuntime(drive), done);
        QCOMPARE(drive.tree("plugins"), QStringList());
        QVERIFY(drive.exists("plugins"));
    }

    void aStaticProgramHasNoRuntimeToAssemble()
    {
        const Drive drive;
        QFile::copy(STATIC_PROGRAM, drive.path("Tessarine"));
        QCOMPARE(deployRuntime(drive), "Nao foi possivel identificar dependencias Linux para: "
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
        QCOMPARE(deployRuntime(drive), "Biblioteca libssl.so nao encontrada no ambiente Linux.");
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
        QCOMPARE(deployRuntime(drive), "Nao foi possivel criar a pasta: " + drive.path(name));
        QVERIFY(drive.tree().contains(name + ": in the way"));
    }
};

TESSARINE_MOUNTING_TEST_MAIN(QCoreApplication, LinuxRuntimeTest)
#include "linux_runtime_test.moc"
