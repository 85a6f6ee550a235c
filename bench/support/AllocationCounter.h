// Counts the process's heap allocations, so that a benchmark can report allocations per packet.
// Linking this replaces the global operator new of the whole program.
#pragma once

namespace zorbench {

// Allocations made through operator new since the program started.
long AllocationCount();

} // namespace zorbench
