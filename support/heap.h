#pragma once

namespace heap {

// Blocks of memory that the process has and has not given back; -1 under a sanitizer, which has its
// own allocator and looks for lost blocks itself.
long live_blocks();

// Allocations so far, without the simulator's own; -1 under a sanitizer.
long allocations();

}  // namespace heap
