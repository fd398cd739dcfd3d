// The readers of the configuration, and what is to be known of each in its topic.
//
// Threads: the main run loop's.
// Lifetime: belongs to a gateway. Dropping it closes every link and calls nobody again.
// Errors: each reader's trouble, in words.
#pragma once

#include "tools/gateway/core/HeldReader.h"
#include "tools/gateway/message/Messages.h"
#include "tools/gateway/message/Status.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kestrin::gateway {

class HeldReaders {
 public:
  struct Handlers {
    std::function<void(const HeldReader&, RecordKind, std::span<const std::uint8_t>)> onData;
    /// What is to be said of a reader; absent: nothing any more.
    std::function<void(const std::string& identifier, const std::optional<ReaderState>&)> onState;
    /// Empty: nothing is wrong with it.
    std::function<void(const std::string& key, const std::string& trouble)> onTrouble;
    /// A command may be sent now.
    std::function<void(const std::string& key)> onPluggedIn;
    std::function<void(const std::string& key)> onRemoved;
    std::function<std::int64_t()> wallMs;
  };
  HeldReaders(Platform platform, Handlers handlers);

  /// From now on these are held. Those that stay are not disturbed.
  void configure(const std::vector<ReaderConfig>& readers);
  /// How many can be used.
  [[nodiscard]] std::size_t pluggedIn() const;
  /// Null: none is meant by that.
  [[nodiscard]] HeldReader* find(const std::string& part);
  /// Each as it is, without what it has sent.
  [[nodiscard]] std::vector<ReaderStatus> status() const;
  /// Ends everything; `done` is called once all links are down.
  void close(std::function<void()> done);

 private:
  struct Held {
    std::unique_ptr<HeldReader> reader;
    std::string identifier{};  // Under which its state is known.
    ReaderState state{};
  };
  void add(const ReaderConfig& config);
  void remove(const std::string& key);
  void changed(HeldReader& reader);
  void show(Held& held, const std::string& sinceUtc);

  const Platform platform_;
  const Handlers handlers_;
  std::map<std::string, Held> readers_;
  std::uint64_t links_ = 0;
};

}  // namespace kestrin::gateway
