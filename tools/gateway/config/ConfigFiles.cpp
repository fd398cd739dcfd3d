// A configuration from a text or a file, and the files that it names.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
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

bool isThere(const std::string& path) { return ::access(path.c_str(), F_OK) == 0; }

/// Puts the file that a credential is in the place of its name; what is wrong, empty: nothing. The
/// unit loads a whole folder, whose files get its own name in front.
std::string findCredential(std::string& path) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody here changes the environment.
  const char* const folder = std::getenv("CREDENTIALS_DIRECTORY");
  const std::string name = path.substr(kCredential.size());
  if (folder == nullptr) {
    return path +
           " is there for a service only; the unit with LoadCredential= would be right, or "
           "the name of a file";
  }
  const std::string inFolder = std::string(folder) + "/";
  path = inFolder + name;
  if (isThere(path)) return "";
  path = inFolder + "kestrin-gateway_" + name;
  if (isThere(path)) return "";
  return "the service was given no credential " + name + "; a file " +
         "/etc/kestrin-gateway/credentials/" + name + " and a restart would be right";
}

void checkToken(JudgedConfig& judged, const std::string& file) {
  const auto& token = judged.config.page.tokenFile;
  std::string error;
  if (!token || token->starts_with(kCredential)) return;
  if (!troubleWith(*token, true).empty() || readToken(*token, error)) return;
  const ConfigPlace place = placeOfKey(judged.tree, "page.token_file");
  judged.complaints.push_back({file, place.line, place.column, "page.token_file", error});
}

void checkFiles(JudgedConfig& judged, const std::string& file, Credentials credentials) {
  const auto check = [&](std::optional<std::string>& path, const std::string& key, bool secret) {
    if (!path) return;
    std::string trouble;
    if (path->starts_with(kCredential)) {
      if (credentials == Credentials::notLookedAt) return;
      trouble = findCredential(*path);
    }
    if (trouble.empty()) trouble = troubleWith(*path, secret);
    if (trouble.empty()) return;
    const ConfigPlace place = placeOfKey(judged.tree, key);
    judged.complaints.push_back({file, place.line, place.column, key, trouble});
  };
  Config& config = judged.config;
  check(config.simulatedScript, "radio.script", false);
  check(config.broker.passwordFile, "broker.password_file", true);
  check(config.broker.tls.caFile, "broker.tls.ca", false);
  check(config.broker.tls.certificateFile, "broker.tls.certificate", false);
  check(config.broker.tls.keyFile, "broker.tls.key", true);
  check(config.page.tokenFile, "page.token_file", true);
  check(config.page.certificateFile, "page.tls.certificate", false);
  check(config.page.keyFile, "page.tls.key", true);
  checkToken(judged, file);
  for (std::size_t i = 0; i < config.webhooks.size(); ++i) {
    WebhookConfig& webhook = config.webhooks[i];
    const std::string section = "webhook[" + std::to_string(i + 1) + "].";
    check(webhook.tokenFile, section + "token_file", true);
    check(webhook.headersFile, section + "headers_file", true);
    check(webhook.caFile, section + "ca", false);
  }
}

}  // namespace

std::optional<std::string> readToken(const std::string& file, std::string& error) {
  constexpr std::size_t kLeast = 16;
  constexpr std::size_t kMost = 256;
  const Descriptor open(file);
  struct stat state {};
  error = troubleOf(open, state);
  auto text = error.empty() ? contentOf(open) : std::nullopt;
  if (!text) {
    error = file + ' ' + (error.empty() ? "cannot be read: " + systemWords(errno) : error);
    return std::nullopt;
  }
  while (text->ends_with('\n') || text->ends_with('\r')) text->pop_back();
  const bool printable =
      std::all_of(text->begin(), text->end(), [](char c) { return c > ' ' && c < 0x7F; });
  if (printable && text->size() >= kLeast && text->size() <= kMost) return text;
  error = file +
          " has no token; one line of 16 to 256 characters without blanks would be right, as "
          "`openssl rand -hex 32` prints one";
  return std::nullopt;
}

std::optional<Config> parseConfig(const std::string& text, const std::string& file,
                                  std::vector<ConfigComplaint>& complaints) {
  const auto read = judgedText(text, file);
  complaints.insert(complaints.end(), read.complaints.begin(), read.complaints.end());
  if (!read.complaints.empty()) return std::nullopt;
  return read.config;
}

std::optional<Config> readConfig(const std::string& file, std::vector<ConfigComplaint>& complaints,
                                 Credentials credentials) {
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
  checkFiles(judged, file, credentials);
  sortByPlace(judged.complaints);
  complaints.insert(complaints.end(), judged.complaints.begin(), judged.complaints.end());
  if (!judged.complaints.empty()) return std::nullopt;
  return std::move(judged.config);
}

}  // namespace kestrin::gateway
