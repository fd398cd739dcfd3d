// The model disk as SQLite sees it, registered as long as this lives.
//
// Locks and shared memory are those of one process: they are gone once nobody has the file open.
// Time passes only while SQLite sleeps.
//
// Threads: as the disk. Lifetime: the disk's. Errors: SQLite's codes; no exception leaves.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <string>

#include "gateway/support/ModelVfsDisk.h"

namespace kestrin::test {

class ModelVfs {
 public:
  ModelVfs(ModelVfsDisk& disk, std::uint64_t seed);
  ~ModelVfs();
  ModelVfs(const ModelVfs&) = delete;
  ModelVfs& operator=(const ModelVfs&) = delete;

  [[nodiscard]] const std::string& name() const { return name_; }

 private:
  class Connection;
  struct Sharing;
  struct Calls;

  int open(const char* path, sqlite3_file* file, int flags, int* flagsOut);
  int remove(const std::string& path, bool syncsFolder);
  std::shared_ptr<Sharing> sharingOf(const void* file);

  ModelVfsDisk& disk_;
  const std::string name_;
  sqlite3_vfs vfs_{};
  std::mt19937_64 random_;
  std::int64_t micros_ = 0;
  int lastError_ = 0;
  std::map<const void*, std::weak_ptr<Sharing>> sharings_;
};

}  // namespace kestrin::test
