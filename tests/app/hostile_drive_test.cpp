#include "tests/app/HostileCases.h"
#include "tests/support/TemporaryFileSystem.h"

#include <sys/stat.h>

// A drive that somebody else has prepared. The program may refuse it; it follows no link off the
// drive and waits for nothing that never comes.
class HostileDriveTest : public HostileCases
{
    Q_OBJECT

    QString outcomeOfUpdate(const QString &name = QString::fromUtf8(QTest::currentDataTag()))
    {
        return outcomeOf([this] { agreeToUpdate(); }, name);
    }

    void compareUnknownVersion() const
    {
        const QString question = user->texts().value(0);
        QVERIFY2(question.contains(QStringLiteral("Versão instalada: desconhecida")),
                 qPrintable(question));
    }

    void compareNotPrepared() const
    {
        compareInformation(QStringLiteral(
            "A unidade selecionada ainda não possui uma estrutura Tessarine preparada."));
    }

private Q_SLOTS:
    void initTestCase() { openServer(); }
    void cleanupTestCase()
    {
        writeTables(QStringLiteral("drive"));
        server.reset();
    }
    void init()
    {
        begin();
        prepareDrive(smallDrive());
    }
    void cleanup() { end(); }

    void stateThatIsNoFileCountsAsNone_data()
    {
        QTest::addColumn<mode_t>("kind");
        QTest::newRow("state that is a pipe") << mode_t(S_IFIFO);
        QTest::newRow("state that is a device without an end") << mode_t(S_IFCHR);
        QTest::newRow("state that is a socket") << mode_t(S_IFSOCK);
    }
    void stateThatIsNoFileCountsAsNone()
    {
        QFETCH(mode_t, kind);
        QFile::remove(drive->path(stateName));
        QCOMPARE(mknod(qPrintable(drive->path(stateName)), kind | 0600, deviceWithoutEnd), 0);
        QCOMPARE(outcomeOfUpdate(), updated);
        compareUnknownVersion();
        QVERIFY(lastBox().text.startsWith(QStringLiteral("Atualização concluída.")));
        QVERIFY(memoryGrowth() < 64'000'000);
    }

    void stateThatCannotBeReplacedCountsAsNoneAndStays_data()
    {
        QTest::addColumn<QString>("target");
        QTest::newRow("state that is a directory") << QString();
        QTest::newRow("state that leads to a device without an end") << QStringLiteral("/dev/zero");
        QTest::newRow("state that leads to itself") << QStringLiteral("update-state.json");
        QTest::newRow("state that leads off the drive") << QStringLiteral("document");
        QTest::newRow("state that leads to a document") << QStringLiteral("../documento.txt");
    }
    void stateThatCannotBeReplacedCountsAsNoneAndStays()
    {
        QFETCH(QString, target);
        QFile::remove(drive->path(stateName));
        if (target.isEmpty())
            drive->makeDirectory(stateName);
        else
            drive->link(stateName,
                        target == QStringLiteral("document") ? host.path(target) : target);
        QCOMPARE(outcomeOfUpdate(), updatedWithBackups);
        compareUnknownVersion();
        compareWarning(QStringLiteral("Não foi possível abrir o arquivo de estado: ")
                       + drive->path(stateName));
        QVERIFY(memoryGrowth() < 64'000'000);
    }

