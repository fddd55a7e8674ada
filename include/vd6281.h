#pragma once

/// @file
/// The VD6281 as the driver sees it: its enumerations, the records that the driver operations
/// exchange, the register-read block of the kernel interface and the per-device record.
///
/// The enumerations are unscoped with a fixed 32-bit type, so that any integer a caller holds can
/// be passed in and refused by the operation.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <type_traits>

/// A measurement: which engine of the chip runs, and how.
enum VD6281_Mode_t : std::uint32_t {
  VD6281_MODE_ALS_SINGLE_SHOT = 0,  ///< Ambient light, one result.
  VD6281_MODE_ALS_SYNCHRONOUS = 1,  ///< Ambient light, one result per inter-measurement period.
  VD6281_MODE_FLICKER = 2,          ///< Flicker, until it is stopped.
};

/// One channel; channel masks are ORs of these.
enum VD6281_Channel_Id_t : std::uint32_t {
  VD6281_CHANNEL_1 = 0x01,  ///< Index 0.
  VD6281_CHANNEL_2 = 0x02,  ///< Index 1.
  VD6281_CHANNEL_3 = 0x04,  ///< Index 2.
  VD6281_CHANNEL_4 = 0x08,  ///< Index 3.
  VD6281_CHANNEL_5 = 0x10,  ///< Index 4.
  VD6281_CHANNEL_6 = 0x20,  ///< Index 5, the one behind the chip's AC enable.
};

/// The colour filter behind a channel.
enum VD6281_Color_Id_t : std::uint32_t {
  VD6281_COLOR_CLEAR = 1,     ///< Clear.
  VD6281_COLOR_RED = 2,       ///< Red.
  VD6281_COLOR_GREEN = 3,     ///< Green.
  VD6281_COLOR_BLUE = 4,      ///< Blue.
  VD6281_COLOR_INFRARED = 5,  ///< Infrared.
  VD6281_COLOR_UNKNOWN = 6,   ///< The OTP does not say.
};

/// What the flicker engine puts out. Which types a chip has depends on its silicon cut.
enum VD6281_FlickerOutputType_t : std::uint32_t {
  VD6281_FLICKER_OUTPUT_0 = 0,  ///< Every cut.
  VD6281_FLICKER_OUTPUT_1 = 1,  ///< Every cut; the services use this one.
  VD6281_FLICKER_OUTPUT_2 = 2,  ///< Not cut 2.0.
  VD6281_FLICKER_OUTPUT_3 = 3,  ///< Cut 2.2 only.
  VD6281_FLICKER_OUTPUT_4 = 4,  ///< Cut 2.2 only.
};

/// The secondary settings that VD6281_SetControl and VD6281_GetControl access, and their values.
enum VD6281_Control_Id_t : std::uint32_t {
  VD6281_CONTROL_PEDESTAL_ENABLE = 0,     ///< 0 off, else on.
  VD6281_CONTROL_PEDESTAL_VALUE = 1,      ///< 0..7.
  VD6281_CONTROL_OUTPUT_DARK_ENABLE = 3,  ///< 0 off, else on.
  VD6281_CONTROL_SDA_DRIVE_VALUE = 4,     ///< 4, 8, 12, 16 or 20.
  VD6281_CONTROL_OTP_USAGE_ENABLE = 128,  ///< 0 built-in trim values, else those of the OTP.
  VD6281_CONTROL_WA_STATUS = 129,         ///< Work-around identifier in bits 30..0, flag in bit 31.
};

/// One ambient-light reading of all channels.
struct VD6281_Als_t {
  std::uint8_t channels;       ///< Channels delivered: requested AND measured.
  std::uint32_t count[6];      ///< Slope-corrected counts per channel index, 0..0xFFFFFF.
  std::uint32_t raw_count[6];  ///< Counts as read from the chip, 0..0xFFFFFF.
};

/// One answer of the chip's own flicker detector.
struct VD6281_FlickerInfo_t {
  std::uint8_t channel;     ///< Channel mask the result belongs to.
  std::uint16_t gain;       ///< Gain of that channel, 8.8 (256 = 1.0).
  std::uint32_t frequency;  ///< Hz.
  std::uint8_t confidence;  ///< 0 no result yet, 1 measured, 100 measured with good quality.
  std::uint8_t valid;       ///< 1 when frequency holds a measurement.
};

/// The argument of the register-read ioctl on "/dev/vd6281".
struct VD6281_Transfer_t {
  std::uint32_t mode;      ///< 1 for a single register, 0 for a prepared list.
  std::uint32_t count;     ///< Registers to read, 1..32.
  std::uint32_t reg[32];   ///< Addresses, entries 0..count-1 used.
  std::uint32_t data[32];  ///< From the kernel: the low 8 bits of data[i] are reg[i]'s value.
};
static_assert(sizeof(VD6281_Transfer_t) == 0x108, "the kernel's size of the block");
static_assert(offsetof(VD6281_Transfer_t, count) == 4 && offsetof(VD6281_Transfer_t, reg) == 8 &&
                  offsetof(VD6281_Transfer_t, data) == 136,
              "the kernel's layout of the block");

