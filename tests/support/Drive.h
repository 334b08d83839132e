#pragma once

#include "tests/support/Missing.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStorageInfo>
#include <QTemporaryDir>

#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>
#include <memory>

namespace TestSupport
{

// A place for a test's files, gone with the object: a temporary directory, or a file system of its
// own on one. Those need TestMain.h's private mount namespace. Sizes are in bytes.
class Drive
{
public:
    Drive()
    {
        if (!m_directory.isValid())
            reportMissing(QStringLiteral("No temporary directory: ") + m_directory.errorString());
        // Children without privileges must get in too.
        QFile::setPermissions(m_directory.path(), QFile::permissions(m_directory.path())
                                                      | QFile::ReadOther | QFile::ExeOther);
    }

    ~Drive()
    {
        if (m_isMounted)
            umount2(QFile::encodeName(path()).constData(), MNT_DETACH);
    }

    Drive(const Drive &) = delete;
    Drive &operator=(const Drive &) = delete;

    // A file system in memory; 4096 bytes are its smallest unit.
    static Drive tmpfs(qint64 size) { return Drive(size); }

    // A real file system in a file, with 5 % of its room kept for root. A medium shorter than the
    // size fails when it is written to beyond that, as a broken or unplugged drive does: not when a
    // file is written, but later.
    static Drive ext4(qint64 size) { return Drive(size, size + 1'048'576); }
    static Drive ext4OnShortMedium(qint64 size, qint64 mediumSize)
    {
        return Drive(size, mediumSize);
    }

    // Path of a file on the drive, or of the drive's root.
    QString path(const QString &name = {}) const
    {
        const QString root =
            m_directory.path() + (m_isMounted ? QStringLiteral("/drive") : QString());
        return name.isEmpty() ? root : root + u'/' + name;
    }

    // Writes a file, and the directories above it, and returns its path.
    QString write(const QString &name, const QByteArray &contents) const
    {
        makeDirectory(QFileInfo(name).path());
        QFile file(path(name));
        if (!file.open(QIODevice::WriteOnly) || file.write(contents) != contents.size()
            || !file.flush())
            reportMissing(file.fileName() + QStringLiteral(": ") + file.errorString());
        return path(name);
    }

    // Writes a file of that length without its blocks.
    QString writeSparse(const QString &name, qint64 size) const
    {
        write(name, {});
        QFile::resize(path(name), size);
        return path(name);
    }

    QString makeDirectory(const QString &name) const
    {
        QDir().mkpath(path(name));
        return path(name);
    }

    // Makes a symbolic link with that very text, which may lead nowhere, and returns its path.
    QString link(const QString &name, const QString &target) const
    {
        makeDirectory(QFileInfo(name).path());
        if (!QFile::link(target, path(name)))
            reportMissing(QStringLiteral("Can't link ") + path(name));
        return path(name);
    }

