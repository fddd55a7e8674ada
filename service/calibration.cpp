// The unit's calibration: finding the phone model and the factory readings, computing the factors,
// and applying them.

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <memory>
#include <new>
#include <optional>

#include "driver/channel.h"
#include "driver/nodes.h"
#include "driver/shared_state.h"
#include "flicker/facade_traits.h"
#include "platform/android.h"
#include "service/calibration.h"
#include "service/calibration_rule.h"

namespace {

constexpr char kModelProperty[] = "ro.product.device";
constexpr std::size_t kMostBytes = 65536;  // of the factory file

std::uint32_t find_model() {
  char name[spectral::kPropertyValueMax] = {};
  if (property_get(kModelProperty, name, "unknown") < 1) return spectral::kUnknownModel;
  return spectral::model_of(name);
}

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

// The first line of `text`, which is cut off from it and becomes a string of its own; null when
// there is none. NULs are part of a line.
char* next_line(char** text, char* end) {
  if (*text == end) return nullptr;
  char* const line = *text;
  char* const line_end = std::find(line, end, '\n');
  *text = line_end == end ? end : line_end + 1;
  *line_end = '\0';
  return line;
}

// The file's content up to its end or to the first failing read, of which the last, unfinished line
// is left out. Returns its size, or nothing for a file of more than `most` bytes.
std::optional<std::size_t> read_content(std::FILE* file, char* content, std::size_t most) {
  const std::size_t size = std::fread(content, 1, most, file);
  if (size == most && std::fgetc(file) != EOF) return std::nullopt;
  if (std::ferror(file) == 0) return size;
  const auto last = std::find(std::make_reverse_iterator(content + size),
                              std::make_reverse_iterator(content), '\n');
  return static_cast<std::size_t>(last.base() - content);
}

// Stores the reading of each line that has one. A channel whose line is missing keeps the reading
// that the caller gave.
bool parse_readings(char* text, std::size_t size, unsigned short* readings) {
  char* const end = text + size;
  std::int64_t number = 0;
  while (const char* line = next_line(&text, end)) {
    const int channel = spectral::channel_on_line(++number);
    if (channel < 0) continue;
    const auto reading = spectral::parse_reading(line);
    if (!reading) return false;
    readings[channel] = *reading;
  }
  return spectral::are_plausible(readings);
}

// Whether all six readings of the factory file are plausible. Anything but a regular file would
// block, or never end.
bool read_factory_file(unsigned short* readings) {
  struct stat status = {};
  if (stat(spectral::kFactoryFilePath, &status) == 0 && !S_ISREG(status.st_mode)) return false;
  const File file(std::fopen(spectral::kFactoryFilePath, "re"), std::fclose);
  if (file == nullptr || readings == nullptr) return false;
  const std::unique_ptr<char[]> content(new (std::nothrow) char[kMostBytes + 1]);
  if (content == nullptr) return false;
  const auto size = read_content(file.get(), content.get(), kMostBytes);
  return size && parse_readings(content.get(), *size, readings);
}

// Without readings, or for an unknown model, the unit counts as not calibrated.
template <typename Facade>
void compute_factors(Facade& facade, const unsigned short* readings) {
  if (readings == nullptr || !spectral::is_model(facade.m_deviceType)) {
    spectral::set_flag(&facade.m_calibrationValid, false);
    return;
  }
  for (int n = 0; n < spectral::kChannels; ++n) {
    facade.m_calibrationFactor[n] =
        spectral::calibration_factor(facade.m_deviceType, n, readings[n]);
  }
  // The flag is set last, since a capture of the other mode's client may run meanwhile.
  spectral::set_flag(&facade.m_calibrationValid, true);
}

template <typename Facade>
int prepare(Facade& facade) {
  spectral::set_flag(&facade.m_calibrationValid, false);
  facade.m_deviceType = find_model();
  if (facade.m_deviceType == spectral::kUnknownModel) return 0;
  unsigned short readings[spectral::kChannels] = {};
  if (!read_factory_file(readings)) return 0;
  compute_factors(facade, readings);
  return 1;
}

template <typename Facade>
void correct(Facade& facade, const ALSResult* raw) {
  if (raw == nullptr) return;
  spectral::store_result(facade, spectral::is_set(facade.m_calibrationValid), *raw);
}

}  // namespace

template <typename Facade>
void spectral::store_result(Facade& facade, bool calibrated, const ALSResult& raw) {
  facade.m_alsResult = raw;
  if (!calibrated) return;
  for (int n = 0; n < kChannels; ++n) {
    facade.m_alsResult.value[n] = calibrate(raw.value[n], facade.m_calibrationFactor[n]);
  }
}

template void spectral::store_result(SpectralSensorDevice&, bool, const ALSResult&);
template void spectral::store_result(SpectralSensor&, bool, const ALSResult&);

int SpectralSensorDevice::GetDeviceType() { return static_cast<int>(find_model()); }
int SpectralSensor::GetDeviceType() { return static_cast<int>(find_model()); }

bool SpectralSensorDevice::GetFATPData(unsigned short* fatp) { return read_factory_file(fatp); }
bool SpectralSensor::GetFATPData(unsigned short* fatp) { return read_factory_file(fatp); }

int SpectralSensorDevice::PrepareCalibrationData() { return prepare(*this); }
int SpectralSensor::PrepareCalibrationData() { return prepare(*this); }

void SpectralSensorDevice::ComputeCalData(unsigned short* fatp) { compute_factors(*this, fatp); }
void SpectralSensor::ComputeCalData(unsigned short* fatp) { compute_factors(*this, fatp); }

void SpectralSensorDevice::CorrectALSRAW(const ALSResult* raw) { correct(*this, raw); }
void SpectralSensor::CorrectALSRAW(const ALSResult* raw) { correct(*this, raw); }
