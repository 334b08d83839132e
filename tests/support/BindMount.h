#pragma once

#include "tests/support/Missing.h"

#include <QFile>

#include <sys/mount.h>

namespace TestSupport
{

// Lets a directory or file stand in the place of another one until the object goes. Needs
// TestMain.h's private mount namespace.
class BindMount
{
public:
    BindMount(const QString &source, const QString &place)
        : m_place(QFile::encodeName(place))
    {
        if (mount(QFile::encodeName(source).constData(), m_place.constData(), nullptr, MS_BIND,
                  nullptr)
            != 0)
            reportMissing(QStringLiteral("Can't bind ") + place);
    }
    ~BindMount() { umount2(m_place.constData(), MNT_DETACH); }
    BindMount(const BindMount &) = delete;
    BindMount &operator=(const BindMount &) = delete;

private:
    QByteArray m_place;
};

} // namespace TestSupport
