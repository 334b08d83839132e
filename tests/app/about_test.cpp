#define main tessarineConfigMain
#include "app/TessarineConfig.cpp"
#undef main

#include "tests/support/ListComparison.h"
#include "tests/support/Waiting.h"

#include <QTest>

namespace
{

template <typename Widget>
Widget *rootItem(const QDialog &dialog, int index)
{
    return qobject_cast<Widget *>(dialog.layout()->itemAt(index)->widget());
}

QGridLayout *gridOf(const QDialog &dialog)
{
    return qobject_cast<QGridLayout *>(dialog.layout()->itemAt(0)->layout());
}

QHBoxLayout *headerOf(const QDialog &dialog)
{
    return qobject_cast<QHBoxLayout *>(gridOf(dialog)->itemAtPosition(0, 0)->layout());
}

QLabel *headerLabel(const QDialog &dialog, int index)
{
    return qobject_cast<QLabel *>(headerOf(dialog)->itemAt(index)->widget());
}

QLabel *informationOf(const QDialog &dialog)
{
    return qobject_cast<QLabel *>(gridOf(dialog)->itemAtPosition(1, 0)->widget());
}

QLabel *runtimeOf(const QDialog &dialog)
{
    return qobject_cast<QLabel *>(gridOf(dialog)->itemAtPosition(1, 1)->widget());
}

Qt::Alignment alignmentOf(const QGridLayout &grid, QWidget *widget)
{
    return grid.itemAt(grid.indexOf(widget))->alignment();
}

QPushButton *closeButtonOf(const QDialog &dialog)
{
    return qobject_cast<QPushButton *>(rootItem<QDialogButtonBox>(dialog, 5)->buttons().first());
}

ConfigAboutDialog *openDialog()
{
    return dynamic_cast<ConfigAboutDialog *>(QApplication::activeModalWidget());
}

// Opens the dialog from the menu and does something with it; a dialog that stays is closed.
void whileOpen(ConfigWindow *window, const std::function<void(ConfigAboutDialog *)> &act)
{
    QTimer::singleShot(0, window, [&act] {
        ConfigAboutDialog *dialog = openDialog();
        QVERIFY2(dialog != nullptr, "The dialog isn't open");
        act(dialog);
        if (dialog->isVisible()) {
            dialog->hide();
            QTest::qFail("The dialog stays open", __FILE__, __LINE__);
        }
    });
    window->aboutAction->trigger();
}

// The size of the program's font in points, until the object goes.
class FontSize
{
public:
    explicit FontSize(int points)
    {
        QFont font = m_before;
        font.setPointSize(points);
        QApplication::setFont(font);
    }
    ~FontSize() { QApplication::setFont(m_before); }
    FontSize(const FontSize &) = delete;
    FontSize &operator=(const FontSize &) = delete;

private:
    QFont m_before = QApplication::font();
};

// Clicks where the button is on the screen: a modal dialog keeps the click from it.
void clickRefreshButton(ConfigWindow *window)
{
    const QPoint middle = window->refreshButton->rect().center();
    QTest::mouseClick(window->windowHandle(), Qt::LeftButton, {},
                      window->refreshButton->mapTo(window, middle));
}

} // namespace

class AboutTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void dialogHasItsTitleAndStartSizeAndCanBeResized()
    {
        ConfigAboutDialog dialog(nullptr);
        QCOMPARE(dialog.windowTitle(), QStringLiteral("Sobre o Tessarine - Gerenciador"));
        QVERIFY(dialog.isModal());
        QCOMPARE(dialog.size(), QSize(720, 430));
        dialog.resize(800, 500);
        QCOMPARE(dialog.size(), QSize(800, 500));
    }

    void rootLayoutHasItsItemsInOrder()
    {
        const ConfigAboutDialog dialog(nullptr);
        QVERIFY(qobject_cast<QVBoxLayout *>(dialog.layout()) != nullptr);
        QCOMPARE(dialog.layout()->count(), 6);
        QVERIFY(gridOf(dialog) != nullptr);
        QCOMPARE(dialog.layout()->itemAt(1)->spacerItem()->sizeHint().height(), 8);
        QCOMPARE(rootItem<QLabel>(dialog, 2)->text(), QStringLiteral("Componentes relevantes:"));
        QVERIFY(rootItem<QTextEdit>(dialog, 3) != nullptr);
        QCOMPARE(rootItem<QLabel>(dialog, 2)->buddy(), rootItem<QTextEdit>(dialog, 3));
        QVERIFY(rootItem<QLabel>(dialog, 4) != nullptr);
        QVERIFY(rootItem<QDialogButtonBox>(dialog, 5) != nullptr);
    }

    void headerSpansBothColumnsOfTheGrid()
    {
        const ConfigAboutDialog dialog(nullptr);
        const QGridLayout *grid = gridOf(dialog);
        QCOMPARE(grid->rowCount(), 2);
        QCOMPARE(grid->columnCount(), 2);
        QCOMPARE(grid->itemAtPosition(0, 0), grid->itemAtPosition(0, 1));
        QCOMPARE(alignmentOf(*grid, informationOf(dialog)), Qt::AlignTop);
        QCOMPARE(alignmentOf(*grid, runtimeOf(dialog)), Qt::AlignTop);
        QCOMPARE(grid->columnStretch(0), 1);
        QCOMPARE(grid->columnStretch(1), 1);
    }

    void headerHoldsIconThenTitle()
    {
        const ConfigAboutDialog dialog(nullptr);
        const QHBoxLayout *header = headerOf(dialog);
        QCOMPARE(header->spacing(), 8);
        QCOMPARE(header->count(), 3);
        QVERIFY(header->itemAt(2)->spacerItem() != nullptr);
        QCOMPARE(header->stretch(2), 0);
        QCOMPARE(headerLabel(dialog, 1)->text(), QStringLiteral("Tessarine - Gerenciador"));
    }

    void iconIsThatOfTheProgramIn42Pixels()
    {
        const ConfigAboutDialog dialog(nullptr);
        const QLabel *icon = headerLabel(dialog, 0);
        QCOMPARE(icon->minimumSize(), QSize(42, 42));
        QCOMPARE(icon->maximumSize(), QSize(42, 42));
        QCOMPARE(icon->alignment(), Qt::AlignHCenter | Qt::AlignVCenter);
        const QPixmap expected =
            QIcon(QStringLiteral(":/icons/Tessarine.ico")).pixmap(QSize(42, 42));
        QVERIFY(!expected.isNull());
        QCOMPARE(icon->pixmap(Qt::ReturnByValue).toImage(), expected.toImage());
    }

    void titleIsLargeSemiBoldAndBlue()
    {
        const ConfigAboutDialog dialog(nullptr);
        const QLabel *title = headerLabel(dialog, 1);
        QCOMPARE(title->font().pointSize(), QLabel().font().pointSize() + 12);
        QCOMPARE(int(title->font().weight()), 600);
        QCOMPARE(title->styleSheet(), QStringLiteral("color: #0B4F8A;"));
    }

    void titleAloneHasAStyleSheet()
    {
        const ConfigAboutDialog dialog(nullptr);
        const QList<QWidget *> widgets = dialog.findChildren<QWidget *>();
        for (const QWidget *widget : widgets)
            QCOMPARE(widget->styleSheet().isEmpty(), widget != headerLabel(dialog, 1));
        QCOMPARE(dialog.styleSheet(), QString());
    }

    void informationHasItsFourLines()
    {
        const ConfigAboutDialog dialog(nullptr);
        QCOMPARE(informationOf(dialog)->textFormat(), Qt::RichText);
        const QStringList lines = informationOf(dialog)->text().split(QStringLiteral("<br>"));
        QCOMPARE(lines.size(), 4);
        QCOMPARE(lines.at(0), QStringLiteral("Preparador e atualizador de unidades USB Tessarine"));
        QCOMPARE(lines.at(1), QStringLiteral("Versão 7.8.9-test"));
        QCOMPARE(lines.at(2), QStringLiteral("Copyright © 2026 Velmora Sistemas"));
        QCOMPARE(lines.at(3), QStringLiteral("Todos os direitos reservados."));
    }

    void runtimeNamesSystemQtAndProcessor()
    {
        const ConfigAboutDialog dialog(nullptr);
        QCOMPARE(runtimeOf(dialog)->text(),
                 QStringList({QStringLiteral("Ambiente de execução"), QSysInfo::prettyProductName(),
                              QStringLiteral("Qt ") + QString::fromLatin1(qVersion()),
                              QSysInfo::currentCpuArchitecture()})
                     .join(QLatin1Char('\n')));
    }

    void componentsAreListedOnEveryPlatform()
    {
        const ConfigAboutDialog dialog(nullptr);
        const auto *box = rootItem<QTextEdit>(dialog, 3);
        QVERIFY(box->isReadOnly());
        QCOMPARE(box->minimumHeight(), 120);
        QCOMPARE(
            box->toPlainText(),
            QStringLiteral("Qt Core/Network/Widgets - ") + QString::fromLatin1(qVersion())
                + QStringLiteral(
                    "\nUsado para interface gráfica, acesso HTTP, JSON, hash SHA-256 e operações "
                    "de arquivo.\n\nMicrosoft Visual C++ Runtime\nRuntime exigido por builds "
                    "produzidos com Microsoft Visual Studio/MSVC.\n\nMicrosoft Windows "
                    "APIs\nUsadas para detecção de unidades removíveis e integração nativa com o "
                    "sistema."));
    }

    void noticeIsOneParagraphThatWraps()
    {
        const ConfigAboutDialog dialog(nullptr);
        const auto *notice = rootItem<QLabel>(dialog, 4);
        QVERIFY(notice->wordWrap());
        QCOMPARE(
            notice->text(),
            QStringLiteral("Aviso legal: este programa é protegido pela legislação de direitos "
                           "autorais e por tratados internacionais. A reprodução ou a "
                           "distribuição não autorizada deste programa, no todo ou em parte, "
                           "pode resultar em sanções civis e penais, que serão aplicadas na "
                           "máxima extensão permitida pela lei."));
    }

    void fecharIsTheOnlyButtonAndAccepts()
    {
        ConfigAboutDialog dialog(nullptr);
        const auto *box = rootItem<QDialogButtonBox>(dialog, 5);
        QCOMPARE(box->buttons().size(), 1);
        QCOMPARE(closeButtonOf(dialog)->text(), QStringLiteral("Fechar"));
        QCOMPARE(box->buttonRole(closeButtonOf(dialog)), QDialogButtonBox::AcceptRole);
        dialog.show();
        closeButtonOf(dialog)->click();
        QVERIFY(!dialog.isVisible());
        QCOMPARE(dialog.result(), int(QDialog::Accepted));
    }

    void everythingFitsAtItsStartSize_data()
    {
        QTest::addColumn<int>("pointSize");
        QTest::newRow("9 points") << 9;
        QTest::newRow("11 points") << 11;
        QTest::newRow("14 points") << 14;
        QTest::newRow("20 points") << 20;
    }
    void everythingFitsAtItsStartSize()
    {
        QFETCH(int, pointSize);
        const FontSize size(pointSize);
        ConfigAboutDialog dialog(nullptr);
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog, TestSupport::longestWait));
        QCOMPARE(dialog.size() == QSize(720, 430), pointSize < 14);
        dialog.resize(720, 300);
        const QList<QLabel *> labels = dialog.findChildren<QLabel *>();
        for (const QLabel *label : labels) {
            const int width = label->width();
            const int needed =
                label->wordWrap() ? label->heightForWidth(width) : label->sizeHint().height();
            QVERIFY2(label->height() >= needed, qPrintable(label->text()));
            QVERIFY2(label->wordWrap() || width >= label->sizeHint().width() || width == 42,
                     qPrintable(label->text()));
        }
    }

    void actionOpensItOverTheWindow()
    {
        ConfigWindow window;
        window.show();
        bool opened = false;
        whileOpen(&window, [&](ConfigAboutDialog *dialog) {
            opened = dialog->parentWidget() == &window && dialog->isModal();
            dialog->accept();
        });
        QVERIFY2(opened, "No modal dialog of the window opened");
        QCOMPARE(window.findChildren<QDialog *>().size(), 0);
    }

    void dialogBlocksTheWindowUntilItCloses_data()
    {
        using Act = std::function<void(ConfigAboutDialog *)>;
        QTest::addColumn<Act>("close");
        QTest::newRow("Fechar") << Act([](ConfigAboutDialog *dialog) {
            QTest::mouseClick(closeButtonOf(*dialog), Qt::LeftButton);
        });
        QTest::newRow("Escape") << Act(
            [](ConfigAboutDialog *dialog) { QTest::keyClick(dialog, Qt::Key_Escape); });
        QTest::newRow("close button") << Act([](ConfigAboutDialog *dialog) {
            QCloseEvent event;
            QCoreApplication::sendEvent(dialog->windowHandle(), &event);
        });
    }
    void dialogBlocksTheWindowUntilItCloses()
    {
        using Act = std::function<void(ConfigAboutDialog *)>;
        QFETCH(Act, close);
        ConfigWindow window;
        window.show();
        const QString log = window.logView->toPlainText();
        whileOpen(&window, [&](ConfigAboutDialog *dialog) {
            clickRefreshButton(&window);
            QCOMPARE(openDialog(), dialog);
            QCOMPARE(window.logView->toPlainText(), log);
            close(dialog);
        });
        clickRefreshButton(&window);
        QVERIFY2(window.logView->toPlainText() != log, qPrintable(log));
    }
};

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    QCoreApplication::setApplicationVersion(QStringLiteral("7.8.9-test"));
    AboutTest suite;
    return QTest::qExec(&suite, argc, argv);
}

#include "about_test.moc"
