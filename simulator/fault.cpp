#include "simulator/fault.h"

#include <cerrno>
#include <cstring>
#include <regex>
#include <stdexcept>

namespace spectralsim {

namespace {

constexpr int kHighestErrno = 133;

Call call_named(const std::string& name) {
  if (name == "open") return Call::kOpen;
  if (name == "close") return Call::kClose;
  if (name == "read") return Call::kRead;
  if (name == "write") return Call::kWrite;
  if (name == "dlopen") return Call::kDlopen;
  return Call::kIoctl;
}

Node node_named(const std::string& name) {
  for (const Node node :
       {Node::kDevice, Node::kEnable, Node::kReadByte, Node::kWriteByte, Node::kFactoryFile,
        Node::kTunnel, Node::kUnparsedFile, Node::kDumpFile, Node::kAnalysisLibrary}) {
    if (name == name_of(node)) return node;
  }
  throw std::invalid_argument("no node \"" + name + "\"");
}

int errno_named(const std::string& name) {
  for (int error = 1; error <= kHighestErrno; ++error) {
    const char* known = strerrorname_np(error);
    if (known != nullptr && name == known) return error;
  }
  throw std::invalid_argument("no errno \"" + name + "\"");
}

void set_outcome(const std::string& outcome, Fault* fault) {
  if (outcome[0] == 'E') {
    fault->with_errno(errno_named(outcome));
  } else if (outcome[0] == '+') {
    fault->late_by_ms(std::stol(outcome));
  } else {
    fault->returning(std::stol(outcome));
  }
}

}  // namespace

Fault Fault::parse(const std::string& text) {
  static const std::regex form(
      "(open|close|read|write|ioctl|dlopen):([a-z0-9_.]+)(@0x([0-9a-fA-F]{1,2}))?"
      "(#(every|([0-9]{1,6})(\\+)?))?(=(E[A-Z0-9]+|-?[0-9]{1,6}|\\+[0-9]{1,9}ms))?");
  std::smatch part;
  if (!std::regex_match(text, part, form)) {
    throw std::invalid_argument(
        "a fault is call:node[@0xREGISTER][#COUNT[+]|#every][=ERRNO|=RESULT|=+DELAYms]");
  }
  Fault fault(call_named(part[1]), node_named(part[2]));
  if (part[4].matched) fault.at(std::stoi(part[4], nullptr, 16));
  if (part[6].matched) fault.nth(part[7].matched ? std::stoi(part[7]) : 0);
  if (part[8].matched) fault.onwards();
  if (part[10].matched) set_outcome(part[10], &fault);
  return fault;
}

bool Fault::strikes(Call call, Node node, int address) {
  if (call != m_call || node != m_node) return false;
  if (m_address && *m_address != address) return false;
  ++m_seen;
  return m_nth == 0 || m_seen == m_nth || (m_onwards && m_seen > m_nth);
}

}  // namespace spectralsim
