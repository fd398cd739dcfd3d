// The errors that this radio answers with.
#pragma once

#include "KestrinBLESDK/platform/NSError.h"

namespace kestrin::simulated {

// Of the attribute server; codes of the Bluetooth Core document, Vol 3, Part F, 3.4.1.1.
inline NSError readNotPermitted() { return {CBATTErrorDomain, 0x02, "Reading is not permitted."}; }
inline NSError requestNotSupported() {
  return {CBATTErrorDomain, 0x06, "The characteristic does not notify."};
}

// Of the link.
inline NSError operationCancelled() {
  return {CBErrorDomain, 5, "The connection was cancelled before the answer came."};
}
inline NSError connectionTimeout() {
  return {CBErrorDomain, 6, "The peripheral no longer answers; the link is lost."};
}
inline NSError peripheralDisconnected() {
  return {CBErrorDomain, 7, "The peripheral has ended the link."};
}
inline NSError radioNotPoweredOn() {
  return {CBErrorDomain, 1, "The radio is no longer powered on; the link is lost."};
}

}  // namespace kestrin::simulated
