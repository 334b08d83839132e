#pragma once

#include "tests/support/BindMount.h"
#include "tests/support/Drive.h"
#include "tests/support/StubCommand.h"

#include <QLibraryInfo>
#include <QTest>

namespace
{

inline QString qtPlugins()
{
    return QLibraryInfo::path(QLibraryInfo::PluginsPath);
}

// An empty directory in the place of Qt's own plugins until the object goes.
class QtPlugins : public TestSupport::Drive
{
    TestSupport::BindMount m_place{path(), qtPlugins()};
};

// A script that prints the lines.
inline QByteArray printing(const QStringList &lines)
{
    return "cat <<'END'\n" + lines.join(u'\n').toLocal8Bit() + "\nEND";
}

// Commands that answer in the ways that end in a failure.
inline void addFailingCommands()
{
    QTest::addColumn<QByteArray>("script");
    QTest::newRow("exits with a failure") << QByteArray("echo '\tlib => /bin/sh'; exit 1");
    QTest::newRow("crashes") << QByteArray("echo '\tlib => /bin/sh'; kill -SEGV $$");
    QTest::newRow("says it on the wrong channel")
        << QByteArray("echo '\tlibssl.so.3 (libc6) => /bin/sh' >&2; exit 2");
}

} // namespace
