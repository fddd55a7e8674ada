#pragma once

// A simulated phone around libspectralsensor, for tests, benchmarks and demonstrations.
//
//   spectralsim::Phone phone;                 // an office, cut 2.2, virtual time
//   phone.chip().cut(spectralsim::Cut::k2_0);
//   phone.fail(spectralsim::Fault::register_write().at(0x2E));
//   ... use SpectralSensorDevice ...
//   phone.trace();                            // the calls it has made
//
// A program links libspectralsim ahead of everything else, so that the library's system calls and
// Android calls reach the phone. While there is no phone they pass through.

#include <memory>
#include <string>

#include "simulator/chip.h"
#include "simulator/clock.h"
#include "simulator/fault.h"
#include "simulator/hub.h"
#include "simulator/scene.h"
#include "simulator/trace.h"

namespace spectralsim {

class Kernel;

// The phone that the process runs on while the object exists. Only one can exist at a time.
class __attribute__((visibility("default"))) Phone {
 public:
  Phone();
  ~Phone();
  Phone(const Phone&) = delete;
  Phone& operator=(const Phone&) = delete;

  Chip& chip();
  Clock& clock();
  Hub& hub();

  // Puts a scene in front of the sensor: a built-in one by its name, or a JSON file by its path.
  Phone& scene(const std::string& name);

  // remove() takes a node away from the phone, and restore() puts it back.
  Phone& remove(Node node);
  Phone& restore(Node node);
  Phone& remove_sensor();  // all of its nodes

  // The property "ro.product.device"; a phone has none at first.
  Phone& model(const std::string& name);
  // The factory calibration file; a phone has none at first.
  Phone& factory_file(const std::string& content);

  // analysis_library() replaces the file at the analysis library's path, and
  // remove_analysis_library() removes it. At first the file is the project's own analysis library,
  // if that has been built beside the simulator.
  Phone& analysis_library(const std::string& path);
  Phone& remove_analysis_library();

  // The contents of one of the phone's dump files.
  std::string dumped(Node node) const;

  Phone& fail(const Fault& fault);
  Phone& fail_as(FaultSource source);
  Phone& heal();  // removes all faults
  // Lets `source` answer register reads in place of the chip; null leaves them to the chip again.
  Phone& answer_registers(RegisterSource source);

  Trace trace() const;
  Phone& clear_trace();
  Phone& keep_trace(bool on);  // on at first
  // The trace as lines: the whole trace, or only its log lines.
  std::vector<std::string> events() const;
  std::vector<std::string> log() const;

  // Keeps the dump files in this folder. At first they are kept in memory.
  Phone& data_folder(const std::string& folder);

  // The phone's side of the kernel, for a front that serves system calls (simulator/kernel.h).
  Kernel& kernel() { return *m_kernel; }

  // Whether this thread runs inside the simulator now.
  static bool is_inside();

  // Descriptors of the phone's nodes that are open now. On the kernel's own nodes the kernel tells
  // of a close a moment after it has returned.
  int open_descriptors() const;

 private:
  std::unique_ptr<Kernel> m_kernel;
};

}  // namespace spectralsim
