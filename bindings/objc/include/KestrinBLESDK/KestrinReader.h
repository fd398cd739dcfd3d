/// A reader that is found, connected to and held against losses by itself, for applications in
/// Objective-C and Swift.
///
/// Compiled for iOS and contract-tested on Linux; not yet run on a device.
///
/// Threads: the main thread's, where every block is called.
///
/// Lifetime: a reader keeps its blocks; one that ends closes its link and calls none of the
/// handlers any more.
///
/// Errors: in `KestrinErrorDomain`, with a code of `KestrinReaderError`.
#import <Foundation/Foundation.h>
#import <KestrinBLESDK/KestrinDefines.h>

NS_ASSUME_NONNULL_BEGIN

/// The domain of this library's own errors.
KESTRIN_CONSTANT NSString* const KestrinErrorDomain;

/// Where a reader stands.
typedef NS_ENUM(NSInteger, KestrinReaderPhase) {
  /// Bluetooth is off, gone, or may not be used; waited for.
  KestrinReaderPhaseRadioOff = 0,
  /// The reader that is meant is looked for. A reader begins here.
  KestrinReaderPhaseSearching = 1,
  /// It is known and its link is asked for.
  KestrinReaderPhaseConnecting = 2,
  /// There is a link, which cannot be used yet. Frames may come already.
  KestrinReaderPhaseLinkingUp = 3,
  /// The link can be used.
  KestrinReaderPhasePluggedIn = 4,
  /// The link has ended; the next attempt comes after a pause.
  KestrinReaderPhaseLost = 5,
  /// Without a link until `comeBack`.
  KestrinReaderPhaseAway = 6,
  /// The end: nothing is tried any more.
  KestrinReaderPhaseClosed = 7,
};

/// Codes of `KestrinErrorDomain`.
typedef NS_ENUM(NSInteger, KestrinReaderError) {
  /// The main run loop is gone.
  KestrinReaderErrorNoRunLoop = 11,
  /// The reader did not come into range in time.
  KestrinReaderErrorNotFound = 12,
  /// The reader was found and the link did not come up in time.
  KestrinReaderErrorNotPluggedIn = 13,
  /// The link is down.
  KestrinReaderErrorUnplugged = 14,
  /// The reader has nothing that can be written to.
  KestrinReaderErrorNotWritten = 15,
  /// The answer did not come in time.
  KestrinReaderErrorNoAnswer = 16,
  /// What is to be sent is not one whole frame.
  KestrinReaderErrorNoFrame = 18,
  /// Too many frames wait to be sent.
  KestrinReaderErrorQueueFull = 19,
  /// Several readers are meant.
  KestrinReaderErrorAmbiguous = 20,
  /// Another `KestrinReader` of this process holds the reader.
  KestrinReaderErrorHeld = 21,
  /// Bluetooth is switched off or resetting.
  KestrinReaderErrorRadioOff = 22,
  /// There is no Bluetooth, or it may not be used.
  KestrinReaderErrorRadioUnusable = 23,
};

/// One whole frame, taken apart.
KESTRIN_CLASS
@interface KestrinFrame : NSObject
KESTRIN_PARTS(KestrinFrame)
- (instancetype)init KESTRIN_UNAVAILABLE;
/// The whole frame, from the preamble through the CRC.
@property(nonatomic, readonly) NSData* data;
/// The message type.
@property(nonatomic, readonly) uint8_t type;
/// The command's or the reply's code.
@property(nonatomic, readonly) uint8_t code;
/// The payload; empty when the frame has none.
@property(nonatomic, readonly) NSData* payload;
@end

/// A reader in range, as the search has seen it.
KESTRIN_CLASS
@interface KestrinSeenReader : NSObject
KESTRIN_PARTS(KestrinSeenReader)
- (instancetype)init KESTRIN_UNAVAILABLE;
/// As it came from the air.
@property(nonatomic, readonly) NSString* name;
/// Tells it from every other one.
@property(nonatomic, readonly) NSString* identifier;
@end

