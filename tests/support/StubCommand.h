#pragma once

#include "tests/support/Drive.h"

namespace TestSupport
{

// Sets PATH, on which commands are looked up, until the object goes.
class SearchPath
{
public:
    explicit SearchPath(const QString &directories)
    {
        qputenv("PATH", QFile::encodeName(directories));
    }
    ~SearchPath() { qputenv("PATH", m_before); }
    SearchPath(const SearchPath &) = delete;
    SearchPath &operator=(const SearchPath &) = delete;

private:
    QByteArray m_before = qgetenv("PATH");
};

// Lets a shell script stand first on PATH under a command's name until the object goes.
class StubCommand
{
public:
    StubCommand(const QString &name, const QByteArray &script)
        : m_path(m_directory.path() + u':' + QFile::decodeName(qgetenv("PATH")))
    {
        const QString file = m_directory.write(name, "#!/bin/sh\n" + script + '\n');
        QFile::setPermissions(file, QFile::permissions(file) | QFile::ExeOwner | QFile::ExeUser
                                        | QFile::ExeGroup | QFile::ExeOther);
    }

    // Directory of the script, where it may leave a trace of its calls.
    const Drive &directory() const { return m_directory; }

private:
    Drive m_directory;
    SearchPath m_path;
};

} // namespace TestSupport
