#include "platform/linux/LinuxDeviceManager.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QSet>
#include <QStorageInfo>
#include <QStringList>
#include <QTextStream>

#include <algorithm>
#include <optional>
#include <utility>

namespace Tessarine::Platform::Linux
{

namespace
{

// The first line of a file, without white space around it; null if it can't be opened. An attribute
// of a device in sysfs is such a line.
QString readFirstLine(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return {};
    QTextStream stream(&file);
    return stream.readLine().trimmed();
}

// Where a block device (sdb1) sits in the device tree: /sys/devices/.../usb2/.../block/sdb/sdb1.
// Empty for an unknown name.
QString blockDeviceSysfsPath(const QString &blockName)
{
    return QFileInfo(QStringLiteral("/sys/class/block/%1").arg(blockName)).canonicalFilePath();
}

// The whole disk of a partition; a whole disk is its own. Null if the device tree doesn't tell.
QString parentDiskName(const QString &blockName)
{
    const QString blockDirectory = QStringLiteral("/block/");
    const QString path = blockDeviceSysfsPath(blockName);
    const qsizetype position = path.indexOf(blockDirectory);
    if (position < 0)
        return {};
    return path.mid(position + blockDirectory.size()).section(QLatin1Char('/'), 0, 0);
}

bool isUsbBlockDevice(const QString &blockName)
{
    const QString usb = QStringLiteral("/usb");
    if (blockDeviceSysfsPath(blockName).contains(usb))
        return true;
    const QString parent = parentDiskName(blockName);
    return !parent.isEmpty() && blockDeviceSysfsPath(parent).contains(usb);
}

bool isOpticalBlockDevice(const QString &blockName)
{
    // A partition has no device directory of its own.
    const QString parent = parentDiskName(blockName);
    const QString disk = parent.isEmpty() ? blockName : parent;
    // SCSI peripheral device type 05h: CD and DVD devices.
    return readFirstLine(QStringLiteral("/sys/class/block/%1/device/type").arg(disk))
           == QLatin1String("5");
}

bool isRemovableBlockDevice(const QString &blockName)
{
    const QString attribute = QStringLiteral("/sys/class/block/%1/removable");
    if (readFirstLine(attribute.arg(blockName)) == QLatin1String("1"))
        return true;
    // A partition has no such file: its disk's one counts.
    const QString parent = parentDiskName(blockName);
    return !parent.isEmpty() && readFirstLine(attribute.arg(parent)) == QLatin1String("1");
}

// Undoes the four escapes that the kernel uses in mount points, see proc(5). The backslash comes
// last, so that an escaped one followed by digits isn't decoded twice.
QString decodeMountInfoToken(QString token)
{
    token.replace(QStringLiteral("\\040"), QStringLiteral(" "));
    token.replace(QStringLiteral("\\011"), QStringLiteral("\t"));
    token.replace(QStringLiteral("\\012"), QStringLiteral("\n"));
    token.replace(QStringLiteral("\\134"), QStringLiteral("\\"));
    return token;
}

// Volume labels by block name, from udev's links. A label is the link's name as it stands, with
// udev's escapes.
QHash<QString, QString> blockLabelMap()
{
    QHash<QString, QString> labels;
    const QFileInfoList links =
        QDir(QStringLiteral("/dev/disk/by-label"))
            .entryInfoList(QDir::Files | QDir::System | QDir::NoDotAndDotDot);
    for (const QFileInfo &link : links) {
        const QString device = link.canonicalFilePath();
        if (device.startsWith(QLatin1String("/dev/")))
            labels.insert(QFileInfo(device).fileName(), link.fileName());
    }
    return labels;
}

// The directory where a desktop would have mounted a volume of this label; null if there is none.
// That it is the volume's own, or a mount point at all, isn't known.
QString mountedRootForLabel(const QString &label)
{
    if (label.isEmpty())
        return {};

    QStringList users;
    for (const char *variable : {"USER", "LOGNAME"}) {
        const QString user = QString::fromLocal8Bit(qgetenv(variable));
        if (!user.isEmpty() && !users.contains(user))
            users.append(user);
    }

    for (const QString &pattern :
         {QStringLiteral("/media/%1/%2"), QStringLiteral("/run/media/%1/%2")}) {
        for (const QString &user : std::as_const(users)) {
            QString directory = pattern.arg(user, label);
            if (QFileInfo(directory).isDir())
                return directory;
        }
    }

    QString directory = QStringLiteral("/mnt/%1").arg(label);
    return QFileInfo(directory).isDir() ? directory : QString();
}

// A name for a mounted volume that has none: its directory's, or its device's if that is "/".
QString fallbackDisplayName(const QString &devicePath, const QString &mountDirectory)
{
    QString name = QFileInfo(mountDirectory).fileName();
    if (!name.isEmpty() && name != QLatin1String("/"))
        return name;
    return QFileInfo(devicePath).fileName();
}

// The kernel's name of a device node, from the text of the path: links aren't followed.
QString blockNameOf(const QString &devicePath)
{
    return QFileInfo(devicePath).fileName();
}

QString labelOf(const QStorageInfo &volume, const QString &devicePath, const QString &mountPoint)
{
    if (!volume.displayName().isEmpty())
        return volume.displayName();
    if (!volume.name().isEmpty())
        return volume.name();
    return fallbackDisplayName(devicePath, mountPoint);
}

QStringList subdirectories(const QString &directory)
{
    return QDir(directory).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
}

bool hasPartitions(const QString &disk)
{
    const QStringList names = subdirectories(QStringLiteral("/sys/class/block/%1").arg(disk));
    return std::any_of(names.cbegin(), names.cend(), [&disk](const QString &name) {
        return name.startsWith(disk) && name != disk;
    });
}

// What one enumeration has found so far.
struct Findings {
    QList<UsbDevice> devices;
    QSet<QString> knownDevices; // block names
    QSet<QString> knownMountPoints;

