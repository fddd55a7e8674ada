// What the test bench sets on the phone's kernel, and what it learns from it.

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "simulator/kernel.h"

namespace spectralsim {

void Kernel::add_fault(const Fault& fault) {
  const Entry entry(m_mutex);
  m_faults.push_back(fault);
}

void Kernel::set_fault_source(FaultSource source) {
  const Entry entry(m_mutex);
  m_fault_source = std::move(source);
}

void Kernel::set_register_source(RegisterSource source) {
  const Entry entry(m_mutex);
  m_register_source = std::move(source);
}

void Kernel::clear_faults() {
  const Entry entry(m_mutex);
  m_faults.clear();
  m_fault_source = nullptr;
}

void Kernel::set_present(Node node, bool present) {
  const Entry entry(m_mutex);
  if (present) {
    m_absent.erase(node);
  } else {
    m_absent.insert(node);
  }
}

void Kernel::set_file(const std::string& content) {
  const Entry entry(m_mutex);
  const int fd = backing_file(Node::kFactoryFile);
  m_has_factory_file = syscall(SYS_ftruncate, fd, 0L) == 0 &&
                       syscall(SYS_pwrite64, fd, content.c_str(), content.size(), 0L) ==
                           static_cast<long>(content.size());
}

void Kernel::set_model(std::optional<std::string> model) {
  const Entry entry(m_mutex);
  m_model = std::move(model);
}

void Kernel::set_analysis(std::optional<std::string> path) {
  const Entry entry(m_mutex);
  m_analysis = std::move(path);
}

void Kernel::set_data_folder(const std::string& folder) {
  const Entry entry(m_mutex);
  m_data_folder = folder;
}

bool Kernel::is_present(Node node) const {
  const Entry entry(m_mutex);
  if (node == Node::kFactoryFile && !m_has_factory_file) return false;
  if (node == Node::kAnalysisLibrary && !m_analysis) return false;
  return m_absent.count(node) == 0;
}

std::string Kernel::dumped(Node node) const {
  const Entry entry(m_mutex);
  const auto backing = m_backing.find(node);
  if (backing == m_backing.end()) return "";
  const auto size = static_cast<std::size_t>(syscall(SYS_lseek, backing->second, 0L, SEEK_END));
  std::string content(size, '\0');
  syscall(SYS_pread64, backing->second, content.data(), size, 0L);
  return content;
}

std::optional<std::string> Kernel::model() const {
  const Entry entry(m_mutex);
  return m_model;
}

Trace Kernel::trace() const {
  const Entry entry(m_mutex);
  return m_trace;
}

void Kernel::clear_trace() {
  const Entry entry(m_mutex);
  m_trace.clear();
}

void Kernel::keep_trace(bool on) {
  const Entry entry(m_mutex);
  m_keep_trace = on;
}

bool Kernel::keeps_trace() const {
  const Entry entry(m_mutex);
  return m_keep_trace;
}

int Kernel::open_descriptors() const {
  return static_cast<int>(std::count_if(m_node_of_fd.begin(), m_node_of_fd.end(),
                                        [](const auto& node) { return node.load() != 0; }));
}

}  // namespace spectralsim
