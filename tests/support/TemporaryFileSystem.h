#pragma once

#include "tests/support/Missing.h"

#include <QFile>
#include <QString>

#include <sys/mount.h>

namespace TestSupport
{

// An empty file system in memory over an existing directory, until the end of the scope. Only for
// suites in a mount namespace of their own. Without it the test fails, and must write nothing
// there.
class TemporaryFileSystem
{
public:
    // options as for mount(8), such as "size=64k".
    explicit TemporaryFileSystem(const QString &directory, const char *options = "")
        : path(QFile::encodeName(directory))
        , mounted(mount("tmpfs", path.constData(), "tmpfs", 0, options) == 0)
    {
        if (!mounted)
            reportMissing(QStringLiteral("No file system can be mounted over ") + directory);
    }
    ~TemporaryFileSystem()
    {
        if (mounted)
            umount2(path.constData(), MNT_DETACH);
    }

    bool isMounted() const { return mounted; }

    void makeReadOnly() const
    {
        if (mount(nullptr, path.constData(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0)
            reportMissing(QString::fromUtf8(path) + QStringLiteral(" can't be made read-only"));
    }

private:
    Q_DISABLE_COPY_MOVE(TemporaryFileSystem)
    QByteArray path;
    bool mounted;
};

} // namespace TestSupport
