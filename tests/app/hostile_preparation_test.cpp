#include "tests/app/HostileCases.h"
#include "tests/support/TemporaryFileSystem.h"

#include <sys/stat.h>

// A drive that somebody else has made for this, on which a preparation begins: what it writes stays
// on the drive, and nothing is waited for that never comes.
class HostilePreparationTest : public HostileCases
{
    Q_OBJECT

    const QString prepared = QStringLiteral("prepared");
    const QString success = QStringLiteral("USB preparado com estrutura portatil Tessarine.");

    const Drive source;
    QStringList undisturbed; // the tree that a preparation makes of a drive with a document

    void openDrive()
    {
        drive = std::unique_ptr<Drive>(new Drive(Drive::tmpfs(64 << 20)));
        drive->write(QStringLiteral("documento.txt"), "precious");
        openWindowOver({mountedVolume(QStringLiteral("PEN"), drive->path())});
        window->windowsSource = {.executablePath =
                                     source.path(QStringLiteral("windows/Tessarine.exe")),
                                 .directoryPath = source.path(QStringLiteral("windows"))};
        window->linuxSource = {.executablePath = source.path(QStringLiteral("linux/Tessarine")),
                               .directoryPath = source.path(QStringLiteral("linux"))};
    }

    void prepare()
    {
        user->willPress(QStringLiteral("Sim"));
        window->prepareAction->trigger();
    }

    QString outcomeOfPreparation(const QString &name = QString::fromUtf8(QTest::currentDataTag()))
    {
        return outcomeOf([this] { prepare(); }, name);
    }

    QList<Outcome> outcomesAfter(const QStringList &before) const override
    {
        QStringList tree = undisturbed;
        for (const QString &line : before) {
            if (undisturbed.filter(nameIn(line) + u':').isEmpty() && !undisturbed.contains(line))
                tree << line;
        }
        return {{asBefore, before}, {prepared, tree}};
    }

    void compareRefused(const QString &message, const QString &outcome) const
    {
        compareWarning(message);
        QVERIFY2(outcome != prepared && outcome != hostChanged, qPrintable(outcome));
    }

private Q_SLOTS:
    void initTestCase()
    {
        QCoreApplication::setApplicationVersion(QStringLiteral(TESSARINE_VERSION));
        for (const QString &name :
             requiredNames + QStringList{QStringLiteral("windows/Qt6Core.dll")})
            source.write(name, "of the source");
        init();
        prepare();
        undisturbed = comparable(drive->tree());
        compareInformation(success);
        cleanup();
    }
    void cleanupTestCase() { writeCases(QStringLiteral("preparation")); }
    void init()
    {
        user = std::make_unique<MessageBoxUser>();
        openDrive();
    }
    void cleanup()
    {
        window.reset();
        user.reset();
        drive.reset();
    }

