// No build of the main application is found on the machine that runs the tests.
#undef TESSARINE_SOURCE_DIR
#define TESSARINE_SOURCE_DIR "/nonexistent/TessarineConfig/../Tessarine"
#define main tessarineConfigMain
#include "app/TessarineConfig.cpp"
#undef main

#include "tests/support/ListComparison.h"
#include "tests/support/MessageBoxUser.h"
#include "tests/support/TemporaryFileSystem.h"
#include "tests/support/TestMain.h"
#include "tests/support/Waiting.h"

#include <QMenu>
#include <QTest>
#include <QTextBlock>

#include <cstdio>
#include <cstdlib>

namespace
{

using TestSupport::longestWait;
using TestSupport::MessageBoxUser;
using TestSupport::TemporaryFileSystem;

// With this argument the program opens the window, prints its backdrop's size and ends.
const QString printBackdropSize = QStringLiteral("--print-backdrop-size");

QFrame *panelOf(const ConfigWindow &window)
{
    return window.findChild<QFrame *>(QStringLiteral("contentPanel"));
}

QLabel *labelOf(const ConfigWindow &window, const char *name)
{
    return window.findChild<QLabel *>(QString::fromLatin1(name));
}

QStringList logOf(const ConfigWindow &window)
{
    return window.logView->toPlainText().split(QLatin1Char('\n'));
}

QStringList entriesOf(const QMenu &menu)
{
    QStringList entries;
    const QList<QAction *> actions = menu.actions();
    for (const QAction *action : actions)
        entries.append(action->isSeparator() ? QStringLiteral("---") : action->text());
    return entries;
}

// What stands in a layout, from first to last: widgets by class and text, the rest by what it is.
QStringList itemsOf(const QLayout &layout)
{
    QStringList items;
    for (int i = 0; i < layout.count(); ++i) {
        QLayoutItem *item = layout.itemAt(i);
        if (QWidget *widget = item->widget()) {
            items.append(widget->objectName().isEmpty()
                             ? QString::fromLatin1(widget->metaObject()->className())
                             : widget->objectName());
        } else if (const QLayout *inner = item->layout()) {
            items.append(QString::fromLatin1(inner->metaObject()->className()));
        } else if (item->expandingDirections() != Qt::Orientations()) {
            items.append(QStringLiteral("stretch"));
        } else {
            items.append(QStringLiteral("spacing %1").arg(item->sizeHint().height()));
        }
    }
    return items;
}

QString labelBeside(const QFormLayout &form, QWidget *field)
{
    return qobject_cast<QLabel *>(form.labelForField(field))->text();
}

} // namespace

// What stands in the window, where, and how it looks and answers.
class WindowTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<TemporaryFileSystem> noBlockDevices;

