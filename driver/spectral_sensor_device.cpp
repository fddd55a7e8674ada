#include "spectral_sensor_device.h"

SpectralSensorDevice* SpectralSensorDevice::m_pInstance = nullptr;
std::mutex SpectralSensorDevice::m_instance_mtx;
VD6281_device SpectralSensorDevice::m_VD6281Device[1];

namespace {

// Before anyone can call: no device open. At run time rather than in the record's initialiser,
// which would put the whole record, zeros and all, into the file.
[[maybe_unused]] const bool g_record_is_free = [] {
  VD6281_device& dev = SpectralSensorDevice::m_VD6281Device[0];
  dev.state = VD6281_STATE_NONE;
  dev.fd_read_byte = -1;
  dev.fd_write_byte = -1;
  dev.fd_dev = -1;
  return true;
}();

}  // namespace

SpectralSensorDevice::SpectralSensorDevice() { m_flkResult.gain = 1.0f; }
