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
  // Settings of the test bench; all are off at first.

  // Sends packets as fast as they are read, instead of one payload every 10 ms.
  Hub& at_once(bool on);
  // Drops every n-th flicker packet.
  Hub& lose_every(int nth);
  // Sends a packet with this id and a payload of this length after every flicker packet.
  Hub& insert(std::uint16_t id, std::uint16_t length);
  // Sends bytes that are no packet after this many flicker packets.
  Hub& garbage_after(int packets);
  // Ends the stream after this many bytes, even in the middle of a packet.
  Hub& end_after(std::size_t bytes);
  // Pauses for this long after this many flicker packets.
  Hub& stall_after(int packets, std::int64_t duration_ms);
  // Sends these bytes in place of generated packets and then ends the stream. It cancels an earlier
  // end_after().
  Hub& send(std::string bytes);

  // Accesses by the kernel.

  using Sampler = std::function<std::int16_t(std::int64_t from_ns, std::int64_t to_ns)>;

  void route(bool on);
  // set_up() starts and terminate() stops the stream of a sensor. Both return false for a sensor
  // that the hub does not have under this tunnel id; set_up() also does so without a route.
  bool set_up(std::uint32_t sensor_code, std::uint32_t tunnel_id, std::int64_t now_ns);
  bool terminate(std::uint32_t sensor_code, std::uint32_t tunnel_id);
  // Copies up to `size` bytes of what has been sent by `now_ns` into `buffer` and returns their
  // number.
  std::size_t read(void* buffer, std::size_t size, std::int64_t now_ns, const Sampler& sample);
  // Whether the bench has ended the stream: nothing will ever come again.
  bool has_ended() const;
  // Whether a stream of flicker packets is on, so that there will be more at next_due_ns().
  bool streams() const { return m_flicker_on && !m_bytes; }
  // Whether bytes wait for the reader already.
  bool has_pending() const { return !m_pending.empty() || (streams() && m_at_once); }
  // The time of the next payload.
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
