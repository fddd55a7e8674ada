#pragma once

namespace heap {

// Returns the number of memory blocks that the process has allocated and not freed; -1 under a
// sanitizer, which has an allocator of its own and reports leaks itself.
long live_blocks();

// Returns the number of allocations so far, without the simulator's; -1 under a sanitizer.
long allocations();

}  // namespace heap
