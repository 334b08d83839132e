#include "tests/app/UpdateSituation.h"
#include "tests/support/BindMount.h"

using TestSupport::BindMount;

// What the drive goes through: staging, extraction, the two swaps, the state file, and drives that
// fail on the way.
class UpdateOnDriveTest : public UpdateSituation
{
    Q_OBJECT

    // A directory that another file system is mounted on can't be renamed.
    void compareFailedSwap(const QString &platform)
    {
        const Drive other;
        other.write(QStringLiteral("a"), "1.0.0");
        const QString target = drive->path(QStringLiteral("Tessarine/") + platform);
        const BindMount mount(other.path(), target);
        const QStringList before = drive->tree();
        agreeToUpdate();
        const QString text = QStringLiteral("Não foi possível criar backup de: %1").arg(target);
        compareWarning(text);
        QCOMPARE(newLogLines(),
                 QStringList{QStringLiteral("Falha ao aplicar atualização: ") + text});
        QCOMPARE(drive->tree(), before);
    }

    void agreeToUpdateWithAFailureAtSync(int number)
    {
        int syncs = 0;
        whenSynced = [=, this]() mutable {
            if (++syncs == number)
                drive->failNextSync();
        };
        agreeToUpdate();
        whenSynced = nullptr;
        QVERIFY2(QFile::remove(drive->path(QStringLiteral("lost"))),
                 qPrintable(drive->path(QStringLiteral("lost"))));
    }

    void compareNewBundlesAndBackups() const
    {
        QCOMPARE(stampedBundleNames(),
                 QStringList({"README.txt", "linux", "linux.backup-TIME", "update-state.json",
                              "windows", "windows.backup-TIME"}));
        QCOMPARE(read(QStringLiteral("windows/Tessarine.exe")), QByteArray("1.1.0"));
        QCOMPARE(read(QStringLiteral("linux/Tessarine")), QByteArray("1.1.0"));
        const QString backup = bundleNames().filter(QStringLiteral("windows.backup-")).first();
        QCOMPARE(read(backup + QStringLiteral("/old.dll")), QByteArray("1.0.0"));
    }

private Q_SLOTS:
    void initTestCase() { openServer(); }
    void cleanupTestCase() { server.reset(); }
    void init() { begin(); }
    void cleanup() { end(); }

    // ---- staging

    void readOnlyDriveIsReportedWithoutALogLine()
    {
        prepareDrive(smallDrive());
        drive->makeReadOnly();
        const QStringList before = drive->tree();
        agreeToUpdate();
        compareWarning(QStringLiteral("Não foi possível criar área temporária na unidade USB."));
        QCOMPARE(newLogLines(), QStringList());
        QCOMPARE(drive->tree(), before);
    }

    void driveWithoutRoomForThePackageIsReportedWithoutALogLine()
    {
        prepareDrive(smallDrive());
        ZipFile zip = completePackage(QStringLiteral("1.1.0"));
        QByteArray package = zip.bytes();
        package.append(QByteArray(2 << 20, 'x'));
        publish(package);
        const QStringList before = drive->tree();
        agreeToUpdate();
        compareWarning(
            QStringLiteral("Não foi possível gravar o pacote temporário na unidade USB."));
        QCOMPARE(newLogLines(), QStringList());
        QCOMPARE(drive->tree(), before);
    }

    void packageWhoseLastBytesDoNotFitIsRefusedByTheExtraction()
    {
        prepareDrive(smallDrive());
        drive->fill();
        const QStringList before = drive->tree();
        agreeToUpdate();
        QVERIFY2(lastBox().text.startsWith(QStringLiteral("Falha ao extrair ZIP: ")),
                 qPrintable(lastBox().text));
        QCOMPARE(drive->tree(), before);
    }

    void driveThatFillsUpDuringTheExtractionIsReported()
    {
        prepareDrive(smallDrive());
        ZipFile zip = completePackage(QStringLiteral("1.1.0"));
        publish(zip.zeros(QStringLiteral("Tessarine/linux/bomb"), 100000000).bytes());
        const QStringList before = drive->tree();
        agreeToUpdate();
        compareWarning(lastBox().text);
        QVERIFY2(lastBox().text.contains(QStringLiteral("write error (disk full?)")),
                 qPrintable(lastBox().text));
        QCOMPARE(newLogLines().first(), QStringLiteral("Falha ao preparar pacote: ")
                                            + lastBox().text.section(u'\n', 0, 0));
        QCOMPARE(drive->tree(), before);
    }

    void incompletePackageIsRefusedAndStagingRemoved()
    {
        publish(ZipFile()
                    .file(QStringLiteral("Tessarine/windows/Tessarine.exe"), QStringLiteral("x"))
                    .bytes());
        const QStringList before = drive->tree();
        agreeToUpdate();
        QVERIFY2(lastBox().text.startsWith(QStringLiteral("Pacote sem arquivo obrigatório: "))
                     && lastBox().text.endsWith(QStringLiteral("platforms/qwindows.dll")),
                 qPrintable(lastBox().text));
        compareWarning(lastBox().text);
        QCOMPARE(newLogLines(),
                 QStringList{QStringLiteral("Falha ao preparar pacote: ") + lastBox().text});
        QCOMPARE(drive->tree(), before);
    }

