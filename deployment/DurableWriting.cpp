#include "deployment/DurableWriting.h"

#include <QFile>
#include <QSaveFile>

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

bool isFat(int descriptor)
{
    return fileSystemType(descriptor) == MSDOS_SUPER_MAGIC;
}

// Where the kernel itself writes a file's pages to a block device, write-back reports every byte
// that the medium refused.
bool reportsWriteBack(int descriptor)
{
    const long type = fileSystemType(descriptor);
    return type == MSDOS_SUPER_MAGIC || type == EXFAT_SUPER_MAGIC || type == EXT4_SUPER_MAGIC;
}

bool syncFile(int descriptor)
{
    return TEMP_FAILURE_RETRY(fsync(descriptor)) == 0;
}

// Judges the bytes of a file before it gets its name. commit() syncs the file as well, without a
// look at the result; write-back finds a failing medium without paying for a second flush of the
// drive's cache.
bool reachesMedium(int descriptor)
{
    return reportsWriteBack(descriptor) ? sync_file_range(descriptor, 0, 0, writeAndWait) == 0
                                        : syncFile(descriptor);
}

bool syncNamed(const QString &path)
{
    const int descriptor = open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        return false;
    const bool synced = syncFile(descriptor);
    close(descriptor);
    return synced;
}

} // namespace

bool writeBackChunk(QSaveFile *file, qint64 size)
{
    const qint64 begin = file->pos() - size;
    int result = sync_file_range(file->handle(), begin, size, SYNC_FILE_RANGE_WRITE);
    if (result == 0 && begin > 0)
        result = sync_file_range(file->handle(), 0, begin, writeAndWait);
    return result == 0 || errno == ENOSYS || errno == EINVAL || errno == ESPIPE;
}

bool commitFlushed(QSaveFile *file)
{
    const bool onFat = isFat(file->handle());
    if (!file->flush() || !reachesMedium(file->handle()))
        file->cancelWriting();
    if (!file->commit())
        return false;
    // A renamed file is empty on FAT's medium until its inode is written again. Unless that is
    // known to have happened, it must not pass for a whole copy.
    if (!onFat || syncNamed(file->fileName()))
        return true;
    QFile::remove(file->fileName());
    return false;
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

bool FileSystemSync::sync()
{
    // On FAT syncfs(2) writes everything but leaves it in the drive's cache; fsync(2) empties that.
    const bool synced = TEMP_FAILURE_RETRY(syncfs(m_descriptor)) == 0 && syncFile(m_descriptor);
    if (!synced)
        m_error = errno;
    return synced;
}

QString FileSystemSync::errorString() const
{
    return QString::fromLocal8Bit(std::system_category().message(m_error));
}

} // namespace Tessarine::Deployment
