#pragma once

// The trace of the phone: every call on its nodes and every log line, in order.

#include <string>
#include <vector>

namespace spectralsim {

enum class Call { kOpen, kClose, kRead, kWrite, kIoctl, kDlopen, kLog };

enum class Node {
  kNone,    // a file that is not the phone's
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
  bool close_on_exec = false;  // of an open
  // The register read or written, the first register of a list, or the low byte of a tunnel
  // request.
  int address = -1;
  int count = 0;   // registers read
  int value = -1;  // register value written, or read if count is 1
  // The bytes written with their NUL, the text of a log line, the path of a dlopen, the sensor code
  // and the tunnel id of a tunnel request, or the number of an unknown request.
  std::string text;
  long result = 0;
  int error = 0;  // errno if the result is negative
  int priority = 0;
  std::string tag;

  bool is_register_write() const { return call == Call::kWrite && node == Node::kWriteByte; }
  bool is_register_read() const { return call == Call::kIoctl && node == Node::kDevice; }
};

using Trace = std::vector<Event>;

// Describes an event in one line, such as "open iridel_enable", "write 2e=1b", "read 06..1c" or
// "log E tag: text". After a call that failed, " failed (EIO)" or " gave " and the result follow.
__attribute__((visibility("default"))) std::string describe(const Event& event);
__attribute__((visibility("default"))) std::vector<std::string> describe(const Trace& trace);

const char* name_of(Node node);

}  // namespace spectralsim
