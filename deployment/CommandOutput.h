#pragma once

#include <QtGlobal>

class QProcess;

namespace Tessarine::Deployment
{

// Kills the command once it has printed more than so many bytes that nobody has read: what it
// prints is kept in memory until it ends. `ldconfig -p` prints some hundred thousand. Call it
// before the command is started.
void limitOutput(QProcess *process, qint64 limit = 4'194'304);

} // namespace Tessarine::Deployment
