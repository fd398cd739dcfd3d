// Structs that the caller fills. Each begins with its size as the caller was compiled with it, so
// that later versions of the library can add members at the end and know which of them are there.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <optional>
#include <string>

#include "Guard.h"

namespace kestrin::c {

/// The caller's struct, in which members that the caller does not know are zero. `sizes` are those
/// that the struct has had: for an earlier version the offset of the first member after it, for
/// this one its sizeof. None with any other size; the error is kept.
template <class Struct>
std::optional<Struct> readStruct(const Struct& given, const char* name,
                                 std::initializer_list<std::size_t> sizes) {
  static_assert(offsetof(Struct, struct_size) == 0);
  // No more of it may be there.
  const std::size_t size = given.struct_size;
  if (std::find(sizes.begin(), sizes.end(), size) == sizes.end()) {
    const std::string type = name;
    const std::string text = type + ".struct_size is " + std::to_string(size) +
                             "; it is to be sizeof(" + type + "), which is " +
                             std::to_string(sizeof(Struct)) + " for this library";
    fail(KESTRIN_INVALID_ARGUMENT, text.c_str());
    return std::nullopt;
  }
  Struct known{};
  std::memcpy(&known, &given, size);
  known.struct_size = sizeof(Struct);
  return known;
}

}  // namespace kestrin::c
