#include "tools/kestrin/session/SessionReport.h"

#include "tools/kestrin/console/Console.h"
#include "tools/kestrin/text/Hex.h"
#include "tools/kestrin/text/SafeText.h"

namespace kestrin::app {

SessionReport::~SessionReport() = default;

void LineReport::reader(const std::string& name, const std::string& identifier) {
  console_.line("READER " + printable(name) + " " + printable(identifier));
}

void LineReport::plugged(bool isPlugged) { console_.line(isPlugged ? "PLUGGED" : "UNPLUGGED"); }

void LineReport::frame(const std::optional<NSData>& frame) {
  console_.line(frame ? "FRAME " + lowerHex(frame->span()) : "FRAME (absent)");
}

void LineReport::sent(const NSData& frame) { console_.line("SENT " + lowerHex(frame.span())); }

}  // namespace kestrin::app
