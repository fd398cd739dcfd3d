// What a file of the model disk holds, and what of it has not been synced.
//
// Threads: one. Lifetime: a plain value. Errors: none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace kestrin::test {

class ModelContent {
 public:
  using Bytes = std::vector<std::uint8_t>;

  /// As whoever reads the file sees it.
  [[nodiscard]] const Bytes& bytes() const { return seen_; }
  void write(std::size_t place, Bytes bytes) { change({place, std::move(bytes)}); }
  /// Cuts the file, or lengthens it with zeros.
  void resize(std::size_t size) { change({size, {}}); }
  /// A byte goes wrong where it lies.
  void damage(std::size_t place, std::uint8_t mask);

  void becomeStable();
  /// Each change gets onto the disk or never will; which, nobody says.
  void loseSome(std::mt19937_64& random, bool forgetPages);
  /// What the disk holds after its power has failed.
  [[nodiscard]] ModelContent afterCut(std::mt19937_64& random) const;

 private:
  struct Change {
    std::size_t place = 0;  ///< A write of `bytes` there; the file's size without any.
    Bytes bytes;
  };
  static void apply(Bytes& bytes, const Change& change);
  static void applySectors(Bytes& bytes, const Change& change, std::mt19937_64& random,
                           bool garbles);
  void change(Change change);
  void applyFirst(Bytes& bytes, std::mt19937_64& random) const;
  void applyAny(Bytes& bytes, std::mt19937_64& random, bool garbles) const;

  Bytes seen_;
  Bytes stable_;
  std::vector<Change> unsynced_;
};

}  // namespace kestrin::test
