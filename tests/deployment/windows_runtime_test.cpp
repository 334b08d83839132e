#include "tests/deployment/OperationSituation.h"
#include "tests/support/BindMount.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TestMain.h"

#include <QCoreApplication>

using TestSupport::asUnprivileged;
using TestSupport::BindMount;

// What travels with a Windows executable whose source isn't complete.
class WindowsRuntimeTest : public OperationSituation
{
    Q_OBJECT

    QString copyLibraries(const QString &target, const QString &source)
    {
        return outcome(m_manager.copyAdjacentRuntimeLibraries(target, source, &m_result));
    }

    QString copyRuntime(const QString &target, const QString &source)
    {
        return outcome(m_manager.copyDeployedRuntime(target, source, &m_result));
    }

private Q_SLOTS:
    void init() { begin(); }
    void cleanup() { end(); }

    void theWindowsRuntimeNeedsNothing()
    {
        QCOMPARE(outcome(m_manager.deployWindowsRuntime({}, {}, &m_result)), done);
        QCOMPARE(outcome(m_manager.deployWindowsRuntime("/absent.exe", "/absent", &m_result)),
                 done);
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
        QCOMPARE(copyLibraries(drive.path(), source.path()), done);
        QCOMPARE(drive.tree(), (QStringList{"Qt6Core.dll: 1", "UPPER.DLL: 2", "linked.dll: 1"}));
        QCOMPARE(sorted(m_result.touchedPaths),
                 (QStringList{drive.path("Qt6Core.dll"), drive.path("UPPER.DLL"),
                              drive.path("linked.dll")}));
    }

    void unreadableLibrariesStayBehind()
    {
        const Drive source;
        const Drive drive;
        QFile::setPermissions(source.write("secret.dll", "1"), QFile::Permissions());
        drive.giveAway();
        QCOMPARE(
            asUnprivileged([&] { return QStringList{copyLibraries(drive.path(), source.path())}; }),
            QStringList{done});
        QCOMPARE(drive.tree(), QStringList());
    }

    void aSourceWithoutLibrariesIsNoFailure()
    {
        const Drive source;
        const Drive drive;
        source.write("Tessarine.exe", "1");
        QCOMPARE(copyLibraries(drive.path(), source.path()), done);
        QCOMPARE(copyLibraries(drive.path(), "/absent"), done);
        QCOMPARE(drive.tree(), QStringList());
        QCOMPARE(m_result.touchedPaths, QStringList());
    }

    void librariesInTheirPlaceAreNotEvenTouched()
    {
        const Drive drive;
        drive.write("a.dll", "1");
        QCOMPARE(copyLibraries(drive.path(), drive.path()), done);
        QCOMPARE(drive.tree(), QStringList{"a.dll: 1"});
        QCOMPARE(m_result.touchedPaths, QStringList());
    }

    void aLibraryThatCannotBeCopiedIsNamedByItsFile()
    {
        const Drive source;
        const Drive drive;
        source.write("a%1%2.dll", "1");
        drive.write("a%1%2.dll/file", "kept");
        QCOMPARE(copyLibraries(drive.path(), source.path()),
                 "Nao foi possivel copiar a biblioteca: a%1%2.dll");
        QCOMPARE(m_result.touchedPaths, QStringList());
        QCOMPARE(drive.tree(), (QStringList{"a%1%2.dll/", "a%1%2.dll/file: kept"}));
    }

    void withoutASourceTheProgramsOwnDirectoryHoldsTheLibraries()
    {
        const Drive source;
        const Drive drive;
        source.write("own.dll", "1");
        const BindMount place(source.path(), QCoreApplication::applicationDirPath());
        QCOMPARE(copyLibraries(drive.path(), {}), done);
        QCOMPARE(drive.tree(), QStringList{"own.dll: 1"});
    }

    // copyDeployedRuntime

    void aRuntimeThatLiesReadyIsCopiedWhole()
    {
        const Drive source;
        const Drive drive;
        source.write("a/b", "1");
        QCOMPARE(copyRuntime(drive.path("x"), source.path()), done);
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
        QCOMPARE(copyRuntime(drive.path("x"), {}), done);
        QCOMPARE(drive.tree("x"), QStringList{"program: 1"});
    }

    void aRuntimeInItsPlaceIsOnlyTouched()
    {
        const Drive drive;
        drive.write("x/file", "1");
        QCOMPARE(copyRuntime(drive.path("x"), drive.path("x")), done);
        QCOMPARE(drive.tree(), (QStringList{"x/", "x/file: 1"}));
        QCOMPARE(m_result.touchedPaths, QStringList{drive.path("x")});
    }

    void anAbsentRuntimeIsNamed()
    {
        const Drive drive;
        QCOMPARE(copyRuntime(drive.path("x"), drive.path("absent")),
                 "Pasta de origem nao encontrada: " + drive.path("absent"));
        QCOMPARE(drive.tree(), QStringList());
    }
};

TESSARINE_MOUNTING_TEST_MAIN(QCoreApplication, WindowsRuntimeTest)
#include "windows_runtime_test.moc"