    void stateOfAGigabyteCountsAsNoneAndIsNotHeldInMemory()
    {
        drive->writeSparse(stateName, 1'000'000'000);
        QCOMPARE(outcomeOfUpdate(QStringLiteral("state of a gigabyte")), updated);
        compareUnknownVersion();
        QVERIFY(memoryGrowth() < 64'000'000);
    }

    void tenThousandFilesInTheBundleRootAreNoBurden()
    {
        prepareDrive(std::make_unique<Drive>());
        for (int number = 0; number < 10'000; ++number)
            drive->write(QStringLiteral("Tessarine/garbage %1").arg(number), {});
        QCOMPARE(outcomeOfUpdate(QStringLiteral("ten thousand files in `Tessarine`")), updated);
        QVERIFY(memoryGrowth() < 64'000'000 + TestSupport::freedMemoryKept);
    }

    void bundleRootThatIsNoDirectoryOfTheDriveIsNone_data()
    {
        QTest::addColumn<QString>("target");
        QTest::newRow("`Tessarine` that is a file") << QString();
        QTest::newRow("`Tessarine` that leads to itself") << QStringLiteral("Tessarine");
        QTest::newRow("`Tessarine` that leads off the drive") << QStringLiteral("host");
    }
    void bundleRootThatIsNoDirectoryOfTheDriveIsNone()
    {
        QFETCH(QString, target);
        QDir(drive->path(QStringLiteral("Tessarine"))).removeRecursively();
        host.write(QStringLiteral("windows/document"), "precious");
        if (target.isEmpty())
            drive->write(QStringLiteral("Tessarine"), "x");
        else
            drive->link(QStringLiteral("Tessarine"),
                        target == QStringLiteral("host") ? host.path() : target);
        QCOMPARE(outcomeOfUpdate(), asBefore);
        compareNotPrepared();
        QVERIFY(memoryGrowth() < 64'000'000);
    }

    void bundleRootThatCannotBeEnteredIsRefused()
    {
        QCOMPARE(chmod(QFile::encodeName(drive->path(QStringLiteral("Tessarine"))), 0), 0);
        const auto update = [this] { withoutPrivileges([this] { agreeToUpdate(); }); };
        QCOMPARE(outcomeOf(update, QStringLiteral("`Tessarine` without permissions")), asBefore);
        compareWarning(QStringLiteral("Não foi possível criar área temporária na unidade USB."));
    }

    void bundleThatIsAPipeIsNotWaitedFor()
    {
        const QString bundle = drive->path(QStringLiteral("Tessarine/windows"));
        QDir(bundle).removeRecursively();
        QCOMPARE(mkfifo(qPrintable(bundle), 0600), 0);
        QCOMPARE(outcomeOfUpdate(QStringLiteral("`windows` that is a pipe")), asBefore);
        compareWarning(QStringLiteral("Não foi possível criar backup de: ") + bundle);
    }

    void bundleThatIsAMountPointIsNotReplaced()
    {
        const QString bundle = drive->path(QStringLiteral("Tessarine/windows"));
        const TestSupport::TemporaryFileSystem other(bundle);
        QCOMPARE(outcomeOfUpdate(QStringLiteral("`windows` that is a mount point")), asBefore);
        compareWarning(QStringLiteral("Não foi possível criar backup de: ") + bundle);
    }

    void bundleThatLeadsOffTheDriveIsReplacedAndNotFollowed()
    {
        QDir(drive->path(QStringLiteral("Tessarine/windows"))).removeRecursively();
        drive->link(QStringLiteral("Tessarine/windows"), host.path());
        QCOMPARE(outcomeOfUpdate(QStringLiteral("`windows` that leads off the drive")), updated);
        compareInformation(QStringLiteral("Atualização concluída.\n\nVersão instalada: 1.1.0"));
    }

    void stagingThatStandsThereAlreadyIsNotUsed()
    {
        // Whichever second the update begins in.
        const QDateTime now = QDateTime::currentDateTimeUtc();
        for (int second = 0; second < 600; ++second)
            drive->link(QStringLiteral("Tessarine/.update-")
                            + now.addSecs(second).toString(QStringLiteral("yyyyMMddHHmmss")),
                        host.path());
        QCOMPARE(outcomeOfUpdate(QStringLiteral("link off the drive where staging is made")),
                 asBefore);
        compareWarning(QStringLiteral("Não foi possível criar área temporária na unidade USB."));
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
        QCOMPARE(outcomeOf([this] { updateAnswering(QStringLiteral("Não")); }), asBefore);
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
        QCOMPARE(outcomeOfUpdate(QStringLiteral("mount point that is no UTF-8")), asBefore);
        compareNotPrepared();
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
