#pragma once

// One use of the sensor: a client of one of the two services, from Init to Uninit.

#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <iterator>
#include <stdexcept>
#include <string>

#include "driver/flag.h"
#include "spectral_sensor.h"

namespace spectralsensorctl {

// What went wrong with the sensor, and what to try.
class SensorError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

inline void require(int status, const std::string& what) {
  if (status != 0) throw SensorError(what + " failed with status " + std::to_string(status));
}

// Why the sensor does not come up, by the node that is at fault.
std::string explain_failed_init(int mode);

// Why a node cannot be opened, and what to try; empty for one that can.
std::string explain_node(const char* node, int flags);

// Arguments that the sensor does not take.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Set by Ctrl-C, and by the signals of a closed terminal and of kill; a running capture ends too.
bool interrupted();

inline SpectralSensorDevice* driver_of(SpectralSensorDevice* service) { return service; }
inline SpectralSensorDevice* driver_of(SpectralSensor* service) { return service->m_device; }

// A flicker result's gain as a factor.
inline double flicker_gain(const SpectralSensorDevice*, float gain) { return gain / 256.0; }
inline double flicker_gain(const SpectralSensor*, float gain) { return gain; }

// Sends those signals to the service's enable flags; undone by the destructor.
class InterruptGuard {
 public:
  using Stop = void (*)();
  explicit InterruptGuard(Stop stop);
  ~InterruptGuard();
  // From here on a signal is noted only: the service is about to go.
  void disarm();
  InterruptGuard(const InterruptGuard&) = delete;
  InterruptGuard& operator=(const InterruptGuard&) = delete;

 private:
  struct sigaction m_before[3] = {};
};

// Lets both kinds of capture end; may run in a signal handler, as it only writes atomic bytes.
template <typename Service>
void stop_captures() {
  if (Service* service = Service::m_pInstance) {
    spectral::set_flag(&service->m_alsEnableFlag, false);
    spectral::set_flag(&service->m_flkEnableFlag, false);
    spectral::set_flag(&driver_of(service)->m_flkEnableFlag, false);  // of the tunnel
  }
}

template <typename Service>
class Session {
 public:
  explicit Session(int mode)
      : m_mode(mode), m_service(Service::Create()), m_guard(stop_captures<Service>) {
    if (m_service->Init(mode) == 0) return;
    close();
    throw SensorError(explain_failed_init(mode));
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
    Service::Destroy();
  }

  int m_mode;
  Service* m_service;
  InterruptGuard m_guard;
};

}  // namespace spectralsensorctl
