#pragma once

#include <QFile>
#include <QStringList>

#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

namespace TestSupport
{

// The user without rights of its own as which asUnprivileged() runs.
constexpr uid_t unprivilegedUser = 65534;

// Runs a function in a forked child of this process, so that what it changes or uses up is gone
// with it, and returns the lines that it reports.
inline QStringList inChild(const std::function<QStringList()> &function)
{
    int ends[2] = {-1, -1};
    if (pipe(ends) != 0)
        return {QStringLiteral("no pipe")};
    const pid_t child = fork();
    if (child == 0) {
        QFile report;
        report.open(ends[1], QIODevice::WriteOnly);
        report.write(function().join(u'\n').toUtf8());
        report.close();
        _exit(0); // the parent's objects are the parent's to destroy
    }
    close(ends[1]);
    QFile report;
    report.open(ends[0], QIODevice::ReadOnly, QFile::AutoCloseHandle);
    const QString lines = QString::fromUtf8(report.readAll());
    int status = 0;
    waitpid(child, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return {QStringLiteral("the child failed")};
    return lines.split(u'\n');
}

// The same in a child that has given up the privileges that root has over permissions.
inline QStringList asUnprivileged(const std::function<QStringList()> &function)
{
    return inChild([&function]() -> QStringList {
        if (setgroups(0, nullptr) != 0 || setgid(unprivilegedUser) != 0
            || setuid(unprivilegedUser) != 0)
            return {QStringLiteral("privileges couldn't be given up")};
        return function();
    });
}

} // namespace TestSupport
