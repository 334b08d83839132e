#include "tests/app/PrepareSituation.h"
#include "tests/support/Waiting.h"

#include <QAccessible>
#include <QPlainTextEdit>
#include <QProgressBar>

namespace
{

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

} // namespace

// What the user sees and can do while the window asks, and while it prepares.
class PrepareDialogsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // ---- the question box

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

    void ofAMessageOfMegabytesTheBeginningAndTheEndAreShown()
    {
        MessageBoxUser user;
        user.willAnswer(MessageBoxUser::closing());
        warn(nullptr, QStringLiteral("Falha: ") + QStringLiteral("erro\n").repeated(1'000'000)
                          + QStringLiteral("sem espaço"));
        const QString text = user.boxes.constFirst().text;
        QVERIFY(text.startsWith(QStringLiteral("Falha: erro\nerro\n")));
        QVERIFY(text.contains(QStringLiteral("\n...\n")));
        QVERIFY(text.endsWith(QStringLiteral("erro\nsem espaço")));
        QCOMPARE(text.size(), 100'005);
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
        QStringList buttonsOutside;
        QString shown;
        const auto look = [&](QMessageBox *box) {
            place = box->frameGeometry();
            const QList<QAbstractButton *> buttons = box->buttons();
            for (const QAbstractButton *button : buttons) {
                if (!box->rect().contains(button->geometry()))
                    buttonsOutside << button->text();
            }
            const auto *pane = box->findChild<QPlainTextEdit *>();
            shown = pane != nullptr && pane->isVisible() ? pane->toPlainText() : QString();
            box->close();
        };
        user.willAnswer(look);
        warn(nullptr, text);
        const QRect screen = QGuiApplication::primaryScreen()->availableGeometry();
        QCOMPARE(place & screen, place);
        QCOMPARE(buttonsOutside, QStringList());
        QCOMPARE(shown, text);
        QCOMPARE(user.boxes.first().text, text);
    }

    void enterAnswersAQuestionWithALongText()
    {
        MessageBoxUser user;
        user.willAnswer(MessageBoxUser::typing(Qt::Key_Return));
        const QString text = QStringLiteral("Texto\n").repeated(99);
        QCOMPARE(askYesNo(nullptr, QStringLiteral("Título"), text), false);
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
        QVERIFY2(!hasPane, "A pane that scrolls holds the text");
    }

    // ---- the progress dialog

    void dialogIsModalAndHasNoCancelButtonAndNoTitle()
    {
        Desk desk;
        desk.progress.asItAppears = [&desk](QProgressDialog *dialog) {
            QCOMPARE(dialog->parentWidget(), &desk.window);
            QCOMPARE(dialog->windowModality(), Qt::ApplicationModal);
            QVERIFY(dialog->isModal());
            QCOMPARE(dialog->findChildren<QPushButton *>().size(), 0);
            QCOMPARE(dialog->minimumDuration(), 0);
            QCOMPARE(dialog->minimum(), 0);
            QCOMPARE(dialog->maximum(), 7);
            QCOMPARE(dialog->windowTitle(), QString());
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
        QVERIFY2(!dialogStands, "The dialog stands behind the box");
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
        QVERIFY2(stands, "The dialog is gone");
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
        QVERIFY2(pressed, "The buttons weren't pressed, or had an effect");
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
        QVERIFY(QTest::qWaitForWindowExposed(&desk.window, TestSupport::longestWait));
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

TESSARINE_PREPARE_TEST_MAIN(PrepareDialogsTest)
#include "prepare_dialogs_test.moc"
