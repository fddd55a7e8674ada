#pragma once

// What the phone saw: every call on its nodes and every log line, in order.

#include <string>
#include <vector>

namespace spectralsim {

enum class Call { kOpen, kClose, kRead, kWrite, kIoctl, kDlopen, kLog };

enum class Node {
  kNone,    // not the phone's
  kDevice,  // "/dev/vd6281"
  kEnable,  // the sysfs attributes "iridel_enable", "iridel_read_byte", "iridel_write_byte"
  kReadByte,
  kWriteByte,
  kFactoryFile,   // "/mnt/vendor/persist/camera/ials_fac_test"
  kTunnel,        // "/dev/sensor_tunnel"
  kUnparsedFile,  // "/data/unparsed_flicker_data"
  kDumpFile,      // "/data/flicker_data.wav"
  kAnalysisLibrary,
};

struct Event {
  Call call = Call::kLog;
  Node node = Node::kNone;
  int fd = -1;
  int address =
      -1;         // register read or written, the first one of a list; low byte of a tunnel request
  int count = 0;  // registers read
  int value = -1;    // register value written, or read where count is 1
  std::string text;  // bytes written, NUL included; the log line's text
  long result = 0;
  int error = 0;  // errno where the result is -1
  int priority = 0;
  std::string tag;

  bool is_register_write() const { return call == Call::kWrite && node == Node::kWriteByte; }
  bool is_register_read() const { return call == Call::kIoctl && node == Node::kDevice; }
};

using Trace = std::vector<Event>;

// One line an event, as "open iridel_enable", "write 2e=1b", "read 06..1c", "log E tag: text";
// where the call failed with " failed (EIO)" or the result behind it.
__attribute__((visibility("default"))) std::string describe(const Event& event);
__attribute__((visibility("default"))) std::vector<std::string> describe(const Trace& trace);

const char* name_of(Node node);

}  // namespace spectralsim
