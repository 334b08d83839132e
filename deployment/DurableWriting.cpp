#include "deployment/DurableWriting.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QTemporaryDir>

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace Tessarine::Deployment
{

namespace
{

// Starts write-back of a range and waits until the medium has it; from 0, 0 bytes are all.
constexpr unsigned int writeAndWait =
    SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER;

// Type of the file system that holds an open file (statfs(2)); 0 when it can't be told.
long fileSystemType(int descriptor)
{
    struct statfs fileSystem = {};
    return fstatfs(descriptor, &fileSystem) == 0 ? static_cast<long>(fileSystem.f_type) : 0;
}

bool syncFile(int descriptor)
{
    return TEMP_FAILURE_RETRY(fsync(descriptor)) == 0;
}

// Judges a file before it gets its name, since commit() syncs it as well but doesn't look at what
// comes of that. On ext4 write-back finds a failing medium without a second commit of the journal,
// whose own failure makes the rename fail; elsewhere the file's size and place must be seen to
// arrive too.
bool reachesMedium(int descriptor, long fileSystem)
{
    return fileSystem == EXT4_SUPER_MAGIC ? sync_file_range(descriptor, 0, 0, writeAndWait) == 0
                                          : syncFile(descriptor);
}

// On FAT a renamed file's entry says what the replaced file's said, or nothing, until its inode is
// written again; on exFAT the replaced file's entry may be freed on the medium before the renamed
// one's is there. On both the replaced file's blocks are given away as soon as nobody has it open.
bool needsSyncUnderItsName(const QSaveFile &file, long fileSystem)
{
    return fileSystem == MSDOS_SUPER_MAGIC
           || (fileSystem == EXFAT_SUPER_MAGIC && QFile::exists(file.fileName()));
}

bool commitAndSync(QSaveFile *file)
{
    QFile replaced(file->fileName());
    replaced.open(QIODevice::ReadOnly);
    if (!file->commit())
        return false;
    QFile renamed(file->fileName());
    if (renamed.open(QIODevice::ReadOnly) && syncFile(renamed.handle()))
        return true;
    // What the medium may hold in part must not pass for a whole copy.
    renamed.remove();
    return false;
}

} // namespace

bool writeBackChunk(QSaveFile *file, qint64 size, qint64 onItsWay)
{
    const qint64 arrived = file->pos() - onItsWay;
    int result = sync_file_range(file->handle(), file->pos() - size, size, SYNC_FILE_RANGE_WRITE);
    if (result == 0 && arrived > 0)
        result = sync_file_range(file->handle(), 0, arrived, writeAndWait);
    return result == 0 || errno == ENOSYS || errno == EINVAL || errno == ESPIPE;
}

bool commitFlushed(QSaveFile *file)
{
    const long fileSystem = fileSystemType(file->handle());
    if (!file->flush() || !reachesMedium(file->handle(), fileSystem))
        file->cancelWriting();
    return needsSyncUnderItsName(*file, fileSystem) ? commitAndSync(file) : file->commit();
}

bool makeDirectory(const QString &path)
{
    const QFileInfo directory(QDir::cleanPath(path));
    if (path.isEmpty() || directory.exists() || directory.isSymLink())
        return directory.isDir();
    const QDir parent = directory.absoluteDir();
    if (!makeDirectory(parent.path()))
        return false;
    FileSystemSync drive(parent.path());
    if (!drive.fileSystem())
        return false;
    if (!drive.writesNamesFirst())
        return QDir().mkdir(directory.filePath());
    // Hidden, so that a later walk doesn't come upon what a cut left of it: on FAT a look at that
    // is enough for the kernel to turn the drive read-only.
    QTemporaryDir synced(parent.filePath(QStringLiteral(".%1.XXXXXX").arg(directory.fileName())));
    if (!synced.isValid() || !drive.sync() || !QDir().rename(synced.path(), directory.filePath()))
        return false;
    synced.setAutoRemove(false);
    if (drive.syncRenamed(directory.fileName()))
        return true;
    QDir().rmdir(directory.filePath());
    return false;
}

bool leadsAstray(const QString &path)
{
    const QByteArray name = QFile::encodeName(path);
    struct stat entry = {};
    struct stat target = {};
    if (lstat(name.constData(), &entry) != 0)
        return false;
    if (stat(name.constData(), &target) != 0)
        return true;
    if (!S_ISDIR(target.st_mode))
        return S_ISLNK(entry.st_mode);
    // Asked of directories alone: on an overlay only they all have its own number.
    const QByteArray directory = QFile::encodeName(QFileInfo(path).absolutePath());
    struct stat home = {};
    return stat(directory.constData(), &home) != 0 || target.st_dev != home.st_dev;
}

FileSystemSync::FileSystemSync(const QString &directory)
    : m_descriptor(
        open(QFile::encodeName(directory).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
{
}

FileSystemSync::~FileSystemSync()
{
    if (m_descriptor >= 0)
        close(m_descriptor);
}

std::optional<dev_t> FileSystemSync::fileSystem() const
{
    struct stat directory = {};
    if (fstat(m_descriptor, &directory) != 0)
        return std::nullopt;
    return directory.st_dev;
}

bool FileSystemSync::writesNamesFirst() const
{
    const long fileSystem = fileSystemType(m_descriptor);
    return fileSystem == MSDOS_SUPER_MAGIC || fileSystem == EXFAT_SUPER_MAGIC;
}

bool FileSystemSync::sync()
{
    // On FAT syncfs(2) writes everything but leaves it in the drive's cache; fsync(2) empties that.
    const bool synced = TEMP_FAILURE_RETRY(syncfs(m_descriptor)) == 0 && syncFile(m_descriptor);
    if (!synced)
        m_error = errno;
    return synced;
}

bool FileSystemSync::syncRenamed(const QString &name)
{
    // On FAT the new entry and the freed old one are often in different sectors, and the new one
    // doesn't say where the file lies until its inode is written. Syncing what was renamed writes
    // the new one alone; syncfs(2) may begin with the other. On ext4 syncfs(2) waits for the
    // journal, but doesn't say that it could not be written, as fsync(2) does.
    // A pipe that somebody has put on the drive would be waited for without O_NONBLOCK.
    const int renamed = openat(m_descriptor, QFile::encodeName(name).constData(),
                               O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    const bool synced = renamed >= 0 && syncFile(renamed);
    if (!synced)
        m_error = errno;
    if (renamed >= 0)
        close(renamed);
    return synced && sync();
}

QString FileSystemSync::errorString() const
{
    return QString::fromLocal8Bit(std::system_category().message(m_error));
}

} // namespace Tessarine::Deployment
