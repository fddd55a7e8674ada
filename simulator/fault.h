#pragma once

// Faults: accesses to the phone's nodes that fail or are delayed.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "simulator/trace.h"

namespace spectralsim {

// One fault, for example Fault::write(Node::kWriteByte).at(0x2E).nth(2).with_errno(EIO). By default
// the first matching access fails with EIO and has no effect, and later ones succeed. A close that
// fails still closes the descriptor.
class __attribute__((visibility("default"))) Fault {
 public:
  Fault(Call call, Node node) : m_call(call), m_node(node) {}

  static Fault open(Node node) { return {Call::kOpen, node}; }
  static Fault read(Node node) { return {Call::kRead, node}; }
  static Fault write(Node node) { return {Call::kWrite, node}; }
  static Fault register_write() { return {Call::kWrite, Node::kWriteByte}; }
  static Fault register_read() { return {Call::kIoctl, Node::kDevice}; }
  // `request` is the low byte of the ioctl request: 0x24, 0x22, 0x23 or 0x19.
  static Fault tunnel_ioctl(int request) { return Fault(Call::kIoctl, Node::kTunnel).at(request); }

  static Fault load_analysis() { return {Call::kDlopen, Node::kAnalysisLibrary}; }

  // Parses a fault such as "write:iridel_write_byte@0x2e#2=EIO". A call (open, close, read, write,
  // ioctl or dlopen) and a node are required. A register, a count and an outcome may follow. The
  // count is the number of the access, from 1; "#every" means all of them, "#3+" the third and all
  // later ones. The outcome is the name of an errno, a result, or a delay such as "+500ms". Throws
  // std::invalid_argument with a text that says what is wrong.
  static Fault parse(const std::string& text);

  Fault& at(int address) {  // only accesses to this register, or to a list that begins with it
    m_address = address;
    return *this;
  }
  Fault& nth(int n) {  // the n-th matching access, from 1
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
  // The access returns this result and sets errno to 0, except that an open returns -1 and a dlopen
  // null. A read or write with a result of 0 or more is carried out nevertheless, and its count is
  // at most this result.
  Fault& returning(long result) {
    m_result = result;
    m_error = 0;
    m_fails = true;
    return *this;
  }
  // The access is carried out normally after this much of the phone's time. If with_errno() or
  // returning() is called after this function, the access has that outcome after the delay.
  Fault& late_by_ms(std::int64_t delay_ms) {
    m_delay_ms = delay_ms;
    m_fails = false;
    return *this;
  }

  // Counts the access if it matches, and returns whether the fault strikes it.
  bool strikes(Call call, Node node, int address);
  bool fails() const { return m_fails; }  // false for a fault that only delays
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

// A function that is called at every access that no other fault strikes, and may return a fault
// that strikes it. It is called under the kernel's lock, so it must not use the phone.
using FaultSource = std::function<std::optional<Fault>(Call call, Node node, int address)>;

}  // namespace spectralsim
