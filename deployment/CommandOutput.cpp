#include "deployment/CommandOutput.h"

#include <QProcess>

namespace Tessarine::Deployment
{

namespace
{

void killBeyondLimit(QProcess *process, QProcess::ProcessChannel channel, qint64 limit)
{
    process->setReadChannel(channel);
    if (process->bytesAvailable() > limit)
        process->kill();
}

} // namespace

void limitOutput(QProcess *process, qint64 limit)
{
    QObject::connect(process, &QProcess::readyReadStandardOutput, process, [process, limit] {
        killBeyondLimit(process, QProcess::StandardOutput, limit);
    });
    QObject::connect(process, &QProcess::readyReadStandardError, process, [process, limit] {
        killBeyondLimit(process, QProcess::StandardError, limit);
    });
}

} // namespace Tessarine::Deployment
