#include "tools/gateway/log/Crc32c.h"

#include <array>
#include <cstddef>
#include <cstring>

#include "tools/gateway/log/LittleEndian.h"

namespace kestrin::gateway {
namespace {

constexpr std::uint32_t kPolynomial = 0x82F63B78;  // Lowest bit first.
using Table = std::array<std::array<std::uint32_t, 256>, 8>;

/// Table `n` has what a byte does that is followed by `n` bytes of zero.
constexpr Table makeTable() {
  Table table{};
  for (std::uint32_t byte = 0; byte < 256; ++byte) {
    std::uint32_t crc = byte;
    for (int bit = 0; bit < 8; ++bit) crc = crc >> 1U ^ ((crc & 1U) != 0 ? kPolynomial : 0U);
    table[0][byte] = crc;
  }
  for (std::size_t n = 1; n < table.size(); ++n) {
    for (std::size_t byte = 0; byte < 256; ++byte) {
      const std::uint32_t before = table[n - 1][byte];
      table[n][byte] = before >> 8U ^ table[0][before & 0xFFU];
    }
  }
  return table;
}
constexpr Table kTable = makeTable();

#if defined(__x86_64__) || defined(__i386__)
__attribute__((target("sse4.2"))) std::uint32_t byProcessor(
    std::span<const std::uint8_t> bytes) noexcept {
  std::uint32_t crc = ~0U;
#if defined(__x86_64__)
  std::uint64_t wide = crc;
  while (bytes.size() >= 8) {
    std::uint64_t word = 0;
    std::memcpy(&word, bytes.data(), sizeof word);
    wide = __builtin_ia32_crc32di(wide, word);
    bytes = bytes.subspan(8);
  }
  crc = static_cast<std::uint32_t>(wide);
#endif
  while (bytes.size() >= 4) {
    std::uint32_t word = 0;
    std::memcpy(&word, bytes.data(), sizeof word);
    crc = __builtin_ia32_crc32si(crc, word);
    bytes = bytes.subspan(4);
  }
  for (const std::uint8_t byte : bytes) crc = __builtin_ia32_crc32qi(crc, byte);
  return ~crc;
}
#endif

}  // namespace

std::uint32_t crc32cByTable(std::span<const std::uint8_t> bytes) noexcept {
  std::uint32_t crc = ~0U;
  while (bytes.size() >= 8) {
    const std::uint32_t low = crc ^ get32(bytes.data());
    const std::uint32_t high = get32(bytes.data() + 4);
    crc = kTable[7][low & 0xFFU] ^ kTable[6][low >> 8U & 0xFFU] ^ kTable[5][low >> 16U & 0xFFU] ^
          kTable[4][low >> 24U] ^ kTable[3][high & 0xFFU] ^ kTable[2][high >> 8U & 0xFFU] ^
          kTable[1][high >> 16U & 0xFFU] ^ kTable[0][high >> 24U];
    bytes = bytes.subspan(8);
  }
  for (const std::uint8_t byte : bytes) crc = crc >> 8U ^ kTable[0][(crc ^ byte) & 0xFFU];
  return ~crc;
}

std::uint32_t crc32c(std::span<const std::uint8_t> bytes) noexcept {
#if defined(__x86_64__) || defined(__i386__)
  static const bool able = __builtin_cpu_supports("sse4.2") != 0;
  if (able) return byProcessor(bytes);
#endif
  return crc32cByTable(bytes);
}

}  // namespace kestrin::gateway
