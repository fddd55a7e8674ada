#include "simulator/phone.h"

#include <dlfcn.h>
#include <unistd.h>

#include <stdexcept>
#include <utility>

#include "simulator/kernel.h"

namespace spectralsim {

namespace {

constexpr char kOwnAnalysis[] = "libflicker_analysis.so";

// The path of the project's own analysis library, in the folder of the simulator's library or
// program, or in the library folder of the prefix under which the program is installed.
std::string own_analysis_library() {
  Dl_info here = {};
  dladdr(reinterpret_cast<const void*>(&own_analysis_library), &here);
  const std::string path = here.dli_fname != nullptr ? here.dli_fname : "";
  const auto folder_end = path.rfind('/');
  const std::string folder =
      folder_end == std::string::npos ? "./" : path.substr(0, folder_end + 1);
  const std::string beside = folder + kOwnAnalysis;
  const std::string installed = folder + "../" SPECTRAL_LIBDIR "/" + kOwnAnalysis;
  return access(beside.c_str(), R_OK) != 0 && access(installed.c_str(), R_OK) == 0 ? installed
                                                                                   : beside;
}

}  // namespace

Phone::Phone() : m_kernel(std::make_unique<Kernel>()) {
  m_kernel->set_analysis(own_analysis_library());
  if (Kernel::current() != nullptr) throw std::logic_error("a phone is plugged in already");
  Kernel::set_current(m_kernel.get());
}

Phone::~Phone() { Kernel::set_current(nullptr); }

Chip& Phone::chip() { return m_kernel->chip(); }

Clock& Phone::clock() { return m_kernel->clock(); }

Hub& Phone::hub() { return m_kernel->hub(); }

Phone& Phone::scene(const std::string& name) {
  chip().scene(Scene::named_or_file(name));
  return *this;
}

Phone& Phone::remove(Node node) {
  m_kernel->set_present(node, false);
  return *this;
}

Phone& Phone::restore(Node node) {
  m_kernel->set_present(node, true);
  return *this;
}

Phone& Phone::remove_sensor() {
  return remove(Node::kDevice)
      .remove(Node::kEnable)
      .remove(Node::kReadByte)
      .remove(Node::kWriteByte);
}

Phone& Phone::model(const std::string& name) {
  m_kernel->set_model(name);
  return *this;
}

Phone& Phone::factory_file(const std::string& content) {
  m_kernel->set_file(content);
  return *this;
}

Phone& Phone::analysis_library(const std::string& path) {
  m_kernel->set_analysis(path);
  return *this;
}

Phone& Phone::remove_analysis_library() {
  m_kernel->set_analysis(std::nullopt);
  return *this;
}

Phone& Phone::data_folder(const std::string& folder) {
  m_kernel->set_data_folder(folder);
  return *this;
}

std::string Phone::dumped(Node node) const { return m_kernel->dumped(node); }

Phone& Phone::fail(const Fault& fault) {
  m_kernel->add_fault(fault);
  return *this;
}

Phone& Phone::fail_as(FaultSource source) {
  m_kernel->set_fault_source(std::move(source));
  return *this;
}

Phone& Phone::heal() {
  m_kernel->clear_faults();
  return *this;
}

Phone& Phone::answer_registers(RegisterSource source) {
  m_kernel->set_register_source(std::move(source));
  return *this;
}

Trace Phone::trace() const { return m_kernel->trace(); }

Phone& Phone::clear_trace() {
  m_kernel->clear_trace();
  return *this;
}

Phone& Phone::keep_trace(bool on) {
  m_kernel->keep_trace(on);
  return *this;
}

std::vector<std::string> Phone::events() const { return describe(trace()); }

std::vector<std::string> Phone::log() const {
  std::vector<std::string> lines;
  for (const Event& event : trace()) {
    if (event.call == Call::kLog) lines.push_back(describe(event));
  }
  return lines;
}

bool Phone::is_inside() { return Inside::depth() > 0; }

int Phone::open_descriptors() const { return m_kernel->open_descriptors(); }

}  // namespace spectralsim