private Q_SLOTS:
    // The machine that runs the tests counts as one without drives.
    void initTestCase()
    {
        noBlockDevices = std::make_unique<TemporaryFileSystem>(QStringLiteral("/sys/class/block"));
    }

    void cleanupTestCase() { noBlockDevices.reset(); }

    void titleIsTheProgramsName()
    {
        QCOMPARE(ConfigWindow().windowTitle(), QStringLiteral("Tessarine - Gerenciador"));
    }

    void windowIsBuiltButNotShownByItsConstructor() { QVERIFY(!ConfigWindow().isVisible()); }

    void menusHoldTheirActionsInOrder()
    {
        const ConfigWindow window;
        const QList<QAction *> titles = window.menuBar()->actions();
        QCOMPARE(titles.size(), 2);
        const QMenu *fileMenu = titles.at(0)->menu();
        const QMenu *helpMenu = titles.at(1)->menu();
        QCOMPARE(fileMenu->title(), QStringLiteral("Arquivo"));
        QCOMPARE(
            entriesOf(*fileMenu),
            QStringList({QStringLiteral("Atualizar lista"), QStringLiteral("Preparar unidade USB"),
                         QStringLiteral("---"), QStringLiteral("Sair")}));
        QCOMPARE(helpMenu->title(), QStringLiteral("Ajuda"));
        QCOMPARE(entriesOf(*helpMenu),
                 QStringList({QStringLiteral("Verificar atualizações"), QStringLiteral("---"),
                              QStringLiteral("Sobre o sistema")}));
    }

    void actionsAreMadeInOrderAndBelongToTheWindow()
    {
        const ConfigWindow window;
        QCOMPARE(window.findChildren<QAction *>(QString(), Qt::FindDirectChildrenOnly),
                 QList<QAction *>({window.exitAction, window.refreshAction, window.prepareAction,
                                   window.updateAction, window.aboutAction}));
    }

    void onlySairHasAShortcutAndNoActionAnIcon()
    {
        const ConfigWindow window;
        QCOMPARE(window.exitAction->shortcut(), QKeySequence(QStringLiteral("Ctrl+Q")));
        for (const QAction *action :
             {window.refreshAction, window.prepareAction, window.updateAction, window.aboutAction})
            QVERIFY(action->shortcuts().isEmpty());
        const QList<QAction *> actions = window.findChildren<QAction *>();
        for (const QAction *action : actions)
            QVERIFY(action->icon().isNull());
    }

    void actionsAndButtonsHaveTheirTexts()
    {
        const ConfigWindow window;
        QCOMPARE(window.exitAction->text(), QStringLiteral("Sair"));
        QCOMPARE(window.refreshAction->text(), QStringLiteral("Atualizar lista"));
        QCOMPARE(window.prepareAction->text(), QStringLiteral("Preparar unidade USB"));
        QCOMPARE(window.updateAction->text(), QStringLiteral("Verificar atualizações"));
        QCOMPARE(window.aboutAction->text(), QStringLiteral("Sobre o sistema"));
        QCOMPARE(window.refreshButton->text(), QStringLiteral("Atualizar lista"));
        QCOMPARE(window.prepareButton->text(), QStringLiteral("Preparar unidade USB"));
        QCOMPARE(window.updateButton->text(), QStringLiteral("Verificar atualizações"));
    }

    void textLabelsHaveTheirTextsAndWrap()
    {
        const ConfigWindow window;
        const QLabel *marketing = labelOf(window, "marketingLabel");
        QCOMPARE(marketing->text(),
                 QStringLiteral("Suas informações merecem proteção.\nO Tessarine - Gerenciador "
                                "prepara sua unidade USB para armazenar e acessar arquivos\ncom "
                                "segurança, em um ambiente portátil e pronto para uso."));
        QCOMPARE(marketing->maximumWidth(), 560);
        QVERIFY(marketing->wordWrap());
        const QLabel *subtitle = labelOf(window, "subtitleLabel");
        QCOMPARE(subtitle->text(),
                 QStringLiteral("Preparador de unidade USB para o ambiente portátil Tessarine."));
        QVERIFY(subtitle->wordWrap());
        QVERIFY(window.windowsSourceLabel->wordWrap());
        QVERIFY(window.linuxSourceLabel->wordWrap());
    }

    void selectorAndLogHaveTheirSettings()
    {
        const ConfigWindow window;
        QCOMPARE(window.deviceCombo->minimumWidth(), 340);
        QCOMPARE(window.deviceCombo->maximumWidth(), 340);
        QVERIFY(!window.deviceCombo->isEditable());
        QVERIFY(window.logView->isReadOnly());
        QCOMPARE(window.logView->minimumHeight(), 100);
        QCOMPARE(window.logView->maximumHeight(), 100);
    }

    void logHasACaretThatShowsItsFocus()
    {
        QApplication::setCursorFlashTime(0);
        ConfigWindow window;
        window.show();
        window.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&window, longestWait));
        window.refreshButton->setFocus();
        const QImage before = window.logView->grab().toImage();
        window.logView->setFocus();
        QVERIFY(window.logView->grab().toImage() != before);
        QTest::keyClick(window.logView, Qt::Key_Home, Qt::ControlModifier);
        QTest::keyClick(window.logView, Qt::Key_Down);
        QCOMPARE(window.logView->textCursor().block().text(),
                 QStringLiteral("Fonte Linux para preparação ausente."));
        QTest::keyClick(window.logView, Qt::Key_X);
        QVERIFY(window.logView->isReadOnly());
        QCOMPARE(logOf(window).size(), 3);
    }

    void tabGoesThroughTheControlsAsTheyStandOnTheScreen()
    {
        ConfigWindow window;
        window.show();
        window.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&window, longestWait));
        window.deviceCombo->setFocus();
        QWidgetList visited;
        for (int i = 0; i < 5; ++i) {
            visited << QApplication::focusWidget();
            QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        }
        QCOMPARE(visited, QWidgetList({window.deviceCombo, window.refreshButton,
                                       window.updateButton, window.prepareButton, window.logView}));
        QCOMPARE(QApplication::focusWidget(), window.deviceCombo);
    }

    void everyControlStandsOnThePanelAndThePanelOnTheBackdrop()
    {
        const ConfigWindow window;
        QFrame *panel = panelOf(window);
        QCOMPARE(panel->parentWidget(), window.centralWidget());
        QVERIFY(dynamic_cast<BackgroundWidget *>(window.centralWidget()) != nullptr);
        const QList<QWidget *> controls{labelOf(window, "marketingLabel"),
                                        labelOf(window, "subtitleLabel"),
                                        window.deviceCombo,
                                        window.windowsSourceLabel,
                                        window.linuxSourceLabel,
                                        window.refreshButton,
                                        window.prepareButton,
                                        window.updateButton,
                                        window.logView};
        for (const QWidget *control : controls)
            QCOMPARE(control->parentWidget(), panel);
    }

    void panelLayoutHasItsItemsMarginsAndSpacings()
    {
        const ConfigWindow window;
        const auto *layout = qobject_cast<QVBoxLayout *>(panelOf(window)->layout());
        QCOMPARE(layout->contentsMargins(), QMargins(18, 16, 18, 18));
        QCOMPARE(layout->spacing(), 0);
        const QStringList expected{QStringLiteral("spacing 164"), QStringLiteral("marketingLabel"),
                                   QStringLiteral("spacing 38"),  QStringLiteral("subtitleLabel"),
                                   QStringLiteral("spacing 18"),  QStringLiteral("QFormLayout"),
                                   QStringLiteral("spacing 16"),  QStringLiteral("QFormLayout"),
                                   QStringLiteral("spacing 18"),  QStringLiteral("QHBoxLayout"),
                                   QStringLiteral("stretch"),     QStringLiteral("spacing 14"),
                                   QStringLiteral("QTextEdit")};
        QCOMPARE(itemsOf(*layout), expected);
        QCOMPARE(layout->stretch(10), 1);
    }

    void formsNameTheSelectorAndTheSources()
    {
        const ConfigWindow window;
        const QLayout *panelLayout = panelOf(window)->layout();
        const auto *deviceForm = qobject_cast<QFormLayout *>(panelLayout->itemAt(5)->layout());
        const auto *sourceForm = qobject_cast<QFormLayout *>(panelLayout->itemAt(7)->layout());
        for (const QFormLayout *form : {deviceForm, sourceForm}) {
            QCOMPARE(form->labelAlignment(), Qt::AlignRight | Qt::AlignVCenter);
            QCOMPARE(form->horizontalSpacing(), 10);
        }
        QCOMPARE(deviceForm->verticalSpacing(), 0);
        QCOMPARE(sourceForm->verticalSpacing(), 8);
        QCOMPARE(deviceForm->rowCount(), 1);
        QCOMPARE(sourceForm->rowCount(), 2);
        QCOMPARE(labelBeside(*deviceForm, window.deviceCombo), QStringLiteral("Unidade USB:"));
        QCOMPARE(labelBeside(*sourceForm, window.windowsSourceLabel),
                 QStringLiteral("Fonte Windows:"));
        QCOMPARE(labelBeside(*sourceForm, window.linuxSourceLabel), QStringLiteral("Fonte Linux:"));
        QCOMPARE(sourceForm->itemAt(0, QFormLayout::FieldRole)->widget(),
                 window.windowsSourceLabel);
    }

    void updateButtonStandsLeftOfThePrepareButton()
    {
        const ConfigWindow window;
        const auto *row =
            qobject_cast<QHBoxLayout *>(panelOf(window)->layout()->itemAt(9)->layout());
        QCOMPARE(row->count(), 4);
        QCOMPARE(row->itemAt(0)->widget(), window.refreshButton);
        QVERIFY(row->itemAt(1)->spacerItem() != nullptr);
        QCOMPARE(row->stretch(1), 0);
        QCOMPARE(row->itemAt(2)->widget(), window.updateButton);
        QCOMPARE(row->itemAt(3)->widget(), window.prepareButton);
    }

    void backdropLayoutHoldsThePanelAlone()
    {
        const ConfigWindow window;
        const QLayout *layout = window.centralWidget()->layout();
        QVERIFY(qobject_cast<const QVBoxLayout *>(layout) != nullptr);
        QCOMPARE(layout->contentsMargins(), QMargins(22, 22, 22, 22));
        QCOMPARE(itemsOf(*layout), QStringList{QStringLiteral("contentPanel")});
    }

    void panelHasItsStyleSheetToTheLetter()
    {
        const ConfigWindow window;
        QCOMPARE(
            panelOf(window)->styleSheet(),
            QStringLiteral(
                "QFrame#contentPanel {  background-color: rgba(10, 16, 28, 0);  border: 1px solid "
                "rgba(255, 255, 255, 92);  border-radius: 8px;}QFrame#contentPanel QLabel {  "
                "color: #ffffff;}QFrame#contentPanel QLabel#marketingLabel {  font-size: "
                "12px;}QFrame#contentPanel QLabel#subtitleLabel {  font-size: "
                "12px;}QFrame#contentPanel QTextEdit {  background-color: rgba(255, 255, 255, "
                "205);  color: #111827;  border: 1px solid rgba(31, 41, 55, 70);  border-radius: "
                "4px;}QFrame#contentPanel QTextEdit {  padding: 8px;}QFrame#contentPanel "
                "QPushButton {  background-color: rgba(255, 255, 255, 255);  color: #111827;  "
                "border: 1px solid rgba(31, 41, 55, 85);  border-radius: 4px;  font-size: 12px;  "
                "padding: 6px 12px;}QFrame#contentPanel QPushButton:hover {  background-color: "
                "rgba(245, 248, 252, 255);}QFrame#contentPanel QPushButton:pressed {  "
                "background-color: rgba(229, 236, 246, 255);}"));
    }

    void onlyPanelAndStatusLabelsHaveStyleSheets()
    {
        const ConfigWindow window;
        QStringList styled;
        const QList<QWidget *> widgets = window.findChildren<QWidget *>();
        for (const QWidget *widget : widgets) {
            const auto *label = qobject_cast<const QLabel *>(widget);
            if (!widget->styleSheet().isEmpty())
                styled << (label == nullptr ? widget->objectName() : label->text());
        }
        styled.sort();
        QCOMPARE(styled, QStringList({"Velmora Sistemas", "Versão 1.2.3-test", "contentPanel"}));
        QCOMPARE(qApp->styleSheet(), QString());
        QCOMPARE(window.styleSheet(), QString());
    }

    void statusBarShowsVersionThenVendor()
    {
        ConfigWindow window;
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window, longestWait));
        QCOMPARE(window.versionLabel->text(), QStringLiteral("Versão 1.2.3-test"));
        QCOMPARE(window.vendorLabel->text(), QStringLiteral("Velmora Sistemas"));
        for (const QLabel *label : {window.versionLabel, window.vendorLabel}) {
            QCOMPARE(label->parentWidget(), window.statusBar());
            QCOMPARE(label->minimumWidth(), 92);
            QCOMPARE(label->alignment(), Qt::AlignHCenter | Qt::AlignVCenter);
            QCOMPARE(label->styleSheet(),
                     QStringLiteral("QLabel {  font-size: 11px;  border-left: 1px solid #c8c8c8;  "
                                    "padding-left: 6px;  padding-right: 6px;}"));
        }
        QVERIFY(window.versionLabel->x() < window.vendorLabel->x());
        QVERIFY(window.versionLabel->x() > window.statusBar()->width() / 2);
    }

    void windowIsFixedToBackdropMenuBarAndStatusBar()
    {
        ConfigWindow window;
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window, longestWait));
        QCOMPARE(window.minimumSize(), window.maximumSize());
        QCOMPARE(window.size(), window.minimumSize());
        const QSize backdrop = window.centralWidget()->size();
        QCOMPARE(backdrop, QSize(1152, 648));
        QCOMPARE(window.centralWidget()->minimumSize(), backdrop);
        QCOMPARE(window.centralWidget()->maximumSize(), backdrop);
        QCOMPARE(window.width(), backdrop.width());
        QCOMPARE(window.height(),
                 backdrop.height() + window.menuBar()->height() + window.statusBar()->height());
    }

    void backdropFollowsTheAvailableSize_data()
    {
        QTest::addColumn<QSize>("available");
        QTest::addColumn<QSize>("backdrop");
        QTest::newRow("1366 wide") << QSize(1366, 768) << QSize(900, 506);
        QTest::newRow("lower bound reached") << QSize(1500, 900) << QSize(900, 506);
        QTest::newRow("above the lower bound") << QSize(1502, 900) << QSize(901, 506);
        QTest::newRow("truncated") << QSize(1600, 900) << QSize(960, 540);
        QTest::newRow("1920 wide") << QSize(1920, 1080) << QSize(1152, 648);
        QTest::newRow("3840 wide") << QSize(3840, 2160) << QSize(1152, 648);
        QTest::newRow("low") << QSize(1366, 400) << QSize(711, 400);
        QTest::newRow("exactly as high") << QSize(1366, 506) << QSize(900, 506);
        QTest::newRow("one pixel too low") << QSize(1366, 505) << QSize(897, 505);
    }
    void backdropFollowsTheAvailableSize()
    {
        QFETCH(QSize, available);
        QTEST(backdropSizeWithin(available), "backdrop");
    }

    void backdropFitsTheScreenThatItIsOn_data()
    {
        QTest::addColumn<QString>("screen");
        QTest::addColumn<QByteArray>("backdrop");
        QTest::newRow("notebook") << QStringLiteral("1366x768") << QByteArray("900x506");
        QTest::newRow("low") << QStringLiteral("1366x400") << QByteArray("711x400");
        QTest::newRow("wide") << QStringLiteral("2560x1080") << QByteArray("1152x648");
    }
    void backdropFitsTheScreenThatItIsOn()
    {
        QFETCH(QString, screen);
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("SCREEN"), screen);
        QProcess process;
        process.setProcessEnvironment(environment);
        process.start(QStringLiteral(TESSARINE_TEST_SUPPORT_DIR "/with-display"),
                      {QCoreApplication::applicationFilePath(), printBackdropSize});
        QVERIFY2(process.waitForFinished(longestWait), qPrintable(process.errorString()));
        QTEST(process.readAllStandardOutput(), "backdrop");
    }

    void backdropHasAFixedSizeWithoutAScreen()
    {
        QCOMPARE(backdropSizeOn(nullptr), QSize(960, 540));
    }

    void logOfAFreshStartHasBothSourcesAndTheDriveCount()
    {
        const ConfigWindow window;
        QCOMPARE(logOf(window),
                 QStringList({QStringLiteral("Fonte Windows para preparação ausente."),
                              QStringLiteral("Fonte Linux para preparação ausente."),
                              QStringLiteral("Nenhuma unidade USB detectada.")}));
        QCOMPARE(window.windowsSourceLabel->text(), QStringLiteral("Ausente"));
        QCOMPARE(window.linuxSourceLabel->text(), QStringLiteral("Ausente"));
    }

    void everyControlIsEnabledWithoutSourcesAndDrives()
    {
        const ConfigWindow window;
        for (const QPushButton *button :
             {window.refreshButton, window.prepareButton, window.updateButton})
            QVERIFY(button->isEnabled());
        for (const QAction *action : {window.exitAction, window.refreshAction, window.prepareAction,
                                      window.updateAction, window.aboutAction})
            QVERIFY(action->isEnabled());
    }

    void buttonAndActionOfACommandDoTheSame()
    {
        ConfigWindow window;
        MessageBoxUser user;
        for (const auto &press :
             QList<std::function<void()>>{[&window] { window.prepareAction->trigger(); },
                                          [&window] { window.prepareButton->click(); }})
            press();
        QCOMPARE(user.boxes.size(), 2);
        QCOMPARE(user.boxes.at(0).text, user.boxes.at(1).text);
        window.updateAction->trigger();
        window.updateButton->click();
        QCOMPARE(user.boxes.size(), 4);
        QCOMPARE(user.boxes.at(2).text, user.boxes.at(3).text);
        window.refreshAction->trigger();
        window.refreshButton->click();
        QCOMPARE(logOf(window).size(), 5);
        QCOMPARE(logOf(window).at(3), logOf(window).at(4));
    }

    void commandsLeaveEveryControlAsItIs()
    {
        ConfigWindow window;
        MessageBoxUser user;
        window.show();
        window.prepareButton->click();
        window.updateButton->click();
        window.refreshButton->click();
        for (const QPushButton *button :
             {window.refreshButton, window.prepareButton, window.updateButton}) {
            QVERIFY(button->isEnabled());
            QVERIFY(button->isVisible());
        }
        QCOMPARE(window.prepareButton->text(), QStringLiteral("Preparar unidade USB"));
        QCOMPARE(window.statusBar()->currentMessage(), QString());
    }

    void quitShortcutClosesTheWindowWithoutAQuestion()
    {
        ConfigWindow window;
        MessageBoxUser user;
        window.show();
        window.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&window, longestWait));
        QTest::keyClick(&window, Qt::Key_Q, Qt::ControlModifier);
        QVERIFY(!window.isVisible());
        QCOMPARE(user.texts(), QStringList());
    }
};

int main(int argc, char *argv[])
{
    TestSupport::enterPrivateMountNamespace();
    // The standard Quit key is bound by a desktop's theme.
    qputenv("XDG_CURRENT_DESKTOP", "GNOME");
    QApplication application(argc, argv);
    QCoreApplication::setApplicationVersion(QStringLiteral("1.2.3-test"));
    if (QCoreApplication::arguments().contains(printBackdropSize)) {
        ConfigWindow window;
        window.show();
        QCoreApplication::processEvents();
        const QSize size = window.centralWidget()->size();
        std::printf("%dx%d", size.width(), size.height());
        return EXIT_SUCCESS;
    }
    WindowTest suite;
    return QTest::qExec(&suite, argc, argv);
}

#include "window_test.moc"
