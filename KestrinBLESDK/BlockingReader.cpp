#include "KestrinBLESDK/BlockingReader.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace kestrin {
namespace {

constexpr std::size_t kSmallestFrame = 8;
constexpr std::size_t kCodeAt = 2;

void tell(NSError* error, BlockingError code, const std::string& text) {
  if (error != nullptr) *error = {KestrinErrorDomain, static_cast<std::int64_t>(code), text};
}

std::string secondsIn(Time span) {
  const auto milliseconds =
      std::chrono::duration_cast<std::chrono::milliseconds>(std::max(span, Time::zero())).count();
  std::string text = std::to_string(milliseconds / 1000);
  if (milliseconds % 1000 != 0) {
    const std::string fraction = std::to_string(1000 + milliseconds % 1000);
    text += '.' + fraction.substr(1);
  }
  return text + " s";
}

/// Whether somebody turns the loop at this moment, which a callback does for whoever calls from it.
bool isFree(const MainRunLoop& loop, NSError* error) {
  if (!loop.isTurning()) return true;
  tell(
      error, BlockingError::insideCallback,
      "this would wait for the callback that it is called from; return from the callback first, or "
      "use KestrinBleMgr there");
  return false;
}

}  // namespace

struct BlockingReader::Delegate final : KestrinBLEProtocols, RcpReceiver {
  void scanningBleDeive(const std::shared_ptr<CBPeripheral>& reader) noexcept override {
    const std::string name = reader->name().value_or("");
    seen.push_back(name);
    if (chosen || name.find(wanted) == std::string::npos) return;
    chosen = name;
    manager->connectBLE(reader);
  }
  void plugChangedStatus(bool status) noexcept override { plugged = status; }
  void dispatchRcpFrmReader(const std::optional<NSData>& frame) noexcept override {
    if (frame) frames.push_back(*frame);
  }

  std::shared_ptr<KestrinBleMgr> manager;
  std::string wanted;
  std::vector<std::string> seen;
  std::optional<std::string> chosen;
  bool plugged = false;
  std::deque<NSData> frames;
};

BlockingReader::BlockingReader(std::shared_ptr<MainRunLoop> loop,
                               std::shared_ptr<Delegate> delegate)
    : loop_(std::move(loop)), delegate_(std::move(delegate)) {}

BlockingReader::~BlockingReader() { delegate_->manager->close(); }

std::unique_ptr<BlockingReader> BlockingReader::connect(const Platform& platform,
                                                        std::string_view name, Time limit,
                                                        NSError* error) {
  const Platform whole = platform.completed();
  const auto loop = std::dynamic_pointer_cast<MainRunLoop>(whole.mainRunLoop.lock());
  if (!loop) {
    tell(error, BlockingError::noRunLoop, "the platform has no run loop that could be turned here");
    return nullptr;
  }
  if (!isFree(*loop, error)) return nullptr;
  const auto delegate = std::make_shared<Delegate>();
  delegate->wanted = name;
  delegate->manager = KestrinBleMgr::init(whole);
  delegate->manager->setDelegate(delegate);
  delegate->manager->setRcpReceiverDelegate(delegate);
  std::unique_ptr<BlockingReader> reader(new BlockingReader(loop, delegate));
  delegate->manager->scanBLE();
  NSError late;
  if (reader->waitFor([&] { return delegate->plugged; }, limit, BlockingError::notPluggedIn,
                      "the reader was not plugged in", &late)) {
    reader->name_ = *delegate->chosen;
    return reader;
  }
  if (!delegate->chosen && late.code == static_cast<std::int64_t>(BlockingError::notPluggedIn)) {
    std::string text = "no reader with '" + delegate->wanted + "' in its name was found within " +
                       secondsIn(limit);
    const char* separator = "; found were ";
    for (const auto& other : delegate->seen) {
      text += separator + ("'" + other + "'");
      separator = ", ";
    }
    const std::string reason = whole.radio->stateReason();
    if (!reason.empty()) text += "; " + reason;
    late = {KestrinErrorDomain, static_cast<std::int64_t>(BlockingError::notFound), text};
  }
  if (error != nullptr) *error = late;
  return nullptr;
}

bool BlockingReader::isPluggedIn() const noexcept { return delegate_->plugged; }

bool BlockingReader::canBeUsed(NSError* error) const {
  if (!isFree(*loop_, error)) return false;
  if (delegate_->plugged) return true;
  tell(error, BlockingError::unplugged, "the reader is unplugged; connect to it again");
  return false;
}

bool BlockingReader::waitFor(const std::function<bool()>& done, Time limit, BlockingError whenLate,
                             const std::string& what, NSError* error) const {
  const Time deadline = timeAfter(loop_->now(), limit);
  if (loop_->runUntil(deadline, done)) return true;
  if (loop_->now() < deadline) {
    tell(error, BlockingError::stopped, "the run loop was stopped meanwhile");
  } else {
    tell(error, whenLate, what + " within " + secondsIn(limit));
  }
  return false;
}

bool BlockingReader::send(const NSData& frame, NSError* error) {
  if (!canBeUsed(error)) return false;
  if (delegate_->manager->send(frame)) return true;
  tell(error, BlockingError::notWritten, "the reader has no characteristic that can be written");
  return false;
}

std::optional<NSData> BlockingReader::receive(Time limit, NSError* error) {
  auto& frames = delegate_->frames;
  if (frames.empty() && !canBeUsed(error)) return std::nullopt;
  const auto done = [&] { return !frames.empty() || !delegate_->plugged; };
  if (!done() && !waitFor(done, limit, BlockingError::noAnswer, "no frame came", error)) {
    return std::nullopt;
  }
  if (frames.empty()) {
    tell(error, BlockingError::unplugged, "the reader was unplugged before a frame came");
    return std::nullopt;
  }
  NSData frame = std::move(frames.front());
  frames.pop_front();
  return frame;
}

std::optional<NSData> BlockingReader::exchange(const NSData& frame, Time limit, NSError* error) {
  if (frame.length() < kSmallestFrame) {
    tell(error, BlockingError::noFrame,
         "a frame has 8 bytes or more, not " + std::to_string(frame.length()) +
             "; buildRcpFrame makes one");
    return std::nullopt;
  }
  auto& frames = delegate_->frames;
  const auto before = static_cast<std::ptrdiff_t>(frames.size());
  if (!send(frame, error)) return std::nullopt;
  const std::uint8_t code = frame.bytes()[kCodeAt];
  const auto find = [&] {
    return std::find_if(frames.begin() + before, frames.end(), [code](const NSData& other) {
      return other.length() >= kSmallestFrame && other.bytes()[kCodeAt] == code;
    });
  };
  const auto done = [&] { return find() != frames.end() || !delegate_->plugged; };
  if (!waitFor(done, limit, BlockingError::noAnswer, "no answer came", error)) return std::nullopt;
  const auto answer = find();
  if (answer == frames.end()) {
    tell(error, BlockingError::unplugged, "the reader was unplugged before it answered");
    return std::nullopt;
  }
  NSData found = std::move(*answer);
  frames.erase(answer);
  return found;
}

bool BlockingReader::close(Time limit, NSError* error) {
  if (!isFree(*loop_, error)) return false;
  const auto& manager = delegate_->manager;
  manager->close();
  return waitFor([&] { return !manager->isOpened(); }, limit, BlockingError::noAnswer,
                 "the link did not go down", error);
}

}  // namespace kestrin
