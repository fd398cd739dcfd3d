// A history as it happens: takes the steps on real managers, over a platform that records.
//
// Client calls are made through a plain pointer: the library itself must keep what it still needs
// when a callback drops the last reference.
//
// Threads: one. Lifetime: one history. Errors: none.
#pragma once

#include <array>
#include <deque>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "KestrinBLESDK/KestrinBleMgr.h"
#include "model/Catalog.h"
#include "model/Step.h"
#include "support/RecordingPlatform.h"

namespace kestrin::test {

class RealHistory;

class ScriptedDelegate final : public KestrinBLEProtocols {
 public:
  ScriptedDelegate(RealHistory& history, std::string label, unsigned number, unsigned implemented)
      : label_(std::move(label)), history_(history), number_(number), implemented_(implemented) {}
  [[nodiscard]] bool respondsToSelector(Selector selector) const noexcept override;
  void scanBleStatus(std::int64_t status) noexcept override;
  void scanningBleDeive(const std::shared_ptr<CBPeripheral>& peripheral) noexcept override;

  [[nodiscard]] const std::string& label() const { return label_; }

 private:
  const std::string label_;
  RealHistory& history_;
  const unsigned number_;
  const unsigned implemented_;
};

class ScriptedReceiver final : public RcpReceiver {
 public:
  ScriptedReceiver(RealHistory& history, std::string label, unsigned number, unsigned implemented)
      : label_(std::move(label)), history_(history), number_(number), implemented_(implemented) {}
  [[nodiscard]] bool respondsToSelector(Selector selector) const noexcept override;
  void plugChangedStatus(bool plugged) noexcept override;
  void dispatchRcpFrmReader(const std::optional<NSData>& frame) noexcept override;

  [[nodiscard]] const std::string& label() const { return label_; }

 private:
  const std::string label_;
  RealHistory& history_;
  const unsigned number_;
  const unsigned implemented_;
};

class RealHistory {
 public:
  RealHistory();
  void take(const Step& step);
  /// What was recorded since this was called last, each line with its time.
  std::vector<std::string> takeLines();
  /// The central managers that were released, as of the last `takeLines`.
  std::multiset<std::string> takeReleased() { return std::exchange(released_, {}); }
  [[nodiscard]] std::string fields() const;

  // For the delegates.
  void say(const std::string& line) { platform_.transcript().add(line); }
  void reactAt(unsigned site);

 private:
  void act(const Step& step);
  void callManager(const Step& step, KestrinBleMgr& manager);
  void ask(const KestrinBleMgr& manager);
  void answer(const std::string& operation, bool result);
  void prepare(const Step& step);
  void change(const Step& step);
  void play(const Step& step);
  void playEvent(const Step& step, KestrinBleMgr& manager);
  void playState(const Step& step, KestrinBleMgr& manager);
  void playValue(const Step& step, KestrinBleMgr& manager);
  void makeManager(unsigned slot);
  void makeDelegate(unsigned index, unsigned implemented);
  void makeReceiver(unsigned index, unsigned implemented);
  [[nodiscard]] std::string fieldsOf(KestrinBleMgr& manager, std::size_t number) const;
  [[nodiscard]] std::string numberOf(const std::shared_ptr<CBCharacteristic>& found) const;

  RecordingPlatform platform_;
  std::array<std::shared_ptr<RecordingPeripheral>, kPeripherals> peripherals_;
  std::array<std::shared_ptr<RecordingService>, kServices.size()> services_;
  std::array<std::shared_ptr<RecordingCharacteristic>, kCharacteristics.size()> characteristics_;
  std::array<std::shared_ptr<KestrinBleMgr>, kManagers> managers_;
  std::array<std::weak_ptr<KestrinBleMgr>, kManagers> latest_;
  std::vector<std::weak_ptr<KestrinBleMgr>> all_;
  std::array<std::shared_ptr<ScriptedDelegate>, kDelegates> delegates_;
  std::array<std::shared_ptr<ScriptedReceiver>, kReceivers> receivers_;
  std::array<std::deque<Step>, kSites> reactions_;
  std::multiset<std::string> released_;
  std::string time_ = "0";
  int delegatesMade_ = 0;
  bool reacting_ = false;
  bool droppedInside_ = false;
};

}  // namespace kestrin::test
