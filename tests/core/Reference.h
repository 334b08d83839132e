#pragma once

#include "tests/support/Waiting.h"

#include <QByteArray>
#include <QProcess>
#include <QStringList>

namespace TestSupport
{

// What an independent program computes: its standard output, null when it fails.
inline QByteArray outputOf(const QString &program, const QStringList &arguments,
                           const QByteArray &input = {})
{
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(program, arguments);
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(longestWait) || process.exitStatus() != QProcess::NormalExit
        || process.exitCode() != 0)
        return {};
    return process.readAllStandardOutput();
}

// The same for a line of Python that reads its arguments from `argv` and writes its result, bytes,
// with `out`.
inline QByteArray outputOfPython(const QString &line, const QStringList &arguments,
                                 const QByteArray &input = {})
{
    const QString script =
        QStringLiteral("import hashlib, hmac; from sys import argv, stdin, stdout; "
                       "out = stdout.buffer.write; ");
    return outputOf(QStringLiteral("/usr/bin/python3"),
                    QStringList{QStringLiteral("-c"), script + line} + arguments, input);
}

inline QString hex(const QByteArray &bytes)
{
    return QString::fromLatin1(bytes.toHex());
}

} // namespace TestSupport
