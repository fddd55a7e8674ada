#pragma once

// The faults that can be injected into one system call of a session.

#include <cstddef>
#include <string>

#include "simulator/fault.h"
#include "simulator/trace.h"

namespace sweep {

enum class Kind { kFails, kFailsOtherwise, kEmpty, kHalf, kLate, kStalls, kDies };
constexpr Kind kKinds[] = {Kind::kFails, Kind::kFailsOtherwise, Kind::kEmpty, Kind::kHalf,
                           Kind::kLate,  Kind::kStalls,         Kind::kDies};
constexpr long kOtherResult = -5;

const char* name_of(Kind kind);

// Returns whether this kind of fault can be injected into this call.
bool applies(Kind kind, const spectralsim::Event& event);

// Returns whether the client must not notice this kind of fault in this call.
bool is_harmless(Kind kind, const spectralsim::Event& event);

struct Injection {
  std::size_t index;  // of the call in the trace
  Kind kind;
  std::string call;
  spectralsim::Fault fault;
};

// Returns the injection into the call at `index` of a session that runs as `trace` up to there.
Injection injection_at(const spectralsim::Trace& trace, std::size_t index, Kind kind);

}  // namespace sweep