/// Values of VD6281_device::state.
enum VD6281_State_t : std::uint32_t {
  VD6281_STATE_NONE = 0,             ///< Record free, no device open.
  VD6281_STATE_IDLE = 1,             ///< Device open, nothing runs.
  VD6281_STATE_ALS = 2,              ///< Ambient light runs.
  VD6281_STATE_FLICKER = 3,          ///< Flicker runs.
  VD6281_STATE_ALS_AND_FLICKER = 4,  ///< Both run.
};

/// The driver's state of one sensor. Zero-filled when the device is brought up; lives in static
/// storage (SpectralSensorDevice::m_VD6281Device).
struct VD6281_device {
  std::uint32_t state;                ///< VD6281_State_t.
  std::uint32_t als_mode;             ///< VD6281_Mode_t of the running ALS.
  std::uint8_t device_id;             ///< Register 0x00.
  std::uint8_t revision_id;           ///< Register 0x01, the silicon cut.
  std::uint8_t dc_chan_en;            ///< Shadow of register 0x2E.
  std::uint8_t ac_chan_en;            ///< 1 while register 0x2D is on.
  std::uint8_t als_channels;          ///< Channels of the running ALS.
  std::uint8_t flicker_channels;      ///< Channel of the running flicker measurement.
  std::uint16_t channel_gain[6];      ///< Gain in force per channel index, 8.8 (256 = 1.0).
  std::uint32_t exposure;             ///< ALS exposure in force, microseconds, a multiple of 1600.
  std::uint32_t flicker_output_type;  ///< VD6281_FlickerOutputType_t of the next flicker start.
  std::uint32_t otp_usage_enable;     ///< Non-zero: trim and correct from the OTP.
  std::uint32_t output_dark_enable;   ///< Dark-output control as the caller gave it.
  std::uint64_t otp_bank0;            ///< First packed OTP word.
  std::uint64_t otp_bank1;            ///< Second packed OTP word.
  std::uint16_t otp_osc_trim;         ///< Trim of the first oscillator, 9 bits.
  std::uint8_t otp_osc2_trim;         ///< Trim of the second oscillator, 4 bits.
  std::uint8_t otp_color_map;         ///< 0..7, row of the channel colours.
  std::uint8_t otp_slope[6];          ///< Slope correction per channel index, 0x80 = neutral.
  std::uint8_t wa[7];                 ///< Silicon work-arounds in force.
  char uid[16];                       ///< Unique id of the unit, at most 15 characters and a NUL.
  std::int32_t fd_read_byte;          ///< Descriptor of "iridel_read_byte", -1 when closed.
  std::int32_t fd_write_byte;         ///< Descriptor of "iridel_write_byte", -1 when closed.
  std::int32_t fd_dev;                ///< Descriptor of "/dev/vd6281", -1 when closed.
  VD6281_Transfer_t als_xfer;         ///< Prepared: registers 0x06..0x1C.
  VD6281_Transfer_t flicker_xfer;     ///< Prepared: registers 0x33..0x39.
  VD6281_Transfer_t single_xfer;      ///< Scratch of the single-register reads.

  /// @name The sensor-hub tunnel
  /// The state of one capture of the tunnel's packet stream. The per-id tables have room for the
  /// tunnel ids 0..31.
  /// @{
  std::FILE* tun_dev;               ///< The open tunnel, or null.
  std::FILE* dump_fp[32];           ///< Per id, the open dump file.
  std::FILE* unparsed_fp;           ///< The dump file of the stream as it came.
  std::int32_t rd_len;              ///< Bytes of rd_buf not yet parsed, from buf_itr on.
  std::int32_t carry_len;           ///< Bytes carried over to the start of rd_buf by the last read.
  std::int32_t parsed_bytes;        ///< Bytes of all complete packets.
  std::uint8_t rd_buf[16384];       ///< The bytes that were read.
  std::uint8_t flicker_buf[16384];  ///< Flicker payloads of 160 bytes, back to back.
  std::uint8_t magic[4];            ///< The first bytes of a packet, "EMOR".
  std::uint8_t id_valid;            ///< 1 while the current packet's id is accepted.
  std::uint32_t last_seq[32];       ///< Per id, sequence number of the last packet.
  std::uint32_t seq_seen[32];       ///< Per id, 1 once a packet has come.
  std::uint32_t seq_lost[32];       ///< Per id, packets missing between those that came.
  std::uint64_t pkt_ts[32];         ///< Per id, time stamp of the last packet.
  std::uint8_t* pkt_start;          ///< Start of the packet being parsed.
  std::uint8_t* buf_itr;            ///< Parse position in rd_buf.
  std::uint32_t hdr_size;           ///< Size of a packet's header, 28.
  std::uint16_t cur_id;             ///< Tunnel id of the packet being parsed.
  std::uint16_t cur_aux;            ///< Its auxiliary word.
  /// @}
};
static_assert(std::is_trivial_v<VD6281_device>, "bring-up zero-fills the record");
