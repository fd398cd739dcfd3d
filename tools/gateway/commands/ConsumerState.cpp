#include "tools/gateway/commands/ConsumerState.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <filesystem>
#include <sstream>
#include <system_error>
#include <utility>
#include <vector>

#include "tools/gateway/commands/SafeText.h"
#include "tools/gateway/consumer/Stream.h"

namespace kestrin::gateway {
namespace {

constexpr const char* kFirstLine = "kestrin-gateway consumer 1";
constexpr std::uint64_t kLargestFile = 1U << 20U;

/// FNV-1a: enough to notice what a disk or an editor has done.
std::string sumOf(std::string_view text) {
  std::uint64_t sum = 0xCBF29CE484222325U;
  for (const char c : text) {
    sum ^= static_cast<std::uint8_t>(c);
    sum *= 0x100000001B3U;
  }
  std::vector<std::uint8_t> bytes;
  for (unsigned shift = 64; shift > 0; shift -= 8) {
    bytes.push_back(static_cast<std::uint8_t>(sum >> (shift - 8)));
  }
  return hexText(bytes);
}

std::string headOf(const std::string& gateway, const std::string& consumer) {
  return std::string(kFirstLine) + "\ngateway " + gateway + "\nconsumer " + consumer + "\n";
}

bool isIdentity(const std::string& text) {
  constexpr std::size_t kDigits = 32;
  return text.size() == kDigits && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

bool addPosition(const std::string& line, ConsumerPositions& positions) {
  std::istringstream words(line);
  std::string word;
  std::string log;
  std::string number;
  std::string more;
  if (!(words >> word >> log >> number) || words >> more || word != "next") return false;
  RecordNumber next = 0;
  const auto result = std::from_chars(number.data(), number.data() + number.size(), next);
  if (result.ec != std::errc() || result.ptr != number.data() + number.size()) return false;
  const bool fits = isIdentity(log) && next >= 1 && next <= Stream::kLastNumber + 1;
  return fits && positions.emplace(log, next).second;
}

std::string systemText(const std::string& path, int number) {
  return path + ": " + std::error_code(number, std::generic_category()).message();
}

}  // namespace

std::string stateText(const std::string& gateway, const std::string& consumer,
                      const ConsumerPositions& positions) {
  std::string text = headOf(gateway, consumer);
  for (const auto& [log, next] : positions) {
    text += "next " + log + " " + std::to_string(next) + "\n";
  }
  return text + "sum " + sumOf(text) + "\n";
}

std::optional<ConsumerPositions> statePositions(const std::string& text, const std::string& gateway,
                                                const std::string& consumer, std::string& error) {
  const std::size_t sum = text.rfind("sum ");
  if (!text.starts_with(kFirstLine) || sum == std::string::npos) {
    error =
        "is not the state of a consumer, or is damaged; put the right file back, or remove it "
        "to be given everything that the gateway still has";
    return std::nullopt;
  }
  if (text.substr(sum) != "sum " + sumOf(std::string_view(text).substr(0, sum)) + "\n") {
    error =
        "is damaged: its sum is not right; put a good copy back, or remove it to be given "
        "everything that the gateway still has";
    return std::nullopt;
  }
  const std::string head = headOf(gateway, consumer);
  if (!text.starts_with(head)) {
    error = "is the state of another consumer or of another gateway than " + consumer + " of " +
            gateway + "; name another file";
    return std::nullopt;
  }
  ConsumerPositions positions;
  std::istringstream lines(text.substr(head.size(), sum - head.size()));
  for (std::string line; std::getline(lines, line);) {
    if (addPosition(line, positions)) continue;
    error = "has a line that is not right: " + safeText(line) + "; right is next LOG NUMBER";
    return std::nullopt;
  }
  return positions;
}

std::unique_ptr<ConsumerState> ConsumerState::open(std::shared_ptr<FileLayer> files,
                                                   std::string path, std::string gateway,
                                                   std::string consumer, std::string& error) {
  std::unique_ptr<ConsumerState> state(new ConsumerState(std::move(files), std::move(path),
                                                         std::move(gateway), std::move(consumer)));
  auto why = state->lock();
  if (!why) why = state->load();
  if (!why) return state;
  error = *why;
  return nullptr;
}

ConsumerState::~ConsumerState() {
  if (lock_ >= 0) ::close(lock_);
}

std::optional<std::string> ConsumerState::lock() {
  constexpr mode_t kMode = 0644;
  const std::string path = path_ + ".lock";
  lock_ = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kMode);
  if (lock_ < 0) return systemText(path, errno);
  struct flock whole {};
  whole.l_type = F_WRLCK;
  whole.l_whence = SEEK_SET;
  if (::fcntl(lock_, F_SETLK, &whole) == 0) return std::nullopt;
  if (errno != EAGAIN && errno != EACCES) return systemText(path, errno);
  return path_ + ": another consumer has it; give each one a file of its own";
}

std::optional<std::string> ConsumerState::load() {
  FileError failed;
  const auto file = files_->open(path_, false, failed);
  if (!file) {
    if (failed.number == ENOENT) return std::nullopt;
    return failed.text;
  }
  if (file->size() > kLargestFile) return path_ + ": is too large for the state of a consumer";
  std::vector<std::uint8_t> bytes(static_cast<std::size_t>(file->size()));
  std::size_t count = 0;
  if (const auto error = file->read(0, bytes, count)) return error->text;
  std::string why;
  const auto positions =
      statePositions(std::string(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count)),
                     gateway_, consumer_, why);
  if (!positions) return path_ + ": " + why;
  positions_ = *positions;
  return std::nullopt;
}

std::optional<std::string> ConsumerState::save(const ConsumerPositions& positions) {
  if (positions == positions_) return std::nullopt;
  if (const auto error = write(stateText(gateway_, consumer_, positions))) return error->text;
  positions_ = positions;
  return std::nullopt;
}

std::optional<FileError> ConsumerState::write(const std::string& text) {
  const std::string fresh = path_ + ".new";
  // One that a kill has left.
  if (auto error = files_->remove(fresh); error && error->number != ENOENT) return error;
  FileError failed;
  const auto file = files_->open(fresh, true, failed);
  if (!file) return failed;
  const std::vector<std::uint8_t> bytes(text.begin(), text.end());
  if (auto error = file->append(bytes)) return error;
  if (auto error = file->sync()) return error;
  if (auto error = files_->rename(fresh, path_)) return error;
  const std::string folder = std::filesystem::path(path_).parent_path().string();
  return files_->syncFolder(folder.empty() ? "." : folder);
}

}  // namespace kestrin::gateway
