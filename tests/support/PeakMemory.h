#pragma once

#include <QtGlobal>

#include <sys/resource.h>

namespace TestSupport
{

// What AddressSanitizer keeps of freed memory, to notice who still uses it.
#ifdef __SANITIZE_ADDRESS__
inline constexpr qint64 freedMemoryKept = 268'435'456;
#else
inline constexpr qint64 freedMemoryKept = 0;
#endif

// Most memory that this process has had so far, in bytes.
inline qint64 peakMemory()
{
    struct rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss * qint64(1024);
}

} // namespace TestSupport
