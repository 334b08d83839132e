#pragma once

#include <QFile>
#include <QString>

#include <sys/mount.h>

namespace TestSupport
{

// An empty file system in memory over an existing directory, until the end of the scope. Only for
// suites in a mount namespace of their own.
class TemporaryFileSystem
{
public:
    // options as for mount(8), such as "size=64k".
    explicit TemporaryFileSystem(const QString &directory, const char *options = "")
        : path(QFile::encodeName(directory))
    {
        // Without it the test would write where others do.
        if (mount("tmpfs", path.constData(), "tmpfs", 0, options) != 0)
            qFatal("No file system can be mounted over %s", path.constData());
    }
    ~TemporaryFileSystem() { umount2(path.constData(), MNT_DETACH); }

    void makeReadOnly() const
    {
        if (mount(nullptr, path.constData(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0)
            qFatal("%s can't be made read-only", path.constData());
    }

private:
    Q_DISABLE_COPY_MOVE(TemporaryFileSystem)
    QByteArray path;
};

} // namespace TestSupport
