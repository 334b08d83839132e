#pragma once

#define main tessarineConfigMain
// The suite's own server, on the loopback interface of its private network.
#undef TESSARINE_UPDATE_ENDPOINT
#define TESSARINE_UPDATE_ENDPOINT "https://127.0.0.1"
#include "app/TessarineConfig.cpp"
#undef main

#include "tests/support/Drive.h"
#include "tests/support/FakeDeviceManager.h"
#include "tests/support/ListComparison.h"
#include "tests/support/MessageBoxUser.h"
#include "tests/support/Missing.h"
#include "tests/support/SyncWatch.h"
#include "tests/support/TestMain.h"
#include "tests/support/VendorServer.h"
#include "tests/support/Waiting.h"
#include "tests/support/ZipFile.h"

#include <QTest>

using TestSupport::completePackage;
using TestSupport::Drive;
using TestSupport::FakeDeviceManager;
using TestSupport::longestWait;
using TestSupport::MessageBoxUser;
using TestSupport::mountedVolume;
using TestSupport::SeenBox;
using TestSupport::VendorBehaviour;
using TestSupport::VendorServer;
using TestSupport::whenSynced;
using TestSupport::ZipFile;

namespace
{

// A drive that was prepared with version 1.0.0, a vendor who publishes 1.1.0, the window over the
// drive, and the person who uses it. The suites of the update tell what comes of that.
class UpdateSituation : public QObject
{
public:
    static inline const QString manifestPath =
        QStringLiteral("/000Updates/tessarine/manifest.json");
    static inline const QString packagePath = QStringLiteral("/tessarine-1.1.0.zip");

    static inline const QStringList requiredNames{
        QStringLiteral("windows/Tessarine.exe"),
        QStringLiteral("windows/platforms/qwindows.dll"),
        QStringLiteral("linux/Tessarine"),
        QStringLiteral("linux/Tessarine-Linux.sh"),
        QStringLiteral("linux/qt.conf"),
        QStringLiteral("linux/lib/libssl.so.3"),
        QStringLiteral("linux/plugins/tls/libqopensslbackend.so")};

    static QString sha256(const QByteArray &bytes)
    {
        return QString::fromLatin1(
            QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex());
    }

    static std::unique_ptr<Drive> smallDrive()
    {
        return std::unique_ptr<Drive>(new Drive(Drive::tmpfs(1 << 20)));
    }

    // One that can lose its medium.
    static std::unique_ptr<Drive> failingDrive()
    {
        return std::unique_ptr<Drive>(new Drive(Drive::ext4(16 << 20)));
    }

    std::unique_ptr<VendorServer> server;
    std::unique_ptr<Drive> drive;
    std::unique_ptr<MessageBoxUser> user;
    std::unique_ptr<ConfigWindow> window;
    QString logAtStart;
    QJsonObject manifest;

    void openServer()
    {
        QCoreApplication::setApplicationVersion(QStringLiteral(TESSARINE_VERSION));
        server = std::make_unique<VendorServer>(443);
    }

    void begin()
    {
        user = std::make_unique<MessageBoxUser>();
        prepareDrive(std::make_unique<Drive>());
        publish(completePackage(QStringLiteral("1.1.0")).bytes());
    }

    void end()
    {
        whenSynced = nullptr;
        window.reset();
        user.reset();
        drive.reset();
        server->answerWithFile(manifestPath);
        server->answerWithFile(packagePath);
    }

    void prepareDrive(std::unique_ptr<Drive> newDrive)
    {
        drive = std::move(newDrive);
        for (const QString &name : requiredNames)
            drive->write(QStringLiteral("Tessarine/") + name, "1.0.0");
        drive->write(QStringLiteral("Tessarine/windows/old.dll"), "1.0.0");
        drive->write(QStringLiteral("Tessarine/README.txt"), "text");
        drive->write(QStringLiteral("Tessarine-Linux.sh"), "launcher");
        drive->write(QStringLiteral("documento.txt"), "precious");
        QString error;
        if (!writeUpdateState(drive->path(), QStringLiteral("1.0.0"), {}, &error))
            TestSupport::reportMissing(error);
        openWindowOver({mountedVolume(QStringLiteral("PEN"), drive->path())});
    }

    void openWindowOver(const QList<UsbDevice> &devices)
    {
        window = std::make_unique<ConfigWindow>();
        window->deviceManager = std::make_unique<FakeDeviceManager>(devices);
        window->refreshDevices();
        window->show();
        QVERIFY(QTest::qWaitForWindowExposed(window.get(), longestWait));
        logAtStart = window->logView->toPlainText();
    }

