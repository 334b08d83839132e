// Its private functions are tested too.
#include "deployment/PortableBundleManager.cpp"

#include "tests/deployment/LinuxTools.h"
#include "tests/deployment/OperationSituation.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TestMain.h"

using namespace Tessarine::Deployment;
using TestSupport::asUnprivileged;
using TestSupport::BindMount;
using TestSupport::SearchPath;
using TestSupport::StubCommand;

// How much room the bundles need, and whether a drive may take them.
class SizeTest : public OperationSituation
{
    Q_OBJECT

    // Options of a Windows bundle of so many bytes.
    static PortableBundleOptions windowsBundle(const Drive &host, qint64 size)
    {
        return {host.writeSparse("Tessarine.exe", size), {}, {}, {}};
    }

    QString fitsDrive(const Drive &drive, const PortableBundleOptions &options)
    {
        return outcome(m_manager.validateBundleFitsUsb(drive.path(), drive.path("Tessarine"),
                                                       options, &m_result));
    }

    static QString tooBigMessage(qint64 capacity, qint64 required)
    {
        return "A unidade USB nao e recomendada para Tessarine.\n\nCapacidade: "
               + QString::number(capacity) + " bytes\nBundle estimado: " + QString::number(required)
               + " bytes\n\nO bundle ocuparia mais de 25% da unidade.";
    }

    static QString noRoomMessage(qint64 required, qint64 available)
    {
        return "Espaco insuficiente na unidade USB.\n\nNecessario: " + QString::number(required)
               + " bytes\nDisponivel: " + QString::number(available) + " bytes";
    }

private Q_SLOTS:
    void init() { begin(); }

    void cleanup()
    {
        end();
        QCOMPARE(m_result.touchedPaths, QStringList());
    }

    // fileSize

