#include "tools/gateway/message/Members.h"

#include <array>
#include <limits>
#include <nlohmann/json.hpp>

#include "tools/gateway/config/Config.h"
#include "tools/gateway/message/Bytes.h"
#include "tools/gateway/message/CborShape.h"

namespace kestrin::gateway {
namespace {

using Json = nlohmann::json;

std::string quoted(std::string_view object, std::string_view name) {
  return '"' + shown(object) + (object.empty() ? "" : ".") + shown(name) + '"';
}

std::string kindOf(const MemberValue& value) {
  if (const auto* const kind = std::get_if<MemberKind>(&value)) {
    switch (*kind) {
      case MemberKind::null:
        return "null";
      case MemberKind::truth:
        return "true or false";
      case MemberKind::fraction:
        return "a number that is not whole or too large";
      case MemberKind::object:
        return "an object";
      case MemberKind::list:
        return "a list";
    }
  }
  if (std::holds_alternative<std::string>(value)) return "a text";
  if (std::holds_alternative<Bytes>(value)) return "a byte string";
  return "a whole number";
}

bool isCbor(std::string_view payload) {
  return !payload.empty() && static_cast<unsigned char>(payload.front()) >> 5U == 5;
}

constexpr int kNumberTooLarge = 406;  // What the JSON library calls it.

}  // namespace

/// Takes the members of the outermost object and of those right within it; deeper ones are known to
/// nobody.
class Members::Reading : public nlohmann::json_sax<Json> {
 public:
  Reading(Members& members, std::string form) : members_(members), form_(std::move(form)) {}

  bool null() override { return put(MemberKind::null); }
  bool boolean(bool /*value*/) override { return put(MemberKind::truth); }
  bool number_integer(std::int64_t value) override { return put(value); }
  bool number_unsigned(std::uint64_t value) override { return put(value); }
  bool number_float(double /*value*/, const std::string& /*text*/) override {
    return put(MemberKind::fraction);
  }
  bool string(std::string& value) override { return put(std::move(value)); }
  bool binary(Json::binary_t& value) override { return put(Bytes(value.begin(), value.end())); }
  bool start_object(std::size_t /*size*/) override { return start(MemberKind::object); }
  bool key(std::string& name) override {
    if (level_ <= kKept) names_[level_ - 1] = std::move(name);
    return true;
  }
  bool end_object() override { return end(); }
  bool start_array(std::size_t /*size*/) override { return start(MemberKind::list); }
  bool end_array() override { return end(); }
  bool parse_error(std::size_t place, const std::string& /*token*/,
                   const Json::exception& error) override {
    members_.fail(error.id == kNumberTooLarge
                      ? "a number in it is too large to be read"
                      : "this is not " + form_ + ", at byte " + std::to_string(place));
    return false;
  }

 private:
  static constexpr std::size_t kKept = 2;

  bool put(MemberValue value) {
    if (level_ == 0) {
      members_.fail("this is not one object with named members");
      return false;
    }
    // What is in a list has no name.
    if (level_ > kKept || lists_ > 0) return true;
    const std::string object = level_ == 2 ? names_[0] : std::string();
    const auto place = std::pair(object, names_[level_ - 1]);
    const bool added = members_.values_.emplace(place, std::move(value)).second;
    if (!added) members_.fail(quoted(object, names_[level_ - 1]) + " stands in it twice");
    return added;
  }
  bool start(MemberKind kind) {
    const bool outermost = level_ == 0 && kind == MemberKind::object;
    if (!outermost && !put(kind)) return false;
    if (lists_ > 0 || kind == MemberKind::list) ++lists_;
    ++level_;
    return true;
  }
  bool end() {
    --level_;
    if (lists_ > 0) --lists_;
    return true;
  }

