#pragma once

// The costs of the library's operations on a simulated phone in this process, next to their floors.

#include <string>

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

// Writes the calls of each session to a file, for build/kernel_cost. Returns false if that fails.
bool write_recording(const std::string& path);

}  // namespace bench
