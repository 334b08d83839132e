#pragma once

#include <QtGlobal>

#include <sys/resource.h>

namespace TestSupport
{

// Most memory that this process has had so far, in bytes.
inline qint64 peakMemory()
{
    struct rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss * qint64(1024);
}

} // namespace TestSupport
