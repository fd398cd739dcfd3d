// Posts to a real server on this machine: what goes out, and what is made of whatever comes back.
#include <KestrinBLESDK/platform/MainRunLoop.h>
#include <gtest/gtest.h>

#include <chrono>
#include <vector>

#include "gateway/http/ScriptedServer.h"
#include "gateway/support/TestEnvironment.h"
#include "gateway/support/TestFolder.h"
#include "tools/gateway/http/CurlClient.h"

namespace kestrin::gateway {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

std::string answerOf(const std::string& status, const std::string& headers = "") {
  return "HTTP/1.1 " + status + "\r\n" + headers + "Content-Length: 2\r\n\r\nok";
}

class CurlClientTest : public testing::Test {
 protected:
  HttpPost postTo(const std::string& url) const {
    HttpPost post;
    post.url = url;
    post.headers = {"Content-Type: application/json", "Kestrin-From: 1"};
    post.body = std::make_shared<const std::string>("[{\"n\":1}]\n");
    return post;
  }
  HttpAnswer answered(HttpPost post) {
    std::optional<HttpAnswer> answer;
    const auto exchange =
        client_.post(std::move(post), [&](const HttpAnswer& came) { answer = came; });
    EXPECT_FALSE(answer) << "it is called in a later turn";
    EXPECT_TRUE(loop_->runUntil(loop_->now() + seconds(60), [&] { return answer.has_value(); }));
    return answer.value_or(HttpAnswer{});
  }
  HttpAnswer answeredBy(const std::string& text) {
    const ScriptedServer server([&](const std::string&) { return text; });
    return answered(postTo(server.url()));
  }

