#include "tests/app/HostileCases.h"
#include "tests/app/UpdateSituation.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/PeakMemory.h"
#include "tests/support/TemporaryFileSystem.h"

#include <sys/stat.h>

// A drive that somebody else has prepared. The program may refuse it; it follows no link off the
// drive and waits for nothing that never comes.
class HostileDriveTest : public UpdateSituation
{
    Q_OBJECT

    std::unique_ptr<Drive> host;
    HostileCases cases{QStringLiteral("drive")};
    const QString stateName = QStringLiteral("Tessarine/update-state.json");

    // In the place of the file.
    void putLink(const QString &name, const QString &target)
    {
        QFile::remove(drive->path(name));
        drive->link(name, target);
    }

    QString updateAndNote(const QString &name, const QString &driveAfterwards)
    {
        const QStringList onHost = host->tree();
        QElapsedTimer clock;
        clock.start();
        agreeToUpdate();
        cases.note(lastBox().text, clock, driveAfterwards, name);
        if (host->tree() != onHost)
            return QStringLiteral("The host's files have changed");
        return lastBox().text;
    }

private Q_SLOTS:
    void initTestCase() { openServer(); }
    void cleanupTestCase()
    {
        cases.write();
        server.reset();
    }
    void init()
    {
        begin();
        prepareDrive(smallDrive());
        host = std::make_unique<Drive>();
        host->write(QStringLiteral("document"), "precious");
    }
    void cleanup()
    {
        end();
        host.reset();
    }

