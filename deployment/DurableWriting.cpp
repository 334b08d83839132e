#include "deployment/DurableWriting.h"

#include <QFile>
#include <QSaveFile>

#include <fcntl.h>
#include <unistd.h>

namespace Tessarine::Deployment
{

bool commitFlushed(QSaveFile *file)
{
    if (!file->flush())
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
