// Fuzzes what is asked of the gateway's page, and what a status has in it. Nobody is answered
// without the token, nothing is answered without what keeps other sites out, and whatever bytes a
// reader's name has, what is written of it can be read again.
//
// Input: a byte that picks the kind; then the parts of a request, or of a status.
#include <algorithm>

#include "fuzz/Fuzzing.h"
#include "tools/gateway/message/Bytes.h"
#include "tools/gateway/page/Feed.h"
#include "tools/gateway/page/Metrics.h"
#include "tools/gateway/page/Site.h"

namespace kestrin::fuzz {
namespace {

using gateway::PageAnswer;
using gateway::PageRequest;

constexpr char kToken[] = "0123456789abcdef";

bool isAscii(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte >= 0x20 && byte < 0x7F;
  });
}

std::string headerOf(const PageAnswer& answer, std::string_view name) {
  for (const auto& [each, value] : answer.headers) {
    if (each == name) return value;
  }
  return "";
}

PageRequest requestOf(ByteSource& input) {
  constexpr const char* kPaths[]{"/", "/status.json", "/metrics", "/events", "/page.js"};
  PageRequest request;
  request.method = input.flag() ? "GET" : input.flag() ? "POST" : textOf(input.block());
  request.path = input.flag()   ? kPaths[input.below(5)]
                 : input.flag() ? "/reader/" + textOf(input.block()) + "/command"
                                : textOf(input.block());
  request.host = input.flag() ? "127.0.0.1" : textOf(input.block());
  const std::string given = textOf(input.block());
  request.authorization = input.flag()   ? std::string("Bearer ") + kToken
                          : input.flag() ? "Basic " + given
                                         : given;
  request.contentType = input.flag() ? "application/json" : textOf(input.block());
  request.fetchSite = input.flag() ? "" : textOf(input.block());
  request.fetchMode = textOf(input.block());
  request.body = textOf(input.rest());
  return request;
}

void ask(ByteSource& input) {
  const bool hasToken = input.flag();
  const bool takesCommands = input.flag();
  const PageRequest request = requestOf(input);
  gateway::PageAccess access;
  if (hasToken) access.token = kToken;
  access.commands = takesCommands;
  const gateway::Status status;
  const PageAnswer answer = gateway::Site(access).answer(request, &status, 0);
  require(headerOf(answer, "X-Content-Type-Options") == "nosniff", "no content is guessed");
  require(headerOf(answer, "Content-Security-Policy").starts_with("default-src 'none'"),
          "each answer has the policy");
  for (const auto& [name, value] : answer.headers) {
    require(!name.starts_with("Access-Control"), "no other site may read");
    require(isAscii(name) && isAscii(value), "a header is one line of ASCII");
  }
  const bool isGiven = request.authorization.find(kToken) != std::string::npos ||
                       request.authorization.starts_with("Basic ") ||
                       request.authorization.starts_with("basic ");
  if (hasToken && !isGiven) require(answer.status >= 400, "nobody reads without the token");
  if (answer.kind != PageAnswer::Kind::command) return;
  require(hasToken && takesCommands, "commands are switched on");
  require(request.authorization.find(kToken) != std::string::npos, "a command has the token");
  require(request.method == "POST" && request.body.size() <= gateway::kLongestBody,
          "a command is posted, and short");
}

gateway::Status statusOf(ByteSource& input) {
  gateway::Status status;
  status.gateway = "g";
  status.broker.up = input.flag();
  gateway::ReaderStatus reader;
  reader.key = textOf(input.block());
  reader.key = gateway::mendedUtf8(reader.key).value_or(reader.key);
  reader.reader = textOf(input.block());
  reader.name = textOf(input.block());
  reader.frames = input.u16();
  if (input.flag()) reader.signal = -static_cast<int>(input.u8());
  reader.minutes = {input.u8(), input.u8()};
  status.readers = {reader};
  gateway::Record frame;
  frame.number = input.u16();
  frame.reader = reader.reader;
  frame.name = reader.name;
  const auto bytes = input.rest();
  frame.bytes.assign(bytes.begin(), bytes.end());
  status.frames = {frame};
  return status;
}

void show(ByteSource& input) {
  const gateway::Status status = statusOf(input);
  const std::string text = textOf(status);
  require(isAscii(text), "a status is one line of ASCII");
  std::string error;
  require(gateway::statusOf(text, error) == status, "a status comes back");
  const std::string metrics = gateway::metricsOf(status, 0);
  require(!gateway::mendedUtf8(metrics), "metrics are UTF-8");
  const auto of = [&metrics](std::string_view name) {
    const std::string line = "\nkestrin_gateway_" + std::string(name) + "{reader=\"";
    const auto at = metrics.find(line);
    return at != std::string::npos && metrics.find(line, at + 1) == std::string::npos;
  };
  require(of("reader_plugged_in") && of("reader_frames_total"), "a reader has one line of each");
  const std::string event =
      textOf(gateway::FeedEvent{std::make_shared<gateway::Status>(status), nullptr});
  require(std::count(event.begin(), event.end(), '\n') == 3, "an event has one line of data");
}

void readAnything(const std::string& text) {
  std::string error;
  const auto status = gateway::statusOf(text, error);
  require(status.has_value() == error.empty(), "what is wrong is told, and nothing else");
  if (status) textOf(*status);
  gateway::bytesOfBase64(text);
}

}  // namespace
}  // namespace kestrin::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kestrin::fuzz;
  ByteSource input({data, size});
  switch (input.u8() % 3) {
    case 0:
      ask(input);
      break;
    case 1:
      show(input);
      break;
    default:
      readAnything(textOf(input.rest()));
      break;
  }
  return 0;
}
