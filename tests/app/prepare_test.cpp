#include "tests/app/PrepareSituation.h"

namespace
{

using TestSupport::unmountedVolume;

const QString nothingToCopy =
    QStringLiteral("Compile pelo menos um bundle do Tessarine antes de preparar a unidade.");
const QString nothingSelected = QStringLiteral("Selecione uma unidade USB primeiro.");
const QString notMounted = QStringLiteral(
    "Monte a unidade USB no gerenciador de arquivos e atualize a lista antes de preparar.");

QString questionFor(const QString &mountPoint)
{
    return QStringLiteral("Preparar a estrutura Tessarine em ") + mountPoint
           + QStringLiteral("?\n\nA unidade não será formatada. Arquivos existentes do bundle "
                            "Tessarine podem ser substituídos.");
}

} // namespace

// What becomes of a drive that the user has prepared through the window.
class PrepareTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // ---- checks before the run

    void withoutAnySourceOnlyThatIsSaid()
    {
        Desk desk;
        desk.window.windowsSource = {};
        desk.window.linuxSource = {};
        desk.plugIn({});
        desk.window.logView->clear();
        desk.window.prepareButton->click();
        QCOMPARE(desk.user.texts(), QStringList{nothingToCopy});
        compareMessage(desk.user.boxes.first(), QMessageBox::Warning, nothingToCopy, &desk.window);
        QCOMPARE(desk.log(), QStringList());
    }

    void withoutASelectionTheUserIsAskedForOne()
    {
        Desk desk;
        desk.plugIn({mountedVolume(QStringLiteral("A"), desk.mountPoint),
                     mountedVolume(QStringLiteral("B"), desk.mountPoint)});
        desk.window.logView->clear();
        desk.window.prepareAction->trigger();
        QCOMPARE(desk.user.texts(), QStringList{nothingSelected});
        compareMessage(desk.user.boxes.first(), QMessageBox::Information, nothingSelected,
                       &desk.window);
        QCOMPARE(desk.log(), QStringList());
    }

    void selectionBeyondTheListIsNone()
    {
        Desk desk;
        desk.window.deviceCombo->addItem(QStringLiteral("stale"));
        desk.window.deviceCombo->setCurrentIndex(1);
        desk.window.prepareButton->click();
        QCOMPARE(desk.user.texts(), QStringList{nothingSelected});
    }

    void driveThatIsNotUsableIsRefusedBeforeTheQuestion_data()
    {
        QTest::addColumn<UsbDevice>("device");
        QTest::newRow("not mounted")
            << unmountedVolume(QStringLiteral("A"), QStringLiteral("/dev/sdb1"));
        QTest::newRow("mounted nowhere") << mountedVolume(QStringLiteral("A"), QString());
        UsbDevice stale = mountedVolume(QStringLiteral("A"), QStringLiteral("/media/a"));
        stale.mounted = false;
        QTest::newRow("not mounted, mount point known") << stale;
    }
    void driveThatIsNotUsableIsRefusedBeforeTheQuestion()
    {
        QFETCH(UsbDevice, device);
        Desk desk;
        desk.plugIn({device});
        desk.window.deviceCombo->setCurrentIndex(0);
        desk.window.logView->clear();
        desk.window.prepareButton->click();
        QCOMPARE(desk.user.texts(), QStringList{notMounted});
        QCOMPARE(desk.user.boxes.first().icon, QMessageBox::Information);
        QCOMPARE(desk.log(), QStringList());
    }

    void questionNamesTheDrive()
    {
        Desk desk;
        desk.window.prepareButton->click();
        QCOMPARE(desk.user.texts(), QStringList{questionFor(desk.mountPoint)});
        QCOMPARE(desk.user.boxes.first().title, QStringLiteral("Preparar unidade USB"));
        QCOMPARE(desk.user.boxes.first().defaultButton, QStringLiteral("Não"));
        QCOMPARE(desk.user.boxes.first().parent, &desk.window);
    }

    void otherCommandsStillWorkBeforeTheQuestionIsAnswered()
    {
        Desk desk;
        desk.user.willAnswer([&desk](QMessageBox *box) {
            desk.window.refreshButton->click();
            box->close();
        });
        desk.window.prepareButton->click();
        QCOMPARE(desk.log(), QStringList{QStringLiteral("1 unidade(s) USB detectada(s).")});
    }

    void aNoLeavesLogAndDriveAsTheyWere()
    {
        Desk desk;
        desk.user.willPress(QStringLiteral("Não"));
        desk.window.prepareButton->click();
        QCOMPARE(desk.user.boxes.size(), 1);
        QCOMPARE(desk.log(), QStringList());
        QCOMPARE(desk.media.names(QStringLiteral("pen")), QStringList());
        QCOMPARE(desk.progress.appearances, 0);
    }

    // ---- the run

    void preparedDriveHoldsBundlesLaunchersAndState()
    {
        Desk desk;
        desk.prepare();
        const QStringList expected{QStringLiteral("Tessarine-Linux.sh"),
                                   QStringLiteral("Tessarine-Windows.bat"),
                                   QStringLiteral("Tessarine/"),
                                   QStringLiteral("Tessarine/README.txt"),
                                   QStringLiteral("Tessarine/linux/"),
                                   QStringLiteral("Tessarine/linux/Tessarine"),
                                   QStringLiteral("Tessarine/linux/qt.conf"),
                                   QStringLiteral("Tessarine/update-state.json"),
                                   QStringLiteral("Tessarine/windows/"),
                                   QStringLiteral("Tessarine/windows/Qt6Core.dll"),
                                   QStringLiteral("Tessarine/windows/Tessarine.exe"),
                                   QStringLiteral("Tessarine/windows/platforms/"),
                                   QStringLiteral("Tessarine/windows/platforms/qwindows.dll")};
        QCOMPARE(desk.media.names(QStringLiteral("pen")), expected);
    }

    void successIsLoggedInTwoLinesAndSaidInABox()
    {
        Desk desk;
        desk.prepare();
        QCOMPARE(desk.log(),
                 QStringList({QStringLiteral("Unidade preparada: ") + desk.mountPoint,
                              QStringLiteral("Estado de atualização registrado: ")
                                  + desk.onDrive(QStringLiteral("Tessarine/update-state.json"))}));
        QCOMPARE(desk.user.boxes.size(), 2);
        compareMessage(desk.user.boxes.last(), QMessageBox::Information, success, &desk.window);
    }

    void stateOfAPreparedDriveHasTheProgramsVersionAndNoHash()
    {
        Desk desk;
        desk.prepare();
        QFile file(desk.onDrive(QStringLiteral("Tessarine/update-state.json")));
        QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(file.errorString()));
        const QJsonObject state = QJsonDocument::fromJson(file.readAll()).object();
        QCOMPARE(state.value(QStringLiteral("installedVersion")).toString(),
                 QStringLiteral("1.0.0"));
        QVERIFY(!state.contains(QStringLiteral("lastPackageSha256")));
    }

    void successIsSaidOnceStateAndLogAreWritten()
    {
        Desk desk;
        bool stateThere = false;
        qsizetype lines = 0;
        desk.user.willPress(sim);
        desk.user.willAnswer([&](QMessageBox *box) {
            stateThere =
                QFileInfo::exists(desk.onDrive(QStringLiteral("Tessarine/update-state.json")));
            lines = desk.log().size();
            box->close();
        });
        desk.window.prepareButton->click();
        QVERIFY2(stateThere, "There is no state file yet");
        QCOMPARE(lines, 2);
    }

    void withOnlyTheLinuxSourceOnlyThatBundleIsCopied()
    {
        Desk desk;
        desk.window.windowsSource = {};
        desk.prepare();
        QCOMPARE(desk.user.boxes.last().text, success);
        QCOMPARE(desk.media.names(QStringLiteral("pen/Tessarine/windows")), QStringList());
        QCOMPARE(desk.media.tree(QStringLiteral("pen/Tessarine/linux")),
                 QStringList({QStringLiteral("Tessarine: linux program"),
                              QStringLiteral("qt.conf: [Paths]")}));
    }

    void withOnlyTheWindowsSourceOnlyThatBundleIsCopied()
    {
        Desk desk;
        desk.window.linuxSource = {};
        desk.prepare();
        QCOMPARE(desk.user.boxes.last().text, success);
        QCOMPARE(desk.media.names(QStringLiteral("pen/Tessarine/linux")), QStringList());
        QVERIFY(desk.media.exists(QStringLiteral("pen/Tessarine/windows/Tessarine.exe")));
    }

    void bundlesAreTakenFromTheDirectoriesOfTheSources()
    {
        Desk desk;
        desk.bundles.write(QStringLiteral("other/Qt6Core.dll"), "other core");
        desk.bundles.write(QStringLiteral("other/platforms/qwindows.dll"), "other platform");
        desk.bundles.write(QStringLiteral("another/qt.conf"), "other paths");
        desk.window.windowsSource.directoryPath = desk.bundles.path(QStringLiteral("other"));
        desk.window.linuxSource.directoryPath = desk.bundles.path(QStringLiteral("another"));
        desk.prepare();
        QCOMPARE(desk.media.read(QStringLiteral("pen/Tessarine/windows/Qt6Core.dll")),
                 QByteArray("other core"));
        QCOMPARE(desk.media.tree(QStringLiteral("pen/Tessarine/linux")),
                 QStringList{QStringLiteral("qt.conf: other paths")});
    }

    void filesOfTheUserStayAsTheyWere()
    {
        Desk desk;
        desk.media.write(QStringLiteral("pen/tessarine.tsrn"), "container");
        desk.media.write(QStringLiteral("pen/Tessarine/notes.txt"), "notes");
        desk.prepare();
        QCOMPARE(desk.media.read(QStringLiteral("pen/tessarine.tsrn")), QByteArray("container"));
        QCOMPARE(desk.media.read(QStringLiteral("pen/Tessarine/notes.txt")), QByteArray("notes"));
    }

    void mountPointWithPercentSignsAndMarkupStaysAsItIs()
    {
        Desk desk(QStringLiteral("%1 %2 <b>PEN</b> & &amp;"));
        desk.prepare();
        QCOMPARE(desk.user.boxes.first().text, questionFor(desk.mountPoint));
        QCOMPARE(desk.log(),
                 QStringList({QStringLiteral("Unidade preparada: ") + desk.mountPoint,
                              QStringLiteral("Estado de atualização registrado: ")
                                  + desk.onDrive(QStringLiteral("Tessarine/update-state.json"))}));
    }

    void driveChosenAtTheStartIsPreparedWhateverTheListHoldsLater()
    {
        Desk desk;
        desk.progress.whileItStands = [&desk](QProgressDialog *) { desk.plugIn({}); };
        desk.prepare();
        QCOMPARE(desk.window.devices.size(), 0);
        QCOMPARE(desk.user.boxes.last().text, success);
        QCOMPARE(desk.log().value(1), QStringLiteral("Unidade preparada: ") + desk.mountPoint);
    }

    void listIsNotRefreshedAfterwards()
    {
        Desk desk;
        desk.window.deviceManager = std::make_unique<FakeDeviceManager>(QList<UsbDevice>());
        desk.prepare();
        QCOMPARE(desk.window.devices.size(), 1);
        QCOMPARE(desk.window.deviceCombo->currentIndex(), 0);
    }

    void secondPreparationSucceedsToo()
    {
        Desk desk;
        desk.prepare();
        const QStringList names = desk.media.names(QStringLiteral("pen"));
        desk.prepare();
        QCOMPARE(desk.user.boxes.last().text, success);
        QCOMPARE(desk.media.names(QStringLiteral("pen")), names);
        QCOMPARE(desk.log().size(), 4);
    }

    // ---- failures

    void failureIsLoggedAndWarnedOfAndNoStateWritten()
    {
        Desk desk;
        QFile::remove(desk.window.linuxSource.executablePath);
        QDir(desk.window.linuxSource.directoryPath).removeRecursively();
        desk.prepare();
        const QString reason = QStringLiteral("Executavel do Tessarine nao encontrado: ")
                               + desk.window.linuxSource.executablePath;
        QCOMPARE(desk.log(), QStringList{QStringLiteral("Falha: ") + reason});
        QCOMPARE(desk.user.boxes.size(), 2);
        QCOMPARE(desk.user.boxes.last().text, reason);
        QCOMPARE(desk.user.boxes.last().icon, QMessageBox::Warning);
        QCOMPARE(desk.user.boxes.last().title, QStringLiteral("Tessarine - Gerenciador"));
        QVERIFY(!desk.media.exists(QStringLiteral("pen/Tessarine/update-state.json")));
    }

    void failedPreparationLeavesAnEarlierStateAsItWas()
    {
        Desk desk;
        desk.prepare();
        const QByteArray state = desk.media.read(QStringLiteral("pen/Tessarine/update-state.json"));
        desk.window.linuxSource.executablePath += QStringLiteral(".gone");
        QDir(desk.window.linuxSource.directoryPath).removeRecursively();
        desk.prepare();
        QCOMPARE(desk.user.boxes.last().icon, QMessageBox::Warning);
        QCOMPARE(desk.media.read(QStringLiteral("pen/Tessarine/update-state.json")), state);
    }

    void driveThatHasGoneAwayIsAFailure()
    {
        Desk desk;
        QDir(desk.mountPoint).removeRecursively();
        desk.prepare();
        QCOMPARE(desk.log(), QStringList{QStringLiteral("Falha: Unidade USB invalida.")});
        QCOMPARE(desk.user.boxes.last().text, QStringLiteral("Unidade USB invalida."));
        QVERIFY2(!QFileInfo::exists(desk.mountPoint), qPrintable(desk.mountPoint));
    }

    void readOnlyDriveIsOneFailure()
    {
        Desk desk;
        const Drive drive = Drive::tmpfs(1 << 20);
        drive.makeReadOnly();
        desk.plugIn({mountedVolume(QStringLiteral("PEN"), drive.path())});
        desk.window.logView->clear();
        desk.prepare();
        const QString reason = QStringLiteral("Nao foi possivel criar a pasta: ")
                               + drive.path(QStringLiteral("Tessarine"));
        QCOMPARE(desk.log(), QStringList{QStringLiteral("Falha: ") + reason});
        QCOMPARE(desk.user.boxes.size(), 2);
        QCOMPARE(desk.user.boxes.last().text, reason);
    }

    void stateThatCannotBeWrittenIsAWarningInTheLogOnly()
    {
        Desk desk;
        desk.media.makeDirectory(QStringLiteral("pen/Tessarine/update-state.json"));
        desk.prepare();
        QCOMPARE(desk.log(),
                 QStringList({QStringLiteral("Unidade preparada: ") + desk.mountPoint,
                              QStringLiteral("Aviso: Não foi possível abrir o arquivo de estado: ")
                                  + desk.onDrive(QStringLiteral("Tessarine/update-state.json"))}));
        QCOMPARE(desk.user.boxes.size(), 2);
        QCOMPARE(desk.user.boxes.last().text, success);
        QCOMPARE(desk.user.boxes.last().icon, QMessageBox::Information);
    }

    void driveThatFillsUpBeforeTheStateKeepsTheOldOne()
    {
        Desk desk;
        const Drive drive = Drive::tmpfs(1 << 20);
        drive.write(QStringLiteral("Tessarine/update-state.json"), "old state");
        desk.plugIn({mountedVolume(QStringLiteral("PEN"), drive.path())});
        desk.window.logView->clear();
        desk.progress.asItCloses = [&drive](QProgressDialog *) { drive.fill(); };
        desk.prepare();
        const QString path = drive.path(QStringLiteral("Tessarine/update-state.json"));
        QCOMPARE(desk.log().last(),
                 QStringLiteral("Aviso: Não foi possível salvar o arquivo de estado: ") + path);
        QCOMPARE(desk.user.boxes.last().text, success);
        QCOMPARE(drive.read(QStringLiteral("Tessarine/update-state.json")),
                 QByteArray("old state"));
    }
};

TESSARINE_PREPARE_TEST_MAIN(PrepareTest)
#include "prepare_test.moc"
