#include "KestrinBLESDK/platform/NSError.h"

namespace kestrin {

std::string NSError::description() const {
  return "Error Domain=" + domain + " Code=" + std::to_string(code) + " \"" + text + "\"";
}

}  // namespace kestrin
