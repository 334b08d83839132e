#include "tests/support/Machine.h"

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

// Writing to the real ones would change the machine that the tests run on.
void requirePrivateMachine()
{
    struct statfs status = {};
    if (statfs("/sys/class/block", &status) != 0 || status.f_type != TMPFS_MAGIC)
        qFatal("This suite runs under tools/virtual-drive");
}

void require(bool done, const QString &what)
{
    if (!done)
        qFatal("%s: %s", qPrintable(what), qPrintable(qt_error_string()));
}

void writeFile(const QString &path, const QByteArray &text)
{
    QFile file(path);
    require(file.open(QIODevice::WriteOnly) && file.write(text) == text.size(), path);
}

} // namespace

Machine::Machine()
{
    requirePrivateMachine();
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
    require(QFile::link(QStringLiteral("../../devices/%1").arg(place),
                        QStringLiteral("/sys/class/block/%1").arg(name)),
            place);

    // No driver has the number 0:0.
    const QString node = QStringLiteral("/dev/%1").arg(name);
    require(mknod(QFile::encodeName(node).constData(), S_IFBLK | 0600, 0) == 0, node);
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
    writeFile(path, text);
}

void Machine::addLabel(const QString &linkName, const QString &target)
{
    const QString directory = QStringLiteral("/dev/disk/by-label");
    addDirectory(directory);
    require(QFile::link(target, QStringLiteral("%1/%2").arg(directory, linkName)), linkName);
}

void Machine::addDirectory(const QString &path)
{
    require(QDir().mkpath(path), path);
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
    require(table.open(QIODevice::ReadOnly), table.fileName());
    return table.readAll();
}

void Machine::setMountTable(const QByteArray &text)
{
    const QString file = QStringLiteral("/run/mountinfo");
    writeFile(file, text);
    bind(file, QString::fromLatin1(mountTablePath));
}

void Machine::makeMountTableUnreadable()
{
    const QString node = QStringLiteral("/run/no-device");
    require(mknod(QFile::encodeName(node).constData(), S_IFBLK | 0600, 0) == 0, node);
    bind(node, QString::fromLatin1(mountTablePath));
}

void Machine::mountAt(const QString &source, const QString &target, const char *type,
                      unsigned long flags, const char *options)
{
    require(mount(QFile::encodeName(source).constData(), QFile::encodeName(target).constData(),
                  type, flags, options)
                == 0,
            target);
    mounts.append(target);
}

} // namespace TestSupport
