// One reader of the configuration, held: searched for by its whole name or its address, without
// end.
//
// A reader whose name merely contains the one that is meant is never taken.
//
// Threads: the main run loop's.
// Lifetime: dropping it closes the link and calls nobody again.
// Errors: troubles, a line each, which go when their cause does.
#pragma once

#include "KestrinBLESDK/Reader.h"
#include "tools/gateway/config/Config.h"
#include "tools/gateway/core/Timer.h"
#include "tools/gateway/log/Log.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace kestrin::gateway {

class HeldReader {
 public:
  struct Handlers {
    /// A whole frame, or a value of a reader that sends no whole frames.
    std::function<void(const HeldReader&, RecordKind, std::span<const std::uint8_t>)> onData{};
    /// Phase, name, address or trouble have changed.
    std::function<void(HeldReader&)> onChange{};
    /// The number of a link that begins now.
    std::function<std::uint64_t()> nextLink{};
  };
  HeldReader(const Platform& platform, ReaderConfig config, Handlers handlers);

  /// As the configuration names it.
  [[nodiscard]] const std::string& key() const noexcept { return config_.reader; }
  /// Its address; what the configuration says while it was not found yet.
  [[nodiscard]] std::string identifier() const;
  [[nodiscard]] std::string name() const;
  [[nodiscard]] ReaderPhase phase() const;
  [[nodiscard]] std::uint64_t link() const noexcept { return link_; }
  /// Empty when nothing is wrong.
  [[nodiscard]] const std::string& trouble() const noexcept { return trouble_; }
  /// Whether a topic's or a person's word for a reader means this one.
  [[nodiscard]] bool isMeant(const std::string& part) const;

  void send(const std::vector<std::uint8_t>& frame, Reader::SendHandler done);
  /// Ends everything; `done` is called once the link is down.
  void close(std::function<void()> done);

 private:
  ReaderHandlers readerHandlers();
  void enter(ReaderPhase phase);
  void look();
  void lookIn(Time pause);
  [[nodiscard]] bool fits(const SeenReader& seen) const;
  void notFound();
  void setTrouble(const std::string& trouble);

  const ReaderConfig config_;
  const Handlers handlers_;
  Timer look_;
  Time searched_{};
  std::uint64_t link_ = 0;
  std::string trouble_;
  std::unique_ptr<Reader> reader_;
};

}  // namespace kestrin::gateway
