#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "KeptBlock.h"
#include "KestrinBLESDK/Reader.h"
#include "Shared.h"
#include "Strong.h"
#include "Values.h"

#import <KestrinBLESDK/KestrinReader.h>

using kestrin::corebluetooth::data;
using kestrin::corebluetooth::string;
using kestrin::corebluetooth::Strong;
using kestrin::corebluetooth::text;
using kestrin::objc::Block;

NSString* const KestrinErrorDomain = @"KestrinErrorDomain";

struct KestrinFrameParts {
  kestrin::NSData data;
  std::uint8_t type;
  std::uint8_t code;
  kestrin::NSData payload;
};
struct KestrinSeenReaderParts {
  kestrin::SeenReader reader;
};
struct KestrinReaderOptionsParts {
  kestrin::ReaderOptions options;
};
// The blocks outlive the reader that calls one of them.
struct KestrinReaderBlocks {
  Block<void(KestrinReaderPhase)> onPhase;
  Block<void(KestrinFrame*)> onFrame;
  Block<void(NSData*)> onValue;
  Block<void(NSError*)> onTrouble;
  Block<void()> onSeen;
};
struct KestrinReaderParts {
  std::shared_ptr<KestrinReaderBlocks> blocks;
  std::shared_ptr<kestrin::Reader> reader;
};

#if defined(__APPLE__)
#define KESTRIN_IMPLEMENT(name) \
  @implementation name {        \
    struct name##Parts* parts;  \
  }
#else
#define KESTRIN_IMPLEMENT(name) @implementation name
#endif
#if __has_feature(objc_arc)
#define KESTRIN_DEALLOC \
  -(void)dealloc {      \
    delete parts;       \
  }
#else
#define KESTRIN_DEALLOC \
  -(void)dealloc {      \
    delete parts;       \
    [super dealloc];    \
  }
#endif

@interface KestrinFrame ()
- (instancetype)initWith:(const kestrin::RcpFrame&)frame;
@end
@interface KestrinSeenReader ()
- (instancetype)initWith:(kestrin::SeenReader)reader;
@end
@interface KestrinReaderOptions ()
- (const kestrin::ReaderOptions&)options;
@end

typedef NSMutableArray<KestrinSeenReader*> KestrinSeenReaders;

namespace kestrin::objc {
namespace {

::NSError* errorOf(const NSError& error) {
  ::NSDictionary* const information =
      [::NSDictionary dictionaryWithObject:string(error.text) forKey:NSLocalizedDescriptionKey];
  return [::NSError errorWithDomain:string(error.domain)
                               code:static_cast<NSInteger>(error.code)
                           userInfo:information];
}

::NSError* errorOf(const std::optional<NSError>& error) { return error ? errorOf(*error) : nil; }

Strong<::KestrinFrame*> frameOf(const RcpFrame& frame) {
  return Strong<::KestrinFrame*>::adopt([[::KestrinFrame alloc] initWith:frame]);
}

::NSArray* listOf(const std::vector<SeenReader>& readers) {
  ::KestrinSeenReaders* const list = [::KestrinSeenReaders array];
  for (const auto& each : readers) {
    const auto reader =
        Strong<::KestrinSeenReader*>::adopt([[::KestrinSeenReader alloc] initWith:each]);
    [list addObject:reader.get()];
  }
  return list;
}

Time timeOf(double seconds) {
  return std::chrono::duration_cast<Time>(std::chrono::duration<double>(seconds));
}
std::optional<Time> timeOf(::NSNumber* seconds) {
  return seconds == nil ? std::nullopt : std::optional(timeOf([seconds doubleValue]));
}
::NSNumber* secondsOf(const std::optional<Time>& time) {
  return time ? [::NSNumber numberWithDouble:std::chrono::duration<double>(*time).count()] : nil;
}

ReaderHandlers handlersOf(const std::shared_ptr<KestrinReaderBlocks>& blocks) {
  return {.onPhase =
              [blocks](Reader&, ReaderPhase phase) {
                @autoreleasepool {
                  blocks->onPhase(static_cast<::KestrinReaderPhase>(phase));
                }
              },
          .onFrame =
              [blocks](Reader&, const RcpFrame& frame) {
                @autoreleasepool {
                  blocks->onFrame(frameOf(frame).get());
                }
              },
          .onValue =
              [blocks](Reader&, const NSData& value) {
                @autoreleasepool {
                  blocks->onValue(data(value));
                }
              },
          .onTrouble =
              [blocks](Reader&, const NSError& trouble) {
                @autoreleasepool {
                  blocks->onTrouble(errorOf(trouble));
                }
              },
          .onSeen =
              [blocks](Reader&) {
                @autoreleasepool {
                  blocks->onSeen();
                }
              }};
}

std::function<void()> completionOf(void (^block)(void)) {
  return [kept = Block<void()>(block)] {
    @autoreleasepool {
      kept();
    }
  };
}

}  // namespace
}  // namespace kestrin::objc

