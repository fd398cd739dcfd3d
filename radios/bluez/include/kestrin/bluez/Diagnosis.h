/// \file
/// What of this machine keeps the real radio from working, and what to do about it.
///
/// Threads: any.
///
/// Lifetime: what is answered is the caller's.
///
/// Errors: none is thrown; whatever cannot be looked at is a finding. Nothing is changed by
/// looking: no daemon is started and no adapter switched. Each look has a limit of its own, all of
/// them together come to less than half a minute.
#pragma once

#include <string>
#include <vector>

#include "KestrinBLESDK/platform/Export.h"
#include "kestrin/bluez/Bluez.h"

namespace kestrin::bluez {
/// \addtogroup bluez
/// @{

/// What a look has come to.
enum class Verdict {
  good,     ///< As it has to be.
  trouble,  ///< In the way of a scan; the advice says what to do.
  notSeen,  ///< Something else is in the way of looking at it.
};

/// One thing that was looked at.
struct Finding {
  std::string subject;                 ///< What was looked at, `message bus`.
  Verdict verdict = Verdict::notSeen;  ///< How it is.
  std::string text;                    ///< What is the case, one line.
  std::string advice;                  ///< What to do, one line; empty unless it is a trouble.
};

/// What `diagnose` has found.
struct Diagnosis {
  /// Whether a scan by this user would work.
  bool scanWorks = false;
  /// In the order in which one thing needs the other.
  std::vector<Finding> findings;
};

/// Looks at the bus, the daemon, the permission to use it, blocks and adapters, as a radio with
/// these options would find them.
KESTRIN_EXPORT Diagnosis diagnose(const Options& options = {});

/// @}

}  // namespace kestrin::bluez
