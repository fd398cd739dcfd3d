// Calls into the system's frameworks: with an autorelease pool, which threads and the tasks of a
// run loop do not have by themselves, and without letting an exception out, which would end the
// program at the next `noexcept`.
//
// Threads: any. Lifetime: what the call autoreleases is gone when it has returned. Errors: an
// exception of Foundation's is a line in the log; the call has then done what it had done before
// it.
#pragma once

#include "KestrinBLESDK/platform/NSLog.h"
#include "Values.h"

namespace kestrin::corebluetooth {

void logException(const char* during, ::NSException* exception) noexcept;

/// Returns whether the call came to its end.
template <class Call>
bool guarded(const char* what, const Call& call) {
  bool whole = false;
  @autoreleasepool {
    @try {
      call();
      whole = true;
    } @catch (::NSException* exception) {
      logException(what, exception);
    }
  }
  return whole;
}

}  // namespace kestrin::corebluetooth
