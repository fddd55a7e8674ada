#pragma once

// The least that something could cost: its system calls, issued from a bare loop with everything
// prepared beforehand, on the same simulated nodes.

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

// How the calls wait between them.
enum class Waits {
  kNone,
  kOnce,     // for the exposure, before the first look at the status
  kPolling,  // a millisecond before each look at the status but the first
};

class Floor {
 public:
  Floor(const spectralsim::Trace& recorded, Waits waits, std::int64_t exposure_ms);

  void run();

 private:
  struct Step {
    spectralsim::Event event;
    VD6281_Transfer_t block = {};  // of a register read
    std::uint32_t words[4] = {};   // of a request to the tunnel
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
  bool m_looked = false;                       // at the status, while taking steps
  std::array<int, 256> m_fd_of_recorded = {};  // of what is opened here; else 0
  std::FILE* m_tunnel = nullptr;
  std::mutex m_mutex;
  std::condition_variable m_wake;
};

}  // namespace bench
