#include "tests/support/sensor_test.h"

namespace {

class Tunnel : public SensorTest {
 protected:
  Tunnel() { bring_up(); }
};

TEST_F(Tunnel, SetsTwoStreamsUpAndTearsThemDownInReverse) {
  EXPECT_EQ(sensor->VD6281_QuilInit(), 0);
  EXPECT_THAT(
      events_of([&] { EXPECT_EQ(sensor->VD6281_QuilTunnelSetup(), 0); }),
      ElementsAre("open sensor_tunnel", "tunnel 24", "tunnel 22 9021/0", "tunnel 22 43e0/15"));
  EXPECT_THAT(
      events_of([&] { EXPECT_EQ(sensor->VD6281_QuilTunnelTerminate(), 0); }),
      ElementsAre("tunnel 23 43e0/15", "tunnel 23 9021/0", "tunnel 19", "close sensor_tunnel"));
  EXPECT_THAT(events_of([&] { EXPECT_EQ(sensor->VD6281_QuilTunnelTerminate(), 0); }),
              ElementsAre(error_line("VD6281_QuilTunnelTerminate: ERROR tun_dev is nullptr")));
}

TEST_F(Tunnel, UndoesAFailedSetup) {
  const std::string setup = "VD6281_QuilTunnelSetup: ERROR Tunnel setup failed ";
  struct Step {
    Fault fault;
    std::string message;
    std::size_t events;
  };
  for (const Step& step :
       {Step{Fault::tunnel_ioctl(0x24).returning(-5), setup + "for VSYNC sensor -5", 7},
        Step{Fault::tunnel_ioctl(0x22).returning(-6), setup + "for VSYNC sensor -6", 8},
        Step{Fault::tunnel_ioctl(0x22).nth(2).returning(7), setup + "7", 9}}) {
    phone.heal().fail(step.fault);
    const Lines events = events_of([&] { EXPECT_EQ(sensor->VD6281_QuilTunnelSetup(), 0); });
    EXPECT_THAT(phone.log(), ElementsAre(error_line(step.message)));
    EXPECT_EQ(events.size(), step.events);
    EXPECT_EQ(events.back(), "close sensor_tunnel");
  }
  phone.heal().remove(Node::kTunnel);
  EXPECT_THAT(events_of([&] { EXPECT_EQ(sensor->VD6281_QuilTunnelSetup(), 0); }),
              ElementsAre("open sensor_tunnel failed (ENOENT)",
                          error_line("Failed to open the tunnel device node"),
                          error_line("VD6281_QuilTunnelTerminate: ERROR tun_dev is nullptr")));
}

TEST_F(Tunnel, TearsEverythingDownDespiteFailures) {
  ASSERT_EQ(sensor->VD6281_QuilInit(), 0);
  ASSERT_EQ(sensor->VD6281_QuilTunnelSetup(), 0);
  phone.clear_trace();
  phone.fail(Fault::tunnel_ioctl(0x23).every().returning(-5))
      .fail(Fault::tunnel_ioctl(0x19).returning(-9));
  EXPECT_EQ(sensor->VD6281_QuilTunnelTerminate(), -9) << "the status of the route's tear-down";
  const std::string name = "VD6281_QuilTunnelTerminate: ERROR ";
  EXPECT_THAT(phone.log(), ElementsAre(error_line(name + "Sensor Tunnel terminate failed -5"),
                                       error_line(name + "Vsync sensor terminate failed -5"),
                                       error_line(name + "Route terminate failed -9")));
  EXPECT_EQ(phone.open_descriptors(), 3);
}

TEST_F(Tunnel, NeedsAnOpenDevice) {
  sensor->VD6281_Term();
  EXPECT_THAT(events_of([&] {
                EXPECT_EQ(sensor->VD6281_QuilInit(), -4);
                EXPECT_EQ(sensor->VD6281_QuilTunnelSetup(), -4);
                EXPECT_EQ(sensor->VD6281_QuilResetRdBuf(), -4);
                EXPECT_EQ(sensor->VD6281_QuilTunnelTerminate(), -4);
              }),
              IsEmpty());
}

}  // namespace
