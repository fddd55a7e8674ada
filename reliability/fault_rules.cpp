#include "reliability/fault_rules.h"

#include <fnmatch.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <map>

#include "reliability/fault_sessions.h"

namespace sweep {

namespace {

using spectralsim::Call;
using spectralsim::Event;
using spectralsim::Node;
using spectralsim::Trace;
using Lines = std::vector<std::string>;

const std::string kDriver = "log E ilsservice-driver-device: ";
constexpr long kServiceFailed = -22;
constexpr long kTunnelReadSize = 8192;  // bytes that one fread asks for

// Which results of a refused call an operation may return.
enum PassesOn { kNothing, kResult, kResultOrNegated };

struct Promise {
  std::vector<long> statuses;
  PassesOn passes_on = kNothing;
  bool tells = false;     // whether a refused call rules out the status 0
  const char* said = "";  // start of the message that accompanies a status of -22
};

// The promise of each operation. An operation may return -4, -7, -8, 1, 7 or 8 when the failure
// of an earlier one has left the device in the wrong state.
const std::map<std::string, Promise> kPromises = {
    {"Create", {{0}}},
    {"Destroy", {{0}}},
    {"Init", {{0, -17, -22}, kNothing, true, "Init: "}},
    {"Uninit", {{0}}},
    {"ProcessALS", {{0, -22}}},  // judge_capture checks more
    {"ProcessALSAuto", {{0, -22}}},
    {"ProcessFlicker", {{0}}},
    {"Stop", {{0, -22}, kNothing, false, "StopExp"}},  // the stop within Process
    {"StartExpFLK", {{0, -22}, kNothing, false, "StartExpFLK: "}},
    {"StopExpFLK", {{0, -22}, kNothing, false, "StopExpFLK: "}},
    {"ReadFLK", {{0, -22}, kNothing, true, "ReadFLK: "}},
    {"ResetDevice", {{0, -1}, kResult, true}},
    {"Enable", {{0, -1}, kResult, true}},
    {"CheckEnableStatus", {{0, -1}, kResult, true}},
    {"VD6281_Init", {{0, -2}, kNothing, true}},
    {"Term", {{0, -4}}},
    {"GetUid", {{0, -4}, kNothing, true}},
    {"GetProductVersion", {{0, -4}, kNothing, true}},
    {"RdMultipleBytes", {{0, -4}, kResult, true}},
    {"SetExposureTime", {{0, -4, 7}, kResult, true}},
    {"SetGain", {{0, -4, 1}, kResult, true}},
    {"SetSamplingPeriod", {{0, -4, 7, -7}, kResult, true}},
    {"GetInterMeasurementTime", {{0, -4}, kResult, true}},
    {"SetControl", {{0, -4, -7}, kResultOrNegated, true}},
    {"GetControl", {{0, -4}, kResult, true}},
    {"SetPedestal", {{0, -4, -7}, kResult}},
    {"StartAls", {{0, -4, -1, -7}, kResult, true}},
    {"StopAls", {{0, -4, -8}, kResult, true}},
    {"GetAlsValues", {{0, -4, 8}, kResult, true}},
    {"SetFlickerChannelMask", {{0}, kNothing, true}},
    {"StartFlicker", {{0, -4, -1, -7}, kResult, true}},
    {"StopFlicker", {{0, -4, -8}, kResult}},
    {"GetSaturationValue", {{0, -4}, kResult, true}},
    {"GetFlickerData", {{0, 1, -4}, kResult}},
    {"GetFlickerFrequency", {{0, 3, -4, -8}, kResult, true}},
    {"GetFlickerFrequency_Ref", {{0, -4, -8}, kResult}},
    {"QuilInit", {{0, -4}, kNothing, true}},
    {"QuilTunnelSetup", {{0, -4}, kResult}},
    {"QuilResetRdBuf", {{0, -4}, kNothing, true}},
    {"QuilDump", {{0, -4}, kResult}},
    {"QuilTunnelTerminate", {{0, -4}, kResult}},
};

// Messages of steps that fail because an earlier step has failed, as patterns of fnmatch. SERVICE,
// DRIVER, LAYERED and WRAPPER stand for log tags. The misspelt "Pedstal" and "pedstal" and the
// double blanks are those of the library's messages.
const Lines kConsequences = {
    "log E SERVICE: Init: Failed to init Spectral Sensor, error code *",
    "log E DRIVER: Init: Pedstal value enable failure error code=*",
    "log E DRIVER: Init:  Pedstal value setup failure error code=*",
    "log E LAYERED: Init: Failed to set pedstal value, error code=*",
    "log E SERVICE: Init: Failed to load flicker library, error code 0",
    "log E SERVICE: UnloadFlickerLibrary: Error library handle == NULL!",
    "log E DRIVER: dev is null",
    "log E SERVICE: ConfigALS: Failed to config ALS *,*",
    "log E SERVICE: StartExpALS: Cannot start ALS exposure  *, channel=0x*",
    "log E SERVICE: StopExpALS: Cannot stop ALS exposure  *",
    "log E SERVICE: ReadALS: ALS read failed, error code *, channel=0x*",
    "log E DRIVER: StartExpFLK_AutoGain: Cannot start FLK  retVal=*, channel=0x*, gain=0x*",
    "log E LAYERED: StartExpFLK_AutoGain: Cannot start FLK  retVal=*, channel=0x*, gain=*.*",
    "log E SERVICE: StartExpFLK: Cannot start FLK  *, channel=0x*",
    "log E SERVICE: StopExpFLK: Cannot stop FLK exposure  *",
    "log E SERVICE: ReadFLK: FLK read failed, error code *, channel=0x*",
    "log E DRIVER: VD6281_GetFlickerFrequency_Ref: FLK read failed, error code *, channel=0x*",
    "log E DRIVER: VD6281_QuilTunnelTerminate: ERROR tun_dev is nullptr",
    "log E DRIVER: VD6281_GetFlickerDataBuffer:tun_dev is null (possibly device FW crash)",
    "log E DRIVER: VD6281_QuilDumpFlickerDataToFile:Failed to read data from the tunnel",
    "log E DRIVER: ReadFLKData: Failed to @(Init|setup|terminate) Quillon Sensor, error code -22",
    "log E WRAPPER: GetFlickerData: Failed to @(Init|setup|terminate) Quillon Sensor, error code *",
    "log E WRAPPER: EnableFlickerSensor: Failed to set flicker output type 1, error code *",
    "log E WRAPPER: EnableFlickerSensor: Failed to start flicker, channel mask 0x*, error code *",
    "log E WRAPPER: SetPedestal: Pedestal value @(setup|enable) failure error code=*",
    "log D WRAPPER: GetFlickerFrequency: Polling took * ms, rc=*",
};

// The message of a read without data, from either of the two readers of the tunnel.
const std::string kReadFailed =
    "@(log W DRIVER: VD6281_GetFlickerDataBuffer|log E DRIVER: VD6281_QuilDumpFlickerDataToFile)"
    ":Failed to read data from the tunnel";

bool fits(const std::string& line, std::string pattern) {
  for (const auto& [name, tag] :
       {std::pair("SERVICE", "ilsservice-driver?(-device)"),
        std::pair("DRIVER", "ilsservice-driver-device"), std::pair("LAYERED", "ilsservice-driver"),
        std::pair("WRAPPER", "flicker-sensor")}) {
    for (auto at = pattern.find(name); at != std::string::npos; at = pattern.find(name)) {
      pattern.replace(at, std::strlen(name), tag);
    }
  }
  return fnmatch(pattern.c_str(), line.c_str(), FNM_EXTMATCH) == 0;
}

bool is_consequence(const std::string& line) {
  return std::any_of(kConsequences.begin(), kConsequences.end(),
                     [&](const std::string& pattern) { return fits(line, pattern); });
}

std::string write_failed(int address, int value) {
  char text[80];
  std::snprintf(text, sizeof text, "VD6281_WrByte failed, addr = 0x%x, data = %d\n",
                static_cast<unsigned int>(address), value);
  return kDriver + text;
}

std::string read_failed(const Event& event) {
  const char* reader = "VD6281_RdByte";
  if (event.count > 1) {
    reader = event.address == 0x06 ? "VD6281_GetAlsValues" : "VD6281_GetFlickerFrequency";
  }
  return kDriver + reader + " ioctl failed";
}

// After a node has not opened, the library still resets the chip and its OTP, through a descriptor
// that cannot be written. Both writes fail and are logged.
Lines device_not_opened() {
  return {kDriver + "VD6281_Init open device failed\n", write_failed(0xFE, 1),
          write_failed(0x58, 0)};
}

Lines power_failed(const Event& event) {
  const std::string result = std::to_string(event.result);
  if (event.call == Call::kOpen) {
    return {kDriver + "VD6281_@(Enable|CheckEnableStatus) file open failed\n"};
  }
  if (event.call == Call::kRead) {
    return {kDriver + "VD6281_CheckEnableStatus failed, rc: " + result + "\n"};
  }
  return {"log W DRIVER: VD6281_Enable failed, isEnable: " + event.text.substr(0, 1) +
          " (expected at camera process start up)\n"};
}

Lines tunnel_failed(const Event& event) {
  const std::string terminate = kDriver + "VD6281_QuilTunnelTerminate: ERROR ";
  if (event.call == Call::kOpen) {
    return {kDriver + "Failed to open the tunnel device node", terminate + "tun_dev is nullptr"};
  }
  const std::string result = std::to_string(event.result);
  const bool vsync = event.text == " 43e0/15";
  switch (event.address) {
    // The library's messages are mixed up: for the route and for the flicker stream they name the
    // VSYNC sensor, and for the VSYNC stream they do not.
    case 0x24:
    case 0x22:
      return {kDriver + "VD6281_QuilTunnelSetup: ERROR Tunnel setup failed " +
              (vsync ? "" : "for VSYNC sensor ") + result};
    // These two messages are swapped: each names the other stream.
    case 0x23:
      return {terminate + (vsync ? "Sensor Tunnel" : "Vsync sensor") + " terminate failed " +
              result};
    default:
      return {terminate + "Route terminate failed " + result};
  }
}

// Returns the patterns of the messages that must follow a refused call before the next call.
Lines messages_of(const Event& event) {
  switch (event.node) {
    case Node::kEnable:
      return power_failed(event);
    case Node::kTunnel:
      return tunnel_failed(event);
    case Node::kUnparsedFile:
    case Node::kDumpFile:
      return {kDriver + "VD6281_QuilDumpFlickerDataToFile: ?(ERROR: )Failed to open the file " +
              (event.node == Node::kDumpFile ? "/data/flicker_data.wav"
                                             : "/data/unparsed_flicker_data")};
    case Node::kAnalysisLibrary:
      return {"log E SERVICE: check_dl_error: dlerror *",
              "log E SERVICE: LoadFlickerLibrary: error opening libzelk_flicker.so!",
              "log E SERVICE: UnloadFlickerLibrary: Error library handle == NULL!",
              "log E SERVICE: Init: Failed to load flicker library, error code 0"};
    case Node::kDevice:
    case Node::kReadByte:
    case Node::kWriteByte:
      if (event.call == Call::kOpen) return device_not_opened();
      if (event.call == Call::kIoctl) return {read_failed(event)};
      return {write_failed(event.address, event.value)};
    case Node::kFactoryFile:
    case Node::kNone:
      break;
  }
  return {};
}

bool is_of_sensor(const Event& event) {
  return event.node == Node::kDevice || event.node == Node::kReadByte ||
         event.node == Node::kWriteByte || event.node == Node::kEnable ||
         event.node == Node::kAnalysisLibrary;
}

// The steps of an ambient-light capture in which a call was refused.
struct Capture {
  bool configuring = false;
  bool starting = false;
  bool reading = false;
  bool stopping = false;
  bool has_read = false;  // a read was made or attempted

