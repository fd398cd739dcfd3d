#include <KestrinBLESDK/platform/MainRunLoop.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <memory>
#include <set>
#include <system_error>
#include <utility>

#include "tools/gateway/commands/Commands.h"
#include "tools/gateway/commands/FolderWatch.h"
#include "tools/gateway/commands/PipeWriter.h"
#include "tools/gateway/commands/RecordRow.h"
#include "tools/gateway/commands/SafeText.h"
#include "tools/gateway/commands/Signals.h"
#include "tools/gateway/core/Timer.h"
#include "tools/gateway/log/LogFollower.h"
#include "tools/gateway/message/Messages.h"

namespace kestrin::gateway {
namespace {

// A gateway that writes all the time is looked at so often, and one that is silent each second,
// where the system has no watch to give.
constexpr Time kSoon = std::chrono::milliseconds(30);
constexpr Time kLater = std::chrono::seconds(1);
constexpr std::size_t kMostKnownNotes = 1000;

class Tail {
 public:
  Tail(const TailRequest& request, std::string folder, Output& output)
      : request_(request),
        folder_(std::move(folder)),
        output_(output),
        follower_(systemFiles(), folder_, request.from) {}

  int go() {
    Signals signals(*loop_, {.end = [this] { end(); }, .reload = {}});
    if (!signals.isWatching()) return failed("the system has no descriptor left");
    std::string error;
    const auto seen = follower_.look(error);
    if (!seen) return failed(error);
    watch_.emplace(*loop_, [this] { lookIn(kSoon); });
    pipe_.emplace(*loop_, STDOUT_FILENO,
                  PipeWriter::Handlers{.onWritten = [this] { written(); },
                                       .onGone = [this](auto why) { gone(why); }});
    show(*seen);
    loop_->run();
    pipe_.reset();
    watch_.reset();
    return status_;
  }

 private:
  int failed(const std::string& why) {
    output_.note(why);
    return status_ = kFailure;
  }

  void lookIn(Time pause) {
    if (isEnding_) return;
    // What was shown is still on its way; `written` looks again.
    if (!pipe_->isEmpty()) return static_cast<void>(isMore_ = isMore_ || pause < kLater);
    if (isSoon_ && next_.isArmed()) return;
    isSoon_ = pause < kLater;
    next_.arm(pause, [this] { look(); });
  }

  void look() {
    pipe_->look();
    if (isEnding_) return;
    std::string error;
    const auto seen = follower_.look(error);
    if (seen) return show(*seen);
    note(error + "; it is looked at again");
    isSoon_ = false;
    lookIn(kLater);
  }

  void show(const LogFollower::Seen& seen) {
    // Another log may have taken the name.
    watch_->watch(folder_);
    watch_->watch(folder_ + "/current");
    for (const std::string& each : seen.notes) note(each);
    std::string text;
    for (const Record& each : seen.records) {
      if (request_.count && shown_ == *request_.count) break;
      text += request_.text ? lineOf(rowOf(seen.log, each))
                            : safeJson(payloadOf(each, seen.log, FrameFormat::json));
      text += '\n';
      ++shown_;
    }
    isMore_ = seen.isMore;
    isSoon_ = false;
    pipe_->add(text);
    if (text.empty()) written();
  }

  void written() {
    if (request_.count && shown_ >= *request_.count) return end();
    lookIn(std::exchange(isMore_, false) ? Time::zero() : kLater);
  }

  /// What stays wrong is found at each look, and said once.
  void note(const std::string& line) {
    if (known_.size() >= kMostKnownNotes) known_.clear();
    if (known_.insert(line).second) output_.note(line);
  }

  void gone(std::error_code why) {
    // Who has seen enough goes.
    if (why.value() != EPIPE) failed("standard output: " + why.message());
    end();
  }

  void end() {
    if (std::exchange(isEnding_, true)) return;
    pipe_->drain();
    loop_->stop();
  }

  const TailRequest& request_;
  const std::string folder_;
  Output& output_;
  LogFollower follower_;
  const std::shared_ptr<MainRunLoop> loop_ = std::make_shared<MainRunLoop>();
  Timer next_{loop_};
  std::optional<FolderWatch> watch_;
  std::optional<PipeWriter> pipe_;
  std::set<std::string> known_;
  std::uint64_t shown_ = 0;
  bool isMore_ = false;
  bool isSoon_ = false;
  bool isEnding_ = false;
  int status_ = kSuccess;
};

}  // namespace

int tailLog(const TailRequest& request, Output& output) {
  std::error_code ignored;
  if (std::filesystem::is_directory(request.place, ignored)) {
    return Tail(request, request.place, output).go();
  }
  std::vector<ConfigComplaint> complaints;
  const auto config = readConfig(request.place, complaints, Credentials::notLookedAt);
  for (const ConfigComplaint& each : complaints) output.note(each.printed());
  if (!config) return kWrongUsage;
  return Tail(request, config->log.folder, output).go();
}

}  // namespace kestrin::gateway
