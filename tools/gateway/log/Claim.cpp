#include "tools/gateway/log/Claim.h"

#include <vector>

#include "tools/gateway/log/Crc32c.h"
#include "tools/gateway/log/LittleEndian.h"

namespace kestrin::gateway {
namespace {

constexpr int kAttempts = 3;
constexpr std::size_t kIdentityLength = 32;
constexpr std::size_t kDoubtPlace = kIdentityLength + 8 + 8;
constexpr std::size_t kLength = kDoubtPlace + 1;

}  // namespace

void writeClaim(FileLayer& files, const std::string& path, const Claim& claim) noexcept {
  std::vector<std::uint8_t> bytes(claim.identity.begin(), claim.identity.end());
  put64(bytes, claim.synced);
  put64(bytes, claim.forgotten);
  bytes.push_back(claim.isDoubtful ? 1 : 0);
  put32(bytes, crc32c(bytes));
  FileError error;
  auto file = files.open(path, false, error);
  if (!file) file = files.open(path, true, error);
  if (!file) return;
  for (int i = 0; i < kAttempts; ++i) {
    // In its place, since a full disk would not let it grow again.
    const bool isThere = file->size() == bytes.size();
    if (isThere && !file->overwrite(0, bytes)) return;
    if (!isThere && !file->truncate(0) && !file->append(bytes)) return;
  }
  // A note that is empty or missing says at least that something was not written.
  for (int i = 0; i < kAttempts; ++i) {
    if (!file->truncate(0) || !files.remove(path)) return;
  }
}

bool isClaimTorn(FileLayer& files, const std::string& path) {
  FileError error;
  const auto file = files.open(path, false, error);
  return file && file->size() == kLength + 4;
}

std::optional<Claim> readClaim(FileLayer& files, const std::string& path) {
  FileError error;
  const auto file = files.open(path, false, error);
  if (!file) return std::nullopt;
  std::vector<std::uint8_t> bytes(kLength + 4);
  std::size_t count = 0;
  if (file->read(0, bytes, count) || count != bytes.size()) return std::nullopt;
  const std::uint32_t crc = get32(bytes.data() + kLength);
  bytes.resize(kLength);
  if (crc32c(bytes) != crc) return std::nullopt;
  Claim claim{LogIdentity(bytes.begin(), bytes.begin() + kIdentityLength),
              get64(bytes.data() + kIdentityLength), get64(bytes.data() + kIdentityLength + 8),
              bytes[kDoubtPlace] != 0};
  const bool isPossible = claim.synced <= kHighestNumber && claim.forgotten <= kHighestNumber;
  return isPossible ? std::optional(std::move(claim)) : std::nullopt;
}

}  // namespace kestrin::gateway