  void see(const Event& event) {
    if (!event.is_register_read() && !event.is_register_write()) return;
    const bool refused = is_refused(event);
    if (event.address == kStatus || event.address == kCounts) {
      has_read = true;
      reading |= refused;
    } else if (is_setting(event)) {
      configuring |= refused;
    } else {
      (has_read ? stopping : starting) |= refused;
    }
  }

 private:
  static constexpr int kStatus = 0x02;  // read before the counts, written after them
  static constexpr int kCounts = 0x06;

  static bool is_setting(const Event& event) {
    const bool exposure = event.address == 0x1D || event.address == 0x1E;
    return exposure || (event.address >= 0x25 && event.address <= 0x2A);
  }
};

// Returns a logged ALS result without its last word, the time stamp.
std::string reading_of(const std::string& als) { return als.substr(0, als.rfind(' ')); }

// Goes through a trace event by event, and collects what it breaks.
class Reader {
 public:
  explicit Reader(const std::vector<long>& results) : m_results(results) {}

  void see(const Event& event) {
    if (event.call == Call::kLog) {
      event.tag == kClientTag ? see_client(event.text) : see_message(describe(event));
    } else if (event.call != Call::kClose) {
      see_call(event);
    }
  }

  Lines broken() {
    expect_nothing("the end");
    return m_broken;
  }

