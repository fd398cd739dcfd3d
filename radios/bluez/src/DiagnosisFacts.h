// What a diagnosis is made of: the facts, how they are gathered and what follows from them.
//
// Threads: any. Lifetime: nothing is kept, but for a look at a bus that never answers: its thread
// waits on until that bus does something or the process ends.
// Errors: none is thrown; a look that fails is a fact.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Conversions.h"
#include "Errors.h"
#include "KestrinBLESDK/platform/Clock.h"
#include "kestrin/bluez/Diagnosis.h"

namespace kestrin::bluez {

/// Where the kernel lists radios.
struct MachinePlaces {
  std::string blocks = "/sys/class/rfkill";
  std::string adapters = "/sys/class/bluetooth";
};

struct AdapterFacts {
  AdapterObject object;
  std::string address;
  std::string alias;
  bool isCentral = true;
};

struct DaemonFacts {
  std::optional<CallError> busTrouble;
  bool isThere = false;
  std::optional<CallError> trouble;  ///< What it, or the bus for it, answered to a harmless call.
  std::string version;               ///< Empty: it does not say.
  std::map<std::string, AdapterFacts> adapters;  ///< By path.
};

/// A radio that is kept from sending.
struct Block {
  std::string radio;
  bool byHardware = false;
};

struct MachineFacts {
  std::vector<Block> blocks;
  std::vector<std::string> adapters;  ///< Those that the kernel has.
};

struct UserFacts {
  std::string name;
  bool groupExists = false;  ///< `bluetooth`.
  bool isListed = false;     ///< The group's list has the user.
  bool hasGroup = false;     ///< This process has the group.
};

struct DiagnosisFacts {
  std::optional<std::string> wantedAdapter;
  DaemonFacts daemon;
  MachineFacts machine;
  UserFacts user;
};

/// Asks bus and daemon, each time for as long as `limit` at most.
DaemonFacts lookAtDaemon(const Options& options, Time limit);
MachineFacts lookAtMachine(const MachinePlaces& places);
UserFacts lookAtUser();

Diagnosis conclude(const DiagnosisFacts& facts);

}  // namespace kestrin::bluez