using namespace kestrin::objc;

KESTRIN_IMPLEMENT(KestrinFrame)
- (instancetype)initWith:(const kestrin::RcpFrame&)frame {
  if ((self = [super init])) {
    parts = new KestrinFrameParts{kestrin::NSData(frame.bytes), frame.type, frame.code,
                                  kestrin::NSData(frame.payload)};
  }
  return self;
}
KESTRIN_DEALLOC
- (NSData*)data {
  return data(parts->data);
}
- (uint8_t)type {
  return parts->type;
}
- (uint8_t)code {
  return parts->code;
}
- (NSData*)payload {
  return data(parts->payload);
}
@end

KESTRIN_IMPLEMENT(KestrinSeenReader)
- (instancetype)initWith:(kestrin::SeenReader)reader {
  if ((self = [super init])) parts = new KestrinSeenReaderParts{std::move(reader)};
  return self;
}
KESTRIN_DEALLOC
- (NSString*)name {
  return string(parts->reader.name);
}
- (NSString*)identifier {
  return string(parts->reader.identifier);
}
@end

KESTRIN_IMPLEMENT(KestrinReaderOptions)
- (instancetype)init {
  if ((self = [super init])) parts = new KestrinReaderOptionsParts();
  return self;
}
KESTRIN_DEALLOC
- (const kestrin::ReaderOptions&)options {
  return parts->options;
}
- (NSString*)reader {
  return string(parts->options.reader);
}
- (void)setReader:(NSString*)reader {
  parts->options.reader = text(reader);
}
- (NSNumber*)findLimit {
  return secondsOf(parts->options.findLimit);
}
- (void)setFindLimit:(NSNumber*)seconds {
  parts->options.findLimit = timeOf(seconds);
}
- (NSNumber*)plugInLimit {
  return secondsOf(parts->options.plugInLimit);
}
- (void)setPlugInLimit:(NSNumber*)seconds {
  parts->options.plugInLimit = timeOf(seconds);
}
- (BOOL)takesFirst {
  return parts->options.ambiguity == kestrin::Ambiguity::takeFirst;
}
- (void)setTakesFirst:(BOOL)takesFirst {
  parts->options.ambiguity =
      takesFirst ? kestrin::Ambiguity::takeFirst : kestrin::Ambiguity::refuse;
}
- (BOOL)reconnects {
  return parts->options.reconnect;
}
- (void)setReconnects:(BOOL)reconnects {
  parts->options.reconnect = reconnects;
}
- (NSUInteger)mostWaitingFrames {
  return parts->options.mostWaitingFrames;
}
- (void)setMostWaitingFrames:(NSUInteger)frames {
  parts->options.mostWaitingFrames = frames;
}
@end

