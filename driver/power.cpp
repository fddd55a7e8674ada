// Switching the sensor's power by the enable attribute, whatever the device record holds.

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

#include "driver/nodes.h"
#include "driver/register_access.h"
#include "platform/log.h"
#include "spectral_sensor_device.h"
#include "spectral_status.h"

namespace {

// Opens the enable attribute. A failure is logged under the name of `operation`.
int open_enable(const char* operation) {
  const int fd = open(spectral::kEnablePath, O_RDWR | O_CLOEXEC);
  if (fd < 0) SPECTRAL_LOG_ERROR(spectral::kDriverTag, "%s file open failed\n", operation);
  return fd;
}

}  // namespace

int SpectralSensorDevice::VD6281_Enable(bool enable) {
  const int fd = open_enable("VD6281_Enable");
  if (fd < 0) return SPECTRAL_OPEN_FAILED;
  const char text[] = {enable ? '1' : '0', '\0'};  // the NUL is sent too
  const int written = static_cast<int>(write(fd, text, sizeof text));
  close(fd);
  if (written < 0) {
    SPECTRAL_LOG_WARNING(spectral::kDriverTag,
                         "%s failed, isEnable: %d (expected at camera process start up)\n",
                         "VD6281_Enable", enable);
    return written;
  }
  m_pInstance->m_powered = enable ? 1 : 0;
  return SPECTRAL_OK;
}

int SpectralSensorDevice::VD6281_CheckEnableStatus(bool* enabled) {
  const int fd = open_enable("VD6281_CheckEnableStatus");
  if (fd < 0) return SPECTRAL_OPEN_FAILED;
  char text[2] = {};  // only the first character of the attribute counts
  const int got = static_cast<int>(read(fd, text, 1));
  close(fd);
  if (got < 0) {
    SPECTRAL_LOG_ERROR(spectral::kDriverTag, "%s failed, rc: %d\n", "VD6281_CheckEnableStatus",
                       got);
    return got;
  }
  *enabled = std::atoi(text) != 0;
  return SPECTRAL_OK;
}
