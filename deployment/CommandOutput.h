#pragma once

class QProcess;

namespace Tessarine::Deployment
{

// Kills the command once it has printed more than 4 MiB that nobody has read: what it prints is
// kept in memory until it ends. `ldconfig -p` prints some hundred thousand bytes, `unzip` 56 for
// each file whose permissions it can't change. Call it before the command is started.
void limitOutput(QProcess *process);

} // namespace Tessarine::Deployment