    void stagingLiesInTheBundleRootUnderATimeStamp()
    {
        const QString begun = timeStamp();
        QStringList seen;
        whenSynced = [&] {
            if (seen.isEmpty())
                seen = drive->names(QStringLiteral("Tessarine")).filter(QStringLiteral(".update-"));
        };
        agreeToUpdate();
        const QString staging = seen.value(0).chopped(1);
        QVERIFY2(staging >= QStringLiteral(".update-") + begun
                     && staging <= QStringLiteral(".update-") + timeStamp(),
                 qPrintable(staging));
        QCOMPARE(staging.size(), QStringLiteral(".update-").size() + 14);
        const QString all = seen.join(u' ');
        QVERIFY2(seen.contains(staging + QStringLiteral("/package.zip")), qPrintable(all));
        QVERIFY2(seen.contains(staging + QStringLiteral("/extracted/Tessarine/linux/Tessarine")),
                 qPrintable(all));
    }

    // ---- replacement

    void failedWindowsSwapLeavesBothOldBundles() { compareFailedSwap(QStringLiteral("windows")); }

    void failedLinuxSwapBringsTheWindowsBundleBack() { compareFailedSwap(QStringLiteral("linux")); }

    void failedStateFileKeepsNewBundlesAndBothBackups()
    {
        const QString statePath = QStringLiteral("Tessarine/update-state.json");
        QFile::remove(drive->path(statePath));
        drive->makeDirectory(statePath);
        agreeToUpdate();
        const QString text = QStringLiteral("Não foi possível abrir o arquivo de estado: %1")
                                 .arg(drive->path(statePath));
        compareWarning(text);
        QCOMPARE(newLogLines().last(), QStringLiteral("Falha ao aplicar atualização: ") + text);
        compareNewBundlesAndBackups();
    }

    void fullDriveKeepsTheOldStateAndReportsIt()
    {
        prepareDrive(smallDrive());
        const QByteArray before = read(QStringLiteral("update-state.json"));
        int syncs = 0;
        whenSynced = [&] { // the last one before the state file is written
            if (++syncs == 5)
                drive->fill();
        };
        agreeToUpdate();
        compareWarning(QStringLiteral("Não foi possível salvar o arquivo de estado: %1")
                           .arg(updateStatePath(drive->path())));
        QCOMPARE(read(QStringLiteral("update-state.json")), before);
        QCOMPARE(stampedBundleNames(),
                 QStringList({"README.txt", "linux", "linux.backup-TIME", "update-state.json",
                              "windows", "windows.backup-TIME"}));
    }

    void driveIsSyncedBeforeTheFirstRenameAfterEachAndBeforeTheBackupsGo()
    {
        QList<QStringList> seen;
        QStringList versions;
        whenSynced = [&] {
            seen.append(stampedBundleNames());
            versions.append(readInstalledVersion(drive->path()));
        };
        agreeToUpdate();
        const QString staging = QStringLiteral(".update-TIME");
        const QString readme = QStringLiteral("README.txt");
        const QString stateFile = QStringLiteral("update-state.json");
        QCOMPARE(seen, QList<QStringList>(
                           {{staging, readme, "linux", stateFile, "windows"},
                            {staging, readme, "linux", stateFile, "windows.backup-TIME"},
                            {staging, readme, "linux", stateFile, "windows", "windows.backup-TIME"},
                            {staging, readme, "linux.backup-TIME", stateFile, "windows",
                             "windows.backup-TIME"},
                            {staging, readme, "linux", "linux.backup-TIME", stateFile, "windows",
                             "windows.backup-TIME"},
                            {staging, readme, "linux", "linux.backup-TIME", stateFile, "windows",
                             "windows.backup-TIME"}}));
        QCOMPARE(versions, QStringList({"1.0.0", "1.0.0", "1.0.0", "1.0.0", "1.0.0", "1.1.0"}));
    }

    // ---- a drive that an earlier update was cut on

    // What the README and the help page tell the user to do.
    void backupThatIsRenamedBackIsUpdatedAgain()
    {
        const QString backup =
            drive->path(QStringLiteral("Tessarine/windows.backup-20260101000000"));
        const QString windows = drive->path(QStringLiteral("Tessarine/windows"));
        QVERIFY2(QDir().rename(windows, backup), qPrintable(backup));
        drive->write(QStringLiteral("Tessarine/.update-20260101000000/package.zip"), "part");
        QVERIFY2(QDir().rename(backup, windows), qPrintable(backup));
        agreeToUpdate();
        QVERIFY2(lastBox().text.startsWith(QStringLiteral("Atualização concluída.")),
                 qPrintable(lastBox().text));
        QVERIFY(QDir(drive->path(QStringLiteral("Tessarine/.update-20260101000000")))
                    .removeRecursively());
        QCOMPARE(bundleNames(),
                 QStringList({"README.txt", "linux", "update-state.json", "windows"}));
        QCOMPARE(read(QStringLiteral("windows/Tessarine.exe")), QByteArray("1.1.0"));
    }