    void linkOffTheDriveIsNotWrittenThrough_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("target");
        QTest::addColumn<QString>("message");
        const QString directory = QStringLiteral("Nao foi possivel criar a pasta: ");
        const QString file = QStringLiteral("Nao foi possivel criar o arquivo: ");
        for (const char *name : {"Tessarine", "Tessarine/windows", "Tessarine/linux/lib"})
            QTest::addRow("`%s` that leads off the drive", name)
                << QString::fromLatin1(name) << host.path() << directory;
        for (const char *name :
             {"Tessarine-Windows.bat", "Tessarine-Linux.sh", "Tessarine/README.txt",
              "Tessarine/windows/platforms/qwindows.dll"}) {
            QTest::addRow("`%s` that leads off the drive", name)
                << QString::fromLatin1(name) << host.path(QStringLiteral("document")) << file;
            QTest::addRow("`%s` that leads nowhere", name)
                << QString::fromLatin1(name) << host.path(QStringLiteral("absent")) << file;
            QTest::addRow("`%s` that leads to the user's document", name)
                << QString::fromLatin1(name) << QStringLiteral("documento.txt") << file;
        }
        QTest::newRow("`Tessarine` that leads to itself")
            << QStringLiteral("Tessarine") << QStringLiteral("Tessarine") << directory;
    }
    void linkOffTheDriveIsNotWrittenThrough()
    {
        QFETCH(QString, name);
        QFETCH(QString, target);
        QFETCH(QString, message);
        drive->link(name, QDir(drive->path()).filePath(target));
        compareRefused(message + drive->path(name), outcomeOfPreparation());
        QCOMPARE(drive->read(QStringLiteral("documento.txt")), QByteArray("precious"));
    }

    // As any file of that size does.
    void linkToAFileOfTheSourcesSizeCountsAsCopied()
    {
        const QString library = QStringLiteral("Tessarine/windows/platforms/qwindows.dll");
        drive->link(library, host.write(QStringLiteral("copy"), "of the source"));
        QCOMPARE(outcomeOfPreparation(QStringLiteral("library that leads to a file of its size")),
                 prepared + QStringLiteral(", ± `") + library + u'`');
        compareInformation(success);
    }

    void linkToADirectoryOfTheDriveIsFollowed()
    {
        const QString library = QStringLiteral("Tessarine/linux/lib");
        drive->link(library, drive->makeDirectory(QStringLiteral("other")));
        QCOMPARE(outcomeOfPreparation(
                     QStringLiteral("`%1` that leads to a directory of the drive").arg(library)),
                 prepared
                     + QStringLiteral(", + `other/libssl.so.3`, - `%1/`, - `%1/libssl.so.3`")
                           .arg(library));
        compareInformation(success);
    }

    void directoryWithoutPermissionsIsRefused_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("refused");
        QTest::newRow("`Tessarine` without permissions")
            << QStringLiteral("Tessarine") << QStringLiteral("Tessarine/windows");
        QTest::newRow("`windows` without permissions")
            << QStringLiteral("Tessarine/windows") << QStringLiteral("Tessarine/windows/platforms");
    }
    void directoryWithoutPermissionsIsRefused()
    {
        QFETCH(QString, name);
        QFETCH(QString, refused);
        drive->makeDirectory(name);
        drive->giveAway();
        QCOMPARE(chmod(QFile::encodeName(drive->path(name)).constData(), 0), 0);
        const auto prepareUnprivileged = [this] { withoutPrivileges([this] { prepare(); }); };
        compareRefused(QStringLiteral("Nao foi possivel criar a pasta: ") + drive->path(refused),
                       outcomeOf(prepareUnprivileged));
        QCOMPARE(drive->names(name), QStringList());
    }

    void whatIsNoFileIsReplacedAndNotWaitedFor_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<mode_t>("kind");
        for (const char *name :
             {"Tessarine-Windows.bat", "Tessarine/README.txt",
              "Tessarine/windows/platforms/qwindows.dll", "Tessarine/update-state.json"}) {
            QTest::addRow("`%s` that is a pipe", name)
                << QString::fromLatin1(name) << mode_t(S_IFIFO);
            QTest::addRow("`%s` that is a device without an end", name)
                << QString::fromLatin1(name) << mode_t(S_IFCHR);
        }
    }
    void whatIsNoFileIsReplacedAndNotWaitedFor()
    {
        QFETCH(QString, name);
        QFETCH(mode_t, kind);
        drive->makeDirectory(QFileInfo(name).path());
        QCOMPARE(mknod(qPrintable(drive->path(name)), kind | 0600, deviceWithoutEnd), 0);
        QCOMPARE(outcomeOfPreparation(), prepared);
        compareInformation(success);
        QVERIFY(memoryGrowth() < 32'000'000);
    }

    void stateOfAGigabyteIsReplacedAndNotHeldInMemory()
    {
        drive->writeSparse(stateName, 1'000'000'000);
        QCOMPARE(outcomeOfPreparation(QStringLiteral("state of a gigabyte")), prepared);
        compareInformation(success);
        QVERIFY(memoryGrowth() < 32'000'000);
    }

    void stateThatCannotBeReplacedIsToldOfInTheLog_data()
    {
        QTest::addColumn<QString>("target");
        QTest::newRow("state that is a directory") << QString();
        QTest::newRow("state that leads to a device without an end") << QStringLiteral("/dev/zero");
        QTest::newRow("state that leads to itself") << QStringLiteral("update-state.json");
        QTest::newRow("state that leads off the drive") << host.path(QStringLiteral("document"));
    }
    void stateThatCannotBeReplacedIsToldOfInTheLog()
    {
        QFETCH(QString, target);
        if (target.isEmpty())
            drive->makeDirectory(stateName);
        else
            drive->link(stateName, target);
        const QString outcome = outcomeOfPreparation();
        QVERIFY2(outcome.startsWith(prepared + QStringLiteral(", ")), qPrintable(outcome));
        compareInformation(success);
        QCOMPARE(newLogLines().last(),
                 QStringLiteral("Aviso: Não foi possível abrir o arquivo de estado: ")
                     + drive->path(stateName));
    }

    void bundleThatIsAMountPointIsRefused()
    {
        const QString bundle = drive->makeDirectory(QStringLiteral("Tessarine/windows"));
        const TestSupport::TemporaryFileSystem other(bundle);
        compareRefused(QStringLiteral("Nao foi possivel criar a pasta: ") + bundle,
                       outcomeOfPreparation(QStringLiteral("`windows` that is a mount point")));
        QCOMPARE(drive->names(QStringLiteral("Tessarine/windows")), QStringList());
    }

    void filesInTheBundleRootAreNoBurden_data()
    {
        QTest::addColumn<int>("count");
        QTest::newRow("a thousand files in `Tessarine`") << 1000;
        QTest::newRow("ten thousand files in `Tessarine`") << 10'000;
    }
    void filesInTheBundleRootAreNoBurden()
    {
        QFETCH(int, count);
        for (int number = 0; number < count; ++number)
            drive->write(QStringLiteral("Tessarine/garbage %1").arg(number), {});
        QCOMPARE(outcomeOfPreparation(), prepared);
        QVERIFY(memoryGrowth() < 32'000'000 + TestSupport::freedMemoryKept);
    }
};

TESSARINE_MOUNTING_TEST_MAIN(QApplication, HostilePreparationTest)
#include "hostile_preparation_test.moc"
