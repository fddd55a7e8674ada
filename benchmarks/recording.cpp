#include "benchmarks/recording.h"

#include <fstream>
#include <sstream>
#include <stdexcept>

namespace bench {

using spectralsim::Call;
using spectralsim::Event;
using spectralsim::Node;
using spectralsim::Trace;

namespace {

constexpr char kSession[] = "session ";

// The bytes of a text as numbers, because a text written to a node ends with a NUL.
Event event_of(const std::string& line) {
  std::istringstream in(line);
  Event event;
  int call = 0;
  int node = 0;
  if (!(in >> call >> node >> event.fd >> event.address >> event.count >> event.result)) {
    throw std::runtime_error("this is no call: " + line);
  }
  event.call = static_cast<Call>(call);
  event.node = static_cast<Node>(node);
  for (int byte = 0; in >> byte;) event.text += static_cast<char>(byte);
  return event;
}

}  // namespace

void write_event(const Event& event, std::FILE* file) {
  std::fprintf(file, "%d %d %d %d %d %ld", static_cast<int>(event.call),
               static_cast<int>(event.node), event.fd, event.address, event.count, event.result);
  for (const char byte : event.text) std::fprintf(file, " %d", byte);
  std::fprintf(file, "\n");
}

std::map<std::string, Trace> read_recording(const std::string& path) {
  std::ifstream file(path);
  std::map<std::string, Trace> sessions;
  Trace* session = nullptr;
  for (std::string line; std::getline(file, line);) {
    if (line.rfind(kSession, 0) == 0) {
      session = &sessions[line.substr(sizeof kSession - 1)];
    } else if (session != nullptr) {
      session->push_back(event_of(line));
    }
  }
  if (sessions.empty()) throw std::runtime_error("there is no session in " + path);
  return sessions;
}

}  // namespace bench
