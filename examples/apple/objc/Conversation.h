// What the application does with a reader: finds one, connects, asks it for its version, and says
// each step in a line of text. Foundation only, so that it runs without a screen as well.
#import <Foundation/Foundation.h>
#import <KestrinBLESDK/KestrinBLESDK.h>

NS_ASSUME_NONNULL_BEGIN

/// Posted by a conversation with each line, which `ConversationLineKey` has in the notification's
/// information.
FOUNDATION_EXPORT NSNotificationName const ConversationSaidLine;
FOUNDATION_EXPORT NSString* const ConversationLineKey;

@interface Conversation : NSObject <KestrinBLEProtocols, RcpReceiver> {
 @private
  KestrinBleMgr* _manager;
  BOOL _connecting;
}
/// Looks for a reader. The manager holds its delegates weakly: keep the conversation.
- (void)start;
/// Connects to the reader that was found last, whether it is in range or not yet.
- (void)comeBack;
/// Gives the reader up.
- (void)stop;
@end

NS_ASSUME_NONNULL_END
