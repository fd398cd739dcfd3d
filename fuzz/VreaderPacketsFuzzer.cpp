// Fuzzes the virtual controller and the virtual devices behind it by what a host sends: commands,
// data and time in any order, ATT requests and reader commands in them.
//
// Input: steps, each a kind and what it needs.
#include <array>

#include "fuzz/Fuzzing.h"
#include "fuzz/VirtualAir.h"

namespace kestrin::fuzz {
namespace {

using vreader::ByteWriter;

constexpr std::size_t kMostSteps = 100;
constexpr std::uint16_t kFirstHandle = 0x40;

Bytes command(ByteSource& input) {
  static constexpr std::array<std::uint16_t, 5> kGroups{0x0400, 0x0C00, 0x1000, 0x1400, 0x2000};
  const unsigned group = kGroups[input.below(kGroups.size())];
  const unsigned opcode = group + (input.u8() & 0x3FU);
  const ByteView parameters = input.take(input.u8() & 0x3F);
  return ByteWriter()
      .u8(0x01)
      .u16(opcode)
      .u8(static_cast<unsigned>(parameters.size()))
      .append(parameters)
      .take();
}

/// An ATT request on a link, in one piece or cut in two.
void request(ByteSource& input, vreader::Controller& controller) {
  const unsigned handle = kFirstHandle + (input.u8() & 3U);
  const ByteView pdu = input.take(input.u8() & 0x7F);
  const Bytes frame =
      ByteWriter().u16(static_cast<unsigned>(pdu.size())).u16(0x0004).append(pdu).take();
  const std::size_t cut = std::min<std::size_t>(input.u8(), frame.size());
  const auto send = [&](unsigned boundary, ByteView piece) {
    controller.receive(ByteWriter()
                           .u8(0x02)
                           .u16(handle | boundary << 12)
                           .u16(static_cast<unsigned>(piece.size()))
                           .append(piece)
                           .take());
  };
  send(0b00, ByteView(frame).first(cut));
  if (cut < frame.size()) send(0b01, ByteView(frame).subspan(cut));
}

void step(ByteSource& input, VirtualAir& air) {
  switch (input.below(8)) {
    case 0:
      air.linkAll();
      break;
    case 1:
      air.controller().receive(command(input));
      break;
    case 2:
      air.controller().receive(input.block());
      break;
    case 3:
      air.pass(std::chrono::milliseconds(4 * input.u8()));
      break;
    default:
      request(input, air.controller());
      break;
  }
}

}  // namespace
}  // namespace kestrin::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kestrin::fuzz;
  ByteSource input({data, size});
  VirtualAir air;
  for (std::size_t i = 0; i < kMostSteps && !input.empty(); ++i) step(input, air);
  air.checkThatItWorks();
  return 0;
}
