#include "tools/gateway/message/CborShape.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kestrin::gateway {
namespace {

constexpr std::size_t kDeepest = 8;

enum class Major : std::uint8_t { whole, negative, bytes, text, list, map, tag, simple };

class Walk {
 public:
  explicit Walk(std::string_view bytes) : bytes_(bytes) {}

  /// Goes over one item with all that is in it, without calling itself.
  bool item() {
    left_.push_back(1);
    while (!left_.empty() && trouble_.empty()) {
      if (left_.back() == 0) {
        left_.pop_back();
        continue;
      }
      --left_.back();
      head();
    }
    return trouble_.empty();
  }
  [[nodiscard]] std::size_t at() const { return at_; }
  [[nodiscard]] const std::string& trouble() const { return trouble_; }

 private:
  void head();
  void content(Major major, std::uint64_t number);
  void nest(std::uint64_t items);
  void fail(const std::string& text) {
    trouble_ = "byte " + std::to_string(item_ + 1) + ": " + text;
  }
  std::uint64_t number(std::size_t size) {
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < size; ++i) {
      number = number << 8U | static_cast<unsigned char>(bytes_[at_ + i]);
    }
    return number;
  }

  const std::string_view bytes_;
  std::size_t at_ = 0;
  std::size_t item_ = 0;             ///< Where the item begins that is looked at.
  std::vector<std::uint64_t> left_;  ///< How many items each open part still has.
  std::string trouble_;
};

void Walk::head() {
  item_ = at_;
  if (at_ >= bytes_.size()) return fail("it ends within an item");
  const auto first = static_cast<unsigned char>(bytes_[at_]);
  const auto major = static_cast<Major>(first >> 5U);
  const unsigned low = first & 0x1FU;
  if (major == Major::tag) return fail("tags are not taken");
  if (low > 27) return fail("a stated length would be right");
  const std::size_t size = low < 24 ? 0 : std::size_t{1} << (low - 24U);
  if (bytes_.size() - at_ - 1 < size) return fail("it ends within an item");
  ++at_;
  const std::uint64_t stated = size == 0 ? low : number(size);
  at_ += size;
  content(major, stated);
}

void Walk::content(Major major, std::uint64_t number) {
  if (major == Major::bytes || major == Major::text) {
    if (number > bytes_.size() - at_) return fail("it ends within an item");
    at_ += static_cast<std::size_t>(number);
  }
  if (major == Major::list) nest(number);
  if (major == Major::map) {
    // Twice as many items as pairs, of which each takes a byte at least.
    if (number > bytes_.size()) return fail("it ends within an item");
    nest(number * 2);
  }
}

void Walk::nest(std::uint64_t items) {
  if (left_.size() > kDeepest) {
    return fail("more than " + std::to_string(kDeepest) +
                " lists and maps stand within each other");
  }
  left_.push_back(items);
}

}  // namespace

std::optional<std::string> cborTrouble(std::string_view bytes) {
  Walk walk(bytes);
  if (!walk.item()) return walk.trouble();
  if (walk.at() < bytes.size()) {
    return "byte " + std::to_string(walk.at() + 1) + ": something stands behind the item";
  }
  return std::nullopt;
}

}  // namespace kestrin::gateway
