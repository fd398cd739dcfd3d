// Which of the readers in range a NAME on the command line means.
//
// A whole name counts for more than a part of one, so that `KVR-1` is not also `KVR-12`, and an
// identifier for more than both: it is the one way to tell readers of the same name apart.
//
// Threads: one at a time. Lifetime: keeps the readers. Errors: none.
#pragma once

#include <KestrinBLESDK/platform/CBPeripheral.h>

#include <memory>
#include <string>
#include <vector>

namespace kestrin::app {

struct SeenReader {
  std::shared_ptr<CBPeripheral> peripheral;
  /// Both as they came from the air.
  std::string name;
  std::string identifier;
};

class ReaderChoice {
 public:
  /// An empty text means any reader.
  explicit ReaderChoice(std::string wanted) : wanted_(std::move(wanted)) {}

  /// Takes a reader that was seen, again with the name that it has by now.
  void take(const std::shared_ptr<CBPeripheral>& peripheral);
  /// The readers that are meant most: none, the one, or several that the text does not tell apart.
  [[nodiscard]] std::vector<SeenReader> meant() const;
  /// Whether the text is a reader's identifier, so that no other can be meant.
  [[nodiscard]] bool isIdentified() const;
  [[nodiscard]] const std::vector<SeenReader>& seen() const noexcept { return seen_; }
  [[nodiscard]] const std::string& wanted() const noexcept { return wanted_; }

 private:
  enum class Match { none, part, name, identifier };
  [[nodiscard]] Match match(const SeenReader& reader) const;

  const std::string wanted_;
  std::vector<SeenReader> seen_;
};

/// `'KVR-1' (C0:...:01), 'KVR-12' (C0:...:02)`, safe for a terminal.
std::string listOf(const std::vector<SeenReader>& readers);

}  // namespace kestrin::app