 private:
  void expect_nothing(const std::string& before) {
    for (const std::string& line : m_expected) {
      m_broken.push_back(std::string("no \"").append(line).append("\" before ").append(before));
    }
    m_expected.clear();
  }

  void see_call(const Event& event) {
    if (!m_expected.empty()) expect_nothing(describe(event));
    m_capture.see(event);
    if (event.node == Node::kTunnel && event.call == Call::kRead) return see_tunnel_read(event);
    if (event.node == Node::kTunnel && event.call == Call::kOpen) m_got = 0;
    if (!is_refused(event)) return;
    if (is_of_sensor(event)) m_refused = true;
    const Lines lines = messages_of(event);
    m_expected.assign(lines.begin(), lines.end());
  }

  // One fread makes several reads, and the library logs a failure only for an fread that returned
  // no bytes at all. Where the stream ends behind some bytes, the next fread returns nothing
  // without a read of its own, and the message may come then.
  void see_tunnel_read(const Event& event) {
    if (event.result > 0) {
      m_got = (m_got + event.result) % kTunnelReadSize;
      return;
    }
    if (m_got == 0) m_expected.assign(1, kReadFailed);
    m_ended = event.result == 0 && m_got > 0;
    m_got = 0;
  }

  void see_message(const std::string& line) {
    m_said.push_back(line);
    // After this failure FlickerSensor::SetPedestal still enables the pedestal, and returns the
    // status of that alone.
    if (line.find("SetPedestal: Pedestal value setup failure") != std::string::npos) {
      m_refused = false;
    }
    if (!m_expected.empty() && fits(line, m_expected.front())) {
      m_expected.pop_front();
    } else if (m_ended && fits(line, kReadFailed)) {
      m_ended = false;
    } else if (!is_consequence(line)) {
      m_broken.push_back("unexpected: " + line);
    }
  }

