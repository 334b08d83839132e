#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <functional>

namespace TestSupport
{

// A machine with the block devices, labels and mounted volumes that a test gives it, where programs
// look for them: /sys, /dev, /media, /mnt, /run and the mount table. It begins with none, and takes
// all of them away at its end. One at a time, in a suite marked MACHINE.
//
// The user is called ana: USER says so, and LOGNAME isn't set.
class Machine
{
public:
    Machine();
    ~Machine();
    Q_DISABLE_COPY_MOVE(Machine)

    // A device at a place below /sys/devices, such as "pci0000:00/usb2/2-1/block/sdb", with its
    // link in /sys/class/block and a node in /dev that can't be opened.
    void addBlockDevice(const QString &place);
    // A removable disk, with a partition table if it has partitions.
    void addUsbDisk(const QString &name, const QStringList &partitions = {});
    // Writes a file of sysfs, such as "removable" or "device/type".
    void setAttribute(const QString &blockName, const QString &attribute, const QByteArray &text);
    // A link in /dev/disk/by-label, which doesn't exist without one.
    void addLabel(const QString &linkName, const QString &target);

    void addDirectory(const QString &path);
    // An empty file system, with that text for its device.
    void mountVolume(const QString &device, const QString &directory);
    // Shows a directory or a file at a second place as well.
    void bind(const QString &existing, const QString &place);

    // What reading /proc/self/mountinfo gives.
    QByteArray mountTable() const;
    // What it gives from now on. It is then a file with a size.
    void setMountTable(const QByteArray &text);
    // Opening /proc/self/mountinfo fails from now on, as root too.
    void makeMountTableUnreadable();

private:
    bool change(const QString &what, const std::function<bool()> &act) const;
    void addLink(const QString &link, const QString &target);
    bool addUnusableNode(const QString &path);
    void mountAt(const QString &source, const QString &target, const char *type,
                 unsigned long flags, const char *options);

    const bool isOwn;
    QStringList mounts; // in the order in which they were made
    QStringList nodes;
};

} // namespace TestSupport
