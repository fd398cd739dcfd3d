#include "LinkNames.h"

#include <cstddef>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string_view>

namespace kestrin::bluez {
namespace {

// More than any controller has links. What is longer was not written here.
constexpr std::size_t kMostNames = 256;
// A name in an attribute has at most so many bytes (Bluetooth Core, Vol 3, Part C, 12.1).
constexpr std::size_t kLongestName = 248;
constexpr std::string_view kDigits = "0123456789abcdef";

// In digits, since a name may hold any byte.
std::string digitsOf(const std::string& name) {
  std::string digits;
  for (const char each : name) {
    const auto byte = static_cast<unsigned char>(each);
    digits += kDigits[byte >> 4U];
    digits += kDigits[byte & 0x0FU];
  }
  return digits;
}

std::optional<std::string> nameOf(const std::string& digits) {
  if (digits.empty() || digits.size() % 2 != 0 || digits.size() > 2 * kLongestName) {
    return std::nullopt;
  }
  std::string name;
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    const auto high = kDigits.find(digits[i]);
    const auto low = kDigits.find(digits[i + 1]);
    if (high == std::string_view::npos || low == std::string_view::npos) return std::nullopt;
    name += static_cast<char>(high << 4U | low);
  }
  return name;
}

}  // namespace

void LinkNames::use(const std::string& file) {
  if (!file_.empty()) return;
  file_ = file;
  std::ifstream lines(file, std::ios::binary);
  std::string line;
  while (left_.size() < kMostNames && std::getline(lines, line)) {
    std::istringstream words(line);
    std::string device;
    std::string digits;
    if (!(words >> device >> digits)) continue;
    if (auto name = nameOf(digits)) left_.insert_or_assign(device, std::move(*name));
  }
  kept_ = left_;
}

// Not synced: a power cut ends the links as well.
void LinkNames::keep(const Names& names) {
  if (file_.empty() || names == kept_) return;
  kept_ = names;
  if (names.empty()) {
    std::remove(file_.c_str());
    return;
  }
  const std::string next = file_ + ".new";
  std::ofstream out(next, std::ios::binary | std::ios::trunc);
  for (const auto& [device, name] : names) out << device << ' ' << digitsOf(name) << '\n';
  out.close();
  // Whole or not at all, whenever this process is killed.
  if (out) std::rename(next.c_str(), file_.c_str());
}

}  // namespace kestrin::bluez
