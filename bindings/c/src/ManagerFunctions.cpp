// Managers and peripherals.
#include <new>
#include <span>

#include "Guard.h"
#include "Handles.h"
#include "StructSize.h"

namespace kestrin::c {
namespace {

constexpr char kNoManager[] = "the manager is NULL";
constexpr char kNoReader[] = "the reader is NULL";

/// Does `work` with the manager, which outlives it even if a callback releases its handle.
template <class Work>
kestrin_status withManager(kestrin_manager* manager, const Work& work) noexcept {
  return guarded([&] {
    if (manager == nullptr) return fail(KESTRIN_INVALID_ARGUMENT, kNoManager);
    const auto keep = *manager;
    return work(*keep.manager);
  });
}

/// The text of a reader, kept with it.
template <class Read>
const char* textOf(kestrin_peripheral* reader, std::string kestrin_peripheral::*text,
                   const Read& read) noexcept {
  if (reader == nullptr) {
    fail(KESTRIN_INVALID_ARGUMENT, kNoReader);
    return nullptr;
  }
  return guardedResult<const char*>(nullptr, [&] {
    reader->*text = read(*reader->peripheral);
    return (reader->*text).c_str();
  });
}

}  // namespace
}  // namespace kestrin::c

using namespace kestrin::c;

kestrin_manager* kestrin_manager_create(kestrin_platform* platform,
                                        const kestrin_callbacks* callbacks, void* user) {
  if (platform == nullptr || callbacks == nullptr) {
    fail(KESTRIN_INVALID_ARGUMENT,
         platform == nullptr ? "the platform is NULL" : "the callbacks are NULL");
    return nullptr;
  }
  return guardedResult<kestrin_manager*>(nullptr, [&]() -> kestrin_manager* {
    const auto known = readStruct(*callbacks, "kestrin_callbacks", {sizeof(kestrin_callbacks)});
    if (!known) return nullptr;
    auto delegate = std::make_shared<CallbackDelegate>(*known, user);
    auto manager = kestrin::KestrinBleMgr::init(platform->parts->platform);
    if (!manager) throw std::bad_alloc();
    manager->setDelegate(delegate);
    manager->setRcpReceiverDelegate(delegate);
    return new kestrin_manager{platform->parts, std::move(delegate), std::move(manager)};
  });
}

void kestrin_manager_release(kestrin_manager* manager) {
  if (manager == nullptr) return;
  // Nobody is told any more, and pending requests find nothing to report to.
  manager->manager->setDelegate(nullptr);
  manager->manager->setRcpReceiverDelegate(nullptr);
  manager->manager->close();
  delete manager;
}

kestrin_status kestrin_scan(kestrin_manager* manager) {
  return withManager(manager, [](kestrin::KestrinBleMgr& it) {
    it.scanBLE();
    return KESTRIN_OK;
  });
}

kestrin_status kestrin_stop_scan(kestrin_manager* manager) {
  return withManager(manager, [](kestrin::KestrinBleMgr& it) {
    it.stopSacnBLE();
    return KESTRIN_OK;
  });
}

kestrin_status kestrin_connect(kestrin_manager* manager, kestrin_peripheral* reader) {
  return withManager(manager, [&](kestrin::KestrinBleMgr& it) {
    if (reader == nullptr) return fail(KESTRIN_INVALID_ARGUMENT, kNoReader);
    it.connectBLE(reader->peripheral);
    return KESTRIN_OK;
  });
}

kestrin_peripheral* kestrin_current_peripheral(kestrin_manager* manager) {
  kestrin_peripheral* reader = nullptr;
  withManager(manager, [&](const kestrin::KestrinBleMgr& it) {
    if (auto peripheral = it.pripheral()) reader = new kestrin_peripheral{std::move(peripheral)};
    return KESTRIN_OK;
  });
  return reader;
}

bool kestrin_is_open(const kestrin_manager* manager) {
  return manager != nullptr && manager->manager->isOpened();
}

kestrin_status kestrin_close(kestrin_manager* manager) {
  return withManager(manager, [](kestrin::KestrinBleMgr& it) {
    it.close();
    return KESTRIN_OK;
  });
}

kestrin_status kestrin_send(kestrin_manager* manager, const uint8_t* frame, size_t length) {
  return withManager(manager, [&](kestrin::KestrinBleMgr& it) {
    if (frame == nullptr && length > 0) return fail(KESTRIN_INVALID_ARGUMENT, "the frame is NULL");
    if (it.send(kestrin::NSData(std::span(frame, length)))) return KESTRIN_OK;
    return fail(KESTRIN_NOT_WRITTEN,
                "the reader's transmit characteristic is not known or cannot be written");
  });
}

kestrin_peripheral* kestrin_peripheral_retain(kestrin_peripheral* reader) {
  if (reader != nullptr) ++reader->holders;
  return reader;
}

void kestrin_peripheral_release(kestrin_peripheral* reader) {
  if (reader != nullptr && --reader->holders == 0) delete reader;
}

const char* kestrin_peripheral_name(kestrin_peripheral* reader) {
  return textOf(reader, &kestrin_peripheral::name,
                [](const kestrin::CBPeripheral& it) { return it.name().value_or(""); });
}

const char* kestrin_peripheral_identifier(kestrin_peripheral* reader) {
  return textOf(reader, &kestrin_peripheral::identifier,
                [](const kestrin::CBPeripheral& it) { return it.identifier(); });
}
