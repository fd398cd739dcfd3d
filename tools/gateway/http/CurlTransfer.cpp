#include "tools/gateway/http/CurlTransfer.h"

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <system_error>
#include <utility>

#include "tools/gateway/config/Quantities.h"
#include "tools/gateway/http/HttpSecrets.h"

namespace kestrin::gateway {
namespace {

constexpr std::size_t kLongestAnswer = std::size_t{64} << 10U;
constexpr std::size_t kLongestDetails = 160;
constexpr long kLongestConnectMs = 10'000;

template <class Value>
void set(CURL* easy, CURLoption option, Value value) {
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-vararg): so the library has it.
  curl_easy_setopt(easy, option, value);
}

template <class Value>
Value asked(CURL* easy, CURLINFO what) {
  Value value{};
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-vararg): so the library has it.
  curl_easy_getinfo(easy, what, &value);
  return value;
}

std::string secondsText(std::chrono::milliseconds time) {
  if (time.count() % 1000 != 0) return std::to_string(time.count()) + " ms";
  return std::to_string(time.count() / 1000) + " s";
}

}  // namespace

CurlTransfer::CurlTransfer(HttpPost post, const std::string& agent)
    : post_(std::move(post)), easy_(curl_easy_init()) {
  if (!easy_) {
    whyNot_ = "there is no memory for it";
    return;
  }
  addHeaders();
  if (!whyNot_) prepare(agent);
}

bool CurlTransfer::addHeader(const std::string& header) {
  curl_slist* const longer = curl_slist_append(headers_.get(), header.c_str());
  if (longer == nullptr) return false;
  [[maybe_unused]] auto* const same = headers_.release();
  headers_.reset(longer);
  return true;
}

void CurlTransfer::addHeaders() {
  // The library would ask first whether a long text may come.
  bool added = addHeader("Expect:");
  for (const std::string& each : post_.headers) added = added && addHeader(each);
  std::string error;
  if (post_.tokenFile) {
    const auto token = tokenIn(*post_.tokenFile, error);
    if (!token) return static_cast<void>(whyNot_ = error);
    added = added && addHeader("Authorization: Bearer " + *token);
  }
  if (post_.headersFile) {
    const auto headers = headersIn(*post_.headersFile, error);
    if (!headers) return static_cast<void>(whyNot_ = error);
    for (const std::string& each : *headers) added = added && addHeader(each);
  }
  if (!added) whyNot_ = "there is no memory for it";
}

void CurlTransfer::prepare(const std::string& agent) {
  CURL* const easy = easy_.get();
  const bool isSecure = post_.url.starts_with("https:");
  const auto timeoutMs = static_cast<long>(post_.timeout.count());
  set(easy, CURLOPT_ERRORBUFFER, words_.data());
  set(easy, CURLOPT_URL, post_.url.c_str());
  set(easy, CURLOPT_PROTOCOLS_STR, isSecure ? "https" : "http");
  set(easy, CURLOPT_FOLLOWLOCATION, 0L);
  set(easy, CURLOPT_PROXY, "");
  set(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  set(easy, CURLOPT_SSL_VERIFYPEER, 1L);
  set(easy, CURLOPT_SSL_VERIFYHOST, 2L);
  set(easy, CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
  if (post_.caFile) {
    set(easy, CURLOPT_CAINFO, post_.caFile->c_str());
    // The library would look into the system's folder besides.
    set(easy, CURLOPT_CAPATH, static_cast<char*>(nullptr));
  }
  set(easy, CURLOPT_USERAGENT, agent.c_str());
  set(easy, CURLOPT_HTTPHEADER, headers_.get());
  set(easy, CURLOPT_POST, 1L);
  set(easy, CURLOPT_POSTFIELDS, post_.body->data());
  set(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(post_.body->size()));
  set(easy, CURLOPT_TIMEOUT_MS, timeoutMs);
  set(easy, CURLOPT_CONNECTTIMEOUT_MS, std::min(timeoutMs, kLongestConnectMs));
  set(easy, CURLOPT_NOSIGNAL, 1L);
  set(easy, CURLOPT_QUICK_EXIT, 1L);
  set(easy, CURLOPT_WRITEFUNCTION, &CurlTransfer::take);
  set(easy, CURLOPT_WRITEDATA, static_cast<void*>(this));
  set(easy, CURLOPT_HEADERFUNCTION, &CurlTransfer::takeHead);
  set(easy, CURLOPT_HEADERDATA, static_cast<void*>(this));
}

std::size_t CurlTransfer::take(char* /*bytes*/, std::size_t size, std::size_t count, void* self) {
  auto& transfer = *static_cast<CurlTransfer*>(self);
  transfer.taken_ += size * count;
  return transfer.taken_ <= kLongestAnswer ? size * count : 0;
}

/// For the library, what breaks off in its head is an answer, too.
std::size_t CurlTransfer::takeHead(char* bytes, std::size_t size, std::size_t count, void* self) {
  const std::string_view line(bytes, size * count);
  static_cast<CurlTransfer*>(self)->isHeadWhole_ = line == "\r\n" || line == "\n";
  return line.size();
}

HttpAnswer CurlTransfer::answer(CURLcode outcome) const {
  HttpAnswer answer;
  if (outcome == CURLE_OK && !isHeadWhole_) outcome = CURLE_PARTIAL_FILE;
  if (outcome != CURLE_OK) {
    answer.why = whyIt(outcome);
    return answer;
  }
  CURL* const easy = easy_.get();
  answer.status = static_cast<int>(asked<long>(easy, CURLINFO_RESPONSE_CODE));
  const auto wait = asked<curl_off_t>(easy, CURLINFO_RETRY_AFTER);
  if (wait > 0) answer.retryAfter = timeFromSeconds(static_cast<double>(wait));
  const char* const location = asked<const char*>(easy, CURLINFO_REDIRECT_URL);
  if (location != nullptr) answer.location = shownText(location, kLongestDetails);
  return answer;
}

std::string CurlTransfer::details() const {
  const std::string words = shownText(words_.data(), kLongestDetails);
  return words.empty() ? "" : " (" + words + ")";
}

std::string CurlTransfer::whyIt(CURLcode outcome) const {
  const auto number = static_cast<int>(asked<long>(easy_.get(), CURLINFO_OS_ERRNO));
  switch (outcome) {
    case CURLE_COULDNT_RESOLVE_HOST:
      return "its name is not found; is it right, and does the name service answer?";
    case CURLE_COULDNT_CONNECT:
      if (number == ECONNREFUSED) {
        return "nobody listens there (connection refused); does it run?";
      }
      return "it cannot be reached: " + (number == 0 ? std::string(curl_easy_strerror(outcome))
                                                     : std::generic_category().message(number));
    case CURLE_OPERATION_TIMEDOUT:
      return "no whole answer within " + secondsText(post_.timeout);
    case CURLE_PEER_FAILED_VERIFICATION:
      return "its certificate is not trusted" + details();
    case CURLE_SSL_CACERT_BADFILE:
      return post_.caFile.value_or("the system's list of authorities") +
             " cannot be used as authorities";
    case CURLE_SSL_CONNECT_ERROR:
      return "the encrypted connection cannot be made" + details();
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_PARTIAL_FILE:
      return "the connection was lost before its answer was whole";
    case CURLE_WRITE_ERROR:
      return "its answer is longer than 64 KiB; a short one would be right";
    default:
      return std::string(curl_easy_strerror(outcome)) + details();
  }
}

}  // namespace kestrin::gateway
