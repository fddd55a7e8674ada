#pragma once

#include <string>

// The costs of the library's operations on the simulated phone, next to their floors.

namespace bench {

class Table;

// Prints the numbers of system calls and allocations of each operation. Returns whether they are as
// low as they must be.
bool print_counts();

// Registers the benchmarks of every operation, and sets its mark in `table`.
void register_sessions(Table* table);

// Runs one of the sessions `times` times, for a profiler that counts instructions. `name` is as in
// the table; with "/floor" appended it runs the floor. Returns false for an unknown name.
bool run_session(const std::string& name, int times);

}  // namespace bench
