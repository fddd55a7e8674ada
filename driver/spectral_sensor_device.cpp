#include "spectral_sensor_device.h"

SpectralSensorDevice* SpectralSensorDevice::m_pInstance = nullptr;
std::mutex SpectralSensorDevice::m_instance_mtx;
VD6281_device SpectralSensorDevice::m_VD6281Device[1];

namespace {

// Marks the record as free when the library is loaded, before anyone can call. This is code and not
// the record's initialiser, which would put the whole record with all its zeros into the file.
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
