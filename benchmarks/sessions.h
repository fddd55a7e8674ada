#pragma once

#include <string>

// What the library's operations cost on the simulated phone, next to their floors.

namespace bench {

class Table;

// Prints the system calls and the allocations of each. Returns whether they are what they must be.
bool print_counts();

// With a mark for each.
void register_sessions(Table* table);

// Runs one of the sessions so often, for an instrument that counts: its name as in the table,
// or that with "/floor" behind it. Returns false for a name that there is not.
bool run_session(const std::string& name, int times);

}  // namespace bench
