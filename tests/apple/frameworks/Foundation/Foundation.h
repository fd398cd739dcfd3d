// The part of Foundation that this project uses, declared in its own words, to compile for Apple's
// systems where there is no SDK. What the Objective-C runtime declares comes from the runtime's own
// headers.
#pragma once
#import <TargetConditionals.h>
#import <dispatch/dispatch.h>
#import <objc/NSObject.h>
#import <objc/runtime.h>

#ifdef __cplusplus
#define FOUNDATION_EXPORT extern "C"
#else
#define FOUNDATION_EXPORT extern
#endif
#define NS_ASSUME_NONNULL_BEGIN _Pragma("clang assume_nonnull begin")
#define NS_ASSUME_NONNULL_END _Pragma("clang assume_nonnull end")
#define NS_ENUM(type, name)                                        \
  enum __attribute__((enum_extensibility(open))) name : type name; \
  enum name : type
#define NS_OPTIONS(type, name)                                                \
  enum __attribute__((flag_enum, enum_extensibility(open))) name : type name; \
  enum name : type
#define NS_SWIFT_NAME(name) __attribute__((swift_name(#name)))
#define NS_UNAVAILABLE __attribute__((unavailable))

NS_ASSUME_NONNULL_BEGIN

@class NSString, NSData, NSDictionary, NSNotification;
typedef NSString* NSNotificationName;
typedef NSString* NSErrorDomain;
typedef NSString* NSErrorUserInfoKey;
typedef NSUInteger NSStringEncoding;
enum { NSUTF8StringEncoding = 4 };
typedef double NSTimeInterval;
typedef struct _NSZone NSZone;

@protocol NSCopying
- (id)copyWithZone:(nullable NSZone*)zone;
@end

@interface NSString : NSObject <NSCopying>
@property(nullable, readonly) const char* UTF8String;
@property(readonly) NSUInteger length;
+ (nullable instancetype)stringWithUTF8String:(const char*)nullTerminatedCString;
- (nullable instancetype)initWithBytes:(const void*)bytes
                                length:(NSUInteger)len
                              encoding:(NSStringEncoding)encoding;
- (NSUInteger)lengthOfBytesUsingEncoding:(NSStringEncoding)enc;
- (BOOL)isEqualToString:(NSString*)aString;
+ (instancetype)stringWithFormat:(NSString*)format, ...;
- (NSString*)stringByAppendingFormat:(NSString*)format, ...;
@end
@interface NSMutableString : NSString
+ (instancetype)string;
- (void)appendFormat:(NSString*)format, ...;
@end
@interface NSConstantString : NSString
@end
@interface NSData : NSObject <NSCopying>
@property(readonly) NSUInteger length;
@property(readonly) const void* bytes;
+ (instancetype)dataWithBytes:(nullable const void*)bytes length:(NSUInteger)length;
@end
@protocol NSFastEnumeration
- (NSUInteger)countByEnumeratingWithState:(struct __objcFastEnumerationState*)state
                                  objects:(id __unsafe_unretained _Nullable[_Nonnull])buffer
                                    count:(NSUInteger)len;
@end
@interface NSArray<__covariant ObjectType> : NSObject <NSCopying, NSFastEnumeration>
@property(readonly) NSUInteger count;
@property(nullable, nonatomic, readonly) ObjectType firstObject;
+ (instancetype)arrayWithObject:(ObjectType)anObject;
+ (instancetype)arrayWithObjects:(const ObjectType _Nonnull[_Nullable])objects
                           count:(NSUInteger)cnt;
- (ObjectType)objectAtIndex:(NSUInteger)index;
@end
@interface NSMutableArray<ObjectType> : NSArray <ObjectType>
+ (instancetype)array;
- (void)addObject:(ObjectType)anObject;
@end
@interface NSDictionary<__covariant KeyType, __covariant ObjectType> : NSObject <NSCopying>
- (nullable ObjectType)objectForKey:(KeyType)aKey;
- (nullable ObjectType)objectForKeyedSubscript:(KeyType)key;
+ (instancetype)dictionaryWithObject:(ObjectType)object forKey:(KeyType<NSCopying>)key;
@end
@interface NSNumber : NSObject <NSCopying>
@property(readonly) int intValue;
@property(readonly) double doubleValue;
+ (NSNumber*)numberWithBool:(BOOL)value;
+ (NSNumber*)numberWithDouble:(double)value;
@end
@interface NSUUID : NSObject <NSCopying>
@property(readonly, copy) NSString* UUIDString;
- (nullable instancetype)initWithUUIDString:(NSString*)string;
@end
@interface NSError : NSObject <NSCopying>
@property(readonly, copy) NSErrorDomain domain;
@property(readonly) NSInteger code;
@property(readonly, copy) NSString* localizedDescription;
+ (instancetype)errorWithDomain:(NSErrorDomain)domain
                           code:(NSInteger)code
                       userInfo:(nullable NSDictionary<NSErrorUserInfoKey, id>*)dict;
@end
FOUNDATION_EXPORT NSErrorUserInfoKey const NSLocalizedDescriptionKey;
@interface NSException : NSObject <NSCopying>
@property(readonly, copy) NSString* name;
@property(nullable, readonly, copy) NSString* reason;
@end
@interface NSThread : NSObject
@property(class, readonly) BOOL isMainThread;
+ (void)sleepForTimeInterval:(NSTimeInterval)ti;
@end
@interface NSNotification : NSObject
@property(readonly, copy) NSNotificationName name;
@property(nullable, readonly, copy) NSDictionary* userInfo;
@end
@interface NSNotificationCenter : NSObject
@property(class, readonly, strong) NSNotificationCenter* defaultCenter;
- (void)addObserver:(id)observer
           selector:(SEL)aSelector
               name:(nullable NSNotificationName)aName
             object:(nullable id)anObject;
- (void)postNotificationName:(NSNotificationName)aName
                      object:(nullable id)anObject
                    userInfo:(nullable NSDictionary*)aUserInfo;
- (void)removeObserver:(id)observer;
@end
@interface NSFileHandle : NSObject
- (instancetype)initWithFileDescriptor:(int)fd closeOnDealloc:(BOOL)closeopt;
- (void)waitForDataInBackgroundAndNotify;
@end
FOUNDATION_EXPORT NSNotificationName const NSFileHandleDataAvailableNotification;
FOUNDATION_EXPORT NSString* NSStringFromClass(Class aClass);
FOUNDATION_EXPORT void NSLog(NSString* format, ...);

NS_ASSUME_NONNULL_END
