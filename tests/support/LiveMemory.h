#pragma once

#include <QTimer>

#ifdef __SANITIZE_ADDRESS__
// From sanitizer/allocator_interface.h, which comes with clang alone.
extern "C" size_t __sanitizer_get_current_allocated_bytes();
#else
#include <malloc.h>
#endif

#include <algorithm>
#include <cstddef>

namespace TestSupport
{

// Bytes on the heap that this program has allocated and not freed. What the allocator keeps for
// later isn't among them, nor does it matter when the kernel takes memory back.
inline qint64 liveMemory()
{
#ifdef __SANITIZE_ADDRESS__
    return static_cast<qint64>(__sanitizer_get_current_allocated_bytes());
#else
    const struct mallinfo2 heap = mallinfo2();
    return static_cast<qint64>(heap.uordblks + heap.hblkhd);
#endif
}

// Looks at the heap at each turn of the event loop until the object goes.
class LiveMemoryWatch
{
public:
    LiveMemoryWatch()
    {
        QObject::connect(&m_timer, &QTimer::timeout,
                         [this] { m_peak = std::max(m_peak, liveMemory()); });
        m_timer.start(0);
    }

    // Most bytes at any turn so far, beyond those that were there when the object was made.
    qint64 growth() const { return m_peak - m_before; }

private:
    qint64 m_before = liveMemory();
    qint64 m_peak = m_before;
    QTimer m_timer;
};

} // namespace TestSupport
