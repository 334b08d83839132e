#include "tests/deployment/PreparationSituation.h"

#include <sys/stat.h>

// Drives that are prepared: what is on them then, and what was reported in which order.
class PreparationTest : public PreparationSituation
{
    Q_OBJECT

private Q_SLOTS:
    void init() { begin(); }
    void cleanup() { end(); }

    void optionsAndResultsStartEmpty()
    {
        const PortableBundleOptions options;
        const PortableBundleResult result;
        QCOMPARE(options.windowsExecutablePath + options.windowsSourceDirectory
                     + options.linuxExecutablePath + options.linuxSourceDirectory,
                 QString());
        QCOMPARE(result.success, false);
        QCOMPARE(result.message, QString());
        QCOMPARE(result.touchedPaths, QStringList());
    }

    void completeSourcesAreCopiedWhole()
    {
        const Bundles bundles;
        const Drive drive;
        QCOMPARE(prepare(drive, bundles.both()), prepared);
        QCOMPARE(drive.tree("Tessarine/windows"), bundles.host().tree("windows"));
        QCOMPARE(drive.tree("Tessarine/linux"), bundles.host().tree("linux"));
        QCOMPARE(drive.read("Tessarine-Windows.bat"), expectedWindowsLauncher);
        QCOMPARE(drive.read("Tessarine-Linux.sh"), expectedLinuxLauncher);
        QCOMPARE(drive.read("Tessarine/README.txt"), expectedReadme);
        QCOMPARE(drive.names().size(), 6 + 4 + 4);
    }

    void everyStageIsReportedInItsOrder()
    {
        const Bundles bundles;
        const Drive drive;
        QCOMPARE(prepare(drive, bundles.both()), prepared);
        QCOMPARE(m_reports,
                 (QStringList{"0/7 Validando unidade USB...", "1/7 Criando estrutura de pastas...",
                              "2/7 Copiando bundle Windows...", "3/7 Copiando bundle Linux...",
                              "5/7 Criando inicializador Windows...",
                              "6/7 Criando arquivos auxiliares...", "7/7 Preparacao concluida."}));
    }

    void eachReportComesBeforeItsWork()
    {
        const Bundles bundles;
        const Drive drive;
        QMap<int, QStringList> found;
        prepare(drive, bundles.both(),
                [&](int step, int, const QString &) { found[step] = drive.names(); });
        QCOMPARE(found[0], QStringList());
        QCOMPARE(found[1], QStringList());
        QCOMPARE(found[2], (QStringList{"Tessarine/", "Tessarine/linux/", "Tessarine/windows/"}));
        QCOMPARE(found[3].size(), found[2].size() + 4);
        QCOMPARE(found[5].size(), found[3].size() + 4);
        QVERIFY(!found[5].contains("Tessarine-Windows.bat"));
        QVERIFY(found[6].contains("Tessarine-Windows.bat"));
        QVERIFY(!found[6].contains("Tessarine-Linux.sh"));
        QCOMPARE(found[7], drive.names());
    }

    void touchedPathsTellTheOrderOfEvents()
    {
        const Drive host;
        const Drive drive;
        const QtPlugins none;
        host.write("w/manager.exe", "program");
        const StubCommand ldd("ldd", "echo 'a => " + host.write("liba.so", "a").toUtf8() + "'");
        const StubCommand ldconfig("ldconfig", "echo ' libssl.so.3 (x) => "
                                                   + host.write("libssl.so.3", "ssl").toUtf8()
                                                   + "'");
        QCOMPARE(prepare(drive,
                         {host.path("w/manager.exe"), {}, host.write("l/manager", "program"), {}}),
                 prepared);
        QCOMPARE(m_result.touchedPaths,
                 pathsOn(drive,
                         {"Tessarine", "Tessarine/windows", "Tessarine/linux",
                          "Tessarine/windows/Tessarine.exe", "Tessarine/windows/Tessarine.exe",
                          "Tessarine/linux/Tessarine", "Tessarine/linux/Tessarine",
                          "Tessarine/linux/lib", "Tessarine/linux/plugins",
                          "Tessarine/linux/lib/liba.so", "Tessarine/linux/lib/libssl.so.3",
                          "Tessarine-Windows.bat", "Tessarine-Linux.sh", "Tessarine/README.txt"}));
    }

    void nobodyNeedsToListen()
    {
        const Bundles bundles;
        const Drive drive;
        const Drive other;
        QCOMPARE(prepare(drive, bundles.both(), {}), prepared);
        QCOMPARE(prepare(other, bundles.both()), prepared);
        QCOMPARE(drive.tree(), other.tree());
    }

    void oneManagerPreparesDriveAfterDrive()
    {
        const Bundles bundles;
        const Drive first;
        const Drive second;
        QCOMPARE(prepare(first, bundles.windows()), prepared);
        QCOMPARE(prepare(second, bundles.linux()), prepared);
        QCOMPARE(m_result.touchedPaths.first(), second.path("Tessarine"));
        QCOMPARE(second.tree("Tessarine/windows"), QStringList());
        QCOMPARE(first.tree("Tessarine/linux"), QStringList());
    }

    void aLinuxBundleAloneLeavesTheWindowsDirectoryEmpty()
    {
        const Bundles bundles;
        const Drive drive;
        QCOMPARE(prepare(drive, bundles.linux()), prepared);
        QCOMPARE(m_reports.value(2), "2/7 Copiando bundle Windows...");
        QCOMPARE(drive.tree("Tessarine/windows"), QStringList());
        QVERIFY(drive.exists("Tessarine/windows"));
        QCOMPARE(drive.tree("Tessarine/linux"), bundles.host().tree("linux"));
        QCOMPARE(drive.read("Tessarine-Windows.bat"), expectedWindowsLauncher);
    }

