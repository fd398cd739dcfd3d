// What the page's server answers to a request, and to whom: pure, so that it can be tried without a
// server.
//
// A request is answered for a name that is the page's own, so that no other site can have itself
// resolved to this machine and read; and never for a script of another site.
//
// Threads: any; nothing changes once it is made.
// Lifetime: a plain value.
// Errors: refused requests get a status and one line.
#pragma once

#include "tools/gateway/message/Status.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kestrin::gateway {

struct PageAccess {
  std::optional<std::string> token{};  ///< Absent: whoever reaches the page may read it.
  std::vector<std::string> names{};    ///< Hosts that it is asked for as, besides addresses.
  bool commands = false;
};

struct PageRequest {
  std::string method, path, host, authorization, contentType;
  std::string fetchSite;  ///< Sec-Fetch-Site
  std::string fetchMode;  ///< Sec-Fetch-Mode
  std::string body;
};

struct PageAnswer {
  /// `events` has no end; `command` has its answer later, from the gateway.
  enum class Kind : std::uint8_t { whole, events, command };
  Kind kind = Kind::whole;
  unsigned status = 200;
  std::string type;
  std::string body;
  std::vector<std::pair<std::string, std::string>> headers;
  std::string reader{};  ///< With `command`.
};

/// A command's body has no more: JSON with two digits for each byte and a blank between.
inline constexpr std::size_t kLongestBody = 4096;

class Site {
 public:
  explicit Site(PageAccess access) : access_(std::move(access)) {}

  /// `status` is null before the gateway has said anything.
  [[nodiscard]] PageAnswer answer(const PageRequest& request, const Status* status,
                                  std::size_t viewers) const;

 private:
  [[nodiscard]] std::optional<PageAnswer> refusal(const PageRequest& request) const;
  [[nodiscard]] bool isOwnName(std::string_view host) const;
  [[nodiscard]] bool isAllowed(std::string_view authorization) const;
  [[nodiscard]] PageAnswer command(const PageRequest& request) const;

  const PageAccess access_;
};

/// An answer of one line.
PageAnswer plainAnswer(unsigned status, const std::string& line);

/// The bytes of base64; absent for any other text.
std::optional<std::string> bytesOfBase64(std::string_view text);

/// Takes as long for every text of one length.
bool isSameSecret(std::string_view secret, std::string_view given);

}  // namespace kestrin::gateway
