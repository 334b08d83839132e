#pragma once

#include "tests/support/Missing.h"

#include <QFile>

namespace TestSupport
{

// What AddressSanitizer keeps of freed memory, to notice who still uses it.
#ifdef __SANITIZE_ADDRESS__
inline constexpr qint64 freedMemoryKept = 268'435'456;
#else
inline constexpr qint64 freedMemoryKept = 0;
#endif

// How far this process grows, at its peak, beyond what it holds when the object is made (proc(5)).
class PeakMemoryWatch
{
public:
    PeakMemoryWatch()
    {
        QFile peak(QStringLiteral("/proc/self/clear_refs"));
        // The peak begins anew at what is in memory now.
        if (!peak.open(QIODevice::WriteOnly | QIODevice::Unbuffered) || peak.write("5") != 1)
            reportMissing(QStringLiteral("No peak of the memory: ") + peak.errorString());
        m_before = bytesOf("VmRSS:");
    }

    qint64 growth() const { return bytesOf("VmHWM:") - m_before; }

private:
    static qint64 bytesOf(const QByteArray &field)
    {
        QFile status(QStringLiteral("/proc/self/status"));
        status.open(QIODevice::ReadOnly);
        const QByteArray text = status.readAll();
        const QByteArray rest = text.mid(text.indexOf(field) + field.size()).trimmed();
        return rest.left(rest.indexOf(' ')).toLongLong() * 1024;
    }

    qint64 m_before;
};

} // namespace TestSupport