  void see_client(const std::string& text) {
    const auto sign = text.find(" = ");
    if (sign == std::string::npos) {
      m_told = text;
      return;
    }
    expect_nothing(text);
    const std::string operation = text.substr(0, sign);
    const long status = std::stol(text.substr(sign + 3));
    const auto promise = kPromises.find(operation);
    if (promise == kPromises.end()) {
      m_broken.push_back("unknown operation: " + text);
    } else {
      judge(text, promise->second, status);
    }
    if (operation == "Stop") return;  // the Process line of the same capture follows
    if (operation == "Create") m_last_auto = kNothingMeasured;
    if (operation == "ProcessALS") judge_capture(text, status, false);
    if (operation == "ProcessALSAuto") judge_capture(text, status, true);
    if (operation == "ProcessFlicker" && m_told.rfind("flicker 1 ", 0) != 0) {
      m_broken.push_back("not valid: " + text);
    }
    m_refused = false;
    m_capture = {};
    m_said.clear();
  }

  // Checks one ambient-light capture. A step in which a call was refused must log its message. A
  // capture that read nothing, because nothing was started or the read failed, must return -22:
  // without values or, in auto-exposure, with the previous ones and the message of ReadALS. A
  // result that was read must be valid. The exception is a default capture that could not be
  // configured because the measurement of an earlier one still ran, which may never become ready.
  void judge_capture(const std::string& text, long status, bool automatic) {
    const bool not_configured = has_said("ConfigALS: ");
    const bool not_started = has_said("StartExpALS: ");
    const bool failed = m_capture.configuring || m_capture.starting || m_capture.reading;
    const std::string reading = reading_of(m_told);
    const bool valid = reading.rfind("als 1 ", 0) == 0;
    const auto require = [&](bool holds, const char* what) {
      if (!holds) m_broken.push_back(std::string(what) + ": " + text + ", " + m_told);
    };
    require(!m_capture.configuring || not_configured, "refused, without ConfigALS");
    require(!m_capture.starting || not_started, "refused, without StartExpALS");
    require(!m_capture.stopping || has_said("StopExpALS: "), "refused, without StopExpALS");
    const bool not_read = m_capture.reading || !m_capture.has_read;
    require(has_said("ReadALS: ") == (automatic && not_read), "with or without ReadALS, wrongly");
    require(!failed || status == kServiceFailed, "refused, yet well");
    if (status != 0) require(failed || not_configured || not_started, "failed without a cause");
    if (status != 0 && automatic) require(reading == m_last_auto, "not the previous result");
    if (status != 0 && !automatic) require(!valid, "failed, yet valid");
    if (status == 0) require(valid || (not_configured && !automatic), "well, yet not valid");
    if (status == 0 && automatic) m_last_auto = reading;
  }