    // Empty for an absent file too.
    QByteArray read(const QString &name) const
    {
        QFile file(path(name));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    bool exists(const QString &name) const { return QFileInfo::exists(path(name)); }

    // Every entry below the root, hidden ones and names that are no UTF-8 too, sorted:
    // "directory/", "link -> target", "file: contents" (size and a hash of contents of more than
    // 80 bytes), "pipe: no file".
    QStringList tree(const QString &below = {}) const
    {
        return listing(below, [](const std::filesystem::path &file) {
            return QStringLiteral(": ") + describe(file);
        });
    }

    // The same without the contents of files.
    QStringList names(const QString &below = {}) const
    {
        return listing(below, [](const std::filesystem::path &) { return QString(); });
    }

    qint64 bytesFree() const { return QStorageInfo(path()).bytesAvailable(); }

    // Takes the drive's room away with a file, all but so many bytes. Never that of the machine.
    void fill(qint64 rest = 0, const QString &name = QStringLiteral("fill")) const
    {
        if (!m_isMounted)
            return reportMissing(QStringLiteral("Only a drive of its own can be filled"));
        QFile file(path(name));
        file.open(QIODevice::WriteOnly | QIODevice::Unbuffered);
        const QByteArray block(4096, 'f');
        while (bytesFree() > rest && file.write(block) == block.size()) {
        }
    }

    void makeReadOnly() const { remount(MS_RDONLY); }
    void forbidExecution() const { remount(MS_NOEXEC); }

    // Takes an ext4 drive's medium away, as pulling the drive does: nothing can be read any more
    // but what the cache holds, and nothing written.
    void loseMedium() const
    {
        // A write that is under way takes room for itself again: the second time there is none.
        for (const QString &name : {QStringLiteral("fill"), QStringLiteral("rest")}) {
            QFile::resize(m_medium->path(QStringLiteral("image")), 0);
            m_medium->fill(0, name);
        }
    }

    // Makes an ext4 drive's medium refuse whatever it hasn't held before, and gives it enough of
    // that kind to write: the next sync fails. What the drive held stays readable and writable. The
    // drive has 16 MiB at least.
    void failNextSync() const
    {
        m_medium->fill();
        write(QStringLiteral("lost"), QByteArray(6'291'456, 'x'));
    }

    // Forces the next reading of a file to the medium.
    void dropCache(const QString &name) const
    {
        QFile file(path(name));
        file.open(QIODevice::ReadOnly);
        fsync(file.handle());
        posix_fadvise(file.handle(), 0, 0, POSIX_FADV_DONTNEED);
    }

    // What an ext4 drive's medium holds.
    QByteArray medium() const { return m_medium->read(QStringLiteral("image")); }

    // Makes root's files those of the user as which asUnprivileged() runs.
    void giveAway() const
    {
        run(QStringLiteral("/usr/bin/chown"),
            {QStringLiteral("-R"), QStringLiteral("nobody"), path()});
    }

private:
    explicit Drive(qint64 size)
        : Drive()
    {
        mountWith({QStringLiteral("-t"), QStringLiteral("tmpfs"), QStringLiteral("-o"),
                   QStringLiteral("size=%1").arg(size), QStringLiteral("tmpfs")});
    }

    Drive(qint64 size, qint64 mediumSize)
        : Drive()
    {
        m_medium.reset(new Drive(mediumSize));
        const QString image = m_medium->writeSparse(QStringLiteral("image"), size);
        run(QStringLiteral("/usr/sbin/mkfs.ext4"),
            {QStringLiteral("-q"), QStringLiteral("-O"), QStringLiteral("^has_journal"), image});
        mountWith({QStringLiteral("-o"), QStringLiteral("loop"), image});
    }

    void mountWith(QStringList arguments)
    {
        const QString place = m_directory.filePath(QStringLiteral("drive"));
        QDir().mkpath(place);
        m_isMounted = run(QStringLiteral("/usr/bin/mount"), arguments << place);
    }

    void remount(unsigned long flags) const
    {
        const QByteArray root = QFile::encodeName(path());
        if (mount(nullptr, root.constData(), nullptr, MS_REMOUNT | flags, nullptr) != 0)
            reportMissing(QStringLiteral("Can't remount ") + path());
    }

    // What the program itself says is shown beside it.
    static bool run(const QString &program, const QStringList &arguments)
    {
        const bool done = QProcess::execute(program, arguments) == 0;
        if (!done)
            reportMissing(program + u' ' + arguments.join(u' ') + QStringLiteral(" failed"));
        return done;
    }

    static QString describe(const std::filesystem::path &path)
    {
        // A pipe would be waited for, and a device may have no end.
        if (!is_regular_file(path))
            return QStringLiteral("no file");
        QFile file;
        file.open(open(path.c_str(), O_RDONLY | O_CLOEXEC), QIODevice::ReadOnly,
                  QFile::AutoCloseHandle);
        if (file.size() <= 80)
            return QString::fromUtf8(file.readAll());
        QCryptographicHash hash(QCryptographicHash::Md5);
        hash.addData(&file);
        return QStringLiteral("%1 bytes, %2")
            .arg(QString::number(file.size()), QString::fromLatin1(hash.result().toHex()));
    }

    template <typename Describe>
    QStringList listing(const QString &below, const Describe &contents) const
    {
        using Walk = std::filesystem::recursive_directory_iterator;
        const auto text = [](const std::filesystem::path &path) {
            return QFile::decodeName(path.c_str());
        };
        QStringList lines;
        const std::filesystem::path root(QFile::encodeName(path(below)).toStdString());
        std::error_code error;
        for (Walk entry(root, std::filesystem::directory_options::skip_permission_denied, error);
             entry != Walk(); entry.increment(error)) {
            const QString name = text(entry->path().lexically_relative(root));
            if (entry->is_symlink(error))
                lines << name + QStringLiteral(" -> ") + text(read_symlink(entry->path(), error));
            else
                lines << name
                             + (entry->is_directory(error) ? QStringLiteral("/")
                                                           : contents(entry->path()));
        }
        lines.sort();
        return lines;
    }

    QTemporaryDir m_directory;
    std::unique_ptr<Drive> m_medium;
    bool m_isMounted = false;
};

} // namespace TestSupport