    void aFileCountsItsLength()
    {
        const Drive drive;
        QCOMPARE(m_manager.fileSize(drive.writeSparse("big", 5'000'000'000)), 5'000'000'000);
        QCOMPARE(m_manager.fileSize(drive.write("empty", "")), 0);
    }

    void aLinkCountsTheFileThatItLeadsTo()
    {
        const Drive drive;
        drive.write("file", "12345");
        QCOMPARE(m_manager.fileSize(drive.link("link", "file")), 5);
    }

    void whatIsNoFileCountsNothing()
    {
        const Drive drive;
        QCOMPARE(m_manager.fileSize(drive.path("absent")), 0);
        QCOMPARE(m_manager.fileSize(drive.path()), 0);
        QCOMPARE(m_manager.fileSize(drive.link("dangling", "absent")), 0);
    }

    // directorySize

    void aTreeCountsAllItsFiles()
    {
        const Drive drive;
        drive.write("a", "1");
        drive.write("b/c", "22");
        drive.write("b/d/e", "333");
        drive.makeDirectory("empty");
        QCOMPARE(m_manager.directorySize(drive.path()), 6);
    }

    void aFileCountsAsATreeOfItself()
    {
        const Drive drive;
        QCOMPARE(m_manager.directorySize(drive.write("file", "12345")), 5);
        QCOMPARE(m_manager.directorySize(drive.link("link", "file")), 5);
    }

    void anAbsentTreeCountsNothing()
    {
        const Drive drive;
        QCOMPARE(m_manager.directorySize(drive.path("absent")), 0);
        QCOMPARE(m_manager.directorySize("/dev/null"), 0);
    }

    void hiddenEntriesCountNothing()
    {
        const Drive drive;
        drive.write(".hidden", "1");
        drive.write(".directory/file", "22");
        drive.write("seen", "333");
        QCOMPARE(m_manager.directorySize(drive.path()), 3);
    }

    void aLinkBackIntoItsOwnTreeCountsForNothing()
    {
        const Drive drive;
        drive.write("lib/library", "12345");
        drive.link("lib/self", ".");
        drive.link("lib/up", "..");
        QCOMPARE(m_manager.directorySize(drive.path()), 5);
    }

    void linksInATreeAreFollowed()
    {
        const Drive outside;
        const Drive drive;
        outside.write("file", "1");
        outside.write("directory/file", "22");
        drive.link("toFile", outside.path("file"));
        drive.link("toDirectory", outside.path("directory"));
        drive.link("dangling", "nowhere");
        QCOMPARE(m_manager.directorySize(drive.path()), 3);
    }

    void unreadableEntriesCountNothing()
    {
        const Drive drive;
        drive.write("file", "1");
        drive.write("secret", "22");
        drive.write("private/file", "333");
        QFile::setPermissions(drive.path("secret"), QFile::Permissions());
        QFile::setPermissions(drive.path("private"), QFile::Permissions());
        const QStringList report = asUnprivileged([&]() -> QStringList {
            return {QString::number(m_manager.directorySize(drive.path()))};
        });
        QCOMPARE(report, QStringList{"1"});
    }

    // estimateWindowsBundleSize

    void noWindowsExecutableNeedsNoRoom()
    {
        const Drive source;
        source.write("Qt6Core.dll", "12345");
        QCOMPARE(m_manager.estimateWindowsBundleSize({{}, source.path(), {}, {}}), 0);
    }

    void aWindowsBundleIsTheExecutableItsLibrariesAndThreePluginFamilies()
    {
        const Drive source;
        const QString executable = source.write("Tessarine.exe", QByteArray(1, 'x'));
        source.write("Qt6Core.dll", QByteArray(10, 'x'));
        source.write("UPPER.DLL", QByteArray(100, 'x'));
        source.write("platforms/qwindows.dll", QByteArray(1'000, 'x'));
        source.write("imageformats/sub/qico.txt", QByteArray(10'000, 'x'));
        source.write("styles/qmodern.dll", QByteArray(100'000, 'x'));
        source.write("tls/not-counted.dll", QByteArray(7, 'x'));
        source.write("sub/not-counted.dll", QByteArray(7, 'x'));
        source.write("not-counted.txt", QByteArray(7, 'x'));
        source.write(".hidden.dll", QByteArray(7, 'x'));
        QCOMPARE(m_manager.estimateWindowsBundleSize({executable, {}, {}, {}}), 111'111);
    }

    void theNamedWindowsSourceCountsBesideTheExecutable()
    {
        const Drive other;
        const Drive source;
        other.write("beside.dll", "not counted");
        source.write("library.dll", "22");
        QCOMPARE(
            m_manager.estimateWindowsBundleSize({other.write("a.exe", "1"), source.path(), {}, {}}),
            3);
    }

    void anAbsentWindowsExecutableAddsNothing()
    {
        const Drive source;
        source.write("library.dll", "22");
        QCOMPARE(m_manager.estimateWindowsBundleSize({source.path("absent.exe"), {}, {}, {}}), 2);
    }

    // estimateLinuxBundleSize

    void noLinuxExecutableNeedsNoRoom()
    {
        const Drive source;
        source.write("file", "12345");
        QCOMPARE(m_manager.estimateLinuxBundleSize({{}, {}, {}, source.path()}), 0);
    }

    void aSecondFileMakesTheWholeSourceTheLinuxEstimate()
    {
        const Drive source;
        const QString executable = source.write("Tessarine", "12345");
        source.write("sub/extra", "6");
        const StubCommand ldd("ldd", "touch \"$(dirname \"$0\")/called\"");
        QCOMPARE(m_manager.estimateLinuxBundleSize({{}, {}, executable, {}}), 6);
        QVERIFY(!ldd.directory().exists("called"));
    }

    void aLoneLinuxExecutableNeedsItsLibrariesAndQtsPlugins()
    {
        const Drive libraries;
        libraries.write("libapp.so", QByteArray(10, 'x'));
        libraries.write("libshared.so", QByteArray(100, 'x'));
        libraries.write("libplugin.so", QByteArray(1'000, 'x'));
        const QtPlugins plugins;
        plugins.write("platforms/libqxcb.so", QByteArray(10'000, 'x'));
        plugins.write("imageformats/readme.txt", QByteArray(100'000, 'x'));
        plugins.write("xcbglintegrations/libgl.so", QByteArray(1'000'000, 'x'));
        plugins.write("tls/libtls.so", QByteArray(10'000'000, 'x'));
        plugins.write("sqldrivers/libqsqlite.so", QByteArray(7, 'x'));
        const StubCommand ldd("ldd", "cd '" + libraries.path().toUtf8() + R"sh('
            case "$1" in
            */Tessarine) echo "libapp => $PWD/libapp.so (0x1)" ;;
            *.so) echo "libplugin => $PWD/libplugin.so (0x1)" ;;
            *) exit 1 ;;
            esac
            echo "libshared => $PWD/libshared.so (0x1)"
            echo "libabsent => $PWD/libabsent.so (0x1)")sh");
        const Drive source;
        const QString executable = source.write("Tessarine", "1");
        QCOMPARE(m_manager.estimateLinuxBundleSize({{}, {}, executable, {}}), 11'111'111);
    }

    void withoutLddALoneLinuxExecutableNeedsQtsPlugins()
    {
        const QtPlugins plugins;
        plugins.write("tls/libtls.so", "22");
        const Drive source;
        const QString executable = source.write("Tessarine", "1");
        const SearchPath nothing(source.path("absent"));
        QCOMPARE(m_manager.estimateLinuxBundleSize({{}, {}, executable, {}}), 3);
    }

    void anAbsentLinuxSourceDirectoryLeavesTheExecutableToCount()
    {
        const QtPlugins plugins;
        const Drive source;
        const QString executable = source.write("Tessarine", "1");
        source.write("extra", "22");
        const StubCommand ldd("ldd", "exit 1");
        QCOMPARE(m_manager.estimateLinuxBundleSize({{}, {}, executable, source.path("absent")}), 1);
    }

    void anAbsentLinuxExecutableLeavesItsSourceToCount()
    {
        const Drive source;
        source.write("library", "22");
        QCOMPARE(m_manager.estimateLinuxBundleSize({{}, {}, source.path("absent"), {}}), 2);
    }

    void aLibraryOfTheRealMachineCountsOnce()
    {
        const QtPlugins plugins;
        QFile::copy(TINY_PLUGIN, plugins.makeDirectory("tls") + "/libtiny.so");
        const Drive source;
        const QString executable = source.path("Tessarine");
        QFile::copy(TINY_QT_PROGRAM, executable);
        qint64 expected = QFileInfo(TINY_QT_PROGRAM).size() + QFileInfo(TINY_PLUGIN).size();
        QStringList libraries = m_manager.linuxLibraryDependencies(TINY_QT_PROGRAM)
                                + m_manager.linuxLibraryDependencies(TINY_PLUGIN);
        libraries.removeDuplicates();
        for (const QString &library : libraries)
            expected += QFileInfo(library).size();
        QVERIFY(expected > 5'000'000);
        QCOMPARE(m_manager.estimateLinuxBundleSize({{}, {}, executable, {}}), expected);
    }

    // The decision

    void aDriveMayGiveAQuarterOfItsCapacity_data()
    {
        QTest::addColumn<qint64>("required");
        QTest::addColumn<qint64>("available");
        QTest::addColumn<qint64>("capacity");
        QTest::addColumn<QString>("expected");
        const auto row = [](const char *name, qint64 required, qint64 available, qint64 capacity,
                            const QString &expected) {
            QTest::newRow(name) << required << available << capacity << expected;
        };
        const QString noBundle = "Nenhum bundle valido foi encontrado para preparar a unidade USB.";
        row("exactly a quarter", 250, 1000, 1000, done);
        row("one byte more", 251, 1000, 1000, tooBigMessage(1000, 251));
        row("a quarter is rounded down", 250, 1003, 1003, done);
        row("one byte more than a rounded quarter", 251, 1003, 1003, tooBigMessage(1003, 251));
        row("all the room that there is", 250, 250, 1000, done);
        row("one byte more than the room", 250, 249, 1000, noRoomMessage(250, 249));
        row("no room is said before a quarter", 251, 250, 1000, noRoomMessage(251, 250));
        row("unknown capacity", 1'000'000, 1'000'000, 0, done);
        row("unknown capacity, no room", 2, 1, 0, noRoomMessage(2, 1));
        row("a capacity below four bytes", 1, 3, 3, tooBigMessage(3, 1));
        row("the least capacity that is known", 1, 1, 1, tooBigMessage(1, 1));
        row("nothing to copy", 0, 1000, 1000, noBundle);
        row("nothing to copy is said first", 0, -1, 0, noBundle);
        row("beyond 32 bits", 5'000'000'000, 20'000'000'000, 20'000'000'000, done);
        row("numbers are plain", 5'000'000'001, 20'000'000'000, 20'000'000'000,
            tooBigMessage(20'000'000'000, 5'000'000'001));
    }

    void aDriveMayGiveAQuarterOfItsCapacity()
    {
        QFETCH(qint64, required);
        QFETCH(qint64, available);
        QFETCH(qint64, capacity);
        QFETCH(QString, expected);
        QCOMPARE(outcome(fits(required, available, capacity, &m_result)), expected);
    }

    void aQuarterOfAMountedDriveFits()
    {
        const Drive host;
        const Drive drive = Drive::tmpfs(1'048'576);
        QCOMPARE(fitsDrive(drive, windowsBundle(host, 262'144)), done);
    }

    void moreThanAQuarterOfAMountedDriveIsRefused()
    {
        const Drive host;
        const Drive drive = Drive::tmpfs(1'048'576);
        QCOMPARE(fitsDrive(drive, windowsBundle(host, 262'145)), tooBigMessage(1'048'576, 262'145));
    }

    void aDiskIsJudgedByTheCapacityThatItReports()
    {
        const Drive host;
        const Drive drive = Drive::ext4(16'777'216);
        const qint64 capacity = QStorageInfo(drive.path()).bytesTotal();
        QCOMPARE(fitsDrive(drive, windowsBundle(host, capacity / 4)), done);
        QCOMPARE(fitsDrive(drive, windowsBundle(host, capacity / 4 + 1)),
                 tooBigMessage(capacity, capacity / 4 + 1));
    }

    void bothBundlesCountTogether()
    {
        const Drive windows;
        const Drive linux;
        const Drive drive = Drive::tmpfs(1'048'576);
        PortableBundleOptions options = windowsBundle(windows, 262'143);
        options.linuxExecutablePath = linux.write("Tessarine", "");
        linux.write("extra", "1");
        QCOMPARE(fitsDrive(drive, options), done);
        linux.write("extra", "22");
        QCOMPARE(fitsDrive(drive, options), tooBigMessage(1'048'576, 262'145));
    }

    void aFullDriveIsRefused()
    {
        const Drive host;
        const Drive drive = Drive::tmpfs(1'048'576);
        drive.fill(8'192);
        QCOMPARE(fitsDrive(drive, windowsBundle(host, 8'192)), done);
        QCOMPARE(fitsDrive(drive, windowsBundle(host, 8'193)), noRoomMessage(8'193, 8'192));
    }

    void anEarlierBundleCountsAsRoom()
    {
        const Drive host;
        const Drive drive = Drive::tmpfs(1'048'576);
        drive.write("Tessarine/linux/old", QByteArray(100'000, 'x'));
        drive.fill();
        QCOMPARE(fitsDrive(drive, windowsBundle(host, 100'000)), done);
        QCOMPARE(fitsDrive(drive, windowsBundle(host, 100'001)), noRoomMessage(100'001, 100'000));
    }

    void anEarlierBundleIsNotWalkedThroughWhereThereIsRoom()
    {
        const Drive host;
        const Drive drive = Drive::tmpfs(1'048'576);
        // Each directory leads to the next one twice: a walk through all of them has no end.
        for (int level = 0; level < 40; ++level) {
            const QString directory = "Tessarine/" + QString::number(level) + '/';
            const QString next = "../" + QString::number(level + 1);
            drive.link(directory + 'a', next);
            drive.link(directory + 'b', next);
        }
        QCOMPARE(fitsDrive(drive, windowsBundle(host, 1)), done);
    }

    void onlyTheRoomForThisUserCounts()
    {
        const Drive host;
        const Drive drive = Drive::ext4(16'777'216);
        const QStorageInfo storage(drive.path());
        QVERIFY(storage.bytesAvailable() < storage.bytesFree());
        const qint64 available = storage.bytesAvailable();
        QCOMPARE(fitsDrive(drive, windowsBundle(host, available + 1)),
                 noRoomMessage(available + 1, available));
    }

    void aDriveWithoutCapacityEscapesTheRuleOfTheQuarter()
    {
        const Drive host;
        const Drive earlier;
        earlier.write("bundle", "12345");
        QCOMPARE(QStorageInfo("/proc").bytesTotal(), 0);
        QCOMPARE(outcome(m_manager.validateBundleFitsUsb("/proc", earlier.path(),
                                                         windowsBundle(host, 5), &m_result)),
                 done);
    }

    void aVanishedDriveCannotBeJudged()
    {
        const Drive host;
        QCOMPARE(outcome(m_manager.validateBundleFitsUsb(host.path("absent"), host.path(),
                                                         windowsBundle(host, 1), &m_result)),
                 "Nao foi possivel validar o espaco livre da unidade USB.");
    }

    void absentSourcesAreNoBundle()
    {
        const Drive host;
        const Drive drive;
        const BindMount place(drive.path(), qtPlugins());
        QCOMPARE(fitsDrive(drive, {host.path("a.exe"), {}, host.path("b"), {}}),
                 "Nenhum bundle valido foi encontrado para preparar a unidade USB.");
    }
};

TESSARINE_MOUNTING_TEST_MAIN(QCoreApplication, SizeTest)
#include "size_test.moc"
