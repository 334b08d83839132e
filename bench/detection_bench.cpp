// detection_bench COUNT: lists the USB drives once. Prints the processor seconds that it took.
// Fails unless there are so many.

#include "platform/linux/LinuxDeviceManager.h"

#include <QCoreApplication>
#include <QTextStream>

#include <ctime>

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    const std::clock_t begin = std::clock();
    const auto devices = Tessarine::Platform::Linux::LinuxDeviceManager().detectUsbDevices();
    const double seconds = static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
    QTextStream(stdout) << QString::number(seconds, 'f', 6) << '\n';
    return QString::number(devices.size()) == QCoreApplication::arguments().value(1) ? 0 : 1;
}
