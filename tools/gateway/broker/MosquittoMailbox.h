// What the gateway's thread and the thread of one connection hand each other.
//
// Threads: two, see each group below. Nobody is called while its lock is held.
// Lifetime: shared by both.
// Errors: `create` returns null when the system has no descriptors left.
#pragma once

#include "tools/gateway/broker/Broker.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <variant>
#include <vector>

namespace kestrin::gateway {

struct HandedMessage {
  PublishId id = 0;
  Message message{};
};

struct LinkAcknowledged {
  PublishId id = 0;
  std::optional<std::string> refused{};
};

enum class LinkEnd : std::uint8_t {
  failed,           ///< It did not come about, or ended for a reason that was said.
  closed,           ///< It was there and ended without a word.
  protocolRefused,  ///< The broker does not speak this version of MQTT.
  takenOver,        ///< By another client with the same id.
  farewell,         ///< We have said it.
};

struct LinkDown {
  LinkEnd end = LinkEnd::failed;
  std::string why{};
};

using LinkEvent = std::variant<BrokerUp, LinkDown, LinkAcknowledged, Message>;

struct LinkOrders {
  std::vector<HandedMessage> messages{};
  bool farewell = false;
  bool end = false;
};

class MosquittoMailbox {
 public:
  /// `announce` is called on the connection's thread when there is something to take; not after
  /// `end` when that returned false.
  static std::shared_ptr<MosquittoMailbox> create(std::function<void()> announce);
  ~MosquittoMailbox();
  MosquittoMailbox(const MosquittoMailbox&) = delete;
  MosquittoMailbox& operator=(const MosquittoMailbox&) = delete;

  // For the gateway's thread.
  /// The thread may not see it before `wake`.
  void hand(HandedMessage message);
  void wake();
  void sayFarewell();
  /// Asks the thread to end. False: it is held up in the system and ends by itself, later; it
  /// announces nothing any more.
  bool end();
  std::vector<LinkEvent> take();

  // For the connection's thread.
  /// What there is to do. Afterwards the thread waits: `wake` and other orders make `readable`
  /// readable.
  LinkOrders takeOrders();
  /// Whether the thread has been asked to end.
  [[nodiscard]] bool mustEnd() const;
  [[nodiscard]] int readable() const noexcept { return readEnd_; }
  /// The wait is over.
  void awake();
  /// Passes the events on and leaves none.
  void report(std::vector<LinkEvent>& events);
  /// Whether so much waits to be taken that no more should be read.
  [[nodiscard]] bool isFull() const;
  /// Around what may hold the thread up for long. `endHoldUp` returns false when the thread must
  /// end without a further word.
  void beginHoldUp();
  [[nodiscard]] bool endHoldUp();

 private:
  MosquittoMailbox(std::function<void()> announce, int readEnd, int writeEnd);
  void wakeLocked();
  [[nodiscard]] bool isFullLocked() const;

  const std::function<void()> announce_;
  const int readEnd_, writeEnd_;
  mutable std::mutex mutex_;
  LinkOrders orders_;
  std::vector<LinkEvent> events_;
  std::size_t bytes_ = 0;  // Of the messages among them.
  bool announced_ = false;
  bool waiting_ = false;
  bool signalled_ = false;
  bool heldUp_ = false;
};

}  // namespace kestrin::gateway
