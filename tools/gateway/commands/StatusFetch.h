// What a gateway's page says of its status, asked once.
//
// Threads: one; waits. Lifetime: plain values. Errors: in one line, with what would help.
#pragma once

#include <optional>
#include <string>

namespace kestrin::gateway {

struct StatusPlace {
  std::string url;  ///< Without a path and without a stroke at its end.
  std::optional<std::string> token{};
  std::optional<std::string> caFile{};  ///< Absent: the system's.
  bool isHere = false;                  ///< On this machine: no proxy is asked.
  bool hasOwnCertificate = false;  ///< `caFile` is the page's, which need not be for this name.
};

/// Its answer, at most 4 MiB.
std::optional<std::string> fetchStatus(const StatusPlace& place, std::string& error);

}  // namespace kestrin::gateway
