// A configuration from a text or a file, and the files that it names.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "tools/gateway/config/Config.h"
#include "tools/gateway/config/ConfigRules.h"

namespace kestrin::gateway {
namespace {

std::string systemWords(int error) { return std::generic_category().message(error); }

class Descriptor {
 public:
  // Of a pipe without a writer the opening would wait.
  explicit Descriptor(const std::string& path)
      : number_(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}
  ~Descriptor() {
    if (number_ >= 0) ::close(number_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  [[nodiscard]] int number() const { return number_; }

 private:
  const int number_;
};

/// Why what is open cannot be read as a file; empty when it can.
std::string troubleOf(const Descriptor& file, struct stat& state) {
  if (file.number() < 0) return "cannot be read: " + systemWords(errno);
  if (::fstat(file.number(), &state) != 0) return "cannot be read: " + systemWords(errno);
  if (S_ISDIR(state.st_mode)) return "is a folder; a file would be right";
  if (!S_ISREG(state.st_mode)) return "is not a file; a file would be right";
  return "";
}

/// The file's content, up to more than a configuration may have.
std::optional<std::string> contentOf(const Descriptor& file) {
  constexpr std::size_t kMost = std::size_t{1} << 20U;
  std::string text;
  std::array<char, 4096> piece{};
  while (text.size() < kMost) {
    const ssize_t length = ::read(file.number(), piece.data(), piece.size());
    if (length < 0) return std::nullopt;
    if (length == 0) break;
    text.append(piece.data(), static_cast<std::size_t>(length));
  }
  return text;
}

/// A file of root's may be read by its group: so the system keeps keys that several users need.
bool isOpenToOthers(const struct stat& state) {
  const bool group = (state.st_mode & (S_IWGRP | S_IXGRP)) != 0 ||
                     ((state.st_mode & S_IRGRP) != 0 && state.st_uid != 0);
  return group || (state.st_mode & S_IRWXO) != 0;
}

/// What is wrong with a file that the configuration names; empty: nothing.
std::string troubleWith(const std::string& path, bool secret) {
  const Descriptor file(path);
  struct stat state {};
  if (const auto trouble = troubleOf(file, state); !trouble.empty()) return path + ' ' + trouble;
  if (secret && isOpenToOthers(state)) {
    return path + " can be used by others than its owner; chmod 600 would be right";
  }
  return "";
}

void checkFiles(JudgedConfig& judged, const std::string& file) {
  const auto check = [&](const std::optional<std::string>& path, const char* key, bool secret) {
    if (!path) return;
    const auto trouble = troubleWith(*path, secret);
    if (trouble.empty()) return;
    const ConfigPlace place = placeOfKey(judged.tree, key);
    judged.complaints.push_back({file, place.line, place.column, key, trouble});
  };
  const Config& config = judged.config;
  check(config.simulatedScript, "radio.script", false);
  check(config.broker.passwordFile, "broker.password_file", true);
  check(config.broker.tls.caFile, "broker.tls.ca", false);
  check(config.broker.tls.certificateFile, "broker.tls.certificate", false);
  check(config.broker.tls.keyFile, "broker.tls.key", true);
}

}  // namespace

std::optional<Config> parseConfig(const std::string& text, const std::string& file,
                                  std::vector<ConfigComplaint>& complaints) {
  const auto read = judgedText(text, file);
  complaints.insert(complaints.end(), read.complaints.begin(), read.complaints.end());
  if (!read.complaints.empty()) return std::nullopt;
  return read.config;
}

std::optional<Config> readConfig(const std::string& file,
                                 std::vector<ConfigComplaint>& complaints) {
  const Descriptor open(file);
  struct stat state {};
  const auto trouble = troubleOf(open, state);
  const auto text = trouble.empty() ? contentOf(open) : std::nullopt;
  if (!text) {
    complaints.push_back(
        {file, 0, 0, "",
         "it " + (trouble.empty() ? "cannot be read: " + systemWords(errno) : trouble)});
    return std::nullopt;
  }
  JudgedConfig judged = judgedText(*text, file);
  checkFiles(judged, file);
  sortByPlace(judged.complaints);
  complaints.insert(complaints.end(), judged.complaints.begin(), judged.complaints.end());
  if (!judged.complaints.empty()) return std::nullopt;
  return std::move(judged.config);
}

}  // namespace kestrin::gateway
