#define main tessarineConfigMain
#include "app/TessarineConfig.cpp"
#undef main

#include "tests/support/Drive.h"
#include "tests/support/FakeDeviceManager.h"
#include "tests/support/ListComparison.h"
#include "tests/support/MessageBoxUser.h"
#include "tests/support/ProgressWatch.h"

#include <QTest>

namespace
{

using TestSupport::Drive;
using TestSupport::FakeDeviceManager;
using TestSupport::MessageBoxUser;
using TestSupport::mountedVolume;
using TestSupport::ProgressWatch;

// What the user does once the program is up.
std::function<void(ConfigWindow *)> onceUp;

ConfigWindow *shownWindow()
{
    const QWidgetList widgets = QApplication::topLevelWidgets();
    for (QWidget *widget : widgets) {
        if (auto *window = dynamic_cast<ConfigWindow *>(widget); window && window->isVisible())
            return window;
    }
    return nullptr;
}

// Runs with each application that main makes, before it has a window.
void waitForTheWindow()
{
    const auto act = [] {
        ConfigWindow *window = shownWindow();
        if (window != nullptr)
            return onceUp(window);
        QTest::qFail("The program shows no window", __FILE__, __LINE__);
        QCoreApplication::exit(EXIT_FAILURE);
    };
    QMetaObject::invokeMethod(qApp, act, Qt::QueuedConnection);
}

// Starts the program, under a name that somebody has given its file, lets the user act, and returns
// its exit status.
int runProgram(const std::function<void(ConfigWindow *)> &act)
{
    onceUp = act;
    QByteArray name = QByteArrayLiteral("renamed");
    char *arguments[] = {name.data(), nullptr};
    return tessarineConfigMain(1, arguments);
}

} // namespace

class StartTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { qAddPreRoutine(waitForTheWindow); }

    void programHasItsIdentity()
    {
        QStringList identity;
        QIcon icon;
        runProgram([&](ConfigWindow *window) {
            identity = QStringList{QCoreApplication::applicationName(),
                                   QCoreApplication::applicationVersion(),
                                   QCoreApplication::organizationName()};
            icon = QApplication::windowIcon();
            QVERIFY(!icon.availableSizes().isEmpty());
            window->close();
        });
        QCOMPARE(identity, QStringList({QStringLiteral("TessarineConfig"), QStringLiteral("1.0.0"),
                                        QStringLiteral("Tessarine")}));
    }

    void windowComesUpAndBearsTheProgramsIcon()
    {
        bool wasUp = false;
        runProgram([&wasUp](ConfigWindow *window) {
            wasUp = window->isVisible();
            QCOMPARE(window->windowIcon().cacheKey(), QApplication::windowIcon().cacheKey());
            QCOMPARE(window->versionLabel->text(), QStringLiteral("Versão 1.0.0"));
            window->close();
        });
        QVERIFY2(wasUp, "The window wasn't shown");
    }

    void noStyleSheetOrTranslationIsSetOnTheProgram()
    {
        QString styleSheet = QStringLiteral("unknown");
        runProgram([&styleSheet](ConfigWindow *window) {
            styleSheet = qApp->styleSheet();
            window->close();
        });
        QCOMPARE(styleSheet, QString());
    }

    void closingTheWindowEndsTheProgramWithoutAQuestion_data()
    {
        using Act = std::function<void(ConfigWindow *)>;
        QTest::addColumn<Act>("close");
        QTest::newRow("close button") << Act([](ConfigWindow *window) {
            QCloseEvent event;
            QCoreApplication::sendEvent(window->windowHandle(), &event);
        });
        QTest::newRow("Sair") << Act([](ConfigWindow *window) { window->exitAction->trigger(); });
    }
    void closingTheWindowEndsTheProgramWithoutAQuestion()
    {
        using Act = std::function<void(ConfigWindow *)>;
        QFETCH(Act, close);
        qsizetype boxes = -1;
        const int status = runProgram([&](ConfigWindow *window) {
            const MessageBoxUser user;
            close(window);
            boxes = user.boxes.size();
        });
        QCOMPARE(status, 0);
        QCOMPARE(boxes, 0);
    }

    void exitStatusIsThatOfTheEventLoop()
    {
        QCOMPARE(runProgram([](ConfigWindow *) { QCoreApplication::exit(7); }), 7);
    }

    void sairDuringARunEndsTheProgramOnceTheRunIsOver()
    {
        const Drive drive;
        const Drive bundles;
        bundles.write(QStringLiteral("qt.conf"), "[Paths]");
        const int status = runProgram([&](ConfigWindow *window) {
            window->linuxSource = {bundles.write(QStringLiteral("Tessarine"), "program"),
                                   bundles.path(), false};
            window->deviceManager = std::make_unique<FakeDeviceManager>(
                QList<UsbDevice>{mountedVolume(QStringLiteral("PEN"), drive.path())});
            window->refreshDevices();
            MessageBoxUser user;
            user.willPress(QStringLiteral("Sim"));
            ProgressWatch progress;
            progress.whileItStands = [window](QProgressDialog *) { window->exitAction->trigger(); };
            window->prepareButton->click();
            // Nothing else would ever end a program whose user couldn't.
            if (window->isVisible())
                QCoreApplication::exit(EXIT_FAILURE);
        });
        QCOMPARE(status, 0);
        QVERIFY(drive.exists(QStringLiteral("Tessarine/update-state.json")));
    }

    void windowIsGoneWhenTheProgramEnds()
    {
        QPointer<ConfigWindow> shown;
        runProgram([&shown](ConfigWindow *window) {
            shown = window;
            window->close();
        });
        QVERIFY2(shown.isNull(), "The window outlives the program");
    }
};

QTEST_APPLESS_MAIN(StartTest)

#include "start_test.moc"
