// One connection to the broker, from the look-up of its name to its end.
//
// Threads: `runLink` is the body of the connection's thread; it returns when the connection has
// ended or the mailbox asks for it.
// Lifetime: shares the mailbox.
// Errors: the last thing reported is a `LinkDown`, unless the end was asked for.
#pragma once

#include "tools/gateway/broker/MosquittoClient.h"
#include "tools/gateway/broker/MosquittoMailbox.h"

#include <memory>
#include <thread>

namespace kestrin::gateway {

void runLink(const LinkSettings& settings, MosquittoMailbox& mailbox);

/// `runLink` on a thread of its own, which no signal interrupts. Absent when the system has none
/// left.
std::optional<std::thread> startLink(LinkSettings settings,
                                     std::shared_ptr<MosquittoMailbox> mailbox);

}  // namespace kestrin::gateway
