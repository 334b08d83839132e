#pragma once

#include <QString>

class QSaveFile;

namespace Tessarine::Deployment
{

// Puts a written QSaveFile in its place, like QSaveFile::commit(), but only when every byte that
// write() took has reached the medium (fsync(2)). With Qt 6.4 commit() alone returns true when the
// last buffered bytes don't fit on the drive, or when the drive fails, and puts a cut file in the
// place of a good one. On false the old file still stands and no temporary file is left. A count
// short of what was given to write() is the caller's to notice.
bool commitFlushed(QSaveFile *file);

// Waits until everything written to the file system that holds the path is on the medium
// (syncfs(2)). Best effort: a failure isn't reported.
void syncFileSystem(const QString &path);

} // namespace Tessarine::Deployment
