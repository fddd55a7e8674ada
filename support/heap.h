#pragma once

namespace heap {

// Returns the number of memory blocks that the process has allocated and not freed; -1 under a
// sanitizer, which has an allocator of its own and reports leaks itself.
long live_blocks();

// Returns the number of allocations so far, without the simulator's; -1 under a sanitizer.
long allocations();

// Lets the allocation number `nth` from now on (1 is the next one, outside the simulator) fail
// once; 0 lets none fail. Returns whether one has failed since the last call. Nothing fails under a
// sanitizer.
bool fail_allocation(int nth);

}  // namespace heap
