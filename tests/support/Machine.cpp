#include "tests/support/Machine.h"

#include "tests/support/Missing.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <linux/magic.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/vfs.h>

namespace TestSupport
{

namespace
{

const char mountTablePath[] = "/proc/self/mountinfo";

bool isMachineOfItsOwn()
{
    struct statfs status = {};
    return statfs("/sys/class/block", &status) == 0 && status.f_type == TMPFS_MAGIC;
}

bool writeFile(const QString &path, const QByteArray &text)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(text) == text.size();
}

} // namespace

Machine::Machine()
    : isOwn(isMachineOfItsOwn())
{
    if (!isOwn)
        reportMissing(QStringLiteral("A machine of its own: this suite runs under "
                                     "tools/virtual-drive"));
    for (const char *directory :
         {"/sys/devices", "/sys/class/block", "/dev/disk", "/media", "/mnt", "/run"})
        mountVolume(QStringLiteral("none"), QString::fromLatin1(directory));
    qputenv("USER", "ana");
    qunsetenv("LOGNAME");
}

Machine::~Machine()
{
    while (!mounts.isEmpty())
        umount2(QFile::encodeName(mounts.takeLast()).constData(), MNT_DETACH);
    for (const QString &node : std::as_const(nodes))
        QFile::remove(node);
}

void Machine::addBlockDevice(const QString &place)
{
    const QString name = QFileInfo(place).fileName();
    addDirectory(QStringLiteral("/sys/devices/%1").arg(place));
    addLink(QStringLiteral("/sys/class/block/%1").arg(name),
            QStringLiteral("../../devices/%1").arg(place));
    const QString node = QStringLiteral("/dev/%1").arg(name);
    if (addUnusableNode(node))
        nodes.append(node);
}

void Machine::addUsbDisk(const QString &name, const QStringList &partitions)
{
    const QString place = QStringLiteral("pci0000:00/usb2/2-1/host-of-%1/block/%1").arg(name);
    addBlockDevice(place);
    setAttribute(name, QStringLiteral("removable"), "1\n");
    setAttribute(name, QStringLiteral("device/type"), "0\n");
    for (const QString &partition : partitions)
        addBlockDevice(QStringLiteral("%1/%2").arg(place, partition));
}

void Machine::setAttribute(const QString &blockName, const QString &attribute,
                           const QByteArray &text)
{
    const QString path = QStringLiteral("/sys/class/block/%1/%2").arg(blockName, attribute);
    addDirectory(QFileInfo(path).path());
    change(path, [&] { return writeFile(path, text); });
}

void Machine::addLabel(const QString &linkName, const QString &target)
{
    const QString directory = QStringLiteral("/dev/disk/by-label");
    addDirectory(directory);
    addLink(QStringLiteral("%1/%2").arg(directory, linkName), target);
}

void Machine::addDirectory(const QString &path)
{
    change(path, [&] { return QDir().mkpath(path); });
}

void Machine::mountVolume(const QString &device, const QString &directory)
{
    addDirectory(directory);
    mountAt(device, directory, "tmpfs", 0, "size=1M,mode=755");
}

void Machine::bind(const QString &existing, const QString &place)
{
    mountAt(existing, place, nullptr, MS_BIND, nullptr);
}

QByteArray Machine::mountTable() const
{
    QFile table(QString::fromLatin1(mountTablePath));
    if (!table.open(QIODevice::ReadOnly))
        reportMissing(table.fileName() + QStringLiteral(": ") + table.errorString());
    return table.readAll();
}

void Machine::setMountTable(const QByteArray &text)
{
    const QString file = QStringLiteral("/run/mountinfo");
    change(file, [&] { return writeFile(file, text); });
    bind(file, QString::fromLatin1(mountTablePath));
}

void Machine::makeMountTableUnreadable()
{
    const QString node = QStringLiteral("/run/no-device");
    addUnusableNode(node);
    bind(node, QString::fromLatin1(mountTablePath));
}

// The machine that the tests run on is never changed.
bool Machine::change(const QString &what, const std::function<bool()> &act) const
{
    const bool done = isOwn && act();
    if (isOwn && !done)
        reportMissing(what + QStringLiteral(": ") + qt_error_string());
    return done;
}

void Machine::addLink(const QString &link, const QString &target)
{
    change(link, [&] { return QFile::link(target, link); });
}

bool Machine::addUnusableNode(const QString &path)
{
    // No driver has the number 0:0.
    return change(
        path, [&] { return mknod(QFile::encodeName(path).constData(), S_IFBLK | 0600, 0) == 0; });
}

void Machine::mountAt(const QString &source, const QString &target, const char *type,
                      unsigned long flags, const char *options)
{
    const bool isMounted = change(target, [&] {
        return mount(QFile::encodeName(source).constData(), QFile::encodeName(target).constData(),
                     type, flags, options)
               == 0;
    });
    if (isMounted)
        mounts.append(target);
}

} // namespace TestSupport
