#pragma once

#include "platform/DeviceManager.h"

namespace TestSupport
{

// A machine with exactly these USB volumes, whatever it really has.
class FakeDeviceManager final : public Tessarine::Platform::DeviceManager
{
public:
    explicit FakeDeviceManager(const QList<Tessarine::Platform::UsbDevice> &devices)
        : volumes(devices)
    {
    }

    QList<Tessarine::Platform::UsbDevice> detectUsbDevices() const override { return volumes; }

private:
    QList<Tessarine::Platform::UsbDevice> volumes;
};

inline Tessarine::Platform::UsbDevice mountedVolume(const QString &label, const QString &mountPoint)
{
    Tessarine::Platform::UsbDevice device;
    device.devicePath = QStringLiteral("/dev/sdb1");
    device.label = label;
    device.mountPoint = mountPoint;
    return device;
}

inline Tessarine::Platform::UsbDevice unmountedVolume(const QString &label,
                                                      const QString &devicePath)
{
    Tessarine::Platform::UsbDevice device;
    device.devicePath = devicePath;
    device.label = label;
    device.mounted = false;
    return device;
}

} // namespace TestSupport
