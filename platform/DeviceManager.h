#pragma once

#include <QList>
#include <QString>

namespace Tessarine::Platform
{

// One USB volume of the machine, as it was when it was looked at. Capacity and free space are no
// part of it: ask QStorageInfo for the mount point.
struct UsbDevice {
    QString id;            // "device:mount point" of a mounted volume, else the device path
    QString devicePath;    // device node, such as /dev/sdb1
    QString label;         // name shown to the user
    QString mountPoint;    // directory where the volume can be reached; empty when none is known
    QString fileSystem;    // type, such as "vfat"; empty when no mount tells it
    bool removable = true; // the kernel's removable flag of the device or its disk
    bool mounted = true;   // mountPoint can be used
};

// Lists the USB volumes of the machine. Implementations keep nothing between two calls.
class DeviceManager
{
public:
    virtual ~DeviceManager();

    // A snapshot, in the order in which the volumes were found. Empty when there is none, for
    // whatever reason: the operation reports no errors.
    virtual QList<UsbDevice> detectUsbDevices() const = 0;
};

} // namespace Tessarine::Platform
