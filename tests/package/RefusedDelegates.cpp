// What is refused at compile time when a delegate is set, and beside each the nearest thing that is
// taken. `check-refused` compiles this as it is, and then each case by its number, which must be
// refused for the reason that stands behind it.
#include <KestrinBLESDK/KestrinBleMgr.h>

#include <cstdint>
#include <memory>
#include <optional>

#ifndef REFUSED
#define REFUSED 0
#endif

namespace kestrin::test {

struct Listener : KestrinBLEProtocols {
  void scanBleStatus(std::int64_t) noexcept override {}
};
struct Reader : RcpReceiver {
  void plugChangedStatus(bool) noexcept override {}
};

void aPointerToTheScanDelegatesBase(KestrinBleMgr& manager, const std::shared_ptr<Listener>& own) {
#if REFUSED == 1  // implements no scan callback
  manager.setDelegate(std::shared_ptr<KestrinBLEProtocols>(own));
#else
  manager.setDelegate(own);
#endif
}

void aPointerToTheReceiversBase(KestrinBleMgr& manager, const std::weak_ptr<Reader>& own) {
#if REFUSED == 2  // implements no receiver callback
  manager.setRcpReceiverDelegate(std::weak_ptr<RcpReceiver>(own));
#else
  manager.setRcpReceiverDelegate(own);
#endif
}

void aClassThatImplementsNothingYet(KestrinBleMgr& manager) {
#if REFUSED == 3  // implements no receiver callback
  struct Between : RcpReceiver {};
#else
  struct Between final : RcpReceiver {};
#endif
  manager.setRcpReceiverDelegate(std::make_shared<Between>());
}

void aClassThatOnlyDecidesAtRunTime(KestrinBleMgr& manager) {
  struct Between : KestrinBLEProtocols {
#if REFUSED == 4  // implements no scan callback
    bool respondsTo(Selector) const noexcept { return true; }
#else
    bool respondsToSelector(Selector) const noexcept override { return true; }
#endif
  };
  manager.setDelegate(std::make_shared<Between>());
}

void theOtherKindOfDelegate(KestrinBleMgr& manager, const std::shared_ptr<Listener>& listener,
                            const std::shared_ptr<Reader>& reader) {
#if REFUSED == 5  // a scan delegate derives from KestrinBLEProtocols
  manager.setDelegate(reader);
#elif REFUSED == 6  // a receiver derives from RcpReceiver
  manager.setRcpReceiverDelegate(listener);
#else
  manager.setDelegate(listener);
  manager.setRcpReceiverDelegate(reader);
#endif
}

void aCallbackThatIsNotPublic(KestrinBleMgr& manager) {
  class Own : public KestrinBLEProtocols {
#if REFUSED != 7  // a scan callback of this class is not public, or has other arguments
   public:
#endif
    void scanBleStatus(std::int64_t) noexcept override {}
  };
  manager.setDelegate(std::make_shared<Own>());
}

void aCallbackWithOtherArguments(KestrinBleMgr& manager) {
  struct Own : RcpReceiver {
    void plugChangedStatus(bool) noexcept override {}
#if REFUSED == 8  // a receiver callback of this class is not public, or has other arguments
    void dispatchRcpFrmReader(const NSData&) noexcept {}
#else
    void dispatchRcpFrmReader(const std::optional<NSData>&) noexcept override {}
#endif
  };
  manager.setRcpReceiverDelegate(std::make_shared<Own>());
}

void aCallbackThatMayThrow(KestrinBleMgr& manager) {
  struct Own : RcpReceiver {
#if REFUSED == 9  // looser exception|more lax than base
    void plugChangedStatus(bool) override {}
#else
    void plugChangedStatus(bool) noexcept override {}
#endif
  };
  manager.setRcpReceiverDelegate(std::make_shared<Own>());
}

}  // namespace kestrin::test
