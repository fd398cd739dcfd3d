#include "tools/vreader/Hci.h"

namespace kestrin::vreader::hci {

namespace {

// Num_HCI_Command_Packets: this controller handles each command before it reads the next.
constexpr unsigned kCommandsAllowed = 1;

}  // namespace

Bytes eventPacket(EventCode code, ByteView parameters) {
  return ByteWriter()
      .u8(static_cast<unsigned>(PacketType::event))
      .u8(static_cast<unsigned>(code))
      .u8(static_cast<unsigned>(parameters.size()))
      .append(parameters)
      .take();
}

Bytes leEventPacket(LeSubevent subevent, ByteView parameters) {
  return eventPacket(EventCode::leMeta,
                     ByteWriter().u8(static_cast<unsigned>(subevent)).append(parameters).bytes());
}

Bytes commandComplete(Opcode opcode, ByteView returnParameters) {
  return eventPacket(EventCode::commandComplete, ByteWriter()
                                                     .u8(kCommandsAllowed)
                                                     .u16(static_cast<unsigned>(opcode))
                                                     .append(returnParameters)
                                                     .bytes());
}

Bytes commandStatus(Opcode opcode, ErrorCode status) {
  return eventPacket(EventCode::commandStatus, ByteWriter()
                                                   .u8(static_cast<unsigned>(status))
                                                   .u8(kCommandsAllowed)
                                                   .u16(static_cast<unsigned>(opcode))
                                                   .bytes());
}

std::string_view meaning(std::uint8_t errorCode) noexcept {
  switch (errorCode) {
    case 0x05:
      return "Authentication Failure";
    case 0x08:
      return "Connection Timeout";
    case 0x13:
      return "Remote User Terminated Connection";
    case 0x14:
      return "Remote Device Terminated Connection due to Low Resources";
    case 0x15:
      return "Remote Device Terminated Connection due to Power Off";
    case 0x16:
      return "Connection Terminated By Local Host";
    case 0x22:
      return "LMP Response Timeout / LL Response Timeout";
    case 0x3B:
      return "Unacceptable Connection Parameters";
    case 0x3D:
      return "Connection Terminated due to MIC Failure";
    case 0x3E:
      return "Connection Failed to be Established / Synchronization Timeout";
    default:
      return "Unknown Error";
  }
}

}  // namespace kestrin::vreader::hci
