#include "simulator/trace.h"

#include <cstdio>
#include <cstring>

namespace spectralsim {

namespace {

constexpr char kPriorityLetters[] = "??VDIWEF";

std::string hex(int value) {
  char text[16];
  std::snprintf(text, sizeof text, "%02x", static_cast<unsigned int>(value));
  return text;
}

std::string registers(const Event& event) {
  std::string text = hex(event.address);
  if (event.count > 1) text += ".." + hex(event.address + event.count - 1);
  if (event.value >= 0) text += "=" + hex(event.value);
  return text;
}

std::string printable(const std::string& bytes) {
  std::string text = "\"";
  for (const char c : bytes) text += c == '\0' ? std::string("\\0") : std::string(1, c);
  return text + "\"";
}

std::string what(const Event& event) {
  switch (event.call) {
    case Call::kOpen:
      return std::string("open ") + name_of(event.node);
    case Call::kClose:
      return std::string("close ") + name_of(event.node);
    case Call::kRead:
      return std::string("read ") + name_of(event.node);
    case Call::kWrite:
      if (event.address >= 0) return "write " + registers(event);
      return std::string("write ") + name_of(event.node) + " " + printable(event.text);
    case Call::kIoctl:
      if (event.node == Node::kTunnel) return "tunnel " + hex(event.address) + event.text;
      if (event.address < 0) {
        return std::string("ioctl ") + name_of(event.node) + " 0x" + event.text;
      }
      return "read " + registers(event);
    case Call::kDlopen:
      return "dlopen " + event.text;
    case Call::kLog:
      break;
  }
  const bool known = event.priority >= 0 && event.priority < 8;
  const char letter = known ? kPriorityLetters[event.priority] : '?';
  return std::string("log ") + letter + " " + event.tag + ": " + event.text;
}

}  // namespace

const char* name_of(Node node) {
  switch (node) {
    case Node::kNone:
      return "(other)";
    case Node::kDevice:
      return "vd6281";
    case Node::kEnable:
      return "iridel_enable";
    case Node::kReadByte:
      return "iridel_read_byte";
    case Node::kWriteByte:
      return "iridel_write_byte";
    case Node::kFactoryFile:
      return "ials_fac_test";
    case Node::kTunnel:
      return "sensor_tunnel";
    case Node::kUnparsedFile:
      return "unparsed_flicker_data";
    case Node::kDumpFile:
      return "flicker_data.wav";
    case Node::kAnalysisLibrary:
      return "analysis";
  }
  return "?";
}

std::string describe(const Event& event) {
  std::string text = what(event);
  if (event.call == Call::kLog) return text;
  if (event.result == -1) {
    const char* name = strerrorname_np(event.error);  // not every number is an errno
    text += " failed (" + (name != nullptr ? name : std::to_string(event.error)) + ")";
  } else if (event.result < 0 || (event.call == Call::kIoctl && event.result != 0)) {
    text += " gave " + std::to_string(event.result);
  }
  return text;
}

std::vector<std::string> describe(const Trace& trace) {
  std::vector<std::string> lines;
  for (const Event& event : trace) lines.push_back(describe(event));
  return lines;
}

}  // namespace spectralsim
