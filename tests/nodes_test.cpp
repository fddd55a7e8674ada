// The phone's nodes as a program meets them that knows nothing of the simulator. CTest runs this
// program by spectralsim, on the kernel's own nodes and, but for the cases of KernelNodes, on the
// preloaded ones.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <string>
#include <thread>

namespace {

constexpr char kDevice[] = "/dev/vd6281";
constexpr char kTunnel[] = "/dev/sensor_tunnel";
constexpr char kEnable[] =
    "/sys/devices/platform/soc/ac4b000.qcom,cci/ac4b000.qcom,cci:st,iridel@20/iridel_enable";
constexpr char kWriteByte[] =
    "/sys/devices/platform/soc/ac4b000.qcom,cci/ac4b000.qcom,cci:st,iridel@20/iridel_write_byte";

constexpr unsigned long kReadRegisters = 0xC1085201;
constexpr unsigned long kSetUpRoute = 0x4B24;
constexpr unsigned long kSetUpStream = 0xC0104B22;

struct Registers {
  std::uint32_t mode = 1;
  std::uint32_t count = 1;
  std::uint32_t address[32] = {};
  std::uint32_t value[32] = {};
};

// An open node; closes it.
class File {
 public:
  File(const char* path, int flags) : m_fd(open(path, flags | O_CLOEXEC)) {}
  ~File() { close(m_fd); }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  int fd() const { return m_fd; }

