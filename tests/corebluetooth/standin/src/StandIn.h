// How a test steers what stands in for CoreBluetooth: its classes over another radio, at least as
// strict as the original. What Apple's documentation calls a mistake is counted here, and does
// nothing.
//
// Threads: the main thread's. Lifetime: the radio and the loop are kept until the next `use`.
// Errors: `misuses` has them in words.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Habits.h"
#include "KestrinBLESDK/platform/Radio.h"
#include "KestrinBLESDK/platform/RunLoop.h"

namespace standin {

/// From now on central managers are made over `radio`, and what comes later comes on `loop`.
void use(std::shared_ptr<kestrin::Radio> radio, std::weak_ptr<kestrin::RunLoop> loop,
         const Habits& habits = {});
/// What the framework was asked for that it documents as a mistake.
std::vector<std::string> misuses();
/// From now on the request with this selector raises an exception; none does without one.
void raiseAt(const std::optional<std::string>& selector);
/// What has been asked of the framework, by selector.
std::vector<std::string> requests();
/// Every device that a central manager keeps is seen once more, by this name: what was on its way
/// when a scan was stopped still comes.
void sightAgain(const std::string& name);
/// The system does not know any device any more that it has not shown since.
void forgetDevices();
/// The options that the last central manager was made with, as Foundation describes them.
std::string managerOptions();
/// How many central managers, and how many devices, somebody keeps.
int liveManagers();
int livePeripherals();

}  // namespace standin
