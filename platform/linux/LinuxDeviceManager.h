#pragma once

#include "platform/DeviceManager.h"

namespace Tessarine::Platform::Linux
{

// USB volumes of a Linux machine, from the mounted volumes that Qt reports, the kernel's mount
// table (proc(5), /proc/[pid]/mountinfo) and its block device tree (sysfs(5), /sys/class/block).
class LinuxDeviceManager : public DeviceManager
{
public:
    QList<UsbDevice> detectUsbDevices() const override;
};

} // namespace Tessarine::Platform::Linux
