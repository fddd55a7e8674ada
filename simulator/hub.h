#pragma once

// The phone's sensor hub: the packet stream behind "/dev/sensor_tunnel".

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace spectralsim {

class __attribute__((visibility("default"))) Hub {
 public:
  // What the test bench sets; all of it is off at first.

  // Delivers everything at once instead of a payload every 10 ms.
  Hub& at_once(bool on);
  // Drops every n-th flicker packet.
  Hub& lose_every(int nth);
  // Puts a packet of this id, with a payload of this length, behind every flicker packet.
  Hub& insert(std::uint16_t id, std::uint16_t length);
  // Sends bytes that are no packet after this many flicker packets.
  Hub& garbage_after(int packets);
  // Ends the stream after this many bytes, whatever they cut through.
  Hub& end_after(std::size_t bytes);
  // Sends nothing for this long after this many flicker packets, then goes on.
  Hub& stall_after(int packets, std::int64_t duration_ms);
  // Sends these bytes and ends, instead of a stream of its own.
  Hub& send(std::string bytes);

  // What the kernel's side does.

  using Sampler = std::function<std::int16_t(std::int64_t from_ns, std::int64_t to_ns)>;

  void route(bool on);
  // Starts or stops the stream of a sensor; false for one the hub does not know under this id.
  bool set_up(std::uint32_t sensor_code, std::uint32_t tunnel_id, std::int64_t now_ns);
  bool terminate(std::uint32_t sensor_code, std::uint32_t tunnel_id);
  // Up to `size` bytes of what has been sent by now.
  std::size_t read(void* buffer, std::size_t size, std::int64_t now_ns, const Sampler& sample);
  bool has_ended() const;
  // When there is more to read.
  std::int64_t next_due_ns() const { return m_next_payload_ns; }

  // A packet as the hub sends it.
  static std::string packet(std::uint16_t id, std::uint32_t sequence, std::uint64_t time_stamp,
                            const std::string& payload);

 private:
  void drop_oldest(std::int64_t now_ns);
  void produce(std::int64_t now_ns, const Sampler& sample);
  void append(std::uint16_t id, std::int64_t now_ns, const std::string& payload);

  bool m_at_once = false;
  int m_lose_every = 0;
  std::optional<std::pair<std::uint16_t, std::uint16_t>> m_inserted;
  int m_garbage_after = -1;
  std::optional<std::size_t> m_end_after;
  int m_stall_after = -1;
  std::int64_t m_stall_ns = 0;
  std::optional<std::string> m_bytes;

  bool m_routed = false;
  bool m_flicker_on = false;
  bool m_vsync_on = false;
  int m_packets = 0;
  std::size_t m_sent = 0;
  std::int64_t m_next_payload_ns = 0;
  std::int64_t m_next_vsync_ns = 0;
  std::array<std::uint32_t, 65536> m_sequence = {};
  std::string m_pending;
};

}  // namespace spectralsim