  bool has_said(const std::string& what) const {
    return std::any_of(m_said.begin(), m_said.end(), [&](const std::string& line) {
      return line.find(": " + what) != std::string::npos;
    });
  }

  void judge(const std::string& text, const Promise& promise, long status) {
    const auto is_in = [](const std::vector<long>& all, long value) {
      return std::find(all.begin(), all.end(), value) != all.end();
    };
    const bool passed_on = (promise.passes_on != kNothing && is_in(m_results, status)) ||
                           (promise.passes_on == kResultOrNegated && is_in(m_results, -status));
    if (!is_in(promise.statuses, status) && !passed_on) m_broken.push_back("undocumented: " + text);
    if (promise.tells && m_refused && status == 0) m_broken.push_back("untold failure: " + text);
    if (status == kServiceFailed && promise.said[0] != '\0' && !has_said(promise.said)) {
      m_broken.push_back("without a message: " + text);
    }
  }

  static constexpr char kNothingMeasured[] =
      "als 0 0 0x0p+0 0x0p+0 0x0p+0 0x0p+0 0x0p+0 0x0p+0 0x0p+0 0x0p+0";

  const std::vector<long>& m_results;
  Capture m_capture;
  std::string m_told;  // the client's last line that was not a status
  std::string m_last_auto = kNothingMeasured;
  std::deque<std::string> m_expected;
  bool m_refused = false;
  long m_got = 0;  // bytes that the current fread has got
  bool m_ended = false;
  Lines m_said;
  Lines m_broken;
};

}  // namespace

bool is_refused(const Event& event) {
  return event.result < 0 || (event.call == Call::kIoctl && event.result != 0);
}

Lines broken_rules(const Trace& trace, const std::vector<long>& results) {
  Reader reader(results);
  for (const Event& event : trace) reader.see(event);
  return reader.broken();
}

Lines needless_messages(const Trace& trace) {
  Lines needless;
  bool forgotten = false;  // ResetDevice was the last call, and the next Init fails
  for (const Event& event : trace) {
    if (event.call != Call::kLog) continue;
    if (event.tag == kClientTag) {
      forgotten = event.text.rfind("ResetDevice", 0) == 0;
    } else if (!forgotten && event.text.find("Polling took") == std::string::npos) {
      needless.push_back(describe(event));
    }
  }
  return needless;
}

}  // namespace sweep
