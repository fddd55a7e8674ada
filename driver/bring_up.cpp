// Claiming, opening, identifying and resetting the device, and giving it back.

#include <fcntl.h>
#include <unistd.h>

#include <cstring>

#include "driver/bring_up_rule.h"
#include "driver/nodes.h"
#include "driver/register_access.h"
#include "driver/register_map.h"
#include "driver/shared_state.h"
#include "platform/log.h"
#include "spectral_sensor_device.h"
#include "spectral_status.h"

namespace reg = spectral::reg;
using spectral::kDriverTag;
using spectral::read_register;
using spectral::Register;
using spectral::write_register;

namespace {

constexpr unsigned int kVersionMajor = 0;
constexpr unsigned int kVersionMinor = 20;
constexpr int kOtpReadyPolls = 100;

// A descriptor that is not open. It is never 0, which may be another file of the process: a release
// after a failed bring-up writes to whatever the record holds, and on this one that fails.
constexpr std::int32_t kClosed = -1;

constexpr spectral::RegisterWrite kResetSequence[] = {
    {Register::kSoftwareReset, reg::kOn},
    {Register::kSoftwareReset, reg::kOff},
};

void log_open_failed() { SPECTRAL_LOG_ERROR(kDriverTag, "%s open device failed\n", "VD6281_Init"); }

void close_node(std::int32_t* fd) {
  if (*fd < 0) return;
  close(*fd);
  *fd = kClosed;
}

// Opens the three nodes into the record. After a failure those that were open already are closed.
bool open_nodes(VD6281_device* dev) {
  dev->fd_read_byte = open(spectral::kReadBytePath, O_WRONLY | O_CLOEXEC);
  if (dev->fd_read_byte < 0) {
    log_open_failed();
    return false;
  }
  dev->fd_write_byte = open(spectral::kWriteBytePath, O_WRONLY | O_CLOEXEC);
  if (dev->fd_write_byte < 0) {
    log_open_failed();
    close_node(&dev->fd_read_byte);
    return false;
  }
  dev->fd_dev = open(spectral::kDevicePath, O_RDWR | O_CLOEXEC);
  if (dev->fd_dev < 0) {
    close_node(&dev->fd_write_byte);
    close_node(&dev->fd_read_byte);
    log_open_failed();
    return false;
  }
  return true;
}

void close_nodes(VD6281_device* dev) {
  close_node(&dev->fd_dev);
  close_node(&dev->fd_write_byte);
  close_node(&dev->fd_read_byte);
}

void prepare_list(VD6281_Transfer_t* list, Register first, int count) {
  list->mode = 0;
  list->count = static_cast<std::uint32_t>(count);
  for (int i = 0; i < count; ++i) list->reg[i] = address_of(first + i);
}

}  // namespace

VD6281_device* SpectralSensorDevice::get_device() {
  VD6281_device* dev = &m_VD6281Device[0];
  return dev->state == VD6281_STATE_NONE ? dev : nullptr;
}

VD6281_device* SpectralSensorDevice::get_active_device() {
  VD6281_device* dev = &m_VD6281Device[0];
  return spectral::state_of(dev) != VD6281_STATE_NONE ? dev : nullptr;
}

void SpectralSensorDevice::setup_device(VD6281_device* dev) {
  std::memset(dev, 0, sizeof *dev);
  dev->fd_read_byte = kClosed;
  dev->fd_write_byte = kClosed;
  dev->fd_dev = kClosed;
  dev->state = VD6281_STATE_IDLE;
  dev->otp_usage_enable = 1;
  dev->output_dark_enable = 0;
  dev->exposure = spectral::kBringUpExposureUs;
}

void SpectralSensorDevice::select_device_wa(VD6281_device* dev) {
  for (int i = 0; i < spectral::kWorkArounds; ++i) {
    dev->wa[i] = spectral::needs_work_around(dev->device_id, dev->revision_id, i) ? 1 : 0;
  }
}

