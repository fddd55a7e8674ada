#pragma once

// One use of the sensor by a client of one of the two services, from Init to Uninit.

#include <csignal>
#include <cstdint>
#include <stdexcept>

#include "spectral_sensor.h"
#include "tools/diagnosis.h"

namespace spectralsensorctl {

// Whether Ctrl-C, Ctrl-\, `kill` or the closing of the terminal has sent a signal to the tool. Such
// a signal also ends a running capture.
bool interrupted();

// The signal that did so, or 0.
int interrupting_signal();

// Whether a session has ended with the sensor still powered.
bool left_powered();

// Tries to switch the power off once more. If that fails, prints the reason on stderr and sets
// left_powered().
void retry_power_off();

inline SpectralSensorDevice* driver_of(SpectralSensorDevice* service) { return service; }
inline SpectralSensorDevice* driver_of(SpectralSensor* service) { return service->m_device; }

// A flicker result's gain as a factor.
inline double flicker_gain(const SpectralSensorDevice*, float gain) { return gain / 256.0; }
inline double flicker_gain(const SpectralSensor*, float gain) { return gain; }

// Handles the signals that set interrupted() and calls `stop` for each of them. The destructor
// restores the previous handlers.
class InterruptGuard {
 public:
  using Stop = void (*)();
  explicit InterruptGuard(Stop stop);
  ~InterruptGuard();
  // After this call a signal is only recorded and `stop` is not called any more, because the
  // service is about to be destroyed.
  void disarm();
  InterruptGuard(const InterruptGuard&) = delete;
  InterruptGuard& operator=(const InterruptGuard&) = delete;

 private:
  struct sigaction m_before[4] = {};
};

// Clears an enable flag by an atomic store, which is allowed in a signal handler. SetEnableFlag is
// not, because it notifies a condition variable.
inline void clear_flag(std::uint8_t* flag) {
  __atomic_store_n(flag, std::uint8_t{0}, __ATOMIC_RELEASE);
}

// Makes both kinds of capture end. It may be called by a signal handler.
template <typename Service>
void stop_captures() {
  if (Service* service = Service::m_pInstance) {
    clear_flag(&service->m_alsEnableFlag);
    clear_flag(&service->m_flkEnableFlag);
    clear_flag(&driver_of(service)->m_flkEnableFlag);  // the tunnel's reader checks this one
  }
}

template <typename Service>
class Session {
 public:
  explicit Session(int mode)
      : m_mode(mode), m_service(Service::Create()), m_guard(stop_captures<Service>) {
    if (m_service->Init(mode) == SPECTRAL_OK) return;
    const std::string why = explain_failure(mode, "the sensor does not come up");
    close();
    throw std::runtime_error(why);
  }
  ~Session() { close(); }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  Service* operator->() { return m_service; }
  Service* service() { return m_service; }
  SpectralSensorDevice* driver() { return driver_of(m_service); }

 private:
  void close() {
    m_guard.disarm();
    m_service->Uninit(m_mode);
    if (driver()->m_powered != 0) retry_power_off();  // Uninit does not return a status
    Service::Destroy();
  }

  int m_mode;
  Service* m_service;
  InterruptGuard m_guard;
};

}  // namespace spectralsensorctl
