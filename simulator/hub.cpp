#include "simulator/hub.h"

#include <algorithm>
#include <utility>

#include "simulator/clock.h"

namespace spectralsim {

namespace {

constexpr std::uint32_t kFlickerSensor = 36897;
constexpr std::uint32_t kVsyncSensor = 17376;
constexpr std::uint16_t kFlickerId = 0;
constexpr std::uint16_t kVsyncId = 15;

constexpr std::int64_t kPayloadNs = 10 * kNsPerMs;
constexpr std::int64_t kSampleNs = 500000;
constexpr int kSamplesPerPayload = 20;
constexpr std::size_t kRecordSize = 8;
constexpr std::int64_t kVsyncNs = 33333333;
constexpr std::size_t kVsyncPayload = 16;
constexpr std::size_t kAtOnce = 16384;      // bytes that wait for the reader
constexpr std::int64_t kMostBehind = 1000;  // payloads that the hub keeps for a late reader

void put(std::string* bytes, std::uint64_t value, int size) {
  for (int i = 0; i < size; ++i) bytes->push_back(static_cast<char>(value >> (8 * i) & 0xFF));
}

}  // namespace

Hub& Hub::at_once(bool on) {
  m_at_once = on;
  return *this;
}

Hub& Hub::lose_every(int nth) {
  m_lose_every = nth;
  return *this;
}

Hub& Hub::insert(std::uint16_t id, std::uint16_t length) {
  m_inserted = {id, length};
  return *this;
}

Hub& Hub::garbage_after(int packets) {
  m_garbage_after = packets;
  return *this;
}

Hub& Hub::end_after(std::size_t bytes) {
  m_end_after = bytes;
  return *this;
}

Hub& Hub::stall_after(int packets, std::int64_t duration_ms) {
  m_stall_after = packets;
  m_stall_ns = duration_ms * kNsPerMs;
  return *this;
}

Hub& Hub::send(std::string bytes) {
  m_bytes = std::move(bytes);
  m_end_after.reset();
  return *this;
}

void Hub::route(bool on) { m_routed = on; }

bool Hub::set_up(std::uint32_t sensor_code, std::uint32_t tunnel_id, std::int64_t now_ns) {
  if (!m_routed) return false;
  if (sensor_code == kVsyncSensor && tunnel_id == kVsyncId) {
    m_vsync_on = true;
    m_next_vsync_ns = now_ns + kVsyncNs;
    return true;
  }
  if (sensor_code != kFlickerSensor || tunnel_id != kFlickerId) return false;
  m_flicker_on = true;
  m_packets = 0;
  m_sent = 0;
  m_pending = m_bytes.value_or("");
  m_next_payload_ns = now_ns + kPayloadNs;
  return true;
}

bool Hub::terminate(std::uint32_t sensor_code, std::uint32_t tunnel_id) {
  const bool flicker = sensor_code == kFlickerSensor && tunnel_id == kFlickerId;
  const bool vsync = sensor_code == kVsyncSensor && tunnel_id == kVsyncId;
  if (flicker) m_flicker_on = false;
  if (vsync) m_vsync_on = false;
  return flicker || vsync;
}

std::string Hub::packet(std::uint16_t id, std::uint32_t sequence, std::uint64_t time_stamp,
                        const std::string& payload) {
  std::string bytes = "EMOR";
  put(&bytes, id, 2);
  put(&bytes, 0, 2);
  put(&bytes, 0, 4);
  put(&bytes, time_stamp, 8);
  put(&bytes, sequence, 4);
  put(&bytes, payload.size(), 2);
  put(&bytes, 0, 2);
  return bytes + payload;
}

void Hub::append(std::uint16_t id, std::int64_t now_ns, const std::string& payload) {
  m_pending += packet(id, m_sequence[id]++, static_cast<std::uint64_t>(now_ns), payload);
}

// Drops the oldest payloads if the reader is too far behind. The sequence numbers count them
// nevertheless.
void Hub::drop_oldest(std::int64_t now_ns) {
  const std::int64_t dropped = (now_ns - m_next_payload_ns) / kPayloadNs - kMostBehind;
  if (dropped <= 0) return;
  m_next_payload_ns += dropped * kPayloadNs;
  m_next_vsync_ns += dropped * kPayloadNs;
  m_sequence[kFlickerId] += static_cast<std::uint32_t>(dropped);
}

void Hub::produce(std::int64_t now_ns, const Sampler& sample) {
  drop_oldest(now_ns);
  const auto is_due = [&] {
    return m_at_once ? m_pending.size() < kAtOnce : m_next_payload_ns <= now_ns;
  };
  while (is_due()) {
    const std::int64_t ends_ns = m_next_payload_ns;
    m_next_payload_ns += kPayloadNs;
    ++m_packets;
    if (m_lose_every != 0 && m_packets % m_lose_every == 0) {
      ++m_sequence[kFlickerId];
    } else {
      std::string payload;
      for (int i = 0; i < kSamplesPerPayload; ++i) {
        const std::int64_t from_ns = ends_ns - kPayloadNs + i * kSampleNs;
        put(&payload, static_cast<std::uint16_t>(sample(from_ns, from_ns + kSampleNs)), 2);
        payload.resize(payload.size() + kRecordSize - 2);
      }
      append(kFlickerId, ends_ns, payload);
    }
    if (m_inserted) append(m_inserted->first, ends_ns, std::string(m_inserted->second, '\0'));
    if (m_vsync_on && m_next_vsync_ns <= ends_ns) {
      append(kVsyncId, ends_ns, std::string(kVsyncPayload, '\0'));
      m_next_vsync_ns += kVsyncNs;
    }
    if (m_packets == m_garbage_after) m_pending += "these bytes are no packet at all";
    if (m_packets == m_stall_after) m_next_payload_ns += m_stall_ns;
  }
}

bool Hub::has_ended() const {
  if (m_end_after && m_sent >= *m_end_after) return true;
  return m_bytes && m_pending.empty();
}

std::size_t Hub::read(void* buffer, std::size_t size, std::int64_t now_ns, const Sampler& sample) {
  if (streams()) produce(now_ns, sample);
  if (m_end_after) size = std::min(size, *m_end_after - std::min(*m_end_after, m_sent));
  const std::size_t count = m_pending.copy(static_cast<char*>(buffer), size);
  m_pending.erase(0, count);
  m_sent += count;
  return count;
}

}  // namespace spectralsim