bool SpectralSensorDevice::is_cut_2_0(VD6281_device* dev) {
  return spectral::is_cut(dev->device_id, dev->revision_id, spectral::kRevisionCut20);
}

bool SpectralSensorDevice::is_cut_2_1(VD6281_device* dev) {
  return spectral::is_cut(dev->device_id, dev->revision_id, spectral::kRevisionCut21);
}

bool SpectralSensorDevice::is_cut_2_2(VD6281_device* dev) {
  return spectral::is_cut(dev->device_id, dev->revision_id, spectral::kRevisionCut22);
}

int SpectralSensorDevice::VD6281_Init() {
  VD6281_device* dev = get_device();
  if (dev == nullptr) {
    SPECTRAL_LOG_ERROR(kDriverTag, "dev is null");
    return SPECTRAL_BRING_UP_FAILED;
  }
  setup_device(dev);
  if (!open_nodes(dev)) {
    put_device(dev);
    return SPECTRAL_BRING_UP_FAILED;
  }
  prepare_list(&dev->als_xfer, Register::kAlsResults, reg::kAlsResultRegisters);
  prepare_list(&dev->flicker_xfer, Register::kFlickerDetector, reg::kFlickerDetectorRegisters);
  int status = check_supported_device(dev);
  if (status == SPECTRAL_OK) {
    select_device_wa(dev);
    status = dev_sw_reset(dev);
  }
  if (status == SPECTRAL_OK) status = dev_configuration(dev);
  if (status == SPECTRAL_OK) return SPECTRAL_OK;
  put_device(dev);
  close_nodes(dev);
  return SPECTRAL_BRING_UP_FAILED;
}

int SpectralSensorDevice::VD6281_Term() {
  VD6281_device* dev = get_active_device();
  if (dev == nullptr) return SPECTRAL_NO_DEVICE;
  put_device(dev);
  close_nodes(dev);
  return SPECTRAL_OK;
}

int SpectralSensorDevice::check_supported_device(VD6281_device* dev) {
  if (int status = read_register(dev, Register::kDeviceId, &dev->device_id)) return status;
  if (int status = read_register(dev, Register::kRevisionId, &dev->revision_id)) return status;
  return spectral::is_supported(dev->device_id, dev->revision_id) ? SPECTRAL_OK
                                                                  : SPECTRAL_UNSUPPORTED_CHIP;
}

int SpectralSensorDevice::dev_sw_reset(VD6281_device* dev) {
  return spectral::write_registers(dev, kResetSequence);
}

int SpectralSensorDevice::opt_reset(VD6281_device* dev) {
  if (int status = write_register(dev, Register::kOtpControl, reg::kOtpLoad)) return status;
  for (int i = 0; i < kOtpReadyPolls; ++i) {
    std::uint8_t ready = 0;
    if (int status = read_register(dev, Register::kOtpStatus, &ready)) return status;
    if ((ready & reg::kOtpReady) == reg::kOtpReady) return SPECTRAL_OK;
  }
  return SPECTRAL_OTP_NOT_READY;
}

void SpectralSensorDevice::put_device(VD6281_device* dev) {
  dev_sw_reset(dev);
  opt_reset(dev);
  if (is_cut_2_2(dev)) write_register(dev, Register::kCut22Control, reg::kCut22Idle);
  dev->state = VD6281_STATE_NONE;
}

int SpectralSensorDevice::VD6281_GetVersion(unsigned int* major, unsigned int* minor) {
  if (major == nullptr || minor == nullptr) return SPECTRAL_BAD_ARGUMENT;
  *major = kVersionMajor;
  *minor = kVersionMinor;
  return SPECTRAL_OK;
}

int SpectralSensorDevice::VD6281_GetProductVersion(unsigned char* id, unsigned char* revision) {
  const VD6281_device* dev = get_active_device();
  if (dev == nullptr) return SPECTRAL_NO_DEVICE;
  if (id == nullptr || revision == nullptr) return SPECTRAL_BAD_ARGUMENT;
  *id = dev->device_id;
  *revision = dev->revision_id;
  return SPECTRAL_OK;
}
