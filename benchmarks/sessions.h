#pragma once

// What the library's operations cost on the simulated phone, next to their floors.

namespace bench {

// Prints the system calls and the allocations of each. Returns whether they are what they must be.
bool print_counts();

void register_sessions();

// Runs one of the sessions so often, for an instrument that counts: its name as in the table.
// Returns false for a name that there is not.
bool run_session(const char* name, int times);

}  // namespace bench
