#include "Parts.h"

@implementation CBUUID
+ (CBUUID*)UUIDWithString:(NSString*)theString {
  const auto value = kestrin::CBUUID::UUIDWithString([theString UTF8String]);
  if (!value) [NSException raise:NSInternalInconsistencyException format:@"no UUID: %@", theString];
  CBUUID* made = [[[CBUUID alloc] init] autorelease];
  made->parts = new CBUUIDParts{[standin::string(value->UUIDString()) retain]};
  return made;
}
+ (CBUUID*)UUIDWithData:(NSData*)theData {
  [NSException raise:NSInvalidArgumentException format:@"not in the stand-in: %@", theData];
  return nil;
}
- (void)dealloc {
  [parts->text release];
  delete parts;
  [super dealloc];
}
- (id)copyWithZone:(NSZone*)zone {
  return [self retain];
}
- (NSString*)UUIDString {
  return parts->text;
}
- (NSData*)data {
  [NSException raise:NSInvalidArgumentException format:@"not in the stand-in: the bytes of a UUID"];
  return nil;
}
- (BOOL)isEqual:(id)other {
  return [other isKindOfClass:[CBUUID class]] && [[other UUIDString] isEqual:parts->text];
}
- (NSUInteger)hash {
  return [parts->text hash];
}
@end

@implementation CBPeer
- (id)copyWithZone:(NSZone*)zone {
  return [self retain];
}
- (NSUUID*)identifier {
  return nil;
}
@end

@implementation CBAttribute
- (CBUUID*)UUID {
  return nil;
}
@end

@implementation CBService
- (instancetype)initWith:(std::shared_ptr<kestrin::CBService>)attribute
            ofPeripheral:(CBPeripheral*)peripheral {
  if ((self = [super init])) parts = new CBServiceParts{std::move(attribute), peripheral, nil};
  return self;
}
- (void)dealloc {
  for (CBCharacteristic* each in parts->characteristics) each->parts->service = nil;
  [parts->characteristics release];
  delete parts;
  [super dealloc];
}
- (CBUUID*)UUID {
  return standin::uuid(parts->attribute->UUID());
}
- (CBPeripheral*)peripheral {
  return parts->peripheral;
}
- (BOOL)isPrimary {
  return YES;
}
- (NSArray*)characteristics {
  return parts->characteristics;
}
- (void)takeCharacteristics {
  NSMutableArray* shown = [[NSMutableArray alloc] init];
  const auto all = parts->attribute->characteristics().value_or(
      std::vector<std::shared_ptr<kestrin::CBCharacteristic>>());
  for (const auto& each : all) {
    CBCharacteristic* known = nil;
    for (CBCharacteristic* old in parts->characteristics) {
      if (old->parts->attribute == each) known = old;
    }
    [shown addObject:known ? known
                           : [[[CBCharacteristic alloc] initWith:each ofService:self] autorelease]];
  }
  [parts->characteristics release];
  parts->characteristics = shown;
}
@end

@implementation CBCharacteristic
- (instancetype)initWith:(std::shared_ptr<kestrin::CBCharacteristic>)attribute
               ofService:(CBService*)service {
  if ((self = [super init])) parts = new CBCharacteristicParts{std::move(attribute), service, NO};
  return self;
}
- (void)dealloc {
  delete parts;
  [super dealloc];
}
- (CBUUID*)UUID {
  return standin::uuid(parts->attribute->UUID());
}
- (CBService*)service {
  return parts->service;
}
- (CBCharacteristicProperties)properties {
  return static_cast<CBCharacteristicProperties>(parts->attribute->properties());
}
- (NSData*)value {
  const auto value = parts->attribute->value();
  return value ? [NSData dataWithBytes:value->bytes() length:value->length()] : nil;
}
- (BOOL)isNotifying {
  return parts->isNotifying;
}
@end
