#include <gtest/gtest.h>

#include "gateway/support/TestFolder.h"
#include "tools/gateway/http/HttpSecrets.h"

namespace kestrin::gateway {
namespace {

class HttpSecrets : public testing::Test {
 protected:
  std::string tokenError(const std::string& text) {
    std::string error;
    EXPECT_FALSE(tokenIn(folder_.write("file", text), error)) << text;
    return error;
  }
  std::string headersError(const std::string& text) {
    std::string error;
    EXPECT_FALSE(headersIn(folder_.write("file", text), error)) << text;
    return error;
  }
  const TestFolder folder_;
  std::string error_;
};

TEST_F(HttpSecrets, ATokenIsOneLine) {
  for (const char* const text : {"abc", "abc\n", "abc\r\n"}) {
    EXPECT_EQ(tokenIn(folder_.write("file", text), error_), "abc");
  }
  for (const char* const text : {"", "\n", "a\nb", "a b", "a\x1b", "a\nX-Evil: 1\n"}) {
    const std::string error = tokenError(text);
    EXPECT_NE(error.find("file has no token; one line"), std::string::npos) << error;
    EXPECT_EQ(error.find("Evil"), std::string::npos) << error;
  }
}

TEST_F(HttpSecrets, HeadersAreLinesWithANameAndAValue) {
  using Lines = std::vector<std::string>;
  EXPECT_EQ(headersIn(folder_.write("file", "A: 1\r\n\nB-c: two words\n"), error_),
            Lines({"A: 1", "B-c: two words"}));
  EXPECT_EQ(headersIn(folder_.write("file", ""), error_), Lines());
  for (const char* const text : {"A", ": b", "A b: c", "A: \x01", "A: 1\nB"}) {
    const std::string error = headersError(text);
    EXPECT_NE(error.find("is not a header; NAME: VALUE would be right"), std::string::npos);
  }
  EXPECT_NE(headersError("A: 1\n\nB").find("file: line 3 "), std::string::npos);
}

TEST_F(HttpSecrets, WhatTheGatewaySaysItselfIsNotReplaced) {
  for (const char* const text : {"Kestrin-Log: x", "kestrin-from: 1", "Content-Type: a", "HOST: b",
                                 "Expect: c", "Transfer-Encoding: chunked", "content-length: 7"}) {
    EXPECT_NE(headersError(text).find("is a header that the gateway sets itself"),
              std::string::npos);
  }
}

TEST_F(HttpSecrets, WhatIsTooLongIsNoSecret) {
  EXPECT_NE(tokenError(std::string(20'000, 'a')).find("is longer than 16384 bytes"),
            std::string::npos);
}

}  // namespace
}  // namespace kestrin::gateway
