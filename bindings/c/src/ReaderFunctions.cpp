// Readers that are held.
#include <span>
#include <string>
#include <utility>

#include "FrameStruct.h"
#include "Guard.h"
#include "Handles.h"
#include "StructSize.h"

namespace kestrin::c {
namespace {

static_assert(static_cast<int>(ReaderPhase::radioOff) == KESTRIN_RADIO_OFF);
static_assert(static_cast<int>(ReaderPhase::searching) == KESTRIN_SEARCHING);
static_assert(static_cast<int>(ReaderPhase::connecting) == KESTRIN_CONNECTING);
static_assert(static_cast<int>(ReaderPhase::linkingUp) == KESTRIN_LINKING_UP);
static_assert(static_cast<int>(ReaderPhase::pluggedIn) == KESTRIN_PLUGGED_IN);
static_assert(static_cast<int>(ReaderPhase::lost) == KESTRIN_LOST);
static_assert(static_cast<int>(ReaderPhase::away) == KESTRIN_AWAY);
static_assert(static_cast<int>(ReaderPhase::closed) == KESTRIN_CLOSED);
static_assert(static_cast<int>(ReaderError::notFound) == KESTRIN_NOT_FOUND);
static_assert(static_cast<int>(ReaderError::notPluggedIn) == KESTRIN_NOT_PLUGGED_IN);
static_assert(static_cast<int>(ReaderError::unplugged) == KESTRIN_UNPLUGGED);
static_assert(static_cast<int>(ReaderError::notWritten) == KESTRIN_NOT_WRITABLE);
static_assert(static_cast<int>(ReaderError::noAnswer) == KESTRIN_NO_ANSWER);
static_assert(static_cast<int>(ReaderError::noFrame) == KESTRIN_NOT_A_FRAME);
static_assert(static_cast<int>(ReaderError::queueFull) == KESTRIN_QUEUE_FULL);
static_assert(static_cast<int>(ReaderError::ambiguous) == KESTRIN_AMBIGUOUS);
static_assert(static_cast<int>(ReaderError::held) == KESTRIN_HELD);
static_assert(static_cast<int>(ReaderError::radioOff) == KESTRIN_RADIO_IS_OFF);
static_assert(static_cast<int>(ReaderError::radioUnusable) == KESTRIN_RADIO_UNUSABLE);

kestrin_trouble troubleOf(const NSError& error) noexcept {
  return static_cast<kestrin_trouble>(error.code);
}

std::optional<Time> limitFrom(double seconds, const std::optional<Time>& usual) {
  if (seconds < 0) return std::nullopt;
  if (seconds > 0) return timeFromSeconds(seconds);
  return usual;
}

ReaderOptions optionsFrom(const kestrin_reader_options& given) {
  ReaderOptions options;
  if (given.reader != nullptr) options.reader = given.reader;
  options.findLimit = limitFrom(given.find_limit, options.findLimit);
  options.plugInLimit = limitFrom(given.plug_in_limit, options.plugInLimit);
  options.ambiguity = given.take_first ? Ambiguity::takeFirst : Ambiguity::refuse;
  options.reconnect = !given.give_up;
  if (given.most_waiting_frames > 0) options.mostWaitingFrames = given.most_waiting_frames;
  return options;
}

/// Those of `handle` that the program has given.
ReaderHandlers handlersOf(kestrin_reader* handle) {
  ReaderHandlers handlers;
  const kestrin_reader_handlers& given = handle->handlers;
  if (given.phase != nullptr) {
    handlers.onPhase = [handle](Reader&, ReaderPhase phase) {
      handle->handlers.phase(handle, static_cast<kestrin_phase>(phase), handle->user);
    };
  }
  if (given.frame != nullptr) {
    handlers.onFrame = [handle](Reader&, const RcpFrame& frame) {
      const kestrin_frame shown = frameOf(frame);
      handle->handlers.frame(handle, &shown, handle->user);
    };
  }
  if (given.value != nullptr) {
    handlers.onValue = [handle](Reader&, const NSData& value) {
      handle->handlers.value(handle, value.bytes(), value.length(), handle->user);
    };
  }
  if (given.trouble != nullptr) {
    handlers.onTrouble = [handle](Reader&, const NSError& trouble) {
      handle->handlers.trouble(handle, troubleOf(trouble), trouble.text.c_str(), handle->user);
    };
  }
  if (given.seen != nullptr) {
    handlers.onSeen = [handle](Reader&) { handle->handlers.seen(handle, handle->user); };
  }
  return handlers;
}

/// Does `work` with the reader.
template <class Work>
kestrin_status withReader(const kestrin_reader* handle, const Work& work) noexcept {
  return guarded([&] {
    if (handle == nullptr) return fail(KESTRIN_INVALID_ARGUMENT, "the reader is NULL");
    return work(*handle->reader);
  });
}

const char* textOf(const kestrin_reader* handle,
                   const std::string& (Reader::*text)() const noexcept) noexcept {
  const char* found = nullptr;
  withReader(handle, [&](const Reader& it) {
    found = (it.*text)().c_str();
    return KESTRIN_OK;
  });
  return found;
}

}  // namespace
}  // namespace kestrin::c

using namespace kestrin::c;