  const TestFolder folder_;
  const std::shared_ptr<MainRunLoop> loop_ = std::make_shared<MainRunLoop>();
  CurlClient client_{loop_, "kestrin-gateway/9"};
};

TEST_F(CurlClientTest, PostsTheTextWithItsHeadersAndToken) {
  const ScriptedServer server([](const std::string&) { return answerOf("204 No Content"); });
  HttpPost post = postTo(server.url("/in?x=1"));
  post.tokenFile = folder_.write("token", "swordfish\n");
  post.headersFile = folder_.write("headers", "X-Site: hall 1\r\n\nX-Other: b\n");
  EXPECT_EQ(answered(post).status, 204);
  ASSERT_EQ(server.requests().size(), 1U);
  const std::string request = server.requests().front();
  EXPECT_EQ(request.find("POST /in?x=1 HTTP/1.1\r\n"), 0U) << request;
  for (const char* const part :
       {"\r\nContent-Type: application/json\r\n", "\r\nKestrin-From: 1\r\n",
        "\r\nAuthorization: Bearer swordfish\r\n", "\r\nX-Site: hall 1\r\n", "\r\nX-Other: b\r\n",
        "\r\nUser-Agent: kestrin-gateway/9\r\n", "\r\n\r\n[{\"n\":1}]\n"}) {
    EXPECT_NE(request.find(part), std::string::npos) << part << request;
  }
  EXPECT_EQ(request.find("Expect"), std::string::npos);
}

TEST_F(CurlClientTest, SaysWhatTheServerAnswers) {
  EXPECT_EQ(answeredBy(answerOf("200 OK")).status, 200);
  EXPECT_EQ(answeredBy(answerOf("404 Not Found")).status, 404);
  const HttpAnswer busy = answeredBy(answerOf("503 Busy", "Retry-After: 120\r\n"));
  EXPECT_EQ(busy.status, 503);
  EXPECT_EQ(busy.retryAfter, Time(seconds(120)));
  EXPECT_FALSE(answeredBy(answerOf("503 Busy")).retryAfter);
}

TEST_F(CurlClientTest, FollowsNoRedirectAndSaysWhereItPoints) {
  const ScriptedServer server(
      [](const std::string&) { return answerOf("307 Moved", "Location: /else\r\n"); });
  const HttpAnswer answer = answered(postTo(server.url()));
  EXPECT_EQ(answer.status, 307);
  EXPECT_EQ(answer.location, server.url("/else"));
  EXPECT_EQ(server.requests().size(), 1U);
  const HttpAnswer hostile = answeredBy(answerOf("302 Found", "Location: /a\x1b[2J\xc2\x9b\r\n"));
  EXPECT_EQ(hostile.status, 302);
  EXPECT_EQ(hostile.location.find('\x1b'), std::string::npos);
  EXPECT_EQ(hostile.location.find('\x9b'), std::string::npos);
}

TEST_F(CurlClientTest, HalfAnAnswerIsNone) {
  for (const char* const half :
       {"HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nok", "HTTP/1.1 200 OK\r\nContent-Le", "",
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nab"}) {
    const HttpAnswer answer = answeredBy(half);
    EXPECT_EQ(answer.status, 0) << half;
    EXPECT_EQ(answer.why, "the connection was lost before its answer was whole") << half;
  }
  EXPECT_EQ(answeredBy("220 mail.example ESMTP\r\n").status, 0);
}

TEST_F(CurlClientTest, AnAnswerWithoutEndIsNotReadToIt) {
  const HttpAnswer answer =
      answeredBy("HTTP/1.1 200 OK\r\nContent-Length: 70000\r\n\r\n" + std::string(70'000, 'x'));
  EXPECT_EQ(answer.status, 0);
  EXPECT_EQ(answer.why, "its answer is longer than 64 KiB; a short one would be right");
}

TEST_F(CurlClientTest, AServerThatSaysNothingIsNotWaitedForWithoutEnd) {
  const ScriptedServer server([](const std::string&) { return std::nullopt; });
  HttpPost post = postTo(server.url());
  post.timeout = milliseconds(1300);
  const HttpAnswer answer = answered(post);
  EXPECT_EQ(answer.status, 0);
  EXPECT_EQ(answer.why, "no whole answer within 1300 ms");
}

TEST_F(CurlClientTest, AServerThatIsNotThereIsSaid) {
  EXPECT_EQ(answered(postTo("http://127.0.0.1:" + std::to_string(freePort()) + "/")).why,
            "nobody listens there (connection refused); does it run?");
}

TEST_F(CurlClientTest, AServerWithoutEncryptionIsNotTalkedToByHttps) {
  const ScriptedServer server([](const std::string&) { return answerOf("200 OK"); });
  std::string url = server.url();
  url.insert(4, "s");
  const HttpAnswer answer = answered(postTo(url));
  EXPECT_EQ(answer.status, 0);
  EXPECT_EQ(answer.why.find("the encrypted connection cannot be made"), 0U) << answer.why;
}

TEST_F(CurlClientTest, ASecretThatCannotBeReadIsSaidAndNothingPosted) {
  const ScriptedServer server([](const std::string&) { return answerOf("200 OK"); });
  HttpPost post = postTo(server.url());
  post.tokenFile = folder_.pathOf("nothing");
  EXPECT_EQ(answered(post).why, folder_.pathOf("nothing") +
                                    " cannot be read; is it there, and may the gateway read it?");
  post.tokenFile.reset();
  post.headersFile = folder_.write("headers", "Content-Type: text/html\n");
  EXPECT_EQ(answered(post).status, 0);
  EXPECT_EQ(server.requests().size(), 0U);
}

TEST_F(CurlClientTest, ADroppedExchangeCallsNobodyAndEndsItsConnection) {
  const ScriptedServer server([](const std::string&) { return std::nullopt; });
  bool isCalled = false;
  auto exchange = client_.post(postTo(server.url()), [&](const HttpAnswer&) { isCalled = true; });
  loop_->runFor(milliseconds(1));
  exchange.reset();
  // Either the connection was made, and is ended, or it never was.
  EXPECT_EQ(answered(postTo("http://127.0.0.1:" + std::to_string(freePort()) + "/")).status, 0);
  EXPECT_FALSE(isCalled);
}

TEST_F(CurlClientTest, TheEndDoesNotWaitForASilentServer) {
  const ScriptedServer server([](const std::string&) { return std::nullopt; });
  const auto begin = std::chrono::steady_clock::now();
  {
    CurlClient client(loop_, "a");
    const auto exchange = client.post(postTo(server.url()), [](const HttpAnswer&) {});
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begin, seconds(25));
}

TEST_F(CurlClientTest, ProxiesOfTheEnvironmentGetNothing) {
  const ScriptedServer proxy([](const std::string&) { return answerOf("200 OK"); });
  // NOLINTNEXTLINE(concurrency-mt-unsafe): the client's thread has not begun.
  setVariable("http_proxy", proxy.url(""));
  EXPECT_EQ(answeredBy(answerOf("201 Created")).status, 201);
  // NOLINTNEXTLINE(concurrency-mt-unsafe): the client's thread waits.
  removeVariable("http_proxy");
  EXPECT_EQ(proxy.requests().size(), 0U);
}

}  // namespace
}  // namespace kestrin::gateway
