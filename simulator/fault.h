#pragma once

// Accesses that the phone makes fail.

#include <functional>
#include <optional>
#include <string>

#include "simulator/trace.h"

namespace spectralsim {

// One fault: Fault::write(Node::kWriteByte).at(0x2E).nth(2).with_errno(EIO). By default the first
// access that fits fails, once, with EIO, and does nothing.
class __attribute__((visibility("default"))) Fault {
 public:
  Fault(Call call, Node node) : m_call(call), m_node(node) {}

  static Fault open(Node node) { return {Call::kOpen, node}; }
  static Fault read(Node node) { return {Call::kRead, node}; }
  static Fault write(Node node) { return {Call::kWrite, node}; }
  static Fault register_write() { return {Call::kWrite, Node::kWriteByte}; }
  static Fault register_read() { return {Call::kIoctl, Node::kDevice}; }
  // By the low byte of its request: 0x24, 0x22, 0x23 or 0x19.
  static Fault tunnel_ioctl(int request) { return Fault(Call::kIoctl, Node::kTunnel).at(request); }

  // A fault as "write:iridel_write_byte@0x2e#2=EIO": call (open, read, write, ioctl), node, and,
  // where wanted, register, count from 1 ("#every" for all) and errno name or result. Throws
  // std::invalid_argument that says what is wrong.
  static Fault parse(const std::string& text);

  Fault& at(int address) {  // this register only, or a list that begins with it
    m_address = address;
    return *this;
  }
  Fault& nth(int n) {  // the n-th access that fits, from 1
    m_nth = n;
    return *this;
  }
  Fault& every() { return nth(0); }
  Fault& with_errno(int error) {
    m_result = -1;
    m_error = error;
    return *this;
  }
  // This result, without an errno; a write with a result of 0 or more is carried out all the same,
  // and a read of that many bytes at most, so that they are ones that came out short.
  Fault& returning(long result) {
    m_result = result;
    m_error = 0;
    return *this;
  }

  // Whether this access is to fail; counts it.
  bool strikes(Call call, Node node, int address);
  long result() const { return m_result; }
  int error() const { return m_error; }

 private:
  Call m_call;
  Node m_node;
  std::optional<int> m_address;
  int m_nth = 1;
  int m_seen = 0;
  long m_result = -1;
  int m_error = 5;  // EIO
};

// Asked at every access that no fault strikes; what it gives strikes. Runs within the access: it
// must not use the phone.
using FaultSource = std::function<std::optional<Fault>(Call call, Node node, int address)>;

}  // namespace spectralsim