    void aWindowsBundleAloneLeavesTheLinuxDirectoryEmpty()
    {
        const Bundles bundles;
        const Drive drive;
        QCOMPARE(prepare(drive, bundles.windows()), prepared);
        QCOMPARE(m_reports.value(3), "3/7 Copiando bundle Linux...");
        QCOMPARE(drive.tree("Tessarine/linux"), QStringList());
        QVERIFY(drive.exists("Tessarine/linux"));
        QCOMPARE(drive.tree("Tessarine/windows"), bundles.host().tree("windows"));
        QCOMPARE(drive.read("Tessarine-Linux.sh"), expectedLinuxLauncher);
    }

    void theLinuxLauncherMayBeExecuted()
    {
        const Bundles bundles;
        const Drive drive;
        const mode_t before = umask(022);
        const QString message = prepare(drive, bundles.windows());
        umask(before);
        QCOMPARE(message, prepared);
        struct stat launcher = {};
        struct stat other = {};
        stat(QFile::encodeName(drive.path("Tessarine-Linux.sh")).constData(), &launcher);
        stat(QFile::encodeName(drive.path("Tessarine-Windows.bat")).constData(), &other);
        QCOMPARE(QString::number(launcher.st_mode & 07777U, 8), "755");
        QCOMPARE(QString::number(other.st_mode & 07777U, 8), "644");
    }

    void whatElseIsOnTheDriveStays()
    {
        const Bundles bundles;
        const Drive drive;
        drive.write("tessarine.tsrn", "the user's vault");
        drive.write("letters/to mother.txt", "dear mother");
        drive.write("Tessarine/update-state.json", "{}");
        drive.write("Tessarine/linux/mine", "kept");
        drive.write("Tessarine/.update-1/package", "kept");
        const QStringList before = drive.tree();
        QCOMPARE(prepare(drive, bundles.both()), prepared);
        const QStringList after = drive.tree();
        for (const QString &line : before)
            QVERIFY2(after.contains(line), qPrintable(line));
    }

    void nothingIsWrittenOutsideTheLayout()
    {
        const Bundles bundles;
        const Drive drive;
        QCOMPARE(prepare(drive, bundles.both()), prepared);
        QCOMPARE(
            QDir(drive.path())
                .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                           QDir::Name),
            (QStringList{"Tessarine", "Tessarine-Linux.sh", "Tessarine-Windows.bat"}));
        QCOMPARE(
            QDir(drive.path("Tessarine"))
                .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                           QDir::Name),
            (QStringList{"README.txt", "linux", "windows"}));
    }

    void aSecondPreparationRewritesTheTexts()
    {
        const Bundles bundles;
        const Drive drive;
        QCOMPARE(prepare(drive, bundles.both()), prepared);
        const QStringList once = drive.tree();
        drive.write("Tessarine-Windows.bat", QByteArray(88, 'x'));
        drive.write("Tessarine-Linux.sh", QByteArray(917, 'x'));
        drive.write("Tessarine/README.txt", QByteArray(455, 'x'));
        QCOMPARE(prepare(drive, bundles.both()), prepared);
        QCOMPARE(drive.tree(), once);
    }

    void aSecondPreparationGoesOnWhereAFailedOneStopped()
    {
        const Bundles bundles;
        const Drive drive;
        drive.makeDirectory("Tessarine-Linux.sh");
        QCOMPARE(prepare(drive, bundles.both()),
                 "Nao foi possivel criar o arquivo: " + drive.path("Tessarine-Linux.sh"));
        QDir(drive.path()).rmdir("Tessarine-Linux.sh");
        const qint64 copiedAt = QFileInfo(drive.path("Tessarine/linux/Tessarine"))
                                    .metadataChangeTime()
                                    .toMSecsSinceEpoch();
        QCOMPARE(prepare(drive, bundles.both()), prepared);
        QCOMPARE(QFileInfo(drive.path("Tessarine/linux/Tessarine"))
                     .metadataChangeTime()
                     .toMSecsSinceEpoch(),
                 copiedAt);
    }

    // The launcher's name in its directory reaches the medium only when the whole drive is synced.
    void theDriveIsSyncedBeforeTheLastReport()
    {
        const Bundles bundles;
        const Drive drive = Drive::ext4(16 * mebibyte);
        bool beforeTheLastStage = true;
        bool atTheLastReport = false;
        const QByteArray name("README.txt");
        prepare(drive, bundles.both(), [&](int step, int, const QString &) {
            if (step == 6)
                beforeTheLastStage = drive.medium().contains(name);
            if (step == 7)
                atTheLastReport = drive.medium().contains(name);
        });
        QVERIFY2(!beforeTheLastStage, "a name is on the medium before its file is written");
        QVERIFY2(atTheLastReport, "the drive was not synced");
    }

    void theRunningProgramIsPreparedByTheShorterCall()
    {
        const Drive directory;
        const Drive drive;
        const QString program = QCoreApplication::applicationFilePath();
        const QString name = QFileInfo(program).fileName();
        QFile::copy(program, directory.path(name));
        directory.write("qt.conf", "[Paths]");
        const BindMount place(directory.path(), QCoreApplication::applicationDirPath());
        m_result = m_manager.preparePortableBundle(drive.path(), recorded());
        QCOMPARE(m_result.message, prepared);
        QCOMPARE(m_reports.size(), 7);
        QCOMPARE(drive.tree("Tessarine/linux"), directory.tree());
        QCOMPARE(drive.tree("Tessarine/windows"), QStringList());
    }
};

TESSARINE_MOUNTING_TEST_MAIN(QCoreApplication, PreparationTest)
#include "preparation_test.moc"