 private:
  int m_fd;
};

// Returns 0, or the errno with which writing the text as a whole fails.
int error_of_write(int fd, const std::string& text) {
  const ssize_t written = write(fd, text.data(), text.size());
  return written == static_cast<ssize_t>(text.size()) ? 0 : errno;
}

int error_of_read(int fd) {
  char byte = 0;
  return read(fd, &byte, 1) < 0 ? errno : 0;
}

int error_of_ioctl(int fd, unsigned long request, void* argument) {
  return ioctl(fd, request, argument) < 0 ? errno : 0;
}

void power(bool on) { ASSERT_EQ(error_of_write(File(kEnable, O_WRONLY).fd(), on ? "1" : "0"), 0); }

int read_register(std::uint32_t address) {
  Registers block;
  block.address[0] = address;
  const int error = error_of_ioctl(File(kDevice, O_RDWR).fd(), kReadRegisters, &block);
  return error != 0 ? -error : static_cast<int>(block.value[0]);
}

void set_up_stream(int tunnel) {
  std::uint32_t flicker[4] = {0, 36897, 1, 0};
  ASSERT_EQ(error_of_ioctl(tunnel, kSetUpRoute, nullptr), 0);
  ASSERT_EQ(error_of_ioctl(tunnel, kSetUpStream, flicker), 0);
}

TEST(Nodes, RegistersAreThereOnlyWithPowerAndAtMost32AtATime) {
  power(false);
  EXPECT_EQ(read_register(0), -EIO);
  EXPECT_EQ(error_of_write(File(kWriteByte, O_WRONLY).fd(), "0x2a05"), EIO);
  power(true);
  const File device(kDevice, O_RDWR);
  Registers block;
  block.mode = 0;
  block.count = 2;
  block.address[1] = 1;
  EXPECT_EQ(error_of_ioctl(device.fd(), kReadRegisters, &block), 0);
  EXPECT_EQ(block.value[0], 0x70u);
  EXPECT_EQ(block.value[1], 0xBCu);
  for (const std::uint32_t count : {0u, 33u}) {
    block.count = count;
    EXPECT_EQ(error_of_ioctl(device.fd(), kReadRegisters, &block), EINVAL) << count;
  }
  EXPECT_EQ(error_of_ioctl(device.fd(), 0x5401, &block), ENOTTY);
  std::uint32_t words[4] = {};
  EXPECT_EQ(error_of_ioctl(device.fd(), kSetUpStream, words), ENOTTY);
}

TEST(Nodes, AnAttributeTakesOneWholeNumberPerWrite) {
  power(true);
  const File file(kWriteByte, O_WRONLY);
  EXPECT_EQ(error_of_write(file.fd(), "0x2a05"), 0);
  EXPECT_EQ(read_register(0x2A), 5);
  EXPECT_EQ(error_of_write(file.fd(), std::string("0x2a06\0", 7)), 0);
  EXPECT_EQ(error_of_write(file.fd(), "10759\n"), 0);  // 0x2a07
  EXPECT_EQ(read_register(0x2A), 7);
  for (const char* garbage : {"", "x", "0x2a08 0x2a09", "0x2a08x", "-1", "0x10000", " 0x2a08"}) {
    const int expected = *garbage == '\0' ? 0 : EINVAL;  // a write of nothing is no write
    EXPECT_EQ(error_of_write(file.fd(), garbage), expected) << garbage;
  }
  EXPECT_EQ(read_register(0x2A), 7);
  EXPECT_EQ(error_of_write(File(kEnable, O_WRONLY).fd(), "2"), EINVAL);
}

TEST(Nodes, AnAttributeIsReadToItsEnd) {
  power(true);
  const File file(kEnable, O_RDWR);
  char text[8] = {};
  EXPECT_EQ(read(file.fd(), text, 1), 1);
  EXPECT_EQ(read(file.fd(), text + 1, 7), 1);
  EXPECT_EQ(read(file.fd(), text + 2, 6), 0);
  EXPECT_STREQ(text, "1\n");
}

TEST(Nodes, ADescriptorIsForWhatItWasOpenedFor) {
  power(true);
  EXPECT_EQ(error_of_write(File(kWriteByte, O_RDONLY).fd(), "0x2a01"), EBADF);
  EXPECT_EQ(error_of_read(File(kWriteByte, O_WRONLY).fd()), EBADF);
  EXPECT_EQ(error_of_read(File(kTunnel, O_WRONLY).fd()), EBADF);
}

TEST(Nodes, TheTunnelReturnsPacketsOnceAStreamIsSetUp) {
  const File tunnel(kTunnel, O_RDONLY | O_NONBLOCK);
  EXPECT_EQ(error_of_read(tunnel.fd()), EAGAIN);
  std::uint32_t unknown[4] = {0, 1, 1, 0};
  EXPECT_EQ(error_of_ioctl(tunnel.fd(), kSetUpStream, unknown), EINVAL);
  set_up_stream(tunnel.fd());
  EXPECT_EQ(error_of_read(tunnel.fd()), EAGAIN);  // the first packet takes 10 ms
  fcntl(tunnel.fd(), F_SETFL, 0);
  char magic[4] = {};
  EXPECT_EQ(read(tunnel.fd(), magic, sizeof magic), 4);
  EXPECT_EQ(std::string(magic, 4), "EMOR");
}

TEST(KernelNodes, PollWaitsForThePacketsOfTheTunnel) {
  const File tunnel(kTunnel, O_RDONLY);
  const File device(kDevice, O_RDWR);
  pollfd ends[] = {{tunnel.fd(), POLLIN, 0}};
  char rest[4096];
  // What an earlier client of the hub did not read still waits.
  fcntl(tunnel.fd(), F_SETFL, O_NONBLOCK);
  set_up_stream(tunnel.fd());
  while (read(tunnel.fd(), rest, sizeof rest) > 0) {
  }
  ASSERT_EQ(poll(ends, 1, 1000), 1);
  EXPECT_EQ(ends[0].revents, POLLIN);
  EXPECT_GT(read(tunnel.fd(), rest, sizeof rest), 0);
  EXPECT_EQ(poll(ends, 1, 0), 0);
  pollfd others[] = {{device.fd(), POLLIN | POLLOUT, 0}};
  EXPECT_EQ(poll(others, 1, 0), 1);
}

volatile sig_atomic_t g_alarms = 0;

TEST(KernelNodes, ASignalInterruptsAReadOfTheTunnel) {
  const File tunnel(kTunnel, O_RDONLY);
  std::uint32_t flicker[4] = {0, 36897, 1, 0};
  error_of_ioctl(tunnel.fd(), 0xC0104B23, flicker);  // no stream: the read would wait for ever
  struct sigaction action = {};
  action.sa_handler = [](int) { g_alarms = g_alarms + 1; };
  sigaction(SIGALRM, &action, nullptr);
  const itimerval soon = {{0, 0}, {0, 50000}};
  setitimer(ITIMER_REAL, &soon, nullptr);
  fcntl(tunnel.fd(), F_SETFL, O_NONBLOCK);
  char rest[4096];
  while (read(tunnel.fd(), rest, sizeof rest) > 0) {
  }
  fcntl(tunnel.fd(), F_SETFL, 0);
  EXPECT_EQ(error_of_read(tunnel.fd()), EINTR);
  EXPECT_EQ(g_alarms, 1);
}

TEST(KernelNodes, TheChipIsOneForAllProcesses) {
  power(true);
  const pid_t child = fork();
  if (child == 0) {
    const bool fine = error_of_write(File(kWriteByte, O_WRONLY).fd(), "0x2a0b") == 0;
    _exit(fine ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(read_register(0x2A), 0x0B);
}

}  // namespace
