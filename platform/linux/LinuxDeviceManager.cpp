#include "platform/linux/LinuxDeviceManager.h"

namespace Tessarine::Platform::Linux
{

QList<UsbDevice> LinuxDeviceManager::detectUsbDevices() const
{
    return {};
}

} // namespace Tessarine::Platform::Linux
