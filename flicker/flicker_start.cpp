// Starting the flicker measurement, with the gain searched for or as it is stored, and stopping it.

#include <chrono>

#include "driver/bring_up_rule.h"
#include "driver/register_access.h"
#include "driver/register_map.h"
#include "driver/shared_state.h"
#include "flicker/facade_traits.h"
#include "flicker/flicker_start_rule.h"
#include "platform/log.h"
#include "spectral_status.h"

using spectral::DeviceTraits;
using spectral::ErrorSum;
using spectral::FacadeTraits;
using spectral::GainChoice;
using spectral::LayeredTraits;
using spectral::SaturationCounter;

namespace {

// The texts of the messages in this file are fixed, with their doubled blanks.

constexpr int kSaturationPolls = 13;
constexpr std::chrono::milliseconds kProbeTime{1};

// The trials of one gain search. A failure does not end the search: all statuses are summed.
template <typename Facade>
class GainSearch {
 public:
  using Traits = FacadeTraits<Facade>;
  using Gain = typename Traits::Gain;

  explicit GainSearch(Facade& facade) : m_facade(facade) {}

  int errors() const { return m_errors.value(); }

  // One trial: starts the measurement, polls the saturation counter, and stops it.
  bool saturates(const GainChoice& choice) {
    Gain applied = 0;
    start(choice, &applied);
    const bool saturated = poll_saturation();
    m_errors.add(Traits::stop_flicker(m_facade));
    return saturated;
  }

  // `applied` keeps its value where the gain is refused.
  void start(const GainChoice& choice, Gain* applied) {
    m_facade.m_flkChannelMask = choice.channel;
    m_errors.add(Traits::select_flicker_channel(m_facade));
    const Gain gain = Traits::gain_of(spectral::kGainQ8[choice.index]);
    m_errors.add(Traits::set_flicker_gain(m_facade, gain, applied));
    m_errors.add(Traits::start_flicker(m_facade));
  }

 private:
  // Polls until the counter shows saturation or the flicker enable flag is cleared. The timed lock
  // is a probe only: nothing else ever holds the mutex.
  bool poll_saturation() {
    for (int i = 0; i < kSaturationPolls; ++i) {
      if (!spectral::is_set(m_facade.m_flkEnableFlag)) return false;
      if (!Traits::read_saturation(m_facade, &m_counter, &m_errors)) return false;
      if (m_facade.m_flk_ag_mtx.try_lock_for(kProbeTime)) m_facade.m_flk_ag_mtx.unlock();
      if (m_counter.is_saturated()) return true;
    }
    return false;
  }

  Facade& m_facade;
  SaturationCounter m_counter;
  ErrorSum m_errors;
};

// Leaves the measurement running at the gain that the search has found.
template <typename Facade>
int start_with_searched_gain(Facade& facade) {
  GainSearch<Facade> search(facade);
  const GainChoice choice =
      spectral::search_gain([&search](const GainChoice& trial) { return search.saturates(trial); });
  search.start(choice, &facade.m_flkGain);
  if (search.errors() == 0) return SPECTRAL_OK;
  FacadeTraits<Facade>::log_search_failed(facade, search.errors());
  return SPECTRAL_FAILED;
}

template <typename Facade>
int start_at_stored_gain(Facade& facade) {
  using Traits = FacadeTraits<Facade>;
  auto applied = facade.m_flkGain;
  Traits::select_flicker_channel(facade);
  Traits::set_flicker_gain(facade, facade.m_flkGain, &applied);
  Traits::switch_pedestal_on(facade);
  if (int status = Traits::start_flicker(facade)) {
    SPECTRAL_LOG_ERROR(Traits::kLogTag, "%s: Cannot start FLK  %d, channel=0x%x", "StartExpFLK",
                       status, facade.m_flkChannelMask);
    return SPECTRAL_FAILED;
  }
  facade.m_flkGain = applied;
  return SPECTRAL_OK;
}

template <typename Facade>
int stop(Facade& facade) {
  using Traits = FacadeTraits<Facade>;
  const int status = Traits::stop_flicker(facade);
  if (status == SPECTRAL_OK) return SPECTRAL_OK;
  SPECTRAL_LOG_ERROR(Traits::kLogTag, "%s: Cannot stop FLK exposure  %d", "StopExpFLK", status);
  return SPECTRAL_FAILED;
}

}  // namespace

