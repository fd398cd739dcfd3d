// `kestrin frame`: builds a frame.
#include <KestrinBLESDK/RcpFrame.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tools/kestrin/commands/Commands.h"
#include "tools/kestrin/console/Console.h"
#include "tools/kestrin/text/Hex.h"
#include "tools/kestrin/text/SafeText.h"

namespace kestrin::app {
namespace {

bool readBytes(const char* what, const std::string& text, std::vector<std::uint8_t>& bytes,
               Console& console) {
  const auto error = appendHex(text, bytes);
  if (!error) return true;
  console.note(std::string(what) + " '" + printable(text) + "', column " +
               std::to_string(error->column) + ": " + error->text);
  return false;
}

bool readByte(const char* what, const std::string& text, std::vector<std::uint8_t>& bytes,
              Console& console) {
  if (!readBytes(what, text, bytes, console)) return false;
  if (bytes.size() == 1) return true;
  console.note(std::string(what) + " '" + printable(text) +
               "': is one byte, two hexadecimal digits, as in 00");
  return false;
}

}  // namespace

int runFrame(const FrameRequest& request, Console& console) {
  std::vector<std::uint8_t> type;
  std::vector<std::uint8_t> code;
  std::vector<std::uint8_t> payload;
  if (!readByte("TYPE", request.type, type, console) ||
      !readByte("CODE", request.code, code, console) ||
      !readBytes("PAYLOAD", request.payload, payload, console)) {
    return kWrongUsage;
  }
  NSError error;
  const auto frame = buildRcpFrame(type.front(), code.front(), payload, &error);
  if (!frame) {
    console.note("PAYLOAD: " + error.text);
    return kWrongUsage;
  }
  console.line(upperHex(frame->span()));
  return finishOutput(console);
}

}  // namespace kestrin::app
