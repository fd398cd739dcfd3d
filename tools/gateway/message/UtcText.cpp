#include <array>
#include <charconv>

#include "tools/gateway/message/Messages.h"

namespace kestrin::gateway {
namespace {

// Days are counted from 1970-01-01, in 400 years of which there are as many each time. A year
// begins with March here, so that the odd day is its last one.
constexpr std::int64_t kMsOfDay = 86'400'000;
constexpr std::int64_t kDaysOf400Years = 146'097;
constexpr std::int64_t kDaysFromYear0 = 719'468;

struct Date {
  std::int64_t year = 0;
  std::int64_t month = 0;
  std::int64_t day = 0;
};

std::int64_t floorOf(std::int64_t number, std::int64_t divisor) {
  return number / divisor - (number % divisor < 0 ? 1 : 0);
}

Date dateOf(std::int64_t days) {
  const std::int64_t shifted = days + kDaysFromYear0;
  const std::int64_t era = floorOf(shifted, kDaysOf400Years);
  const std::int64_t dayOfEra = shifted - era * kDaysOf400Years;
  const std::int64_t yearOfEra =
      (dayOfEra - dayOfEra / 1460 + dayOfEra / 36'524 - dayOfEra / 146'096) / 365;
  const std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const std::int64_t monthFromMarch = (5 * dayOfYear + 2) / 153;
  const std::int64_t month = monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9;
  return {yearOfEra + era * 400 + (month <= 2 ? 1 : 0), month,
          dayOfYear - (153 * monthFromMarch + 2) / 5 + 1};
}

std::int64_t daysOf(const Date& date) {
  const std::int64_t year = date.year - (date.month <= 2 ? 1 : 0);
  const std::int64_t era = floorOf(year, 400);
  const std::int64_t yearOfEra = year - era * 400;
  const std::int64_t monthFromMarch = date.month > 2 ? date.month - 3 : date.month + 9;
  const std::int64_t dayOfYear = (153 * monthFromMarch + 2) / 5 + date.day - 1;
  return era * kDaysOf400Years + yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear -
         kDaysFromYear0;
}

void appendNumber(std::int64_t number, std::size_t digits, std::string& text) {
  std::array<char, 20> written{};
  const auto end = std::to_chars(written.data(), written.data() + written.size(), number).ptr;
  const auto count = static_cast<std::size_t>(end - written.data());
  if (count < digits) text.append(digits - count, '0');
  text.append(written.data(), count);
}

void appendYear(std::int64_t year, std::string& text) {
  const bool plain = year >= 0 && year <= 9999;
  if (!plain) text += year < 0 ? '-' : '+';
  appendNumber(year < 0 ? -year : year, plain ? 4 : 6, text);
}

/// Takes what follows a year apart: a letter stands for itself, and 0 for a digit.
bool hasShape(std::string_view text, std::string_view shape) {
  if (text.size() != shape.size()) return false;
  for (std::size_t i = 0; i < shape.size(); ++i) {
    const bool right = shape[i] == '0' ? text[i] >= '0' && text[i] <= '9' : text[i] == shape[i];
    if (!right) return false;
  }
  return true;
}

std::optional<std::int64_t> numberOf(std::string_view digits) {
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
  return number;
}

}  // namespace

std::string utcText(std::int64_t wallMs) {
  const std::int64_t days = floorOf(wallMs, kMsOfDay);
  const std::int64_t ms = wallMs % kMsOfDay < 0 ? wallMs % kMsOfDay + kMsOfDay : wallMs % kMsOfDay;
  const Date date = dateOf(days);
  std::string text;
  constexpr std::size_t kUsual = 24;
  text.reserve(kUsual);
  appendYear(date.year, text);
  const auto append = [&text](char before, std::int64_t number, std::size_t digits) {
    text += before;
    appendNumber(number, digits, text);
  };
  append('-', date.month, 2);
  append('-', date.day, 2);
  append('T', ms / 3'600'000, 2);
  append(':', ms / 60'000 % 60, 2);
  append(':', ms / 1000 % 60, 2);
  append('.', ms % 1000, 3);
  text += 'Z';
  return text;
}

std::optional<std::int64_t> wallMsOf(std::string_view utcText) {
  constexpr std::string_view kShape = "-00-00T00:00:00.000Z";
  // The last year that 64 bits of milliseconds reach is 292278994.
  constexpr std::size_t kLongestYear = 10;
  if (utcText.size() < kShape.size() + 4 || utcText.size() > kShape.size() + kLongestYear) {
    return std::nullopt;
  }
  const auto rest = utcText.substr(utcText.size() - kShape.size());
  const auto yearPart = utcText.substr(0, utcText.size() - kShape.size());
  const auto year = numberOf(yearPart.starts_with('+') ? yearPart.substr(1) : yearPart);
  if (!year || !hasShape(rest, kShape)) return std::nullopt;
  const auto two = [rest](std::size_t at) { return *numberOf(rest.substr(at, 2)); };
  std::int64_t ms = ((two(7) * 60 + two(10)) * 60 + two(13)) * 1000 + *numberOf(rest.substr(16, 3));
  std::int64_t days = daysOf({*year, two(1), two(4)});
  // Counted back from the day's end, since the first day of all begins before 64 bits do.
  if (days < 0) {
    ++days;
    ms -= kMsOfDay;
  }
  std::int64_t wallMs = 0;
  if (__builtin_mul_overflow(days, kMsOfDay, &wallMs) ||
      __builtin_add_overflow(wallMs, ms, &wallMs)) {
    return std::nullopt;
  }
  // A thirteenth month, and whatever else is not written so.
  if (gateway::utcText(wallMs) != utcText) return std::nullopt;
  return wallMs;
}

}  // namespace kestrin::gateway
