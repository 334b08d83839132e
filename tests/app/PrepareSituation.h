#pragma once

#define main tessarineConfigMain
#include "app/TessarineConfig.cpp"
#undef main

#include "tests/support/Drive.h"
#include "tests/support/FakeDeviceManager.h"
#include "tests/support/ListComparison.h"
#include "tests/support/MessageBoxUser.h"
#include "tests/support/ProgressWatch.h"
#include "tests/support/TestMain.h"

#include <QTest>

using TestSupport::compareMessage;
using TestSupport::Drive;
using TestSupport::FakeDeviceManager;
using TestSupport::MessageBoxUser;
using TestSupport::mountedVolume;
using TestSupport::ProgressWatch;
using TestSupport::SeenBox;

namespace
{

inline const QString sim = QStringLiteral("Sim");
inline const QString success = QStringLiteral("USB preparado com estrutura portatil Tessarine.");

inline BundleSource windowsBundle(const Drive &bundles)
{
    bundles.write(QStringLiteral("windows/Qt6Core.dll"), "core");
    bundles.write(QStringLiteral("windows/platforms/qwindows.dll"), "platform");
    return {bundles.write(QStringLiteral("windows/Tessarine.exe"), "windows program"),
            bundles.path(QStringLiteral("windows")), false};
}

inline BundleSource linuxBundle(const Drive &bundles)
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

} // namespace

// The main function of such a suite.
#define TESSARINE_PREPARE_TEST_MAIN(Suite)                                                         \
    int main(int argc, char *argv[])                                                               \
    {                                                                                              \
        TestSupport::enterPrivateMountNamespace();                                                 \
        QApplication application(argc, argv);                                                      \
        QCoreApplication::setApplicationVersion(QStringLiteral(TESSARINE_VERSION));                \
        Suite suite;                                                                               \
        return QTest::qExec(&suite, argc, argv);                                                   \
    }
