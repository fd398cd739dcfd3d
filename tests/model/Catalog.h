// The things that generated histories are about: names, attributes, values and spans of time. Each
// is there for a rule that it meets or just misses.
//
// Threads: constants. Errors: none; an index that is too large wraps around.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/ReferenceFrame.h"

namespace kestrin::test {

template <class List>
const auto& pick(const List& list, unsigned index) {
  return list[index % list.size()];
}

/// The first four are those that the four peripherals have at first.
inline const std::vector<std::optional<std::string>> kNames = {
    "TQM_HOLV-1", "KVR-Q62T 0012", std::nullopt, "Lamp",   "Tag417",    "kvr-q62t 0012",
    "x KVR-Q62T", "KVR-Q62",       "KVR-Q62T",   "xR7ZTM", "R7ZT KV R", "Speaker 58"};
inline constexpr unsigned kPeripherals = 4;
inline constexpr unsigned kKVRPeripheral = 1;

inline constexpr std::string_view kStandardServiceText = "BA821000-3B5B-4654-85FE-E998B123ADEA";
inline constexpr std::string_view kStandardTxText = "BA821001-3B5B-4654-85FE-E998B123ADEA";
inline constexpr std::string_view kStandardRxText = "BA821002-3B5B-4654-85FE-E998B123ADEA";

/// Canonical texts. The first and the last are two services of one UUID.
inline constexpr std::array<std::string_view, 4> kServices = {kStandardServiceText, "FFF0", "180A",
                                                              kStandardServiceText};

/// A characteristic: the text that its UUID is made from, and the canonical one.
struct KnownCharacteristic {
  std::string_view given;
  std::string_view canonical;
};
inline constexpr std::array<KnownCharacteristic, 9> kCharacteristics = {{
    {kStandardRxText, kStandardRxText},
    {kStandardTxText, kStandardTxText},
    {"2A27", "2A27"},
    {"fff1", "FFF1"},
    {"FFF2", "FFF2"},
    {"2a29", "2A29"},
    {"0000FFF1-0000-1000-8000-00805F9B34FB", "FFF1"},
    {kStandardTxText, kStandardTxText},
    {"0001FFF2-0000-1000-8000-00805F9B34FB", "0001FFF2-0000-1000-8000-00805F9B34FB"},
}};

inline constexpr unsigned kTxCharacteristic = 1;
inline constexpr unsigned kKVRTxCharacteristic = 4;
inline constexpr unsigned kManufacturerName = 5;

/// Neither write bit, each, both, and both among others.
inline constexpr std::array<std::uint64_t, 6> kPropertyMasks = {0x0C, 0x08, 0x04, 0x12, 0x00, 0x3E};

/// What the client sends: around the size of a slice, and an absent frame.
inline const std::vector<std::optional<Bytes>> kFramesToSend = {
    Bytes(9, 0x11),  Bytes(),         Bytes(19, 0x22), Bytes(20, 0x33),
    Bytes(21, 0x44), Bytes(45, 0x55), Bytes(60, 0x66), std::nullopt};

/// What the reader's characteristics say: whole frames and parts that become one, each kind of
/// damage, text for the manufacturer's name, nothing, and no value.
inline const std::vector<std::optional<Bytes>> kValues = [] {
  const Bytes one = referenceFrame(0x01, 0x03, Bytes{0xB1});
  const Bytes other = referenceFrame(0xBB, 0x22, Bytes{0xBB, 0x7E, 0xBB});
  Bytes wrongCrc = one;
  wrongCrc.back() ^= 0x01;
  return std::vector<std::optional<Bytes>>{
      one,
      part(other, 0, 2),
      from(other, 2),
      Bytes{0xBB},
      Bytes{0x00},
      joined({one, other}),
      joined({one, part(other, 0, 6)}),
      from(other, 6),
      joined({other, {0x31}}),
      Bytes{},
      wrongCrc,
      referenceFrame(0x00, 0x03, Bytes{0xB1}),
      Bytes{0xBB, 0x01, 0x02, 0x03, 0xFE},
      Bytes{0xBB, 0x01, 0x02, 0x00, 0x00, 0x31},
      Bytes{'N', 'o', 'v', 'a'},
      Bytes{'N', 0x80},
      std::nullopt,
  };
}();
inline const unsigned kNoValue = static_cast<unsigned>(kValues.size()) - 1;

/// In seconds; zero is one turn of the run loop. Around the library's own delays.
inline constexpr std::array<double, 9> kSpans = {0.0, 0.05, 0.25, 0.45, 0.5, 1.0, 1.5, 2.0, 2.5};

}  // namespace kestrin::test
