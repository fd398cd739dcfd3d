// One transfer of libcurl's: what is asked for, and what came of it.
//
// Threads: one. Lifetime: removed from the multi handle before it is dropped.
// Errors: in the answer.
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <string>

#include <curl/curl.h>

#include "tools/gateway/http/HttpClient.h"

namespace kestrin::gateway {

class CurlTransfer {
 public:
  CurlTransfer(HttpPost post, const std::string& agent);
  CurlTransfer(const CurlTransfer&) = delete;
  CurlTransfer& operator=(const CurlTransfer&) = delete;
  ~CurlTransfer() = default;

  /// Absent: it may be begun.
  [[nodiscard]] const std::optional<std::string>& whyNot() const { return whyNot_; }
  [[nodiscard]] CURL* handle() const { return easy_.get(); }
  [[nodiscard]] HttpAnswer answer(CURLcode outcome) const;

 private:
  struct EndEasy {
    void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
  };
  struct EndList {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
  };
  static std::size_t take(char* bytes, std::size_t size, std::size_t count, void* self);
  static std::size_t takeHead(char* bytes, std::size_t size, std::size_t count, void* self);
  bool addHeader(const std::string& header);
  void addHeaders();
  void prepare(const std::string& agent);
  [[nodiscard]] std::string whyIt(CURLcode outcome) const;
  [[nodiscard]] std::string details() const;

  const HttpPost post_;
  std::optional<std::string> whyNot_;
  std::unique_ptr<CURL, EndEasy> easy_;
  std::unique_ptr<curl_slist, EndList> headers_;
  std::array<char, CURL_ERROR_SIZE> words_{};
  std::size_t taken_ = 0;
  bool isHeadWhole_ = false;
};

}  // namespace kestrin::gateway
