#include "tools/gateway/page/Site.h"

#include <algorithm>
#include <array>
#include <string>

#include "tools/gateway/config/Quantities.h"
#include "tools/gateway/page/Assets.h"
#include "tools/gateway/page/Metrics.h"

namespace kestrin::gateway {
namespace {

constexpr std::string_view kCommand = "/reader/";
constexpr std::string_view kCommandEnd = "/command";
constexpr char kJson[] = "application/json";
constexpr char kWantsToken[] = "Basic realm=\"kestrin-gateway\", charset=\"UTF-8\"";
constexpr std::size_t kLongestReader = 1024;

/// Nothing of another origin is loaded or told, and no text becomes part of a script.
constexpr char kPolicy[] =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src 'self'; "
    "base-uri 'none'; form-action 'none'; frame-ancestors 'none'; "
    "require-trusted-types-for 'script'; trusted-types 'none'";

char lowered(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool sameLetters(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char one, char other) { return lowered(one) == lowered(other); });
}

/// The host of a Host header, without its port; absent when it is not one.
std::optional<std::string_view> hostOf(std::string_view header) {
  std::string_view host = header;
  std::string_view port;
  if (header.starts_with('[')) {
    const std::size_t end = header.find(']');
    if (end == std::string_view::npos) return std::nullopt;
    host = header.substr(1, end - 1);
    port = header.substr(end + 1);
  } else if (const std::size_t colon = header.find(':'); colon != std::string_view::npos) {
    host = header.substr(0, colon);
    port = header.substr(colon);
  }
  const bool isPort =
      port.empty() || (port.front() == ':' && port.size() <= 6 &&
                       port.find_first_not_of("0123456789", 1) == std::string_view::npos);
  return isPort && !host.empty() ? std::optional(host) : std::nullopt;
}

std::optional<unsigned> digitOf(char c) {
  if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
  const char low = lowered(c);
  if (low >= 'a' && low <= 'f') return static_cast<unsigned>(low - 'a' + 10);
  return std::nullopt;
}

/// The reader of /reader/NAME/command, whose NAME may have %XX; absent: it is another path.
std::optional<std::string> commandedReader(std::string_view path) {
  if (path.size() <= kCommand.size() + kCommandEnd.size() || !path.starts_with(kCommand) ||
      !path.ends_with(kCommandEnd)) {
    return std::nullopt;
  }
  path.remove_prefix(kCommand.size());
  path.remove_suffix(kCommandEnd.size());
  std::string reader;
  for (std::size_t i = 0; i < path.size(); ++i) {
    if (path[i] != '%') {
      reader += path[i];
      continue;
    }
    const auto high = i + 2 < path.size() ? digitOf(path[i + 1]) : std::nullopt;
    const auto low = i + 2 < path.size() ? digitOf(path[i + 2]) : std::nullopt;
    if (!high || !low) return std::nullopt;
    reader += static_cast<char>(*high << 4U | *low);
    i += 2;
  }
  return reader.size() <= kLongestReader ? std::optional(reader) : std::nullopt;
}

PageAnswer wholeAnswer(const char* type, std::string body) {
  PageAnswer answer;
  answer.type = type;
  answer.body = std::move(body);
  return answer;
}

PageAnswer eventsAnswer() {
  PageAnswer answer;
  answer.kind = PageAnswer::Kind::events;
  answer.type = "text/event-stream";
  return answer;
}

std::optional<PageAnswer> fileAnswer(std::string_view path) {
  if (path == "/") return wholeAnswer("text/html; charset=utf-8", std::string(pageHtml()));
  if (path == "/page.css") return wholeAnswer("text/css; charset=utf-8", std::string(pageStyle()));
  if (path == "/page.js") {
    return wholeAnswer("text/javascript; charset=utf-8", std::string(pageScript()));
  }
  if (path == "/icon.svg") return wholeAnswer("image/svg+xml", std::string(pageIcon()));
  return std::nullopt;
}

bool isOfStatus(std::string_view path) {
  return path == "/status.json" || path == "/metrics" || path == "/events";
}

PageAnswer statusAnswer(std::string_view path, const Status* status, std::size_t viewers) {
  if (path == "/events") return eventsAnswer();
  if (status == nullptr) return plainAnswer(503, "the gateway begins; ask again in a second");
  if (path == "/metrics") {
    return wholeAnswer("text/plain; version=0.0.4; charset=utf-8", metricsOf(*status, viewers));
  }
  return wholeAnswer(kJson, textOf(*status));
}

PageAnswer wrongMethod(const char* right) {
  PageAnswer answer = plainAnswer(405, std::string("only ") + right + " is answered here");
  answer.headers.emplace_back("Allow", right);
  return answer;
}

/// What every answer has.
PageAnswer guarded(PageAnswer answer) {
  auto& headers = answer.headers;
  headers.emplace_back("Content-Security-Policy", kPolicy);
  headers.emplace_back("X-Content-Type-Options", "nosniff");
  headers.emplace_back("X-Frame-Options", "DENY");
  headers.emplace_back("Referrer-Policy", "no-referrer");
  headers.emplace_back("Cross-Origin-Resource-Policy", "same-origin");
  headers.emplace_back("Cross-Origin-Opener-Policy", "same-origin");
  headers.emplace_back("Cache-Control", "no-store");
  return answer;
}

}  // namespace