  Members& members_;
  const std::string form_;
  std::size_t level_ = 0;  ///< How many objects and lists are open.
  std::size_t lists_ = 0;  ///< Of them, those from the outermost list on.
  std::array<std::string, kKept> names_;
};

Members::Members(std::string_view payload, std::size_t mostBytes) {
  read(payload, mostBytes);
  if (!has("v")) return;
  if (const auto version = number("v", 1); version != 1) {
    fail("its version, \"v\", is " + std::to_string(version) + "; 1 would be right");
  }
}

void Members::read(std::string_view payload, std::size_t mostBytes) {
  if (payload.empty()) return fail("the payload is empty; one JSON object would be right");
  if (payload.size() > mostBytes) {
    return fail("the payload has " + std::to_string(payload.size()) + " bytes; at most " +
                std::to_string(mostBytes) + " would be right");
  }
  const bool cbor = isCbor(payload);
  Reading reading(*this, cbor ? "CBOR with texts as names" : "JSON");
  if (cbor) {
    if (const auto trouble = cborTrouble(payload)) return fail("this is not CBOR: " + *trouble);
    Json::sax_parse(payload.begin(), payload.end(), &reading, Json::input_format_t::cbor);
  } else {
    Json::sax_parse(payload.begin(), payload.end(), &reading);
  }
}

void Members::enter(std::string_view object) {
  object_.clear();
  if (object.empty()) return;
  const MemberValue* const value = need(object, "an object");
  if (value == nullptr) return;
  if (*value != MemberValue(MemberKind::object)) return refuseKind(object, *value, "an object");
  object_ = object;
}

bool Members::has(std::string_view name) const { return find(name) != nullptr; }

std::string Members::text(std::string_view name, std::string_view right) {
  const MemberValue* const value = need(name, right);
  if (value == nullptr) return {};
  const auto* const text = std::get_if<std::string>(value);
  if (text != nullptr) return *text;
  refuseKind(name, *value, right);
  return {};
}

std::string Members::airText(std::string_view name) {
  const std::string hex = std::string(name) + "Hex";
  if (!has(hex)) return text(name, "a text");
  const Bytes its = bytes(hex);
  return {its.begin(), its.end()};
}

std::string Members::plainName(std::string_view name) {
  constexpr std::string_view kRight = "1 to 64 of the characters A-Z, a-z, 0-9, _ and -";
  std::string its = text(name, kRight);
  if (error_.empty() && !isPlainName(its)) {
    refuse(name, '"' + shown(its) + "\" is not a name; " + std::string(kRight) + " would be right");
  }
  return its;
}

std::uint64_t Members::number(std::string_view name, std::uint64_t least) {
  const std::string right =
      "a whole number from " + std::to_string(least) + " to " + std::to_string(kLargestNumber);
  const MemberValue* const value = need(name, right);
  if (value == nullptr) return 0;
  const auto* const number = std::get_if<std::uint64_t>(value);
  if (number != nullptr && *number >= least && *number <= kLargestNumber) return *number;
  if (number != nullptr || std::holds_alternative<std::int64_t>(*value)) {
    const std::string its = number != nullptr ? std::to_string(*number)
                                              : std::to_string(std::get<std::int64_t>(*value));
    refuse(name, its + " is out of range; " + right + " would be right");
  } else {
    refuseKind(name, *value, right);
  }
  return 0;
}

std::int64_t Members::signedNumber(std::string_view name) {
  constexpr std::string_view kRight = "a whole number of 64 bits with sign";
  const MemberValue* const value = need(name, kRight);
  if (value == nullptr) return 0;
  if (const auto* const negative = std::get_if<std::int64_t>(value)) return *negative;
  const auto* const number = std::get_if<std::uint64_t>(value);
  constexpr auto kMost = std::uint64_t{std::numeric_limits<std::int64_t>::max()};
  if (number != nullptr && *number <= kMost) return static_cast<std::int64_t>(*number);
  refuseKind(name, *value, kRight);
  return 0;
}

Bytes Members::bytes(std::string_view name) {
  constexpr std::string_view kRight = "hexadecimal text, two digits for each byte,";
  const MemberValue* const value = need(name, kRight);
  if (value == nullptr) return {};
  if (const auto* const bytes = std::get_if<Bytes>(value)) return *bytes;
  const auto* const text = std::get_if<std::string>(value);
  if (text == nullptr) {
    refuseKind(name, *value, kRight);
    return {};
  }
  std::string why;
  auto bytes = bytesOfHex(*text, why);
  if (bytes) return std::move(*bytes);
  refuse(name, why);
  return {};
}

void Members::refuse(std::string_view name, const std::string& text) {
  fail(quoted(object_, name) + ": " + text);
}

const MemberValue* Members::find(std::string_view name) const {
  if (!error_.empty()) return nullptr;
  const auto found = values_.find({object_, std::string(name)});
  return found == values_.end() ? nullptr : &found->second;
}

const MemberValue* Members::need(std::string_view name, std::string_view right) {
  const MemberValue* const value = find(name);
  if (value == nullptr) {
    fail(quoted(object_, name) + " is missing; " + std::string(right) + " would be right");
  }
  return value;
}

void Members::refuseKind(std::string_view name, const MemberValue& value, std::string_view right) {
  refuse(name, "it is " + kindOf(value) + "; " + std::string(right) + " would be right");
}

}  // namespace kestrin::gateway
