// Platforms and their run loops.
#include <string_view>

#include "Guard.h"
#include "Handles.h"
#include "KestrinBLESDK/recording/RecordedPlatform.h"

#ifdef KESTRIN_HAS_BLUEZ
#include "kestrin/bluez/Bluez.h"
#endif

namespace kestrin::c {
namespace {

constexpr char kNoPlatform[] = "the platform is NULL";
constexpr char kNotSimulated[] = "the platform's radio is not a simulated one";
constexpr char kNoPath[] = "the path is NULL";
constexpr char kNoName[] = "the name is NULL";
constexpr char kInsideCallback[] =
    "the run loop is being turned already; return from the callback first";

/// Does `work` with the run loop that is not being turned.
template <class Work>
kestrin_status withFreeLoop(kestrin_platform* platform, const Work& work) noexcept {
  return guarded([&] {
    if (platform == nullptr) return fail(KESTRIN_INVALID_ARGUMENT, kNoPlatform);
    // Outlives the turn, should somebody release the handle in it.
    const auto parts = platform->parts;
    if (parts->loop().isTurning()) return fail(KESTRIN_INSIDE_CALLBACK, kInsideCallback);
    work(parts->loop());
    return KESTRIN_OK;
  });
}

/// Does `work` with a simulated platform's parts.
template <class Work>
kestrin_status withSimulated(kestrin_platform* platform, const char* name,
                             const Work& work) noexcept {
  return guarded([&] {
    if (platform == nullptr) return fail(KESTRIN_INVALID_ARGUMENT, kNoPlatform);
    if (name == nullptr) return fail(KESTRIN_INVALID_ARGUMENT, kNoName);
    if (!platform->parts->simulated) return fail(KESTRIN_INVALID_ARGUMENT, kNotSimulated);
    return work(*platform->parts);
  });
}

}  // namespace
}  // namespace kestrin::c

using namespace kestrin::c;

kestrin_platform* kestrin_platform_create(const char* adapter) {
#ifdef KESTRIN_HAS_BLUEZ
  return guardedResult<kestrin_platform*>(nullptr, [&] {
    auto parts = std::make_shared<PlatformParts>();
    kestrin::bluez::Options options;
    if (adapter != nullptr) options.adapter = adapter;
    parts->ownLoop = std::make_shared<kestrin::MainRunLoop>();
    parts->platform.radio = kestrin::bluez::makeRadio(parts->ownLoop, options);
    parts->platform.mainRunLoop = parts->ownLoop;
    parts->platform.thread = kestrin::sleepOn(parts->ownLoop);
    parts->platform.log = parts->log;
    return new kestrin_platform{std::move(parts)};
  });
#else
  (void)adapter;
  fail(KESTRIN_NOT_BUILT, "this library was built without the real radio");
  return nullptr;
#endif
}

kestrin_platform* kestrin_platform_create_simulated(bool virtual_time, uint64_t seed) {
  return guardedResult<kestrin_platform*>(nullptr, [&] {
    auto parts = std::make_shared<PlatformParts>();
    kestrin::simulated::Options options;
    options.virtualTime = virtual_time;
    options.seed = seed;
    options.log = parts->log;
    parts->simulated = std::make_unique<kestrin::simulated::SimulatedPlatform>(options);
    parts->platform = parts->simulated->platform();
    return new kestrin_platform{std::move(parts)};
  });
}

void kestrin_platform_release(kestrin_platform* platform) { delete platform; }

kestrin_status kestrin_simulated_add_reader(kestrin_platform* platform, const char* name) {
  return withSimulated(platform, name, [&](PlatformParts& parts) {
    const auto family = std::string_view(name).starts_with("KVR-Q62T")
                            ? kestrin::simulated::ReaderFamily::kvrQ62T
                            : kestrin::simulated::ReaderFamily::standard;
    parts.readers[name] = parts.simulated->radio().addReader(name, family);
    return KESTRIN_OK;
  });
}

kestrin_status kestrin_simulated_lose_link(kestrin_platform* platform, const char* name) {
  return withSimulated(platform, name, [&](PlatformParts& parts) {
    const auto found = parts.readers.find(name);
    if (found == parts.readers.end()) {
      const std::string text = "there is no virtual reader '" + std::string(name) + "'";
      return fail(KESTRIN_INVALID_ARGUMENT, text.c_str());
    }
    found->second->simulateLinkLoss();
    return KESTRIN_OK;
  });
}

