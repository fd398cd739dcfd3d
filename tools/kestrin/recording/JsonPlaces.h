// Where things stand in a line of JSON. The JSON library says what stands in it, and where it can
// not be read, but not where a field is whose value is wrong.
//
// Threads: a plain value.
// Lifetime: the line must outlive it.
// Errors: none; of a text that is not JSON it tells some place within.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kestrin::app {

/// Every column is counted from 1.
class JsonPlaces {
 public:
  explicit JsonPlaces(std::string_view line);

  struct Key {
    std::string key;
    std::size_t column = 0;
    std::size_t valueColumn = 0;
  };

  /// Where the value of the outermost object's field begins; 1 when there is no such field.
  [[nodiscard]] std::size_t columnOf(std::string_view key) const;
  /// Where brackets go deeper than `limit`.
  [[nodiscard]] std::optional<std::size_t> deeperThan(std::size_t limit) const;
  /// A field of the outermost object that stands there a second time.
  [[nodiscard]] std::optional<Key> repeatedKey() const;

 private:
  void takeText(std::string_view line, std::size_t& place);

  std::vector<Key> keys_;
  std::vector<std::size_t> openings_;  // The first bracket of each depth.
  std::size_t depth_ = 0;
};

}  // namespace kestrin::app
