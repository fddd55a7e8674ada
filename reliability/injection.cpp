#include "reliability/injection.h"

#include <cerrno>
#include <cstdint>

namespace sweep {

using spectralsim::Call;
using spectralsim::Event;
using spectralsim::Fault;
using spectralsim::Trace;

namespace {

constexpr std::int64_t kLateMs = 3600000;
constexpr std::int64_t kStallMs = 60000;

Fault fault_at(const Trace& trace, std::size_t index, Kind kind) {
  const Event& struck = trace[index];
  int nth = 0;
  for (std::size_t i = 0; i <= index; ++i) {
    const Event& event = trace[i];
    nth += event.call == struck.call && event.node == struck.node && event.address == struck.address
               ? 1
               : 0;
  }
  Fault fault(struck.call, struck.node);
  if (struck.address >= 0) fault.at(struck.address);
  fault.nth(nth);
  switch (kind) {
    case Kind::kFails:
      return fault.with_errno(EIO);
    case Kind::kFailsOtherwise:
      return fault.returning(kOtherResult);
    case Kind::kEmpty:
      return fault.returning(0);
    case Kind::kHalf:
      return fault.returning(struck.result / 2);
    case Kind::kLate:
      return fault.late_by_ms(kLateMs);
    case Kind::kStalls:
      return fault.late_by_ms(kStallMs).with_errno(ETIMEDOUT);
    case Kind::kDies:
      return fault.onwards();
  }
  return fault;
}

}  // namespace

const char* name_of(Kind kind) {
  static constexpr const char* kNames[] = {
      "fails",           "fails with -5", "is empty",          "is half",
      "is an hour late", "stalls",        "fails from here on"};
  return kNames[static_cast<int>(kind)];
}

bool applies(Kind kind, const Event& event) {
  const bool moves_bytes = event.call == Call::kRead || event.call == Call::kWrite;
  switch (kind) {
    case Kind::kFailsOtherwise:
      return event.call != Call::kClose && event.call != Call::kDlopen;
    case Kind::kEmpty:
      return moves_bytes && event.result > 0;
    case Kind::kHalf:
      return moves_bytes && event.result > 1;
    default:
      return event.call != Call::kLog;
  }
}

bool is_harmless(Kind kind, const Event& event) {
  return kind == Kind::kHalf || (kind == Kind::kEmpty && event.call == Call::kWrite);
}

Injection injection_at(const Trace& trace, std::size_t index, Kind kind) {
  return {index, kind, describe(trace[index]), fault_at(trace, index, kind)};
}

}  // namespace sweep
