#include "Values.h"
#include "kestrin/corebluetooth/CoreBluetooth.h"

namespace kestrin::corebluetooth {
namespace {

class SystemLog final : public NSLogSink {
 public:
  void write(std::string_view line) noexcept override {
    @autoreleasepool {
      @try {
        ::NSLog(@"%@", string(line));
      } @catch (::NSException*) {
        // There is no other place to say so.
      }
    }
  }
};

}  // namespace

std::shared_ptr<NSLogSink> systemLog() { return std::make_shared<SystemLog>(); }

}  // namespace kestrin::corebluetooth
