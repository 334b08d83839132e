#include "deployment/CommandOutput.h"

#include <QProcess>

namespace Tessarine::Deployment
{

namespace
{

constexpr qint64 limit = 4'194'304; // bytes

void killBeyondLimit(QProcess *process, QProcess::ProcessChannel channel)
{
    process->setReadChannel(channel);
    if (process->bytesAvailable() > limit)
        process->kill();
}

} // namespace

void limitOutput(QProcess *process)
{
    QObject::connect(process, &QProcess::readyReadStandardOutput, process,
                     [process] { killBeyondLimit(process, QProcess::StandardOutput); });
    QObject::connect(process, &QProcess::readyReadStandardError, process,
                     [process] { killBeyondLimit(process, QProcess::StandardError); });
}

} // namespace Tessarine::Deployment