    void addMounted(const UsbDevice &device)
    {
        devices.append(device);
        knownDevices.insert(blockNameOf(device.devicePath));
        knownMountPoints.insert(device.mountPoint);
    }
};

// A device that is mounted in two places yields a record for each.
void addMountedVolumes(Findings *found)
{
    const QList<QStorageInfo> volumes = QStorageInfo::mountedVolumes();
    for (const QStorageInfo &volume : volumes) {
        const QString device = QString::fromLocal8Bit(volume.device());
        if (!device.startsWith(QLatin1String("/dev/")) || !volume.isValid() || !volume.isReady())
            continue;

        const QString blockName = blockNameOf(device);
        const bool usb = isUsbBlockDevice(blockName);
        const bool removable = isRemovableBlockDevice(blockName);
        if (!usb || isOpticalBlockDevice(blockName))
            continue;

        const QString root = volume.rootPath();
        if (root.isEmpty() || found->knownMountPoints.contains(root))
            continue;

        found->addMounted({.id = QStringLiteral("%1:%2").arg(device, root),
                           .devicePath = device,
                           .label = labelOf(volume, device, root),
                           .mountPoint = root,
                           .fileSystem = QString::fromLocal8Bit(volume.fileSystemType()),
                           .removable = removable,
                           .mounted = true});
    }
}

// What the program reads of a line of the mount table.
struct MountTableEntry {
    QString mountPoint;
    QString fileSystemType;
    QString mountSource;
};

// Takes apart a line of /proc/self/mountinfo, see proc(5): fields on both sides of " - ", the ones
// before it of varying number. Nothing for a line that isn't one.
std::optional<MountTableEntry> parseMountTableLine(const QString &line)
{
    const QString separator = QStringLiteral(" - ");
    const qsizetype middle = line.indexOf(separator);
    if (middle < 0)
        return std::nullopt;
    const QStringList left = line.left(middle).split(QLatin1Char(' '), Qt::KeepEmptyParts);
    const QStringList right =
        line.mid(middle + separator.size()).split(QLatin1Char(' '), Qt::KeepEmptyParts);
    if (left.size() < 5 || right.size() < 3)
        return std::nullopt;
    return MountTableEntry{.mountPoint = decodeMountInfoToken(left.at(4)),
                           .fileSystemType = decodeMountInfoToken(right.at(0)),
                           .mountSource = decodeMountInfoToken(right.at(1))};
}

// A volume that isn't known yet: of each device the first one in the table.
void addMountTableEntry(const MountTableEntry &entry, Findings *found)
{
    if (!entry.mountSource.startsWith(QLatin1String("/dev/"))
        || found->knownMountPoints.contains(entry.mountPoint))
        return;

    const QString blockName = blockNameOf(entry.mountSource);
    if (found->knownDevices.contains(blockName))
        return;
    const bool usb = isUsbBlockDevice(blockName);
    const bool removable = isRemovableBlockDevice(blockName);
    if (!usb || isOpticalBlockDevice(blockName))
        return;

    const QStorageInfo info(entry.mountPoint);
    const bool rootKnown = info.isValid() && !info.rootPath().isEmpty();
    const QString root = rootKnown ? info.rootPath() : entry.mountPoint;
    found->addMounted({.id = QStringLiteral("%1:%2").arg(entry.mountSource, root),
                       .devicePath = entry.mountSource,
                       .label = labelOf(info, entry.mountSource, root),
                       .mountPoint = root,
                       .fileSystem = entry.fileSystemType.isEmpty()
                                         ? QString::fromUtf8(info.fileSystemType())
                                         : entry.fileSystemType,
                       .removable = removable,
                       .mounted = true});
}

// Volumes that Qt doesn't list. False if the table can't be opened.
bool addMountTableEntries(Findings *found)
{
    QFile file(QStringLiteral("/proc/self/mountinfo"));
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return false;

    QTextStream table(&file);
    // A /proc file has size zero, and atEnd() takes that for its end: test first, as the list
    // relies on it.
    while (!table.atEnd()) {
        if (const auto entry = parseMountTableLine(table.readLine()))
            addMountTableEntry(*entry, found);
    }
    return true;
}

// USB devices that aren't known to be mounted. A disk with partitions is represented by those.
void addBlockDevices(Findings *found)
{
    const QHash<QString, QString> labels = blockLabelMap();
    const QStringList names = subdirectories(QStringLiteral("/sys/class/block"));
    for (const QString &name : names) {
        if (found->knownDevices.contains(name) || !isUsbBlockDevice(name)
            || isOpticalBlockDevice(name))
            continue;
        if (parentDiskName(name) == name && hasPartitions(name))
            continue;

        const QString devicePath = QStringLiteral("/dev/%1").arg(name);
        const QString volumeLabel = labels.value(name);
        const QString label = volumeLabel.isEmpty() ? name : volumeLabel;
        const QString mountPoint = mountedRootForLabel(label);
        found->devices.append({.id = devicePath,
                               .devicePath = devicePath,
                               .label = label,
                               .mountPoint = mountPoint,
                               .fileSystem = {},
                               .removable = isRemovableBlockDevice(name),
                               .mounted = !mountPoint.isEmpty()});
    }
}

} // namespace

QList<UsbDevice> LinuxDeviceManager::detectUsbDevices() const
{
    Findings found;
    addMountedVolumes(&found);
    if (addMountTableEntries(&found))
        addBlockDevices(&found);
    return found.devices;
}

} // namespace Tessarine::Platform::Linux