PageAnswer plainAnswer(unsigned status, const std::string& line) {
  PageAnswer answer = wholeAnswer("text/plain; charset=utf-8", line + '\n');
  answer.status = status;
  return guarded(std::move(answer));
}

std::optional<std::string> bytesOfBase64(std::string_view text) {
  constexpr std::string_view kDigits =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  for (int padding = 0; padding < 2 && text.ends_with('='); ++padding) text.remove_suffix(1);
  std::string bytes;
  std::uint32_t held = 0;
  unsigned bits = 0;
  for (const char c : text) {
    const std::size_t digit = kDigits.find(c);
    if (digit == std::string_view::npos) return std::nullopt;
    held = (held << 6U | static_cast<std::uint32_t>(digit)) & 0xFFFFU;
    bits += 6;
    if (bits < 8) continue;
    bits -= 8;
    bytes += static_cast<char>(held >> bits & 0xFFU);
  }
  return bytes;
}

bool isSameSecret(std::string_view secret, std::string_view given) {
  // The volatile keeps the compiler from leaving the loop early.
  volatile unsigned char difference = secret.size() == given.size() && !secret.empty() ? 0 : 1;
  for (std::size_t i = 0; i < given.size(); ++i) {
    const char one = secret.empty() ? '\0' : secret[i % secret.size()];
    difference = static_cast<unsigned char>(
        difference | static_cast<unsigned char>(static_cast<unsigned char>(one) ^
                                                static_cast<unsigned char>(given[i])));
  }
  return difference == 0;
}

bool Site::isOwnName(std::string_view header) const {
  const auto host = hostOf(header);
  if (!host) return false;
  // An address in digits is nobody's to resolve.
  if (isIpAddress(std::string(*host)) || sameLetters(*host, "localhost")) return true;
  return std::any_of(access_.names.begin(), access_.names.end(),
                     [&](const std::string& each) { return sameLetters(each, *host); });
}

bool Site::isAllowed(std::string_view authorization) const {
  if (!access_.token) return true;
  const std::size_t space = authorization.find(' ');
  if (space == std::string_view::npos) return false;
  const std::string_view kind = authorization.substr(0, space);
  const std::string_view rest = authorization.substr(space + 1);
  if (sameLetters(kind, "Bearer")) return isSameSecret(*access_.token, rest);
  if (!sameLetters(kind, "Basic")) return false;
  const auto both = bytesOfBase64(rest);
  const std::size_t colon = both ? both->find(':') : std::string::npos;
  return colon != std::string::npos &&
         isSameSecret(*access_.token, std::string_view(*both).substr(colon + 1));
}

std::optional<PageAnswer> Site::refusal(const PageRequest& request) const {
  if (!isOwnName(request.host)) {
    return plainAnswer(421, "this host's name is not the page's; page.names has those that are");
  }
  // A browser says which site's script asks. A person who follows a link may come from anywhere.
  const bool isForeign = request.fetchSite == "cross-site" || request.fetchSite == "same-site";
  if (isForeign && (request.fetchMode != "navigate" || request.method == "POST")) {
    return plainAnswer(403, "other sites are not answered");
  }
  if (!isAllowed(request.authorization)) {
    PageAnswer answer = plainAnswer(401, "a token is needed, as a password or as a bearer");
    answer.headers.emplace_back("WWW-Authenticate", kWantsToken);
    return answer;
  }
  return std::nullopt;
}

PageAnswer Site::command(const PageRequest& request) const {
  if (!access_.commands || !access_.token) {
    return plainAnswer(403, "this page only reads; page.commands = true and a token change that");
  }
  if (request.method != "POST") return wrongMethod("POST");
  // What a browser adds by itself, it also adds for others.
  if (!sameLetters(std::string_view(request.authorization).substr(0, 7), "Bearer ")) {
    return plainAnswer(403, "a command needs the token as a bearer");
  }
  // With this kind of content no browser lets another site send anything unasked.
  if (!sameLetters(std::string_view(request.contentType).substr(0, sizeof kJson - 1), kJson)) {
    return plainAnswer(415, "a command is JSON, with Content-Type: application/json");
  }
  if (request.body.size() > kLongestBody) return plainAnswer(413, "a command is not so long");
  PageAnswer answer;
  answer.kind = PageAnswer::Kind::command;
  answer.type = kJson;
  answer.reader = commandedReader(request.path).value_or("");
  return guarded(std::move(answer));
}

PageAnswer Site::answer(const PageRequest& request, const Status* status,
                        std::size_t viewers) const {
  if (auto refused = refusal(request)) return std::move(*refused);
  if (commandedReader(request.path)) return command(request);
  auto file = fileAnswer(request.path);
  if (!file && !isOfStatus(request.path)) return plainAnswer(404, "nothing is here");
  if (request.method != "GET" && request.method != "HEAD") return wrongMethod("GET");
  if (file) return guarded(std::move(*file));
  PageAnswer answer = statusAnswer(request.path, status, viewers);
  return answer.headers.empty() ? guarded(std::move(answer)) : answer;
}

}  // namespace kestrin::gateway
