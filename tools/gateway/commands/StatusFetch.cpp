#include "tools/gateway/commands/StatusFetch.h"

#include <curl/curl.h>

#include <array>
#include <memory>

namespace kestrin::gateway {
namespace {

constexpr std::size_t kMostBytes = std::size_t{4} << 20U;
constexpr long kSeconds = 10;
constexpr long kRight = 200;
constexpr long kNeedsToken = 401;

std::size_t takePiece(char* piece, std::size_t one, std::size_t size, void* to) {
  auto& body = *static_cast<std::string*>(to);
  if (one * size > kMostBytes - body.size()) return 0;
  body.append(piece, one * size);
  return one * size;
}

struct Header {
  curl_slist* list = nullptr;
  ~Header() { curl_slist_free_all(list); }
};

std::string refusal(long status, const std::string& body) {
  if (status == kNeedsToken) return "it wants a token; is it the one of the page's token_file?";
  const std::string line = body.substr(0, body.find('\n')).substr(0, 200);
  return "it answers with status " + std::to_string(status) + (line.empty() ? "" : ": ") + line;
}

}  // namespace

std::optional<std::string> fetchStatus(const StatusPlace& place, std::string& error) {
  const std::unique_ptr<CURL, void (*)(CURL*)> curl(curl_easy_init(), curl_easy_cleanup);
  if (!curl) {
    error = "the library for HTTP does not start";
    return std::nullopt;
  }
  const std::string url = place.url + "/status.json";
  std::string body;
  std::array<char, CURL_ERROR_SIZE> why{};
  Header header;
  if (place.token) {
    header.list = curl_slist_append(nullptr, ("Authorization: Bearer " + *place.token).c_str());
  }
  curl_easy_setopt(curl.get(), CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl.get(), CURLOPT_HTTPHEADER, header.list);
  curl_easy_setopt(curl.get(), CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(curl.get(), CURLOPT_TIMEOUT, kSeconds);
  curl_easy_setopt(curl.get(), CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, &takePiece);
  curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &body);
  curl_easy_setopt(curl.get(), CURLOPT_ERRORBUFFER, why.data());
  if (place.caFile) {
    curl_easy_setopt(curl.get(), CURLOPT_CAINFO, place.caFile->c_str());
    // The library would look into the system's folder besides.
    curl_easy_setopt(curl.get(), CURLOPT_CAPATH, nullptr);
  }
  if (place.hasOwnCertificate) curl_easy_setopt(curl.get(), CURLOPT_SSL_VERIFYHOST, 0L);
  // What stands in the environment is for the way to other machines.
  if (place.isHere) curl_easy_setopt(curl.get(), CURLOPT_NOPROXY, "*");
  const CURLcode result = curl_easy_perform(curl.get());
  if (result != CURLE_OK) {
    error = why.front() == '\0' ? curl_easy_strerror(result) : why.data();
    return std::nullopt;
  }
  long status = 0;
  curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &status);
  if (status == kRight) return body;
  error = refusal(status, body);
  return std::nullopt;
}

}  // namespace kestrin::gateway
