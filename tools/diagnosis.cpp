#include "tools/diagnosis.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "spectral_status.h"
#include "spectral_types.h"
#include "tools/phone_facts.h"
#include "vd6281.h"

namespace spectralsensorctl {

namespace {

constexpr char kPowerOn[] = "1";
constexpr char kPowerOff[] = "0";
constexpr char kStopMeasurement[] = "0x300";  // writes 0 to register 0x03
constexpr int kDeviceIdRegister = 0x00;

std::string advise(const std::string& node, const std::string& action, int error) {
  const std::string what = node + ": " + action + std::strerror(error);
  if (error == ENOENT || error == ENODEV || error == ENXIO) {
    return what +
           "\nIs this a phone with the sensor, and its kernel driver loaded? Without one, try "
           "--simulate.";
  }
  if (error == EACCES || error == EPERM) {
    return what + "\nTry as root, and look for an SELinux denial: dmesg | grep avc.";
  }
  return what + "\nThe kernel's log may say more: dmesg.";
}

// Opens the node and calls `use(fd)`, which returns a negative number and sets errno if it fails.
// Returns why the node could not be opened or used; empty if both worked.
template <typename Use>
std::string try_node(const char* node, int flags, const char* action, Use use) {
  const int fd = open(node, flags | O_CLOEXEC);
  if (fd < 0) return advise(node, "", errno);
  const bool works = use(fd) >= 0;
  const int error = errno;
  close(fd);
  return works ? "" : advise(node, action, error);
}

long read_device_id(int fd) {
  VD6281_Transfer_t block = {};
  block.mode = 1;
  block.count = 1;
  block.reg[0] = kDeviceIdRegister;
  return ioctl(fd, kReadRegistersRequest, &block) == 0 ? 0 : -1;
}

std::string explain_nodes() {
  std::string why = try_node(kEnablePath, O_RDWR, "switching the power on: ", [](int fd) {
    return write(fd, kPowerOn, sizeof kPowerOn);
  });
  if (why.empty()) why = explain_node(kReadBytePath, O_WRONLY);
  if (why.empty()) {
    why = try_node(kWriteBytePath, O_WRONLY, "writing a register: ", [](int fd) {
      return write(fd, kStopMeasurement, sizeof kStopMeasurement);
    });
  }
  if (why.empty()) {
    why = try_node(kDevicePath, O_RDWR, "reading a register: ", read_device_id);
  }
  return why;
}

// Returns why the analysis library does not load; empty if it does.
std::string explain_analysis() {
  void* const library = dlopen(kAnalysisLibraryPath, RTLD_NOW);
  if (library == nullptr) {
    const char* why = dlerror();
    return std::string(why != nullptr ? why : kAnalysisLibraryPath) +
           "\nFlicker needs the analysis library there; libflicker_analysis.so is one.";
  }
  dlclose(library);
  return "";
}

}  // namespace

void require(int status, const std::string& what) {
  if (status == SPECTRAL_OK) return;
  throw std::runtime_error(refer_to_log(what + " failed with status " + std::to_string(status)));
}

void require_of_tunnel(int status, const std::string& what) {
  require(status, std::string(kTunnelPath) + ": " + what);
}

std::string explain_node(const char* node, int flags) {
  return try_node(node, flags, "", [](int) { return 0; });
}

std::string explain_power_off() {
  return try_node(kEnablePath, O_RDWR, "switching the power off: ", [](int fd) {
    return write(fd, kPowerOff, sizeof kPowerOff);
  });
}

std::string refer_to_log(const std::string& what) {
  return what +
         "\nThe log says at which step: logcat on a phone, SPECTRALHOST_LOG=debug elsewhere. What "
         "SELinux denied: dmesg | grep avc.";
}

std::string explain_failure(int mode, const std::string& what) {
  std::string why = explain_nodes();
  if (why.empty() && mode == SPECTRAL_MODE_FLICKER) why = explain_analysis();
  return why.empty() ? refer_to_log(what) : why;
}

}  // namespace spectralsensorctl
