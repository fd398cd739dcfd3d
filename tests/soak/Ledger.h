// The account of every frame that a soak run sends: which bytes of it arrived, whether the
// assembler had to deliver it by its own rules, and if not, by which rule it was lost.
//
// The assembler's byte-by-byte twin gets every arrival too. Beside its buffer stands where each
// kept byte comes from, so that whatever leaves the buffer undelivered is known by name.
//
// Threads: one. Lifetime: plain values. Errors: what cannot be explained is kept as a text.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "support/LiteralAssembler.h"

namespace kestrin::test {

/// One byte's origin.
struct Source {
  /// Of no frame: bytes that came a second time, or noise.
  static constexpr std::uint32_t kNoFrame = 0xFFFFFFFF;
  std::uint32_t frame = kNoFrame;
  bool preamble = false;
};

/// A value on its way from the reader.
struct Piece {
  Bytes bytes;
  std::vector<Source> sources;
};

enum class Fate : std::uint8_t {
  underway,
  delivered,
  /// Sent with a mistake in it.
  sentWrong,
  /// The link ended before all of it had come.
  lostWithLink,
  /// Its preamble was the buffer's only byte.
  lonePreamble,
  /// Its preamble stood inside another frame: one that was broken off, or only seemed to begin.
  swallowed,
  /// What must not happen.
  unexplained,
};
inline constexpr std::size_t kFates = 8;

class Ledger {
 public:
  explicit Ledger(std::uint32_t frames) : fates_(frames, Fate::underway) {}

  void sentWrong(std::uint32_t frame) { fates_[frame] = Fate::sentWrong; }
  void underway(Piece piece) { onItsWay_.push_back(std::move(piece)); }
  /// The link has ended: what is on its way never comes.
  void linkEnded();
  /// The value that the library is about to be told is the next one on its way. Returns the frames
  /// that it must deliver because of it.
  std::vector<std::string> arrival(const Bytes& value);
  /// A value that the library is told once more, with no new notification.
  std::vector<std::string> repetition(const Bytes& value);
  /// What is still in the buffer at the end stays there.
  void finish();

  [[nodiscard]] std::size_t count(Fate fate) const;
  [[nodiscard]] std::size_t kept() const { return twin_.kept().size(); }
  [[nodiscard]] std::size_t mostKept() const { return mostKept_; }
  [[nodiscard]] const std::vector<std::string>& problems() const { return problems_; }

 private:
  std::vector<std::string> take(const Bytes& value, const std::vector<Source>& sources);
  void delivered(const std::string& frame);
  void leave(const Bytes& before, std::size_t count);
  void close(std::uint32_t frame, Fate fate);

  LiteralAssembler twin_;
  std::deque<Source> sources_;  // Of the twin's kept bytes.
  std::deque<Piece> onItsWay_;
  std::vector<Fate> fates_;
  std::vector<std::string> problems_;
  std::size_t mostKept_ = 0;
};

/// A frame that carries its number.
Bytes numberedFrame(std::uint32_t number, const Bytes& more);

}  // namespace kestrin::test