    void stateThatIsNoFileCountsAsNone_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::newRow("state that is a pipe") << QStringLiteral("pipe");
        QTest::newRow("state that is a directory") << QStringLiteral("directory");
        QTest::newRow("state that leads to a device without an end") << QStringLiteral("/dev/zero");
        QTest::newRow("state that leads to itself") << QStringLiteral("itself");
    }
    void stateThatIsNoFileCountsAsNone()
    {
        QFETCH(QString, kind);
        QFile::remove(drive->path(stateName));
        if (kind == QStringLiteral("pipe"))
            QCOMPARE(mkfifo(qPrintable(drive->path(stateName)), 0600), 0);
        else if (kind == QStringLiteral("directory"))
            drive->makeDirectory(stateName);
        else
            drive->link(stateName,
                        kind == QStringLiteral("itself") ? drive->path(stateName) : kind);
        QElapsedTimer clock;
        clock.start();
        update();
        cases.note(lastBox().text, clock, QStringLiteral("as before, since the user said no"));
        QVERIFY2(lastBox().text.contains(QStringLiteral("Versão instalada: desconhecida")),
                 qPrintable(lastBox().text));
    }

    void stateOfAGigabyteCountsAsNoneAndIsNotHeldInMemory()
    {
        drive->writeSparse(stateName, 1'000'000'000);
        const qint64 before = TestSupport::peakMemory();
        QElapsedTimer clock;
        clock.start();
        update();
        cases.note(lastBox().text, clock, QStringLiteral("as before, since the user said no"),
                   QStringLiteral("state of a gigabyte"));
        QVERIFY2(lastBox().text.contains(QStringLiteral("Versão instalada: desconhecida")),
                 qPrintable(lastBox().text));
        QVERIFY(TestSupport::peakMemory() - before < 64'000'000);
    }

    void tenThousandFilesInTheBundleRootAreNoBurden()
    {
        prepareDrive(std::make_unique<Drive>());
        for (int number = 0; number < 10'000; ++number)
            drive->write(QStringLiteral("Tessarine/garbage %1").arg(number), {});
        const qint64 before = TestSupport::peakMemory();
        QVERIFY(updateAndNote(QStringLiteral("ten thousand files in `Tessarine`"),
                              QStringLiteral("new bundles"))
                    .startsWith(QStringLiteral("Atualização concluída.")));
        QVERIFY(TestSupport::peakMemory() - before < 64'000'000 + TestSupport::freedMemoryKept);
        QVERIFY(drive->exists(QStringLiteral("Tessarine/garbage 9999")));
    }

    void stateThatLeadsOffTheDriveIsNotWrittenThrough()
    {
        putLink(stateName, host->path(QStringLiteral("document")));
        QCOMPARE(updateAndNote(QStringLiteral("state that leads off the drive"),
                               QStringLiteral("new bundles, both backups")),
                 QStringLiteral("Não foi possível abrir o arquivo de estado: ")
                     + drive->path(stateName));
    }

    void bundleRootThatLeadsOffTheDriveIsNone()
    {
        QDir(drive->path(QStringLiteral("Tessarine"))).removeRecursively();
        host->write(QStringLiteral("windows/document"), "precious");
        drive->link(QStringLiteral("Tessarine"), host->path());
        QCOMPARE(updateAndNote(QStringLiteral("`Tessarine` that leads off the drive"),
                               QStringLiteral("as before")),
                 QStringLiteral(
                     "A unidade selecionada ainda não possui uma estrutura Tessarine preparada."));
    }

    void bundleRootThatCannotBeEnteredIsNone_data()
    {
        QTest::addColumn<bool>("isFile");
        QTest::newRow("`Tessarine` that is a file") << true;
        QTest::newRow("`Tessarine` without permissions") << false;
    }
    void bundleRootThatCannotBeEnteredIsNone()
    {
        QFETCH(bool, isFile);
        const QString root = drive->path(QStringLiteral("Tessarine"));
        if (isFile) {
            QDir(root).removeRecursively();
            drive->write(QStringLiteral("Tessarine"), "x");
        } else {
            QCOMPARE(chmod(QFile::encodeName(root), 0), 0);
        }
        const QStringList before = drive->tree();
        QCOMPARE(seteuid(TestSupport::unprivilegedUser), 0);
        const QString message =
            updateAndNote(QString::fromUtf8(QTest::currentDataTag()), QStringLiteral("as before"));
        QCOMPARE(seteuid(0), 0);
        QCOMPARE(message, QStringLiteral("A unidade selecionada ainda não possui uma estrutura "
                                         "Tessarine preparada."));
        QCOMPARE(drive->tree(), before);
    }

    void bundleThatIsAPipeIsNotWaitedFor()
    {
        const QString bundle = drive->path(QStringLiteral("Tessarine/windows"));
        QDir(bundle).removeRecursively();
        QCOMPARE(mkfifo(qPrintable(bundle), 0600), 0);
        const QStringList before = drive->names();
        QCOMPARE(
            updateAndNote(QStringLiteral("`windows` that is a pipe"), QStringLiteral("as before")),
            QStringLiteral("Não foi possível criar backup de: ") + bundle);
        QCOMPARE(drive->names(), before);
    }

    void bundleThatIsAMountPointIsNotReplaced()
    {
        const QString bundle = drive->path(QStringLiteral("Tessarine/windows"));
        const TestSupport::TemporaryFileSystem other(bundle);
        QCOMPARE(updateAndNote(QStringLiteral("`windows` that is a mount point"),
                               QStringLiteral("as before")),
                 QStringLiteral("Não foi possível criar backup de: ") + bundle);
        QCOMPARE(bundleNames(),
                 QStringList({"README.txt", "linux", "update-state.json", "windows"}));
        QCOMPARE(read(QStringLiteral("linux/Tessarine")), QByteArray("1.0.0"));
    }

    void bundleThatLeadsOffTheDriveIsReplacedAndNotFollowed()
    {
        QDir(drive->path(QStringLiteral("Tessarine/windows"))).removeRecursively();
        drive->link(QStringLiteral("Tessarine/windows"), host->path());
        QVERIFY(updateAndNote(QStringLiteral("`windows` that leads off the drive"),
                              QStringLiteral("new bundles"))
                    .startsWith(QStringLiteral("Atualização concluída.")));
        QVERIFY(!QFileInfo(drive->path(QStringLiteral("Tessarine/windows"))).isSymLink());
        QCOMPARE(bundleNames(),
                 QStringList({"README.txt", "linux", "update-state.json", "windows"}));
    }

    void stagingThatStandsThereAlreadyIsNotUsed()
    {
        // Whichever second the update begins in.
        const QDateTime now = QDateTime::currentDateTimeUtc();
        for (int second = 0; second < 600; ++second)
            drive->link(QStringLiteral("Tessarine/.update-")
                            + now.addSecs(second).toString(QStringLiteral("yyyyMMddHHmmss")),
                        host->path());
        QCOMPARE(updateAndNote(QStringLiteral("link off the drive where staging is made"),
                               QStringLiteral("as before")),
                 QStringLiteral("Não foi possível criar área temporária na unidade USB."));
        QCOMPARE(read(QStringLiteral("windows/Tessarine.exe")), QByteArray("1.0.0"));
    }

    void driveOfAnyNameIsNamedAsItStands_data()
    {
        QTest::addColumn<QString>("name");
        QTest::newRow("markup and placeholders") << QStringLiteral("<img src=x> %1%2 &lt;b&gt;");
        QTest::newRow("line feeds") << QStringLiteral("PEN\n\nVersão instalada: 9");
        QTest::newRow("right to left") << QStringLiteral("PEN\u202e\u2066gpj");
        QTest::newRow("255 bytes") << QString(255, u'L');
    }
    void driveOfAnyNameIsNamedAsItStands()
    {
        QFETCH(QString, name);
        const QString mountPoint = drive->makeDirectory(name);
        QDir().rename(drive->path(QStringLiteral("Tessarine")),
                      mountPoint + QStringLiteral("/Tessarine"));
        openWindowOver({mountedVolume(name, mountPoint)});
        QCOMPARE(window->deviceCombo->itemText(0), name + QStringLiteral(" (") + mountPoint + u')');
        QElapsedTimer clock;
        clock.start();
        update();
        cases.note(lastBox().text, clock, QStringLiteral("as before, since the user said no"));
        QVERIFY2(lastBox().text.startsWith(
                     QStringLiteral("Atualizar Tessarine na unidade %1?\n").arg(mountPoint)),
                 qPrintable(lastBox().text));
    }

    // Qt knows such a path by another name, under which there is nothing.
    void driveWhosePathIsNoUtf8IsListedAndRefused()
    {
        const QByteArray mountPoint = QFile::encodeName(drive->path()) + "/PEN\xFF\xFE";
        QCOMPARE(mkdir(mountPoint, 0700), 0);
        QCOMPARE(rename(QFile::encodeName(drive->path(QStringLiteral("Tessarine"))),
                        mountPoint + "/Tessarine"),
                 0);
        const QString shown = QFile::decodeName(mountPoint);
        openWindowOver({mountedVolume(QFile::decodeName("PEN\xFF\xFE"), shown)});
        QCOMPARE(window->deviceCombo->itemText(0),
                 QStringLiteral("PEN\uFFFD\uFFFD (%1)").arg(shown));

        const QStringList before = drive->tree();
        QCOMPARE(updateAndNote(QStringLiteral("mount point that is no UTF-8"),
                               QStringLiteral("as before")),
                 QStringLiteral(
                     "A unidade selecionada ainda não possui uma estrutura Tessarine preparada."));
        window->linuxSource = {.executablePath = drive->path(QStringLiteral("documento.txt")),
                               .directoryPath = drive->path(),
                               .fromBuildTree = false};
        user->willPress(QStringLiteral("Sim"));
        window->prepareAction->trigger();
        compareWarning(QStringLiteral("Unidade USB invalida."));
        QCOMPARE(drive->tree(), before);
    }
};

TESSARINE_UPDATE_TEST_MAIN(HostileDriveTest)
#include "hostile_drive_test.moc"
