// Room on the disk that is kept for the moment when it is full: what is forgotten has to be written
// down before its room can be used again.
//
// Threads: one. Lifetime: shares its file layer. Errors: none; without room there is no reserve.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "tools/gateway/files/FileLayer.h"

namespace kestrin::gateway {

class Reserve {
 public:
  /// Takes what an earlier run has left at the path.
  void begin(std::shared_ptr<FileLayer> files, std::string path, std::uint64_t size);
  /// Gives the room back. False: there was none.
  bool release();
  /// Takes room again where it is missing; not at every call, since the disk may still be full.
  void restore();
  /// Bytes on the disk.
  [[nodiscard]] std::uint64_t size() const { return isThere_ ? size_ : 0; }

 private:
  std::shared_ptr<FileLayer> files_;
  std::string path_;
  std::uint64_t size_ = 0;
  bool isThere_ = false;
  int callsToWait_ = 0;
};

}  // namespace kestrin::gateway
