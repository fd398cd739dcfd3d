// Anything that a host could send, most of it wrong: nothing of it may do more than be refused. The
// sanitizers watch.
#include <random>

#include "vreader/ControllerTest.h"
#include "vreader/VirtualDeviceTest.h"

namespace kestrin::vreader {
namespace {

class MalformedPackets : public VirtualDeviceTest {
 protected:
  MalformedPackets() {
    for (const auto& device : {standard, q62t, lamp}) controller.addDevice(device);
  }

  std::uint8_t byte() { return static_cast<std::uint8_t>(random()); }
  std::size_t below(std::size_t limit) { return random() % limit; }
  Bytes anyBytes(std::size_t limit) {
    Bytes bytes(below(limit));
    for (auto& each : bytes) each = byte();
    return bytes;
  }

  /// A command whose opcode is often one that is known and whose length is often right.
  Bytes anyCommand() {
    constexpr std::uint16_t kGroups[] = {0x0400, 0x0C00, 0x1000, 0x1400, 0x2000};
    const std::size_t opcode = kGroups[below(std::size(kGroups))] + below(0x40);
    const Bytes parameters = anyBytes(34);
    const std::size_t length = below(8) == 0 ? byte() : parameters.size();
    return ByteWriter()
        .u8(0x01)
        .u16(static_cast<unsigned>(opcode))
        .u8(static_cast<unsigned>(length))
        .append(parameters)
        .take();
  }
  /// ACL data on a handle near the links', holding an ATT request more often than not.
  Bytes anyAclData() {
    Bytes payload = anyBytes(40);
    if (!payload.empty()) payload[0] = static_cast<std::uint8_t>(below(0x20));
    if (payload.size() > 2 && below(4) != 0) payload[1] = static_cast<std::uint8_t>(below(20));
    if (payload.size() > 2 && below(4) != 0) payload[2] = 0;
    const std::size_t told = below(8) == 0 ? below(600) : payload.size();
    const Bytes frame = ByteWriter()
                            .u16(static_cast<unsigned>(told))
                            .u16(static_cast<unsigned>(below(4) == 0 ? below(8) : 4))
                            .append(payload)
                            .take();
    const std::size_t length = below(10) == 0 ? below(70) : frame.size();
    return ByteWriter()
        .u8(0x02)
        .u16(static_cast<unsigned>((0x40 + below(4)) | (below(4) == 0 ? below(0x100) << 8 : 0U)))
        .u16(static_cast<unsigned>(length))
        .append(frame)
        .take();
  }
  void keepLinksUp() {
    for (std::uint16_t number = 1; number <= 3; ++number) {
      ByteWriter packet;
      packet.u8(0x01).u16(0x200D).u8(25).u16(0x60).u16(0x60).u8(0);
      DeviceAddress::staticRandom(number).write(packet);
      controller.receive(packet.u8(0).u16(24).u16(40).u16(0).u16(42).u16(0).u16(0).bytes());
      runLoop->runFor(std::chrono::milliseconds(20));
    }
  }

  std::mt19937 random;
  std::size_t toHost = 0;
  Controller controller{runLoop,
                        {},
                        [this](const Bytes& packet) {
                          ++toHost;
                          EXPECT_LE(packet.size(), 258U) << hex(packet);
                        },
                        [](const std::string&) {}};
};

TEST_F(MalformedPackets, NoPacketDoesMoreThanBeRefused) {
  for (unsigned seed = 1; seed <= 40; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    random.seed(seed);
    for (int i = 0; i < 500; ++i) {
      if (i % 50 == 0) keepLinksUp();
      switch (below(4)) {
        case 0:
          controller.receive(anyCommand());
          break;
        case 1:
          controller.receive(anyBytes(300));
          break;
        default:
          controller.receive(anyAclData());
      }
    }
    runLoop->runFor(std::chrono::milliseconds(200));
    lines.clear();
  }
  EXPECT_GT(toHost, 10000U) << "the packets hardly reached anything";
}

TEST_F(MalformedPackets, AfterAllOfThemAResetAndARequestStillWork) {
  for (int i = 0; i < 5000; ++i) controller.receive(below(2) == 0 ? anyCommand() : anyAclData());
  controller.receive(Bytes{0x01, 0x03, 0x0C, 0x00});
  keepLinksUp();
  lines.clear();
  controller.receive(Bytes{0x02, 0x40, 0x00, 0x07, 0x00, 0x03, 0x00, 0x04, 0x00, 0x0A, 0x03, 0x00});
  EXPECT_EQ(lines, (std::vector<std::string>{"READ standard 2A00"}));
}

}  // namespace
}  // namespace kestrin::vreader
