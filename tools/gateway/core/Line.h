// A line for a person about what happens, with what a program looks for in it.
//
// Threads: a plain value.
// Lifetime: a plain value.
// Errors: none.
#pragma once

#include "tools/gateway/log/Record.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace kestrin::gateway {

/// The values are those of syslog.
enum class Weight : std::uint8_t { error = 3, warning = 4, notice = 5, info = 6 };

struct Line {
  std::string text;
  Weight weight = Weight::info;
  std::string reader{};                  ///< Its name or address; empty: none is meant.
  std::optional<RecordNumber> number{};  ///< Of the record, or the first one, that is meant.
  std::string reason{};                  ///< Which trouble: one word, as "broker"; empty: none.

  // Most lines are a text and nothing else.
  Line(std::string words) : text(std::move(words)) {}  // NOLINT
  Line(const char* words) : text(words) {}             // NOLINT
  Line(std::string_view words) : text(words) {}        // NOLINT
  Line(std::string words, RecordNumber record) : text(std::move(words)), number(record) {}
  operator const std::string&() const noexcept { return text; }  // NOLINT
  friend bool operator==(const Line&, const Line&) = default;
};

}  // namespace kestrin::gateway
