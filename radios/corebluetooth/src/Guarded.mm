#include "Guarded.h"

namespace kestrin::corebluetooth {

void logException(const char* during, ::NSException* exception) noexcept {
  NSLog(*defaultLogSink(), "[ERROR]CoreBluetooth: %@ was refused: %@", std::string_view(during),
        text([exception reason]));
}

}  // namespace kestrin::corebluetooth
