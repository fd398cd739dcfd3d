// Numbers in the log's files: the lowest byte first, on every machine.
//
// Threads: pure functions. Errors: none; the caller sees that there are enough bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kestrin::gateway {

template <typename Number>
Number getNumber(const std::uint8_t* bytes) noexcept {
  Number number = 0;
  for (std::size_t i = 0; i < sizeof(Number); ++i) {
    number = static_cast<Number>(number | static_cast<Number>(bytes[i]) << (8 * i));
  }
  return number;
}

inline std::uint16_t get16(const std::uint8_t* bytes) noexcept {
  return static_cast<std::uint16_t>(bytes[0] | bytes[1] << 8);
}
inline std::uint32_t get32(const std::uint8_t* bytes) noexcept {
  return getNumber<std::uint32_t>(bytes);
}
inline std::uint64_t get64(const std::uint8_t* bytes) noexcept {
  return getNumber<std::uint64_t>(bytes);
}

template <typename Number>
void setNumber(std::uint8_t* bytes, Number number) noexcept {
  for (std::size_t i = 0; i < sizeof(Number); ++i) {
    bytes[i] = static_cast<std::uint8_t>(number >> (8 * i) & 0xFFU);
  }
}

template <typename Number>
void putNumber(std::vector<std::uint8_t>& bytes, Number number) {
  const std::size_t place = bytes.size();
  bytes.resize(place + sizeof(Number));
  setNumber(bytes.data() + place, number);
}

inline void put16(std::vector<std::uint8_t>& bytes, std::uint16_t number) {
  putNumber(bytes, number);
}
inline void put32(std::vector<std::uint8_t>& bytes, std::uint32_t number) {
  putNumber(bytes, number);
}
inline void put64(std::vector<std::uint8_t>& bytes, std::uint64_t number) {
  putNumber(bytes, number);
}

}  // namespace kestrin::gateway
