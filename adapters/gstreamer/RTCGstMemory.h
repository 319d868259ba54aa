// What a call's media leaves in the C allocator.
//
// A call's video frames and codec buffers are large blocks (a 640x480 frame
// is 450 KiB) allocated and freed by streaming threads that come and go with
// each call. glibc raises its mmap threshold to the size of the first such
// block it frees, so from then on they come from the arenas of those threads;
// with an arena per core and more, each arena keeps its high-water mark once
// the call ends, and the process grows by tens of MiB per call for its first
// calls (measured: +170 MiB over 10 calls) although nothing stays allocated.
#pragma once

namespace RTCGstMemory {

/// Once, when the engine is made: keeps glibc's mmap threshold where it
/// starts (128 KiB), so that large media blocks are mapped and given back to
/// the system when freed instead of settling in the arenas, and allows one
/// arena per core (at least two) instead of eight. No effect with another C
/// library.
void configure();

/// At a call's tear-down, once its pipeline is freed: gives the free pages
/// of every arena back to the system.
void release();

}  // namespace RTCGstMemory
