#pragma once

// The floor of an operation, which is the least that it could cost: its system calls alone, issued
// from a bare loop on the same simulated nodes, with everything prepared beforehand.

#include <array>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

#include "simulator/trace.h"
#include "vd6281.h"

namespace bench {

// How a floor waits between its calls.
enum class Waits {
  kNone,
  kOnce,     // for the exposure, before the first read of the status
  kPolling,  // a millisecond before every read of the status but the first
};

class Floor {
 public:
  Floor(const spectralsim::Trace& recorded, Waits waits, std::int64_t exposure_ms);

  void run();

 private:
  struct Step {
    spectralsim::Event event;
    VD6281_Transfer_t block = {};  // argument of a register read
    std::uint32_t words[4] = {};   // argument of a tunnel request
    bool sleeps = false;
    bool waits = false;
  };

  void take(const spectralsim::Event& event, Waits waits);
  void issue(Step* step);
  int opens(spectralsim::Node node);
  void closes(spectralsim::Node node, int fd);
  void request(Step* step, int fd);
  void read_tunnel();

  std::vector<Step> m_steps;
  std::int64_t m_exposure_ms;
  bool m_looked = false;                       // a step that reads the status has been taken
  std::array<int, 256> m_fd_of_recorded = {};  // by recorded descriptor, the one opened here or 0
  std::FILE* m_tunnel = nullptr;
  std::mutex m_mutex;
  std::condition_variable m_wake;
};

}  // namespace bench
