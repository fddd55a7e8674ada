#pragma once

// What can happen to one system call of a session.

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

// Whether it can happen to this call.
bool applies(Kind kind, const spectralsim::Event& event);

// Whether the client must not notice.
bool is_harmless(Kind kind, const spectralsim::Event& event);

struct Injection {
  std::size_t index;  // of the call in the trace
  Kind kind;
  std::string call;
  spectralsim::Fault fault;
};

// For call number `index` of a session that goes as `trace` up to there.
Injection injection_at(const spectralsim::Trace& trace, std::size_t index, Kind kind);

}  // namespace sweep
