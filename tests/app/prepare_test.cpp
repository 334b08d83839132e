#define main tessarineConfigMain
#include "app/TessarineConfig.cpp"
#undef main

#include "tests/support/Drive.h"
#include "tests/support/FakeDeviceManager.h"
#include "tests/support/MessageBoxUser.h"
#include "tests/support/ProgressWatch.h"
#include "tests/support/TestMain.h"

#include <QAccessible>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QTest>

namespace
{

using TestSupport::Drive;
using TestSupport::FakeDeviceManager;
using TestSupport::MessageBoxUser;
using TestSupport::mountedVolume;
using TestSupport::ProgressWatch;
using TestSupport::SeenBox;
using TestSupport::unmountedVolume;

const QString sim = QStringLiteral("Sim");
const QString success = QStringLiteral("USB preparado com estrutura portatil Tessarine.");
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

BundleSource windowsBundle(const Drive &bundles)
{
    bundles.write(QStringLiteral("windows/Qt6Core.dll"), "core");
    bundles.write(QStringLiteral("windows/platforms/qwindows.dll"), "platform");
    return {bundles.write(QStringLiteral("windows/Tessarine.exe"), "windows program"),
            bundles.path(QStringLiteral("windows")), false};
}

BundleSource linuxBundle(const Drive &bundles)
{
    bundles.write(QStringLiteral("linux/qt.conf"), "[Paths]");
    return {bundles.write(QStringLiteral("linux/Tessarine"), "linux program"),
            bundles.path(QStringLiteral("linux")), false};
}

// A user at the window, with a drive plugged in and bundles for both platforms at hand.
struct Desk {
    explicit Desk(const QString &name = QStringLiteral("pen"))
        : mountPoint(media.makeDirectory(name))
    {
        window.windowsSource = windowsBundle(bundles);
        window.linuxSource = linuxBundle(bundles);
        plugIn({mountedVolume(QStringLiteral("PEN"), mountPoint)});
        window.logView->clear();
        window.show();
    }

    void plugIn(const QList<UsbDevice> &devices)
    {
        window.deviceManager = std::make_unique<FakeDeviceManager>(devices);
        window.refreshDevices();
    }

    void prepare()
    {
        user.willPress(sim);
        window.prepareButton->click();
    }

    QStringList log() const
    {
        return window.logView->toPlainText().split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    }

    QString onDrive(const QString &name) const { return QDir(mountPoint).filePath(name); }

    Drive media = Drive::tmpfs(1 << 30);
    Drive bundles;
    QString mountPoint;
    ConfigWindow window;
    MessageBoxUser user;
    ProgressWatch progress;
};

// Makes the copy of the Windows bundle long enough for the event loop to turn several times.
void addLargeFile(const Desk &desk)
{
    desk.bundles.write(QStringLiteral("windows/large.bin"), QByteArray(24 << 20, 'x'));
}

class PaintCounter : public QObject
{
public:
    explicit PaintCounter(QWidget *widget) { widget->installEventFilter(this); }
    int paints = 0;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::Paint)
            ++paints;
        return QObject::eventFilter(watched, event);
    }
};

QString accessibleNameOf(QWidget *widget)
{
    return QAccessible::queryAccessibleInterface(widget)->text(QAccessible::Name);
}

QString onlyBoxOf(const Desk &desk)
{
    return desk.user.boxes.size() == 1 ? desk.user.boxes.first().text
                                       : QStringLiteral("%1 boxes").arg(desk.user.boxes.size());
}

} // namespace

class PrepareTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // ------------------------------------------------------------ the question box

    void questionHasItsTextsAndDeclinesByDefault()
    {
        QWidget parent;
        MessageBoxUser user;
        askYesNo(&parent, QStringLiteral("Título"), QStringLiteral("Texto?"));
        QCOMPARE(user.boxes.size(), 1);
        const SeenBox &box = user.boxes.first();
        QCOMPARE(box.title, QStringLiteral("Título"));
        QCOMPARE(box.text, QStringLiteral("Texto?"));
        QCOMPARE(box.icon, QMessageBox::Question);
        QCOMPARE(box.buttons, QStringList({sim, QStringLiteral("Não")}));
        QCOMPARE(box.defaultButton, QStringLiteral("Não"));
        QCOMPARE(box.parent, &parent);
        QVERIFY(box.modal);
    }

    void onlySimIsAYes_data()
    {
        QTest::addColumn<MessageBoxUser::Answer>("answer");
        QTest::addColumn<bool>("yes");
        QTest::newRow("Sim") << MessageBoxUser::pressing(sim) << true;
        QTest::newRow("Não") << MessageBoxUser::pressing(QStringLiteral("Não")) << false;
        QTest::newRow("Enter") << MessageBoxUser::typing(Qt::Key_Return) << false;
        QTest::newRow("Escape") << MessageBoxUser::typing(Qt::Key_Escape) << false;
        QTest::newRow("close button") << MessageBoxUser::closing() << false;
    }
    void onlySimIsAYes()
    {
        QFETCH(MessageBoxUser::Answer, answer);
        MessageBoxUser user;
        user.willAnswer(answer);
        QTEST(askYesNo(nullptr, QStringLiteral("Título"), QStringLiteral("Texto?")), "yes");
        QCOMPARE(user.boxes.size(), 1);
    }

    void messagesAreShownLetterByLetter()
    {
        const QString text = QStringLiteral("<b>%1</b> &amp; a long path with blanks");
        MessageBoxUser user;
        QList<Qt::TextFormat> formats;
        for (int i = 0; i < 3; ++i) {
            user.willAnswer([&formats](QMessageBox *box) {
                formats.append(box->textFormat());
                box->close();
            });
        }
        inform(nullptr, text);
        warn(nullptr, text);
        askYesNo(nullptr, QStringLiteral("Título"), text);
        QCOMPARE(formats, QList<Qt::TextFormat>(3, Qt::PlainText));
        for (const SeenBox &box : std::as_const(user.boxes))
            QCOMPARE(box.text, text);
    }

    void buttonsOfALongMessageAreOnTheScreenAndAllOfItCanBeRead_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("many lines") << QStringLiteral("uma linha de saída\n").repeated(200);
        QTest::newRow("one long word") << QString(5000, u'x');
        QTest::newRow("one long line") << QStringLiteral("palavra ").repeated(5000);
    }
    void buttonsOfALongMessageAreOnTheScreenAndAllOfItCanBeRead()
    {
        QFETCH(QString, text);
        MessageBoxUser user;
        QRect place;
        bool buttonsAreInside = true;
        QString shown;
        const auto look = [&](QMessageBox *box) {
            place = box->frameGeometry();
            const QList<QAbstractButton *> buttons = box->buttons();
            for (const QAbstractButton *button : buttons)
                buttonsAreInside &= box->rect().contains(button->geometry());
            const auto *pane = box->findChild<QPlainTextEdit *>();
            shown = pane != nullptr && pane->isVisible() ? pane->toPlainText() : QString();
            box->close();
        };
        user.willAnswer(look);
        warn(nullptr, text);
        QVERIFY(QGuiApplication::primaryScreen()->availableGeometry().contains(place));
        QVERIFY(buttonsAreInside);
        QCOMPARE(shown, text);
        QCOMPARE(user.boxes.first().text, text);
    }

    void enterAnswersAQuestionWithALongText()
    {
        MessageBoxUser user;
        user.willAnswer(MessageBoxUser::typing(Qt::Key_Return));
        QVERIFY(
            !askYesNo(nullptr, QStringLiteral("Título"), QStringLiteral("Texto\n").repeated(99)));
        QCOMPARE(user.boxes.size(), 1);
    }

    void shortMessageHasNoPaneThatScrolls()
    {
        MessageBoxUser user;
        bool hasPane = true;
        user.willAnswer([&hasPane](QMessageBox *box) {
            hasPane = box->findChild<QPlainTextEdit *>() != nullptr;
            box->close();
        });
        inform(nullptr, QStringLiteral("Doze linhas de oitenta letras cabem.\n").repeated(12));
        QVERIFY(!hasPane);
    }

    // ------------------------------------------------------------ checks before the run

    void withoutAnySourceOnlyThatIsSaid()
    {
        Desk desk;
        desk.window.windowsSource = {};
        desk.window.linuxSource = {};
        desk.plugIn({});
        desk.window.logView->clear();
        desk.window.prepareButton->click();
        QCOMPARE(onlyBoxOf(desk), nothingToCopy);
        const SeenBox &box = desk.user.boxes.first();
        QCOMPARE(box.title, QStringLiteral("Tessarine - Gerenciador"));
        QCOMPARE(box.icon, QMessageBox::Warning);
        QCOMPARE(box.buttons, QStringList{QStringLiteral("OK")});
        QCOMPARE(box.parent, &desk.window);
        QVERIFY(box.modal);
        QVERIFY(desk.log().isEmpty());
    }

    void withoutASelectionTheUserIsAskedForOne()
    {
        Desk desk;
        desk.plugIn({mountedVolume(QStringLiteral("A"), desk.mountPoint),
                     mountedVolume(QStringLiteral("B"), desk.mountPoint)});
        desk.window.logView->clear();
        desk.window.prepareAction->trigger();
        QCOMPARE(onlyBoxOf(desk), nothingSelected);
        const SeenBox &box = desk.user.boxes.first();
        QCOMPARE(box.title, QStringLiteral("Tessarine - Gerenciador"));
        QCOMPARE(box.icon, QMessageBox::Information);
        QCOMPARE(box.buttons, QStringList{QStringLiteral("OK")});
        QVERIFY(desk.log().isEmpty());
    }

    void selectionBeyondTheListIsNone()
    {
        Desk desk;
        desk.window.deviceCombo->addItem(QStringLiteral("stale"));
        desk.window.deviceCombo->setCurrentIndex(1);
        desk.window.prepareButton->click();
        QCOMPARE(onlyBoxOf(desk), nothingSelected);
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
        QCOMPARE(onlyBoxOf(desk), notMounted);
        QCOMPARE(desk.user.boxes.first().icon, QMessageBox::Information);
        QVERIFY(desk.log().isEmpty());
    }

    void questionNamesTheDrive()
    {
        Desk desk;
        desk.window.prepareButton->click();
        QCOMPARE(onlyBoxOf(desk), questionFor(desk.mountPoint));
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
        QVERIFY(desk.log().isEmpty());
        QVERIFY(desk.media.names(QStringLiteral("pen")).isEmpty());
        QCOMPARE(desk.progress.appearances, 0);
    }

    // ------------------------------------------------------------ the run

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
        const SeenBox &box = desk.user.boxes.last();
        QCOMPARE(box.text, success);
        QCOMPARE(box.title, QStringLiteral("Tessarine - Gerenciador"));
        QCOMPARE(box.icon, QMessageBox::Information);
        QCOMPARE(box.buttons, QStringList{QStringLiteral("OK")});
        QCOMPARE(box.parent, &desk.window);
    }

    void stateOfAPreparedDriveHasTheProgramsVersionAndNoHash()
    {
        Desk desk;
        desk.prepare();
        QFile file(desk.onDrive(QStringLiteral("Tessarine/update-state.json")));
        QVERIFY(file.open(QIODevice::ReadOnly));
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
        QVERIFY(stateThere);
        QCOMPARE(lines, 2);
    }

    void withOnlyTheLinuxSourceOnlyThatBundleIsCopied()
    {
        Desk desk;
        desk.window.windowsSource = {};
        desk.prepare();
        QCOMPARE(desk.user.boxes.last().text, success);
        QVERIFY(desk.media.names(QStringLiteral("pen/Tessarine/windows")).isEmpty());
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
        QVERIFY(desk.media.names(QStringLiteral("pen/Tessarine/linux")).isEmpty());
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
        QVERIFY(desk.window.devices.isEmpty());
        QCOMPARE(desk.user.boxes.last().text, success);
        QVERIFY(desk.log().contains(QStringLiteral("Unidade preparada: ") + desk.mountPoint));
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

    // ------------------------------------------------------------ failures

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
        QVERIFY(!QFileInfo::exists(desk.mountPoint));
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

    // ------------------------------------------------------------ the progress dialog

    void dialogIsModalAndHasNoCancelButtonAndNoTitle()
    {
        Desk desk;
        desk.progress.asItAppears = [&desk](QProgressDialog *dialog) {
            QCOMPARE(dialog->parentWidget(), &desk.window);
            QCOMPARE(dialog->windowModality(), Qt::ApplicationModal);
            QVERIFY(dialog->isModal());
            QVERIFY(dialog->findChildren<QPushButton *>().isEmpty());
            QCOMPARE(dialog->minimumDuration(), 0);
            QCOMPARE(dialog->minimum(), 0);
            QCOMPARE(dialog->maximum(), 7);
            QVERIFY(dialog->windowTitle().isEmpty());
        };
        desk.prepare();
        QCOMPARE(desk.progress.appearances, 1);
    }

    void dialogHasNoCloseButton()
    {
        Desk desk;
        desk.progress.asItAppears = [](QProgressDialog *dialog) {
            QVERIFY(!dialog->windowFlags().testFlag(Qt::WindowCloseButtonHint));
            QVERIFY(dialog->windowFlags().testFlag(Qt::WindowTitleHint));
        };
        desk.prepare();
        QCOMPARE(desk.progress.appearances, 1);
    }

    void dialogAndBarHaveNamesForAScreenReader()
    {
        Desk desk;
        addLargeFile(desk);
        QString dialogName;
        QString barName;
        desk.progress.whileItStands = [&](QProgressDialog *dialog) {
            dialogName = accessibleNameOf(dialog);
            dialog->setLabelText(QStringLiteral("Copiando bundle Windows..."));
            barName = accessibleNameOf(dialog->findChild<QProgressBar *>());
        };
        desk.prepare();
        QCOMPARE(dialogName, QStringLiteral("Preparação da unidade USB"));
        QCOMPARE(barName, QStringLiteral("Copiando bundle Windows..."));
    }

    void dialogFollowsTheStages()
    {
        Desk desk;
        QStringList seen;
        desk.progress.asItAppears = [&seen](QProgressDialog *dialog) {
            const auto note = [&seen, dialog](int value) {
                // The caption changes after the value: it is still that of the stage before.
                seen << QStringLiteral("%1 %2").arg(QString::number(value), dialog->labelText());
            };
            connect(dialog->findChild<QProgressBar *>(), &QProgressBar::valueChanged, dialog, note);
            note(dialog->value());
        };
        desk.prepare();
        QCOMPARE(seen.mid(0, 6),
                 QStringList({QStringLiteral("0 Validando unidade USB..."),
                              QStringLiteral("1 Validando unidade USB..."),
                              QStringLiteral("2 Criando estrutura de pastas..."),
                              QStringLiteral("3 Copiando bundle Windows..."),
                              QStringLiteral("5 Copiando bundle Linux..."),
                              QStringLiteral("6 Criando inicializador Windows...")}));
        QCOMPARE(seen.at(6), QStringLiteral("7 Criando arquivos auxiliares..."));
    }

    void dialogIsClosedWhenTheOutcomeIsSaid_data()
    {
        QTest::addColumn<bool>("fails");
        QTest::newRow("success") << false;
        QTest::newRow("failure") << true;
    }
    void dialogIsClosedWhenTheOutcomeIsSaid()
    {
        QFETCH(bool, fails);
        Desk desk;
        if (fails)
            QDir(desk.mountPoint).removeRecursively();
        bool dialogStands = true;
        desk.user.willPress(sim);
        desk.user.willAnswer([&](QMessageBox *box) {
            dialogStands = desk.window.findChild<QProgressDialog *>()->isVisible();
            box->close();
        });
        desk.window.prepareButton->click();
        QCOMPARE(desk.user.boxes.size(), 2);
        QVERIFY(!dialogStands);
    }

    void nothingTheUserDoesDismissesTheDialog_data()
    {
        using Act = ProgressWatch::Act;
        QTest::addColumn<Act>("act");
        QTest::newRow("Escape") << Act(
            [](QProgressDialog *dialog) { QTest::keyClick(dialog, Qt::Key_Escape); });
        QTest::newRow("Alt+F4") << Act(
            [](QProgressDialog *dialog) { QTest::keyClick(dialog, Qt::Key_F4, Qt::AltModifier); });
        QTest::newRow("close button") << Act([](QProgressDialog *dialog) {
            QCloseEvent event;
            QCoreApplication::sendEvent(dialog->windowHandle(), &event);
        });
        QTest::newRow("close") << Act([](QProgressDialog *dialog) { dialog->close(); });
    }
    void nothingTheUserDoesDismissesTheDialog()
    {
        QFETCH(ProgressWatch::Act, act);
        Desk desk;
        addLargeFile(desk);
        bool stands = false;
        desk.progress.whileItStands = [&](QProgressDialog *dialog) {
            act(dialog);
            QCoreApplication::processEvents();
            stands = dialog->isVisible() && QApplication::activeModalWidget() == dialog;
        };
        desk.prepare();
        QVERIFY(stands);
        QCOMPARE(desk.progress.appearances, 1);
        QCOMPARE(desk.user.boxes.last().text, success);
    }

    void noCommandStartsDuringARun()
    {
        Desk desk;
        addLargeFile(desk);
        bool pressed = false;
        desk.progress.whileItStands = [&](QProgressDialog *) {
            const QStringList before = desk.log();
            for (QPushButton *button :
                 {desk.window.refreshButton, desk.window.prepareButton, desk.window.updateButton}) {
                button->click();
                QTest::mouseClick(button, Qt::LeftButton);
            }
            for (QAction *action : {desk.window.refreshAction, desk.window.prepareAction,
                                    desk.window.updateAction, desk.window.aboutAction})
                action->trigger();
            QCoreApplication::processEvents();
            QCOMPARE(desk.log(), before);
            QCOMPARE(desk.user.boxes.size(), 1);
            pressed = true;
        };
        desk.prepare();
        QVERIFY(pressed);
        QCOMPARE(desk.user.boxes.size(), 2);
        QCOMPARE(desk.log().size(), 2);
        QCOMPARE(desk.progress.appearances, 1);
    }

    void noCommandStartsAsTheDialogCloses()
    {
        Desk desk;
        desk.progress.asItCloses = [&desk](QProgressDialog *) {
            QMetaObject::invokeMethod(desk.window.prepareButton, "click", Qt::QueuedConnection);
        };
        desk.prepare();
        QCOMPARE(desk.user.boxes.size(), 2);
        QCOMPARE(desk.user.boxes.last().text, success);
        QCOMPARE(desk.log().size(), 2);
    }

    void aCommandCanStartOnceTheRunIsOver()
    {
        Desk desk;
        desk.prepare();
        desk.window.refreshButton->click();
        QCOMPARE(desk.log().last(), QStringLiteral("1 unidade(s) USB detectada(s)."));
    }

    void windowRepaintsWhileABundleIsCopied()
    {
        Desk desk;
        addLargeFile(desk);
        QVERIFY(QTest::qWaitForWindowExposed(&desk.window));
        PaintCounter counter(desk.window.centralWidget());
        int paints = 0;
        desk.progress.whileItStands = [&](QProgressDialog *dialog) {
            auto *timer = new QTimer(dialog);
            connect(timer, &QTimer::timeout, desk.window.centralWidget(),
                    qOverload<>(&QWidget::update));
            timer->start(0);
            counter.paints = 0;
        };
        desk.progress.asItCloses = [&](QProgressDialog *) { paints = counter.paints; };
        desk.prepare();
        QCOMPARE(desk.user.boxes.last().text, success);
        QVERIFY2(paints >= 10, qPrintable(QString::number(paints)));
    }

    void sairDuringARunLetsItEnd()
    {
        Desk desk;
        addLargeFile(desk);
        desk.progress.whileItStands = [&desk](QProgressDialog *) {
            desk.window.exitAction->trigger();
        };
        desk.prepare();
        QCOMPARE(desk.user.boxes.last().text, success);
        QVERIFY(desk.media.exists(QStringLiteral("pen/Tessarine/update-state.json")));
    }
};

int main(int argc, char *argv[])
{
    TestSupport::enterPrivateMountNamespace();
    QApplication application(argc, argv);
    QCoreApplication::setApplicationVersion(QStringLiteral(TESSARINE_VERSION));
    PrepareTest suite;
    return QTest::qExec(&suite, argc, argv);
}

#include "prepare_test.moc"
