#include "deployment/DurableWriting.h"

#include <QFile>
#include <QSaveFile>

#include <fcntl.h>
#include <unistd.h>

namespace Tessarine::Deployment
{

bool commitFlushed(QSaveFile *file)
{
    // commit() flushes and syncs as well, but doesn't look at what comes of it.
    if (!file->flush() || fsync(file->handle()) != 0)
        file->cancelWriting();
    return file->commit();
}

void syncFileSystem(const QString &path)
{
    const int descriptor = open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        return;
    syncfs(descriptor);
    close(descriptor);
}

} // namespace Tessarine::Deployment
