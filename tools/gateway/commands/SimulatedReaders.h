// Virtual readers that send by themselves, for a gateway without readers at hand.
//
// A script has a line for each reader: the seconds between what it sends, a space, and its name. A
// name that begins with "KVR-Q62T" makes one of that family, which sends values instead of frames.
// Empty lines and lines that begin with # say nothing.
//
// Threads: the main run loop's.
// Lifetime: drop the readers before their radio. The run loop is held weakly.
// Errors: a script that is not right says in which line, what is wrong, and what would be right.
#pragma once

#include <KestrinBLESDK/platform/NSData.h>
#include <KestrinBLESDK/platform/RunLoop.h>
#include <kestrin/simulated/SimulatedRadio.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kestrin::gateway {

struct SimulatedReaderPlan {
  std::string name;
  Time pause{};  ///< Between what it sends.
  friend bool operator==(const SimulatedReaderPlan&, const SimulatedReaderPlan&) = default;
};

/// The readers of a script; `file` is how `error` names it.
std::optional<std::vector<SimulatedReaderPlan>> simulatedReadersOf(std::string_view script,
                                                                   const std::string& file,
                                                                   std::string& error);

class SimulatedReaders {
 public:
  /// Is called with everything that a reader has sent over a link, as an application gets it: a
  /// whole frame, or one value.
  using Sent = std::function<void(const std::string& name, const NSData& bytes)>;

  /// `run` is in everything that is sent, so that no run sends what another one has sent.
  SimulatedReaders(const std::weak_ptr<RunLoop>& loop, simulated::SimulatedRadio& radio,
                   const std::vector<SimulatedReaderPlan>& plans, std::uint32_t run,
                   const Sent& sent);

 private:
  struct Reader {
    SimulatedReaderPlan plan;
    simulated::ReaderFamily family = simulated::ReaderFamily::standard;
    std::uint32_t run = 0;
    std::uint8_t index = 0;
    Sent sent;
    std::shared_ptr<simulated::VirtualPeripheral> device{};
    std::uint32_t count = 0;
  };
  /// The answers to commands, which are sent too.
  static simulated::ReaderScript answersOf(const Reader& reader);
  static void sendLater(const std::weak_ptr<RunLoop>& loop, const std::shared_ptr<Reader>& reader);
  static void send(Reader& reader);

  std::vector<std::shared_ptr<Reader>> readers_;
};

}  // namespace kestrin::gateway
