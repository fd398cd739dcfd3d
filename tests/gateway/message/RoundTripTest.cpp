// Whatever a record holds, a consumer reads the same out of its payload, in both formats.
//
// KESTRIN_SEED (1 if not given) settles what is tried; a failure prints it.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "gateway/message/Records.h"

namespace kestrin::gateway {
namespace {

class Chance {
 public:
  explicit Chance(std::uint64_t seed) : engine_(seed) {}
  std::uint64_t any() { return engine_(); }
  std::size_t below(std::size_t bound) { return static_cast<std::size_t>(engine_() % bound); }
  /// Of any size: as many small ones as large ones.
  std::uint64_t number() { return engine_() >> (1 + engine_() % 63); }
  std::int64_t signedNumber() {
    const auto number = static_cast<std::int64_t>(this->number());
    return below(2) == 0 ? number : -number;
  }
  std::string text() {
    constexpr std::string_view kOften = "\"\\\0\n\x7F\xC3\xA9\xE2\x82\xAC\xFF%/+#";
    std::string text;
    const std::size_t length = below(12);
    while (text.size() < length) {
      text += below(2) == 0 ? static_cast<char>(any()) : kOften[below(kOften.size())];
    }
    return text;
  }
  std::vector<std::uint8_t> bytes() {
    std::vector<std::uint8_t> bytes(below(40));
    for (auto& byte : bytes) byte = static_cast<std::uint8_t>(any());
    return below(2) == 0 ? bytes
                         : frameOf(static_cast<std::uint8_t>(below(3)),
                                   static_cast<std::uint8_t>(any()), bytes);
  }

 private:
  std::mt19937_64 engine_;
};

Record anyRecord(Chance& chance) {
  Record record;
  record.number = chance.number() + 1;
  if (chance.below(4) == 0) {
    const RecordNumber from = chance.number() / 2 + 1;
    record.kind = RecordKind::gap;
    record.gap =
        Gap{"L-_9", from, from + chance.number() / 2, static_cast<GapReason>(1 + chance.below(3))};
    return record;
  }
  record.kind = chance.below(2) == 0 ? RecordKind::frame : RecordKind::value;
  record.reader = chance.text();
  record.name = chance.text();
  record.link = chance.number();
  record.wallMs = chance.signedNumber();
  record.monoMs = chance.signedNumber();
  record.bytes = chance.bytes();
  return record;
}

std::uint64_t seed() {
  const char* const given = std::getenv("KESTRIN_SEED");  // NOLINT(concurrency-mt-unsafe)
  return given == nullptr ? 1 : std::strtoull(given, nullptr, 10);
}

TEST(RoundTrip, EveryRecordComesBackFromItsPayload) {
  Chance chance(seed());
  SCOPED_TRACE("repeat with KESTRIN_SEED=" + std::to_string(seed()));
  for (int i = 0; i < 4'000; ++i) {
    const Record record = anyRecord(chance);
    for (const FrameFormat format : {FrameFormat::json, FrameFormat::cbor}) {
      const std::string payload = payloadOf(record, kLog, format);
      std::string error;
      ASSERT_EQ(deliveryOf(payload, error), (Delivery{kLog, record})) << error << ": " << payload;
      const bool text = format == FrameFormat::json;
      ASSERT_FALSE(text && mendedUtf8(payload)) << payload;
    }
  }
}

}  // namespace
}  // namespace kestrin::gateway
