#pragma once

namespace TestSupport
{

// How long a test waits for what must come, in milliseconds. Only what hangs takes that long, on a
// busy machine too. Qt Test itself ends a test after five minutes, and can't say what it lacked.
constexpr int longestWait = 240'000;

} // namespace TestSupport
