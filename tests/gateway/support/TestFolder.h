// A folder of a test's own, removed with everything in it.
//
// Threads: one.
// Lifetime: the folder lives as long as the object.
// Errors: a folder or file that cannot be made fails the test by an exception of the library's.
#pragma once

#include <string>

namespace kestrin::gateway {

class TestFolder {
 public:
  TestFolder();
  ~TestFolder();
  TestFolder(const TestFolder&) = delete;
  TestFolder& operator=(const TestFolder&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] std::string pathOf(const std::string& name) const { return path_ + "/" + name; }
  /// Writes a file and returns where it is.
  std::string write(const std::string& name, const std::string& text) const;

 private:
  std::string path_;
};

}  // namespace kestrin::gateway