    void publish(const QByteArray &package)
    {
        manifest = {{QStringLiteral("schemaVersion"), 1},
                    {QStringLiteral("app"), QStringLiteral("Tessarine")},
                    {QStringLiteral("version"), QStringLiteral("1.1.0")},
                    {QStringLiteral("packageUrl"), server->url(packagePath).toString()},
                    {QStringLiteral("sha256"), sha256(package)},
                    {QStringLiteral("size"), package.size()},
                    {QStringLiteral("releaseNotes"), QStringLiteral("Correções.")}};
        server->publish(packagePath, package);
        publishManifest();
    }

    void publishWith(const QString &key, const QJsonValue &value)
    {
        manifest.insert(key, value);
        publishManifest();
    }

    void publishManifest() { server->publish(manifestPath, QJsonDocument(manifest).toJson()); }

    // ---- what the user does and sees

    void update() { window->updateAction->trigger(); }

    void updateAnswering(const QString &answer)
    {
        user->willPress(answer);
        update();
    }
    void agreeToUpdate() { updateAnswering(QStringLiteral("Sim")); }

    QStringList newLogLines() const
    {
        const QString text = window->logView->toPlainText().mid(logAtStart.size()).trimmed();
        return text.isEmpty() ? QStringList() : text.split(u'\n');
    }

    // The box that ends the command, behind the question if there was one.
    SeenBox lastBox() const { return user->boxes.isEmpty() ? SeenBox() : user->boxes.last(); }

    void compareLastBox(QMessageBox::Icon icon, const QString &text) const
    {
        TestSupport::compareMessage(lastBox(), icon, text, window.get());
    }
    void compareWarning(const QString &text) const { compareLastBox(QMessageBox::Warning, text); }
    void compareInformation(const QString &text) const
    {
        compareLastBox(QMessageBox::Information, text);
    }

    // A fetch that failed is told in the network's own words.
    void compareFailedFetch(const QString &logPrefix) const
    {
        QVERIFY2(!lastBox().text.isEmpty(), "No box, or one without a word");
        compareWarning(lastBox().text);
        QCOMPARE(newLogLines(), QStringList{logPrefix + lastBox().text});
    }

    // Lets the events happen while that path is fetched, one after the other, each with some turns
    // of the event loop to take effect in, for as long as what it returns lives.
    std::unique_ptr<QTimer> whileFetching(const QString &path, QList<std::function<void()>> *events)
    {
        auto timer = std::make_unique<QTimer>();
        const qsizetype requestsBefore = server->requests().size();
        connect(timer.get(), &QTimer::timeout, this,
                [this, path, events, requestsBefore, turns = 0]() mutable {
                    const auto requests = server->requests();
                    const bool isFetching =
                        requests.size() > requestsBefore && requests.last().path == path;
                    if (isFetching && !events->isEmpty() && ++turns % 10 == 0)
                        events->takeFirst()();
                });
        timer->start(10);
        return timer;
    }

    // Runs what a box comes up with, then dismisses it.
    void whenBoxShows(const std::function<void()> &look)
    {
        user->willAnswer([look](QMessageBox *box) {
            look();
            box->close();
        });
    }

    QStringList bundleNames() const
    {
        QStringList names = QDir(drive->path(QStringLiteral("Tessarine")))
                                .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
        names.sort();
        return names;
    }

    // The entries of the bundle root with the digits of time stamps made alike.
    QStringList stampedBundleNames() const
    {
        QStringList names = bundleNames();
        return names.replaceInStrings(QRegularExpression(QStringLiteral("\\d{14}")),
                                      QStringLiteral("TIME"));
    }

    QByteArray read(const QString &name) const
    {
        return drive->read(QStringLiteral("Tessarine/") + name);
    }

    QJsonObject state() const
    {
        return QJsonDocument::fromJson(read(QStringLiteral("update-state.json"))).object();
    }
};

} // namespace

// The main function of such a suite. A test that lets minutes pass on the process's own clock must
// not look to Qt Test's watchdog like one that hangs.
#define TESSARINE_UPDATE_TEST_MAIN(Suite)                                                          \
    int main(int argc, char *argv[])                                                               \
    {                                                                                              \
        qputenv("QTEST_FUNCTION_TIMEOUT", "3600000");                                              \
        TestSupport::enterPrivateMountNamespace();                                                 \
        TestSupport::enterPrivateNetwork();                                                        \
        QApplication application(argc, argv);                                                      \
        Suite suite;                                                                               \
        return QTest::qExec(&suite, argc, argv);                                                   \
    }
