#pragma once

namespace sweep {

// Blocks of memory that the process has and has not given back; -1 under a sanitizer, which has its
// own allocator and looks for lost blocks itself.
long live_blocks();

}  // namespace sweep
