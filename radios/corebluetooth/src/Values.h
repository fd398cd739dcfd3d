// Values of both languages, each made of the other.
//
// Threads: any. Lifetime: what is returned of Objective-C is autoreleased. Errors: text that is not
// UTF-8 becomes text that says so, see `string`.
#pragma once

// The project's own headers come first: some of their names are macros of the system's headers.
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KestrinBLESDK/platform/CBUUID.h"
#include "KestrinBLESDK/platform/Export.h"
#include "KestrinBLESDK/platform/NSData.h"
#include "KestrinBLESDK/platform/NSError.h"

#import <CoreBluetooth/CoreBluetooth.h>
#import <Foundation/Foundation.h>

// A collection's type of element is a name without a namespace.
typedef NSArray<CBUUID*> KestrinUUIDArray;
typedef NSMutableArray<CBUUID*> KestrinMutableUUIDArray;
typedef NSDictionary<NSString*, id> KestrinFields;

// What is exported here is for bindings/objc, which is a library of its own.
namespace kestrin::corebluetooth {

/// Empty for an absent string, and for one that is no valid text.
KESTRIN_EXPORT std::string text(::NSString* string);
/// Never absent: bytes that are no UTF-8 are written as `\xNN`.
KESTRIN_EXPORT ::NSString* string(std::string_view text);
KESTRIN_EXPORT std::optional<NSData> data(::NSData* bytes);
KESTRIN_EXPORT ::NSData* data(const NSData& bytes);
CBUUID uuid(::CBUUID* value);
/// Absent for an absent list, which asks for everything.
::KestrinUUIDArray* uuids(const std::optional<std::vector<CBUUID>>& values);
std::optional<NSError> error(::NSError* value);

}  // namespace kestrin::corebluetooth
