// Frames, built and taken apart.
#include <cstring>
#include <span>
#include <string>

#include "FrameStruct.h"
#include "Guard.h"
#include "KestrinBLESDK/RcpFrame.h"
#include "StructSize.h"

using namespace kestrin::c;

kestrin_status kestrin_build_frame(uint8_t type, uint8_t code, const uint8_t* payload,
                                   size_t payload_length, uint8_t* frame, size_t capacity,
                                   size_t* length) {
  return guarded([&] {
    if (length == nullptr) return fail(KESTRIN_INVALID_ARGUMENT, "the length is NULL");
    if ((payload == nullptr && payload_length > 0) || (frame == nullptr && capacity > 0)) {
      return fail(KESTRIN_INVALID_ARGUMENT, payload == nullptr && payload_length > 0
                                                ? "the payload is NULL"
                                                : "the memory for the frame is NULL");
    }
    kestrin::NSError error;
    const auto built =
        kestrin::buildRcpFrame(type, code, std::span(payload, payload_length), &error);
    if (!built) return fail(KESTRIN_INVALID_ARGUMENT, error.text.c_str());
    *length = built->length();
    if (frame == nullptr || capacity < built->length()) {
      const std::string text = "the frame has " + std::to_string(built->length()) +
                               " bytes, the memory for it " + std::to_string(capacity);
      return fail(KESTRIN_TOO_SMALL, text.c_str());
    }
    std::memcpy(frame, built->bytes(), built->length());
    return KESTRIN_OK;
  });
}

kestrin_status kestrin_frame_parse(const uint8_t* bytes, size_t length, kestrin_frame* frame,
                                   kestrin_frame_error* error) {
  return guarded([&] {
    if (bytes == nullptr && length > 0) return fail(KESTRIN_INVALID_ARGUMENT, "the bytes are NULL");
    if (frame == nullptr) return fail(KESTRIN_INVALID_ARGUMENT, "the frame is NULL");
    if (!readStruct(*frame, "kestrin_frame", {sizeof(kestrin_frame)}) ||
        (error != nullptr &&
         !readStruct(*error, "kestrin_frame_error", {sizeof(kestrin_frame_error)}))) {
      return KESTRIN_INVALID_ARGUMENT;
    }
    kestrin::RcpFrameError why;
    const auto parsed = kestrin::parseRcpFrame(std::span(bytes, length), &why);
    if (parsed) {
      *frame = frameOf(*parsed);
      return KESTRIN_OK;
    }
    if (error != nullptr) {
      error->field = static_cast<kestrin_frame_field>(why.field);
      error->offset = why.offset;
      error->incomplete = why.incomplete;
    }
    return fail(KESTRIN_NO_FRAME, ("not a whole frame: " + why.text).c_str());
  });
}
