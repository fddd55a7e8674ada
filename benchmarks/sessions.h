#pragma once

// The sessions whose cost is measured, on whatever phone the program runs.

#include <vector>

#include "benchmarks/floor.h"
#include "spectral_sensor_device.h"

namespace bench {

// A sensor with one client of each mode if `clients` is set.
class WarmSensor {
 public:
  explicit WarmSensor(bool clients);
  ~WarmSensor();
  WarmSensor(const WarmSensor&) = delete;
  WarmSensor& operator=(const WarmSensor&) = delete;

  SpectralSensorDevice* operator->() { return m_sensor; }
  void process(int mode) { m_sensor->Process(mode, &m_output); }
  int exposure_ms() const { return static_cast<int>(m_sensor->m_alsConfig.exposureTime / 1000); }

 private:
  SpectralSensorDevice* m_sensor;
  bool m_clients;
  SpectralSensorOutput m_output = {};
};

// The numbers of calls that an operation cannot do without.
struct Minimum {
  int writes;
  int register_reads;
  int others;  // opens, closes, reads and tunnel requests; not the reads of its stream
};

struct Session {
  const char* name;
  bool clients;
  Waits waits;
  Minimum minimum;
  void (*prepare)(WarmSensor* sensor);
  void (*run)(WarmSensor* sensor);
};

// The time that the chip takes to have a result ready behind the exposure.
constexpr int kReadOutTimeMs = 12;

const std::vector<Session>& sessions();

}  // namespace bench
