#pragma once

namespace TestSupport
{

// How long a test waits for what must come, in milliseconds. Only what hangs takes that long, on a
// busy machine too. Qt Test's own watchdog, after five minutes, can't say what was lacking.
constexpr int longestWait = 240'000;

} // namespace TestSupport
