#include "deployment/PortableBundleManager.h"
#include "tests/support/BindMount.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Drive.h"
#include "tests/support/TestMain.h"

#include <QCoreApplication>
#include <QTest>

using Tessarine::Deployment::PortableBundleManager;
using Tessarine::Deployment::PortableBundleResult;
using TestSupport::asUnprivileged;
using TestSupport::BindMount;
using TestSupport::Drive;

// What travels with a Windows executable whose source isn't complete.
class WindowsRuntimeTest : public QObject
{
    Q_OBJECT

    const PortableBundleManager m_manager{};
    PortableBundleResult m_result;

private Q_SLOTS:
    void init() { m_result = {}; }
    void cleanup() { QVERIFY(!m_result.success); }

    void theWindowsRuntimeNeedsNothing()
    {
        QVERIFY(m_manager.deployWindowsRuntime({}, {}, &m_result));
        QVERIFY(m_manager.deployWindowsRuntime("/absent.exe", "/absent", &m_result));
        QCOMPARE(m_result.message, QString());
        QCOMPARE(m_result.touchedPaths, QStringList());
    }

    void onlyLibrariesOfTheSourcesOwnLevelAreCopied()
    {
        const Drive source;
        const Drive drive;
        source.write("Qt6Core.dll", "1");
        source.write("UPPER.DLL", "2");
        source.write("Tessarine.exe", "3");
        source.write("a.dll.txt", "4");
        source.write(".hidden.dll", "5");
        source.write("platforms/qwindows.dll", "6");
        source.makeDirectory("directory.dll");
        source.link("linked.dll", "Qt6Core.dll");
        source.link("dangling.dll", "nowhere");
        QVERIFY(m_manager.copyAdjacentRuntimeLibraries(drive.path(), source.path(), &m_result));
        QCOMPARE(drive.tree(), (QStringList{"Qt6Core.dll: 1", "UPPER.DLL: 2", "linked.dll: 1"}));
        m_result.touchedPaths.sort();
        QCOMPARE(m_result.touchedPaths,
                 (QStringList{drive.path("Qt6Core.dll"), drive.path("UPPER.DLL"),
                              drive.path("linked.dll")}));
    }

    void unreadableLibrariesStayBehind()
    {
        const Drive source;
        const Drive drive;
        QFile::setPermissions(source.write("secret.dll", "1"), QFile::Permissions());
        drive.giveAway();
        const QStringList report = asUnprivileged([&]() -> QStringList {
            return {QString::number(
                m_manager.copyAdjacentRuntimeLibraries(drive.path(), source.path(), &m_result))};
        });
        QCOMPARE(report, QStringList{"1"});
        QCOMPARE(drive.tree(), QStringList());
    }

    void aSourceWithoutLibrariesIsNoFailure()
    {
        const Drive source;
        const Drive drive;
        source.write("Tessarine.exe", "1");
        QVERIFY(m_manager.copyAdjacentRuntimeLibraries(drive.path(), source.path(), &m_result));
        QVERIFY(m_manager.copyAdjacentRuntimeLibraries(drive.path(), "/absent", &m_result));
        QCOMPARE(drive.tree(), QStringList());
        QCOMPARE(m_result.touchedPaths, QStringList());
    }

    void librariesInTheirPlaceAreNotEvenTouched()
    {
        const Drive drive;
        drive.write("a.dll", "1");
        QVERIFY(m_manager.copyAdjacentRuntimeLibraries(drive.path(), drive.path(), &m_result));
        QCOMPARE(drive.tree(), QStringList{"a.dll: 1"});
        QCOMPARE(m_result.touchedPaths, QStringList());
    }

    void aLibraryThatCannotBeCopiedIsNamedByItsFile()
    {
        const Drive source;
        const Drive drive;
        source.write("a%1%2.dll", "1");
        drive.write("a%1%2.dll/file", "kept");
        QVERIFY(!m_manager.copyAdjacentRuntimeLibraries(drive.path(), source.path(), &m_result));
        QCOMPARE(m_result.message, "Nao foi possivel copiar a biblioteca: a%1%2.dll");
        QCOMPARE(m_result.touchedPaths, QStringList());
        QCOMPARE(drive.tree(), (QStringList{"a%1%2.dll/", "a%1%2.dll/file: kept"}));
    }

    void withoutASourceTheProgramsOwnDirectoryHoldsTheLibraries()
    {
        const Drive source;
        const Drive drive;
        source.write("own.dll", "1");
        const BindMount place(source.path(), QCoreApplication::applicationDirPath());
        QVERIFY(m_manager.copyAdjacentRuntimeLibraries(drive.path(), {}, &m_result));
        QCOMPARE(drive.tree(), QStringList{"own.dll: 1"});
    }

    // copyDeployedRuntime

    void aRuntimeThatLiesReadyIsCopiedWhole()
    {
        const Drive source;
        const Drive drive;
        source.write("a/b", "1");
        QVERIFY(m_manager.copyDeployedRuntime(drive.path("x"), source.path(), &m_result));
        QCOMPARE(drive.tree("x"), source.tree());
        QCOMPARE(m_result.touchedPaths,
                 (QStringList{drive.path("x"), drive.path("x/a"), drive.path("x/a/b")}));
    }

    void withoutASourceTheProgramsOwnDirectoryIsCopied()
    {
        const Drive source;
        const Drive drive;
        source.write("program", "1");
        const BindMount place(source.path(), QCoreApplication::applicationDirPath());
        QVERIFY(m_manager.copyDeployedRuntime(drive.path("x"), {}, &m_result));
        QCOMPARE(drive.tree("x"), QStringList{"program: 1"});
    }

    void aRuntimeInItsPlaceIsOnlyTouched()
    {
        const Drive drive;
        drive.write("x/file", "1");
        QVERIFY(m_manager.copyDeployedRuntime(drive.path("x"), drive.path("x"), &m_result));
        QCOMPARE(drive.tree(), (QStringList{"x/", "x/file: 1"}));
        QCOMPARE(m_result.touchedPaths, QStringList{drive.path("x")});
    }

    void anAbsentRuntimeIsNamed()
    {
        const Drive drive;
        QVERIFY(!m_manager.copyDeployedRuntime(drive.path("x"), drive.path("absent"), &m_result));
        QCOMPARE(m_result.message, "Pasta de origem nao encontrada: " + drive.path("absent"));
        QCOMPARE(drive.tree(), QStringList());
    }
};

TESSARINE_MOUNTING_TEST_MAIN(QCoreApplication, WindowsRuntimeTest)
#include "windows_runtime_test.moc"
