#pragma once

// Accesses that the phone makes fail.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "simulator/trace.h"

namespace spectralsim {

// One fault: Fault::write(Node::kWriteByte).at(0x2E).nth(2).with_errno(EIO). By default the first
// access that fits fails, once, with EIO, and does nothing; a close closes in any case.
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

  static Fault load_analysis() { return {Call::kDlopen, Node::kAnalysisLibrary}; }

  // A fault as "write:iridel_write_byte@0x2e#2=EIO": call (open, close, read, write, ioctl,
  // dlopen), node, and, where wanted, register, count from 1 ("#every" for all, "#3+" from the
  // third on) and errno name, result or, as "+500ms", delay. Throws std::invalid_argument that says
  // what is wrong.
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
  Fault& onwards() {  // the n-th and all later ones
    m_onwards = true;
    return *this;
  }
  Fault& with_errno(int error) {
    m_result = -1;
    m_error = error;
    m_fails = true;
    return *this;
  }
  // This result, without an errno. A read or write with a result of 0 or more is carried out all
  // the same, and comes out short.
  Fault& returning(long result) {
    m_result = result;
    m_error = 0;
    m_fails = true;
    return *this;
  }
  // Carried out as ever, but only after so much of the phone's time; with an outcome set behind it,
  // that outcome after this time.
  Fault& late_by_ms(std::int64_t delay_ms) {
    m_delay_ms = delay_ms;
    m_fails = false;
    return *this;
  }

  // Whether this access is struck; counts it.
  bool strikes(Call call, Node node, int address);
  bool fails() const { return m_fails; }  // or is only late
  long result() const { return m_result; }
  int error() const { return m_error; }
  std::int64_t delay_ms() const { return m_delay_ms; }

 private:
  Call m_call;
  Node m_node;
  std::optional<int> m_address;
  int m_nth = 1;
  bool m_onwards = false;
  int m_seen = 0;
  bool m_fails = true;
  std::int64_t m_delay_ms = 0;
  long m_result = -1;
  int m_error = 5;  // EIO
};

// Asked at every access that no fault strikes; what it gives strikes. Runs within the access: it
// must not use the phone.
using FaultSource = std::function<std::optional<Fault>(Call call, Node node, int address)>;

}  // namespace spectralsim
