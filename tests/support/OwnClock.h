#pragma once

namespace TestSupport
{

// Lets this process believe that so many seconds more have passed since it began: every timer that
// runs out within them does so. Only ever forwards. The suite links the library own_clock.
void advanceClock(int seconds);

} // namespace TestSupport
