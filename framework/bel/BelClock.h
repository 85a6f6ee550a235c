// The one replaceable clock behind BelGetTime / BelDoubleTime.
// By default it reads the real monotonic clock. A test or an offline batch run switches it to a
// virtual clock that stands still until CBelMessageLoop::Advance moves it, so every
// time-dependent behaviour can be tested without sleeping.
#pragma once

// Milliseconds of the framework clock.
long BelGetTime();
// Seconds of the framework clock.
double BelDoubleTime();

// Switches to the virtual clock (which starts at the current reading, so time never jumps back)
// or back to the real clock.
void BelUseVirtualClock(bool useVirtual);
bool BelIsVirtualClock();
// Moves the virtual clock to an absolute reading in seconds; ignored unless virtual, and never
// moves it backwards. Callers normally go through CBelMessageLoop::Advance, which fires the timers
// that fall due on the way.
void BelSetVirtualTime(double seconds);