KESTRIN_IMPLEMENT(KestrinReader)
- (instancetype)initWithOptions:(KestrinReaderOptions*)options error:(NSError**)error {
  if ((self = [super init])) {
    kestrin::NSError why;
    parts = new KestrinReaderParts();
    parts->blocks = std::make_shared<KestrinReaderBlocks>();
    parts->reader =
        kestrin::Reader::create(platform(), [options options], handlersOf(parts->blocks), &why);
    if (parts->reader) return self;
    if (error != nullptr) *error = errorOf(why);
#if !__has_feature(objc_arc)
    [self release];
#endif
  }
  return nil;
}
KESTRIN_DEALLOC

// A block may end this object, but not the reader that an operation runs on.
- (std::shared_ptr<kestrin::Reader>)running {
  return parts->reader;
}

- (void (^)(KestrinReaderPhase))onPhase {
  return parts->blocks->onPhase.get();
}
- (void)setOnPhase:(void (^)(KestrinReaderPhase))onPhase {
  parts->blocks->onPhase = Block<void(KestrinReaderPhase)>(onPhase);
}
- (void (^)(KestrinFrame*))onFrame {
  return parts->blocks->onFrame.get();
}
- (void)setOnFrame:(void (^)(KestrinFrame*))onFrame {
  parts->blocks->onFrame = Block<void(KestrinFrame*)>(onFrame);
}
- (void (^)(NSData*))onValue {
  return parts->blocks->onValue.get();
}
- (void)setOnValue:(void (^)(NSData*))onValue {
  parts->blocks->onValue = Block<void(NSData*)>(onValue);
}
- (void (^)(NSError*))onTrouble {
  return parts->blocks->onTrouble.get();
}
- (void)setOnTrouble:(void (^)(NSError*))onTrouble {
  parts->blocks->onTrouble = Block<void(NSError*)>(onTrouble);
}
- (void (^)(void))onSeen {
  return parts->blocks->onSeen.get();
}
- (void)setOnSeen:(void (^)(void))onSeen {
  parts->blocks->onSeen = Block<void()>(onSeen);
}

- (KestrinReaderPhase)phase {
  return static_cast<KestrinReaderPhase>(parts->reader->phase());
}
- (NSString*)name {
  return string(parts->reader->name());
}
- (NSString*)identifier {
  return string(parts->reader->identifier());
}
- (BOOL)hasLink {
  return parts->reader->hasLink();
}
- (NSArray*)seen {
  return listOf(parts->reader->seen());
}
- (NSArray*)candidates {
  return listOf(parts->reader->candidates());
}
- (NSString*)radioDescription {
  return string(parts->reader->radio().description());
}

- (BOOL)chooseIdentifier:(NSString*)identifier {
  return [self running]->choose(text(identifier));
}
- (void)sendFrame:(NSData*)frame completion:(void (^)(NSError*))completion {
  [self running]->send(
      data(frame).value_or(kestrin::NSData()),
      [kept = Block<void(NSError*)>(completion)](const std::optional<kestrin::NSError>& error) {
        @autoreleasepool {
          kept(errorOf(error));
        }
      });
}
- (uint64_t)exchangeFrame:(NSData*)frame
                    limit:(NSTimeInterval)limit
               completion:(void (^)(KestrinFrame*, NSError*))completion {
  return [self running]->exchange(data(frame).value_or(kestrin::NSData()), timeOf(limit),
                                  [kept = Block<void(KestrinFrame*, NSError*)>(completion)](
                                      const std::optional<kestrin::RcpFrame>& answer,
                                      const std::optional<kestrin::NSError>& error) {
                                    @autoreleasepool {
                                      kept(answer ? frameOf(*answer).get() : nil, errorOf(error));
                                    }
                                  });
}
- (void)forgetExchange:(uint64_t)exchange {
  [self running]->forget(exchange);
}
- (void)leaveWithCompletion:(void (^)(void))completion {
  [self running]->leave(completionOf(completion));
}
- (void)comeBack {
  [self running]->comeBack();
}
- (void)closeWithCompletion:(void (^)(void))completion {
  [self running]->close(completionOf(completion));
}
@end