int DeviceTraits::select_flicker_channel(Facade&) { return SPECTRAL_OK; }  // each start names it
int LayeredTraits::select_flicker_channel(Facade& facade) {
  return facade.m_flicker->SetFlickerChannelMask(facade.m_flkChannelMask);
}

int DeviceTraits::set_flicker_gain(Facade& facade, Gain gain, Gain* applied) {
  const auto channel = static_cast<VD6281_Channel_Id_t>(facade.m_flkChannelMask);
  return facade.VD6281_SetGain(channel, gain, applied);
}
int LayeredTraits::set_flicker_gain(Facade& facade, Gain gain, Gain* applied) {
  return facade.m_flicker->SetGain(facade.m_flkChannelMask, gain, applied);
}

void DeviceTraits::switch_pedestal_on(Facade& facade) {
  const VD6281_device* dev = facade.get_active_device();
  if (dev != nullptr && !spectral::flicker_runs(dev)) {
    facade.ac_mode_update(reg::kPedestalDisable, 0);
  }
  facade.VD6281_SetControl(VD6281_CONTROL_PEDESTAL_VALUE, spectral::kUsualPedestal);
}
void LayeredTraits::switch_pedestal_on(Facade&) {}

int DeviceTraits::start_flicker(Facade& facade) {
  facade.VD6281_SetFlickerOutputType(VD6281_FLICKER_OUTPUT_1);  // refused while flicker runs
  return facade.VD6281_Start(VD6281_MODE_FLICKER,
                             static_cast<std::uint8_t>(facade.m_flkChannelMask));
}
int LayeredTraits::start_flicker(Facade& facade) { return facade.m_flicker->Enable(true); }

int DeviceTraits::stop_flicker(Facade& facade) {
  VD6281_device* dev = facade.get_active_device();
  return dev != nullptr ? facade.stop_flicker(dev) : SPECTRAL_NO_DEVICE;
}
int LayeredTraits::stop_flicker(Facade& facade) { return facade.m_flicker->Enable(false); }

bool DeviceTraits::read_saturation(Facade&, SaturationCounter* counter, ErrorSum*) {
  VD6281_device* dev = &Facade::m_VD6281Device[0];
  spectral::read_register(dev, Register::kFlickerDetector, &counter->high);
  spectral::read_register(dev, Register::kFlickerDetector + 1, &counter->low);
  return true;  // a failed read counts neither as an error nor as the end of the polls
}
bool LayeredTraits::read_saturation(Facade& facade, SaturationCounter* counter, ErrorSum* errors) {
  unsigned short value = 0;
  const int status = facade.m_flicker->GetSaturationValue(&value);
  errors->add(status);
  counter->high = static_cast<std::uint8_t>(value >> 8);
  counter->low = static_cast<std::uint8_t>(value & 0xFF);
  return status == SPECTRAL_OK;
}

void DeviceTraits::log_search_failed(const Facade& facade, int errors) {
  SPECTRAL_LOG_ERROR(kLogTag, "%s: Cannot start FLK  retVal=%d, channel=0x%x, gain=0x%x",
                     "StartExpFLK_AutoGain", errors, facade.m_flkChannelMask, facade.m_flkGain);
}
void LayeredTraits::log_search_failed(const Facade& facade, int errors) {
  SPECTRAL_LOG_ERROR(kLogTag, "%s: Cannot start FLK  retVal=%d, channel=0x%x, gain=%f",
                     "StartExpFLK_AutoGain", errors, facade.m_flkChannelMask,
                     static_cast<double>(facade.m_flkGain));
}

int SpectralSensorDevice::StartExpFLK_AutoGain() { return start_with_searched_gain(*this); }
int SpectralSensor::StartExpFLK_AutoGain() { return start_with_searched_gain(*this); }

int SpectralSensorDevice::StartExpFLK() { return start_at_stored_gain(*this); }
int SpectralSensor::StartExpFLK() { return start_at_stored_gain(*this); }

int SpectralSensorDevice::StopExpFLK() { return stop(*this); }
int SpectralSensor::StopExpFLK() { return stop(*this); }
