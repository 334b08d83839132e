// detection_bench COUNT: lists the USB drives once. Prints the seconds that it took. Fails unless
// there are so many.

#include "platform/linux/LinuxDeviceManager.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTextStream>

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    QElapsedTimer clock;
    clock.start();
    const auto devices = Tessarine::Platform::Linux::LinuxDeviceManager().detectUsbDevices();
    const double seconds = static_cast<double>(clock.nsecsElapsed()) / 1e9;
    QTextStream(stdout) << QString::number(seconds, 'f', 6) << '\n';
    return QString::number(devices.size()) == QCoreApplication::arguments().value(1) ? 0 : 1;
}
