#pragma once

#include <QString>

#include <sys/types.h>

#include <optional>

class QSaveFile;

namespace Tessarine::Deployment
{

// Starts to bring the chunk just written, of so many bytes, to the medium, and waits until all of
// the file but its last onItsWay bytes, the chunk or more, is there (sync_file_range(2)). Called
// after each chunk of a file that has several, it lets a slow drive keep up with its writer,
// instead of leaving a whole file to the last sync. False when the medium failed. A file system
// that doesn't support it leaves all to commitFlushed().
bool writeBackChunk(QSaveFile *file, qint64 size, qint64 onItsWay);

// Puts a written QSaveFile in its place, like QSaveFile::commit(), but only when every byte that
// write() took has reached the medium: with Qt 6.4 commit() alone returns true when the last
// buffered bytes don't fit on the drive, or when the drive fails, and puts a cut file in the place
// of a good one. On FAT, and in another file's place on exFAT, it also syncs the file under its
// name. On false the old file still stands and no temporary file is left; only when that last sync
// has failed there is no file at all. A count short of what was given to write() is the caller's to
// notice.
bool commitFlushed(QSaveFile *file);

// Makes a directory, and those above it that are missing, like QDir::mkpath(), but where the
// directory above it can't be opened. On FAT and exFAT it is synced under a hidden name, which ends
// in a dot and six letters, before it gets its own, and again under that: a cut in between leaves
// either or both. On false neither is there.
bool makeDirectory(const QString &path);

// Whether there is a directory of another file system at the path, linked or mounted, or a link to
// a file or to nothing. A drive may come from anybody: what is written there would land among the
// host's files, take the place of a document of the user's, or be left out when the drive is
// synced.
bool leadsAstray(const QString &path);

// Tells whether what is written to a file system reaches its medium. Make it before the writing
// begins: Linux reports an error of the medium only to descriptors that were open when it occurred,
// and once to each (syncfs(2)).
class FileSystemSync
{
public:
    // Watches the file system that holds the directory, and keeps it from being unmounted.
    explicit FileSystemSync(const QString &directory);
    ~FileSystemSync();

    FileSystemSync(const FileSystemSync &) = delete;
    FileSystemSync &operator=(const FileSystemSync &) = delete;

    // Number of the file system (st_dev of stat(2)); none when the directory can't be read.
    std::optional<dev_t> fileSystem() const;

    // Whether the medium may have the name of a new directory before what stands in it, which the
    // kernel then refuses to read, or takes for what a deleted file left: so on FAT and exFAT.
    bool writesNamesFirst() const;

    // Waits until everything written to the file system is on the medium, past the drive's own
    // cache. False when anything written since the object was made is lost, or the directory could
    // not be read.
    bool sync();

    // As sync(), after a file or directory in or below this directory was given that name, as the
    // last change: a journal that could not be written is then seen too. On FAT a cut in between
    // leaves it under the old name, the new one or both.
    bool syncRenamed(const QString &name);

    // The system's words for what sync() failed with.
    QString errorString() const;

private:
    int m_descriptor;
    int m_error = 0;
};

} // namespace Tessarine::Deployment
