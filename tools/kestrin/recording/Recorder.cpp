#include "tools/kestrin/recording/Recorder.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <utility>

#include "tools/kestrin/console/Console.h"
#include "tools/kestrin/console/WriteAll.h"
#include "tools/kestrin/recording/RecordedEventJson.h"
#include "tools/kestrin/text/SafeText.h"

namespace kestrin::app {

std::shared_ptr<Recorder> Recorder::open(const std::string& file, Console& console) {
  constexpr mode_t kEverybodys = 0666;
  const int descriptor =
      ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY, kEverybodys);
  if (descriptor < 0) {
    const std::error_code reason(errno, std::generic_category());
    console.note("--record '" + printable(file) + "': " + reason.message());
    return nullptr;
  }
  return std::make_shared<Recorder>(descriptor, file, console);
}

Recorder::Recorder(int descriptor, std::string file, Console& console)
    : descriptor_(descriptor), file_(std::move(file)), console_(console) {}

Recorder::~Recorder() { ::close(descriptor_); }

void Recorder::begin(const RecordingHeader& header, const std::shared_ptr<RunLoop>& loop) {
  loop_ = loop;
  begin_ = loop->now();
  const std::scoped_lock lock(mutex_);
  write(jsonLine(header));
}

void Recorder::take(RecordedEvent event) noexcept {
  const auto loop = loop_.lock();
  const Time now = loop ? loop->now() - begin_ : Time::zero();
  const std::scoped_lock lock(mutex_);
  // In virtual time the loop's own thread sees it stand still within a turn, others do not.
  last_ = std::max(last_, now);
  event.time = last_;
  const bool whole = !failure_;
  write(jsonLine(event));
  if (!whole || !failure_ || !loop) return;
  loop->post([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->tellFailure();
  });
}

bool Recorder::finish() {
  tellFailure();
  const std::scoped_lock lock(mutex_);
  return !failure_;
}

/// With the lock held.
void Recorder::write(const std::string& line) {
  if (!failure_) failure_ = writeAll(descriptor_, line + '\n');
}

void Recorder::tellFailure() {
  std::optional<std::error_code> failure;
  {
    const std::scoped_lock lock(mutex_);
    failure = failure_;
  }
  if (!failure || std::exchange(told_, true)) return;
  console_.note("--record '" + printable(file_) + "': " + failure->message() +
                "; the recording ends here, the command goes on");
}

std::string utcNow() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  ::gmtime_r(&now, &parts);
  std::array<char, sizeof "2026-01-31T12:00:00Z"> text{};
  return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

}  // namespace kestrin::app
