#pragma once

#include "platform/linux/LinuxDeviceManager.h"

#include <QStorageInfo>
#include <QStringList>

namespace TestSupport
{

// Every field of every record, one line each, in the list's order:
// "id|devicePath|label|mountPoint|fileSystem|removable or fixed|mounted or unmounted".
inline QStringList detectedDevices()
{
    QStringList lines;
    const auto devices = Tessarine::Platform::Linux::LinuxDeviceManager().detectUsbDevices();
    for (const auto &device : devices) {
        const QStringList fields{
            device.id,
            device.devicePath,
            device.label,
            device.mountPoint,
            device.fileSystem,
            QLatin1String(device.removable ? "removable" : "fixed"),
            QLatin1String(device.mounted ? "mounted" : "unmounted"),
        };
        lines.append(fields.join(QLatin1Char('|')));
    }
    return lines;
}

// The line of a mounted volume that has no name, and so is called by its mount point.
inline QString mountedVolume(const QString &device, const QString &mountPoint,
                             const QString &fileSystem = "tmpfs")
{
    return QStringLiteral("%1:%2|%1|%2|%2|%3|removable|mounted")
        .arg(device, mountPoint, fileSystem);
}

// The line of a mounted volume with a label. That of a file system in memory is known to older Qt
// alone: newer Qt calls the volume by its mount point.
inline QString labelledVolume(const QString &device, const QString &label,
                              const QString &mountPoint, const QString &fileSystem = "tmpfs")
{
    const bool isLabelKnown = !QStorageInfo(mountPoint).name().isEmpty();
    return QStringLiteral("%1:%2|%1|%3|%2|%4|removable|mounted")
        .arg(device, mountPoint, isLabelKnown ? label : mountPoint, fileSystem);
}

// The line of a device that has no label and isn't mounted.
inline QString unmountedDevice(const QString &blockName)
{
    return QStringLiteral("/dev/%1|/dev/%1|%1|||removable|unmounted").arg(blockName);
}

} // namespace TestSupport