/// What a reader is to hold, and how.
KESTRIN_CLASS
@interface KestrinReaderOptions : NSObject
KESTRIN_PARTS(KestrinReaderOptions)
/// The reader that is meant: its identifier, its whole name, or a part of its name; every reader
/// when empty.
@property(nonatomic, copy) NSString* reader;
/// How many seconds the search may take until `onTrouble` is called; absent: as long as it takes.
/// 30 at first.
@property(nonatomic, copy, nullable) NSNumber* findLimit;
/// The same for each time from a connection request until the reader is plugged in.
@property(nonatomic, copy, nullable) NSNumber* plugInLimit;
/// Whether the first of several readers that are meant alike is taken. NO at first: none is, and
/// `onTrouble` is called.
@property(nonatomic) BOOL takesFirst;
/// Whether the reader is connected to again after a loss, without end. YES at first.
@property(nonatomic) BOOL reconnects;
/// How many frames may wait to be sent. 64 at first.
@property(nonatomic) NSUInteger mostWaitingFrames;
@end

/// A reader. Set the handlers right after making it: they are called from the next turn on.
KESTRIN_CLASS
@interface KestrinReader : NSObject
KESTRIN_PARTS(KestrinReader)
- (instancetype)init KESTRIN_UNAVAILABLE;
/// A reader that begins to search at once.
- (nullable instancetype)initWithOptions:(KestrinReaderOptions*)options
                                   error:(NSError* _Nullable* _Nullable)error;

/// The phase has changed. Not called for `closeWithCompletion:`.
@property(nonatomic, copy, nullable) void (^onPhase)(KestrinReaderPhase phase);
/// One whole, checked frame that no exchange waits for.
@property(nonatomic, copy, nullable) void (^onFrame)(KestrinFrame* frame);
/// From a reader whose name begins with "KVR-Q62T": the bytes of one notification as they came.
@property(nonatomic, copy, nullable) void (^onValue)(NSData* value);
/// Something that a person should know, in one line.
@property(nonatomic, copy, nullable) void (^onTrouble)(NSError* trouble);
/// A reader was seen that was not seen before, see `seen`.
@property(nonatomic, copy, nullable) void (^onSeen)(void);

/// Where the reader stands.
@property(nonatomic, readonly) KestrinReaderPhase phase;
/// The name by which the reader was found; empty before.
@property(nonatomic, readonly) NSString* name;
/// What tells the reader from every other one; empty before it was found.
@property(nonatomic, readonly) NSString* identifier;
/// Whether there is a link or an attempt.
@property(nonatomic, readonly) BOOL hasLink;
/// Every reader that the search has seen, in the order in which they were seen first.
@property(nonatomic, readonly) NSArray<KestrinSeenReader*>* seen;
/// The seen readers that are meant, without those that others hold.
@property(nonatomic, readonly) NSArray<KestrinSeenReader*>* candidates;
/// Bluetooth's state in words, with what to do about it.
@property(nonatomic, readonly) NSString* radioDescription;

/// Takes one of the seen readers in the next turn. NO when none of that identifier can be taken.
- (BOOL)chooseIdentifier:(NSString*)identifier NS_SWIFT_NAME(choose(identifier:));
/// Sends a frame without blocking. The block is called when the last slice was handed to the
/// system, or with an error.
- (void)sendFrame:(NSData*)frame
       completion:(nullable void (^)(NSError* _Nullable error))completion
    NS_SWIFT_NAME(send(_:completion:));
/// Sends a whole frame; the block is called with the next frame of the same code, or with an error
/// when none has come within so many seconds. Returns what `forgetExchange:` takes.
- (uint64_t)exchangeFrame:(NSData*)frame
                    limit:(NSTimeInterval)limit
               completion:
                   (void (^)(KestrinFrame* _Nullable answer, NSError* _Nullable error))completion
    NS_SWIFT_NAME(exchange(_:limit:completion:));
/// Waits for an answer no longer; its block is not called.
- (void)forgetExchange:(uint64_t)exchange NS_SWIFT_NAME(forget(exchange:));
/// Gives the link up until `comeBack`; the block is called once it is down. Entering the background
/// does the same.
- (void)leaveWithCompletion:(nullable void (^)(void))completion;
/// Searches or connects again, in the next turn.
- (void)comeBack;
/// Ends everything; the block is called once the link is down.
- (void)closeWithCompletion:(nullable void (^)(void))completion;
@end

NS_ASSUME_NONNULL_END
