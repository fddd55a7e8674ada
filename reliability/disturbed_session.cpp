#include "reliability/disturbed_session.h"

#include <dlfcn.h>

#include <algorithm>
#include <utility>

#include "reliability/fault_rules.h"
#include "reliability/furnish.h"
#include "reliability/process.h"
#include "spectral_sensor.h"
#include "support/heap.h"

namespace sweep {

using spectralsim::Call;
using spectralsim::Cut;
using spectralsim::Event;
using spectralsim::Node;
using spectralsim::Phone;
using spectralsim::Trace;
using Lines = std::vector<std::string>;

namespace {

constexpr std::int64_t kAgainMs = 10000LL * 3600 * 1000;

void set_up(const Session& session, Cut cut, Phone* phone) {
  furnish(session.furnished, phone);
  phone->scene("pwm-300hz");
  phone->chip().noise(0, 1).cut(cut).otp(spectralsim::Otp().version(6).color_map(2).slope(0, 0x90));
}

Trace play(const Session& session, Phone* phone) {
  phone->clear_trace();
  session.play();
  return phone->trace();
}

// Plays the session again without faults. It starts at the same time of the phone's clock however
// much the faults have delayed the first run, so that the phase of the lamps and the rounding of
// times are always the same.
Trace play_again(const Session& session, Phone* phone) {
  phone->heal();
  phone->clock().sleep_ns(kAgainMs * spectralsim::kNsPerMs - phone->clock().now_ns());
  return play(session, phone);
}

bool is_same(const Event& a, const Event& b) {
  return a.call == b.call && a.node == b.node && a.address == b.address && a.count == b.count &&
         a.value == b.value && a.text == b.text && a.priority == b.priority && a.tag == b.tag &&
         (a.call == Call::kOpen ? (a.result < 0) == (b.result < 0) : a.result == b.result);
}

Lines client_lines(const Trace& trace) {
  Lines lines;
  for (const Event& event : trace) {
    if (event.tag == kClientTag) lines.push_back(event.text);
  }
  return lines;
}

void compare(const Trace& reference, const Trace& clean, Lines* broken) {
  for (std::size_t i = 0; i < std::max(reference.size(), clean.size()); ++i) {
    if (i < std::min(reference.size(), clean.size()) && is_same(reference[i], clean[i])) continue;
    broken->push_back("the next session differs at call " + std::to_string(i) + ": \"" +
                      (i < clean.size() ? describe(clean[i]) : "") + "\", undisturbed \"" +
                      (i < reference.size() ? describe(reference[i]) : "") + "\"");
    return;
  }
}

bool last_power_switch_was_refused(const Trace& trace) {
  bool refused = false;
  for (const Event& event : trace) {
    const bool switches =
        event.node == Node::kEnable && (event.call == Call::kOpen || event.call == Call::kWrite);
    if (switches) refused = is_refused(event);
  }
  return refused;
}

// Returns whether the last capture failed although at least one capture lies between it and the
// fault. A disturbed capture may spoil the next one, by a measurement that could not be
// stopped, but no later one. `index` is the position of the fault in the trace.
bool is_spoilt(const Trace& reference, const Trace& trace, std::size_t index) {
  std::vector<std::size_t> captures;
  std::size_t last_init = 0;
  for (std::size_t i = 0; i < reference.size(); ++i) {
    if (reference[i].text.rfind("Process", 0) == 0) captures.push_back(i);
    if (reference[i].text.rfind("Init = ", 0) == 0) last_init = i;
  }
  if (captures.size() < 3 || index < last_init || index > captures[captures.size() - 3]) {
    return false;
  }
  const Lines lines = client_lines(trace);
  const auto last = std::find_if(lines.rbegin(), lines.rend(), [](const std::string& line) {
    return line.rfind("als ", 0) == 0;
  });
  return last == lines.rend() || last->rfind("als 1 ", 0) != 0;
}

void append(const Lines& lines, Lines* all) { all->insert(all->end(), lines.begin(), lines.end()); }

Lines run_disturbed(const Session& session, Cut cut, const Reference& reference,
                    const std::vector<Injection>& injections) {
  Phone phone;
  set_up(session, cut, &phone);
  for (const Injection& injection : injections) phone.fail(injection.fault);
  const Trace trace = play(session, &phone);

  Lines broken = broken_rules(trace, {-1, kOtherResult});
  const bool single =
      injections.size() <= 1 && (injections.empty() || injections[0].kind != Kind::kDies);
  append(left_over(phone, phone.chip().powered(), !single && last_power_switch_was_refused(trace)),
         &broken);
  if (!injections.empty()) {
    const Injection& first = injections[0];
    const Event& struck = reference.first[first.index];
    if (first.index >= trace.size() || trace[first.index].call != struck.call ||
        (first.kind == Kind::kFails && !is_refused(trace[first.index]))) {
      broken.push_back("the fault did not strike");
    }
    if (injections.size() == 1 && is_harmless(first.kind, struck) &&
        client_lines(trace) != client_lines(reference.first)) {
      broken.push_back("the client noticed");
    }
  }
  compare(reference.again, play_again(session, &phone), &broken);
  append(left_over(phone, phone.chip().powered(), false), &broken);
  if (single && !injections.empty() && is_spoilt(reference.first, trace, injections[0].index)) {
    broken.push_back("a later capture still fails");
  }
  return broken;
}

}  // namespace

Reference reference_of(const Session& session, Cut cut) {
  Phone phone;
  set_up(session, cut, &phone);
  Trace first = play(session, &phone);
  return {std::move(first), play_again(session, &phone)};
}

Trace trace_of(const Session& session, Cut cut, const Injection& injection) {
  Phone phone;
  set_up(session, cut, &phone);
  phone.fail(injection.fault);
  Trace trace = play(session, &phone);
  dlerror();  // frees the text of a failed dlopen, which the C library keeps until then
  return trace;
}

Lines left_over(const Phone& phone, bool powered, bool may_stay_on) {
  Lines broken;
  if (phone.open_descriptors() != 0) {
    broken.push_back(std::to_string(phone.open_descriptors()) + " descriptors left open");
  }
  if (powered && !may_stay_on) broken.push_back("power left on");
  if (SpectralSensorDevice::m_pInstance != nullptr || SpectralSensor::m_pInstance != nullptr) {
    broken.push_back("an instance left");
  }
  if (SpectralSensorDevice::m_VD6281Device[0].state != VD6281_STATE_NONE) {
    broken.push_back("device record left in use");
  }
  return broken;
}

Lines disturb(const Session& session, Cut cut, const Reference& reference,
              const std::vector<Injection>& injections) {
  const long descriptors = count_descriptors();
  const long blocks = heap::live_blocks();
  Lines broken = run_disturbed(session, cut, reference, injections);
  if (!broken.empty()) return broken;
  const long lost = heap::live_blocks() - blocks;
  const long opened = count_descriptors() - descriptors;
  if (lost != 0) broken.push_back(std::to_string(lost) + " blocks of memory lost");
  if (opened != 0) broken.push_back(std::to_string(opened) + " descriptors lost");
  return broken;
}

}  // namespace sweep
