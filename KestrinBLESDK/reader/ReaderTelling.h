// How a reader calls its handlers.
#pragma once

#include "KestrinBLESDK/reader/ReaderCore.h"

namespace kestrin {

/// Calls a handler, which may drop the reader: nothing of `this` but `owner_` and `phase_` may be
/// relied on afterwards.
template <class Handler, class... Arguments>
void Reader::Core::tell(Handler ReaderHandlers::*which, const Arguments&... arguments) {
  if (owner_ == nullptr) return;
  const auto handlers = handlers_;
  const auto& handler = (*handlers).*which;
  if (handler) handler(*owner_, arguments...);
}

}  // namespace kestrin
