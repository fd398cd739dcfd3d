#import "Conversation.h"

NSNotificationName const ConversationSaidLine = @"ConversationSaidLine";
NSString *const ConversationLineKey = @"line";

// Asks a reader what it is: a whole frame, CRC included.
static const uint8_t question[] = {0xBB, 0x00, 0x03, 0x00, 0x01, 0xB1, 0x7E, 0x65, 0x97};

@implementation Conversation

- (instancetype)init {
  self = [super init];
  if (self != nil) {
    _manager = [KestrinBleMgr sharedInstance];
    [_manager setDelegate:self];
    [_manager setRcpReceiverDelegate:self];
  }
  return self;
}

- (void)start {
  _connecting = NO;
  [_manager scanBLE];
}

- (void)comeBack {
  CBPeripheral *last = [_manager pripheral];
  if (last != nil) [_manager connectBLE:last];
}

- (void)stop {
  [_manager stopSacnBLE];
  [_manager close];
}

- (void)say:(NSString *)line {
  [[NSNotificationCenter defaultCenter]
      postNotificationName:ConversationSaidLine
                    object:self
                  userInfo:[NSDictionary dictionaryWithObject:line forKey:ConversationLineKey]];
}

- (void)scanBleStatus:(int64_t)status {
  [self say:status == 0 ? @"scanning" : @"no longer scanning"];
}

- (void)scanningBleDeive:(CBPeripheral *)peripheral {
  [self say:[NSString stringWithFormat:@"found %@", [peripheral name]]];
  if (_connecting) return;
  _connecting = YES;
  [_manager stopSacnBLE];
  [_manager connectBLE:peripheral];
}

- (void)plugChangedStatus:(BOOL)plugged {
  [self say:plugged ? @"plugged in" : @"unplugged"];
  if (plugged) [_manager send:[NSData dataWithBytes:question length:sizeof question]];
}

- (void)dispatchRcpFrmReader:(NSData *)frame {
  const uint8_t *bytes = (const uint8_t *)[frame bytes];
  NSMutableString *text = [NSMutableString string];
  for (NSUInteger i = 0; i < [frame length]; ++i) [text appendFormat:@"%02x", bytes[i]];
  [self say:[NSString stringWithFormat:@"frame %@", text]];
}

@end
