// The members of a payload, JSON or CBOR, taken out one by one. The first that is missing or of a
// wrong type is the error; what is taken after it is empty.
//
// Threads: one. Lifetime: it keeps what it has read. Errors: in words, with the member's name and
// what would be right.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace kestrin::gateway {

using Bytes = std::vector<std::uint8_t>;

/// A number above it is refused: 2 to the 63rd.
inline constexpr std::uint64_t kLargestNumber = std::uint64_t{1} << 63U;

/// What stands at a member that is not a value by itself.
enum class MemberKind : std::uint8_t { null, truth, fraction, object, list };
using MemberValue = std::variant<MemberKind, std::string, Bytes, std::uint64_t, std::int64_t>;

class Members {
 public:
  /// Reads a payload of at most `mostBytes`, whose "v" is 1 or missing.
  Members(std::string_view payload, std::size_t mostBytes);

  /// Inside of the member `object` from now on; of the payload itself when empty.
  void enter(std::string_view object);
  [[nodiscard]] bool has(std::string_view name) const;

  /// `right` says what would be right, as in "the log's identity".
  std::string text(std::string_view name, std::string_view right);
  /// Text from the air: its bytes are in `name`Hex where it is not UTF-8.
  std::string airText(std::string_view name);
  /// A gateway's, a consumer's or a log's name: [A-Za-z0-9_-]{1,64}.
  std::string plainName(std::string_view name);
  std::uint64_t number(std::string_view name, std::uint64_t least);
  std::int64_t signedNumber(std::string_view name);
  /// Hexadecimal text, or a byte string.
  Bytes bytes(std::string_view name);

  void refuse(std::string_view name, const std::string& text);
  [[nodiscard]] const std::string& error() const { return error_; }

 private:
  class Reading;
  void read(std::string_view payload, std::size_t mostBytes);
  const MemberValue* find(std::string_view name) const;
  const MemberValue* need(std::string_view name, std::string_view right);
  void refuseKind(std::string_view name, const MemberValue& value, std::string_view right);
  void fail(std::string text) {
    if (error_.empty()) error_ = std::move(text);
  }

  std::map<std::pair<std::string, std::string>, MemberValue> values_;  ///< By object and name.
  std::string object_;
  std::string error_;
};

}  // namespace kestrin::gateway