kestrin_status kestrin_set_log(kestrin_platform* platform, kestrin_log_line line, void* user) {
  if (platform == nullptr) return fail(KESTRIN_INVALID_ARGUMENT, kNoPlatform);
  platform->parts->log->set(line, user);
  return KESTRIN_OK;
}

const char* kestrin_radio_trouble(kestrin_platform* platform) {
  if (platform == nullptr) {
    fail(KESTRIN_INVALID_ARGUMENT, kNoPlatform);
    return nullptr;
  }
  return guardedResult<const char*>(nullptr, [&] {
    auto& parts = *platform->parts;
    parts.trouble = parts.platform.radio->stateReason();
    return parts.trouble.c_str();
  });
}

kestrin_status kestrin_run_for(kestrin_platform* platform, double seconds) {
  return withFreeLoop(platform, [&](kestrin::MainRunLoop& loop) {
    loop.runFor(kestrin::timeFromSeconds(seconds));
  });
}

kestrin_status kestrin_run(kestrin_platform* platform) {
  return withFreeLoop(platform, [](kestrin::MainRunLoop& loop) { loop.run(); });
}

kestrin_status kestrin_run_one_turn(kestrin_platform* platform) {
  return withFreeLoop(platform, [](kestrin::MainRunLoop& loop) { loop.runOneTurn(); });
}

int kestrin_file_descriptor(kestrin_platform* platform) {
  if (platform == nullptr) {
    fail(KESTRIN_INVALID_ARGUMENT, kNoPlatform);
    return -1;
  }
  return guardedResult(-1, [&] {
    const int descriptor = platform->parts->loop().fileDescriptor();
    if (descriptor < 0) fail(KESTRIN_FAILED, "the system has no file descriptor left");
    return descriptor;
  });
}

kestrin_status kestrin_stop(kestrin_platform* platform) {
  return guarded([&] {
    if (platform == nullptr) return fail(KESTRIN_INVALID_ARGUMENT, kNoPlatform);
    platform->parts->loop().stop();
    return KESTRIN_OK;
  });
}

kestrin_status kestrin_post(kestrin_platform* platform, void (*task)(void* user), void* user) {
  return guarded([&] {
    if (platform == nullptr) return fail(KESTRIN_INVALID_ARGUMENT, kNoPlatform);
    if (task == nullptr) return fail(KESTRIN_INVALID_ARGUMENT, "the task is NULL");
    platform->parts->loop().post([task, user] { task(user); });
    return KESTRIN_OK;
  });
}

double kestrin_now(kestrin_platform* platform) {
  if (platform == nullptr) {
    fail(KESTRIN_INVALID_ARGUMENT, kNoPlatform);
    return -1;
  }
  return guardedResult(
      -1.0, [&] { return std::chrono::duration<double>(platform->parts->loop().now()).count(); });
}

kestrin_status kestrin_record(kestrin_platform* platform, const char* path) {
  return guarded([&] {
    if (platform == nullptr) return fail(KESTRIN_INVALID_ARGUMENT, kNoPlatform);
    if (path == nullptr) return fail(KESTRIN_INVALID_ARGUMENT, kNoPath);
    PlatformParts& parts = *platform->parts;
    if (parts.recording) return fail(KESTRIN_INVALID_ARGUMENT, "this platform records already");
    const auto recording = std::make_shared<kestrin::bindings::FileRecording>(
        path, "libKestrinBLESDK_c " KESTRIN_VERSION);
    if (!recording->isWhole()) {
      const std::string text = "'" + std::string(path) + "' cannot be written";
      return fail(KESTRIN_FAILED, text.c_str());
    }
    auto recorded = kestrin::recordedPlatform(parts.platform, recording);
    parts.recording = recording;
    parts.platform = std::move(recorded.platform);
    parts.recordedLoop = std::move(recorded.keep);
    return KESTRIN_OK;
  });
}

bool kestrin_recording_is_whole(const kestrin_platform* platform) {
  return platform != nullptr && platform->parts->recording != nullptr &&
         platform->parts->recording->isWhole();
}
