#include "tests/support/OwnClock.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <ctime>

namespace
{

std::atomic<int> secondsAhead = 0;

} // namespace

void TestSupport::advanceClock(int seconds)
{
    secondsAhead += seconds;
}

// Stands in front of the C library's function of that name.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
extern "C" int clock_gettime(clockid_t clock, timespec *time) noexcept
{
    const int result = static_cast<int>(syscall(SYS_clock_gettime, clock, time));
    if (clock == CLOCK_MONOTONIC)
        time->tv_sec += secondsAhead;
    return result;
}