    // ---- a drive whose medium fails after it has taken the writes

    void mediumThatFailsUnderTheStagedFilesIsAFailedExtraction()
    {
        prepareDrive(failingDrive());
        const QStringList before = drive->tree();
        agreeToUpdateWithAFailureAtSync(1);
        // Which of the two the kernel takes from a medium that has no room is its own affair.
        const QString text = lastBox().text;
        const QString head = QStringLiteral("Falha ao extrair ZIP: ");
        QVERIFY2(text == head + QString::fromLocal8Bit(strerror(ENOSPC))
                     || text == head + QString::fromLocal8Bit(strerror(EIO)),
                 qPrintable(text));
        compareWarning(text);
        QCOMPARE(newLogLines(), QStringList{QStringLiteral("Falha ao preparar pacote: ") + text});
        QCOMPARE(drive->tree(), before);
    }

    // Linux tells each write error once to everybody who had the drive open, and to nobody later.
    void mediumThatFailedBeforeTheSyncIsNoticedAlthoughSomebodyElseWasTold()
    {
        prepareDrive(failingDrive());
        const QStringList before = drive->tree();
        whenSynced = [this] {
            whenSynced = nullptr;
            drive->failNextSync();
            QVERIFY(!FileSystemSync(drive->path()).sync());
        };
        agreeToUpdate();
        QVERIFY2(QFile::remove(drive->path(QStringLiteral("lost"))),
                 qPrintable(drive->path(QStringLiteral("lost"))));
        QVERIFY2(lastBox().text.startsWith(QStringLiteral("Falha ao extrair ZIP: ")),
                 qPrintable(lastBox().text));
        QCOMPARE(drive->tree(), before);
    }

    void mediumThatFailsAtARenameBringsBothOldBundlesBack_data()
    {
        QTest::addColumn<int>("sync");
        QTest::addColumn<QString>("text");
        const QString backup = QStringLiteral("Não foi possível criar backup de: %1");
        const QString replacement = QStringLiteral("Não foi possível aplicar novo bundle em: %1");
        const auto row = [](const char *name, int sync, const QString &text,
                            const QString &platform) {
            QTest::newRow(name) << sync << text.arg(QStringLiteral("%1/Tessarine/") + platform);
        };
        row("the old Windows bundle's", 2, backup, QStringLiteral("windows"));
        row("the new Windows bundle's", 3, replacement, QStringLiteral("windows"));
        row("the old Linux bundle's", 4, backup, QStringLiteral("linux"));
        row("the new Linux bundle's", 5, replacement, QStringLiteral("linux"));
    }

    void mediumThatFailsAtARenameBringsBothOldBundlesBack()
    {
        QFETCH(int, sync);
        QFETCH(QString, text);
        prepareDrive(failingDrive());
        const QStringList before = drive->tree();
        agreeToUpdateWithAFailureAtSync(sync);
        compareWarning(text.arg(drive->path()));
        QCOMPARE(newLogLines(),
                 QStringList{QStringLiteral("Falha ao aplicar atualização: ") + lastBox().text});
        QCOMPARE(drive->tree(), before);
    }

    void mediumThatFailsAtTheStateFileKeepsBothBackups()
    {
        prepareDrive(failingDrive());
        agreeToUpdateWithAFailureAtSync(6);
        compareWarning(QStringLiteral("Não foi possível salvar o arquivo de estado: %1")
                           .arg(updateStatePath(drive->path())));
        compareNewBundlesAndBackups();
    }

    // ---- a drive that goes away while the package is fetched

    void driveThatIsGoneBeforeTheStagingIsNotReplacedByTheHostsDisk_data()
    {
        QTest::addColumn<bool>("directoryStays");
        QTest::newRow("its mount directory is gone with it") << false;
        QTest::newRow("a directory of the host shows instead") << true;
    }

    void driveThatIsGoneBeforeTheStagingIsNotReplacedByTheHostsDisk()
    {
        QFETCH(bool, directoryStays);
        const Drive host;
        if (directoryStays)
            host.write(QStringLiteral("mount/Tessarine/windows/Tessarine.exe"), "host");
        const QString mountPoint = host.makeDirectory(QStringLiteral("mount"));
        const QStringList before = directoryStays ? host.tree() : QStringList();
        prepareDrive(smallDrive());
        auto mount = std::make_unique<BindMount>(drive->path(), mountPoint);
        openWindowOver({mountedVolume(QStringLiteral("PEN"), mountPoint)});
        user->willAnswer([&](QMessageBox *box) {
            mount.reset();
            if (!directoryStays)
                QDir().rmdir(mountPoint);
            MessageBoxUser::pressing(QStringLiteral("Sim"))(box);
        });
        update();
        compareWarning(QStringLiteral("Não foi possível criar área temporária na unidade USB."));
        QCOMPARE(newLogLines(), QStringList());
        QCOMPARE(host.tree(), before);
    }
};

TESSARINE_UPDATE_TEST_MAIN(UpdateOnDriveTest)
#include "update_on_drive_test.moc"
