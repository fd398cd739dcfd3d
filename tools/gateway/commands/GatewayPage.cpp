#include "tools/gateway/commands/GatewayPage.h"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <sstream>
#include <utility>

namespace kestrin::gateway {
namespace {

// Frames are shown as often as an eye can follow, and how the gateway is each fourth time.
constexpr Time kBeat = std::chrono::milliseconds(250);
constexpr unsigned kBeatsOfStatus = 4;
// Where the page cannot be served, it is tried again.
constexpr unsigned kBeatsOfRetry = 40;

std::optional<std::string> contentOf(const std::string& file, std::string& error) {
  std::ifstream stream(file, std::ios::binary);
  std::ostringstream text;
  text << stream.rdbuf();
  if (stream && !text.bad()) return text.str();
  error = file + " cannot be read";
  return std::nullopt;
}

std::string urlOf(const PageConfig& config) {
  const bool six = config.address.find(':') != std::string::npos;
  return std::string(config.certificateFile ? "https://" : "http://") + (six ? "[" : "") +
         config.address + (six ? "]" : "") + ':' + std::to_string(config.port) + '/';
}

}  // namespace

GatewayPage::GatewayPage(const std::shared_ptr<MainRunLoop>& loop, Gateway& gateway,
                         PageConfig config, Say say)
    : loop_(loop),
      gateway_(gateway),
      config_(std::move(config)),
      say_(std::move(say)),
      timer_(loop) {
  if (!config_.on) return;
  open();
  beat();
}

std::optional<HttpSettings> GatewayPage::settings(std::string& error) const {
  HttpSettings settings;
  settings.address = config_.address;
  settings.port = config_.port;
  settings.access.names = config_.names;
  settings.access.commands = config_.commands;
  if (config_.tokenFile) {
    settings.access.token = readToken(*config_.tokenFile, error);
    if (!settings.access.token) return std::nullopt;
  }
  if (config_.certificateFile && config_.keyFile) {
    const auto certificate = contentOf(*config_.certificateFile, error);
    const auto key = contentOf(*config_.keyFile, error);
    if (!certificate || !key) return std::nullopt;
    settings.tls = PageTls{*certificate, *key};
  }
  return settings;
}

void GatewayPage::open() {
  std::string error;
  if (const auto with = settings(error)) {
    server_ = HttpServer::start(
        *with,
        [this, loop = loop_, alive = std::weak_ptr<int>(alive_)](
            const std::string& reader, const std::string& payload, const auto& answer) {
          const auto main = loop.lock();
          if (!main) return;
          main->post([this, alive, reader, payload, answer] {
            if (!alive.expired()) command(reader, payload, answer);
          });
        },
        error);
  }
  const std::string line = server_ ? "the page is at " + urlOf(config_)
                                   : "the page cannot be served, and is tried again: " + error;
  if (line != std::exchange(said_, line)) say_(line);
  if (server_) server_->show(std::make_shared<Status>(gateway_.status()));
}

void GatewayPage::beat() {
  timer_.arm(kBeat, [this] { beat(); });
  ++beats_;
  if (!server_ && beats_ % kBeatsOfRetry == 0) open();
  if (!server_) return;
  if (server_->viewers() > 0) {
    showFrames();
  } else {
    shown_ = gateway_.activity().kept();
  }
  if (beats_ % kBeatsOfStatus == 0) server_->show(std::make_shared<Status>(gateway_.status()));
}

void GatewayPage::showFrames() {
  const Activity& activity = gateway_.activity();
  const std::uint64_t came = activity.kept() - std::exchange(shown_, activity.kept());
  if (came == 0) return;
  const auto& last = activity.lastFrames();
  const std::uint64_t most = std::min<std::uint64_t>(came, last.size());
  auto batch = std::make_shared<FrameBatch>();
  batch->left = came - most;
  batch->frames.assign(last.end() - static_cast<std::ptrdiff_t>(most), last.end());
  server_->tell(std::move(batch));
}

void GatewayPage::command(const std::string& reader, const std::string& payload,
                          HttpServer::CommandAnswer answer) {
  gateway_.command(
      reader, payload,
      [alive = std::weak_ptr<int>(alive_), answer = std::move(answer)](const std::string& json) {
        if (!alive.expired()) answer(json);
      });
}

void GatewayPage::reload() {
  if (!config_.on) return;
  server_.reset();
  said_.clear();
  open();
}

void GatewayPage::close() {
  timer_.cancel();
  alive_.reset();
  server_.reset();
}

}  // namespace kestrin::gateway