kestrin_reader* kestrin_reader_create(kestrin_platform* platform,
                                      const kestrin_reader_options* options,
                                      const kestrin_reader_handlers* handlers, void* user) {
  if (platform == nullptr || handlers == nullptr) {
    fail(KESTRIN_INVALID_ARGUMENT,
         platform == nullptr ? "the platform is NULL" : "the handlers are NULL");
    return nullptr;
  }
  return guardedResult<kestrin_reader*>(nullptr, [&]() -> kestrin_reader* {
    const kestrin_reader_options none = {sizeof none, nullptr, false, 0, 0, false, 0};
    const auto given = readStruct(options != nullptr ? *options : none, "kestrin_reader_options",
                                  {sizeof(kestrin_reader_options)});
    const auto told =
        readStruct(*handlers, "kestrin_reader_handlers", {sizeof(kestrin_reader_handlers)});
    if (!given || !told) return nullptr;
    std::unique_ptr<kestrin_reader> handle(new kestrin_reader{platform->parts, *told, user});
    kestrin::NSError error;
    handle->reader = kestrin::Reader::create(platform->parts->platform, optionsFrom(*given),
                                             handlersOf(handle.get()), &error);
    if (!handle->reader) {
      fail(KESTRIN_FAILED, error.text.c_str());
      return nullptr;
    }
    return handle.release();
  });
}

void kestrin_reader_release(kestrin_reader* reader) { delete reader; }

kestrin_phase kestrin_reader_phase(const kestrin_reader* reader) {
  return reader == nullptr ? KESTRIN_CLOSED : static_cast<kestrin_phase>(reader->reader->phase());
}

const char* kestrin_reader_name(const kestrin_reader* reader) {
  return textOf(reader, &kestrin::Reader::name);
}

const char* kestrin_reader_identifier(const kestrin_reader* reader) {
  return textOf(reader, &kestrin::Reader::identifier);
}

bool kestrin_reader_has_link(const kestrin_reader* reader) {
  return reader != nullptr && reader->reader->hasLink();
}

kestrin_status kestrin_reader_each_seen(kestrin_reader* reader, bool only_meant,
                                        void (*each)(const char* name, const char* identifier,
                                                     void* user),
                                        void* user) {
  return withReader(reader, [&](const kestrin::Reader& it) {
    if (each == nullptr) return fail(KESTRIN_INVALID_ARGUMENT, "what is to be called is NULL");
    // A copy: what is called may release the reader.
    for (const auto& seen : only_meant ? it.candidates() : it.seen()) {
      each(seen.name.c_str(), seen.identifier.c_str(), user);
    }
    return KESTRIN_OK;
  });
}

kestrin_status kestrin_reader_choose(kestrin_reader* reader, const char* identifier) {
  return withReader(reader, [&](kestrin::Reader& it) {
    if (identifier == nullptr) return fail(KESTRIN_INVALID_ARGUMENT, "the identifier is NULL");
    if (it.choose(identifier)) return KESTRIN_OK;
    return fail(KESTRIN_INVALID_ARGUMENT,
                "no reader of this identifier can be taken: it was not seen, is held already, or "
                "another one is taken");
  });
}

kestrin_status kestrin_reader_send(kestrin_reader* reader, const uint8_t* frame, size_t length,
                                   kestrin_sent done, void* user) {
  return withReader(reader, [&](kestrin::Reader& it) {
    if (frame == nullptr && length > 0) return fail(KESTRIN_INVALID_ARGUMENT, "the frame is NULL");
    kestrin::Reader::SendHandler handler;
    if (done != nullptr) {
      handler = [done, user](const std::optional<kestrin::NSError>& error) {
        done(error ? troubleOf(*error) : KESTRIN_NO_TROUBLE, error ? error->text.c_str() : "",
             user);
      };
    }
    it.send(kestrin::NSData(std::span(frame, length)), std::move(handler));
    return KESTRIN_OK;
  });
}

kestrin_status kestrin_reader_exchange(kestrin_reader* reader, const uint8_t* frame, size_t length,
                                       double limit, kestrin_answered done, void* user,
                                       uint64_t* exchange) {
  return withReader(reader, [&](kestrin::Reader& it) {
    if (frame == nullptr && length > 0) return fail(KESTRIN_INVALID_ARGUMENT, "the frame is NULL");
    if (done == nullptr) return fail(KESTRIN_INVALID_ARGUMENT, "what is to be called is NULL");
    const auto id =
        it.exchange(kestrin::NSData(std::span(frame, length)), kestrin::timeFromSeconds(limit),
                    [done, user](const std::optional<kestrin::RcpFrame>& answer,
                                 const std::optional<kestrin::NSError>& error) {
                      if (answer) {
                        const kestrin_frame shown = frameOf(*answer);
                        done(&shown, KESTRIN_NO_TROUBLE, "", user);
                      } else {
                        done(nullptr, troubleOf(*error), error->text.c_str(), user);
                      }
                    });
    if (exchange != nullptr) *exchange = id;
    return KESTRIN_OK;
  });
}

kestrin_status kestrin_reader_forget(kestrin_reader* reader, uint64_t exchange) {
  return withReader(reader, [&](kestrin::Reader& it) {
    it.forget(exchange);
    return KESTRIN_OK;
  });
}

kestrin_status kestrin_reader_leave(kestrin_reader* reader) {
  return withReader(reader, [](kestrin::Reader& it) {
    it.leave();
    return KESTRIN_OK;
  });
}

kestrin_status kestrin_reader_come_back(kestrin_reader* reader) {
  return withReader(reader, [](kestrin::Reader& it) {
    it.comeBack();
    return KESTRIN_OK;
  });
}

kestrin_status kestrin_reader_close(kestrin_reader* reader, void (*done)(void* user), void* user) {
  return withReader(reader, [&](kestrin::Reader& it) {
    std::function<void()> handler;
    if (done != nullptr) handler = [done, user] { done(user); };
    it.close(std::move(handler));
    return KESTRIN_OK;
  });
}
