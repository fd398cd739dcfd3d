// Runs a fuzzer over inputs that are kept: every file of the folders and every file that the
// arguments name. So the corpus is part of every test run, whatever the compiler and the sanitizer.
//
// Exit status: 0 when every input ran, 1 when there was none or one could not be read, 2 without
// arguments. A finding ends the process; the last name printed is the input's.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>

#include "fuzz/Fuzzing.h"

namespace kestrin::fuzz {
namespace {

using Path = std::filesystem::path;

/// The files of a folder in order of their names, or the file itself.
std::vector<Path> inputsOf(const Path& place) {
  if (!std::filesystem::is_directory(place)) return {place};
  std::vector<Path> files;
  for (const auto& entry : std::filesystem::directory_iterator(place)) {
    if (entry.is_regular_file()) files.push_back(entry.path());
  }
  std::ranges::sort(files);
  return files;
}

std::optional<Bytes> read(const Path& file) {
  std::ifstream stream(file, std::ios::binary);
  if (!stream) return std::nullopt;
  Bytes bytes{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
  if (stream.bad()) return std::nullopt;
  return bytes;
}

int replay(const std::vector<Path>& places) {
  std::size_t count = 0;
  for (const Path& place : places) {
    const auto inputs = inputsOf(place);
    if (inputs.empty()) {
      std::fprintf(stderr, "%s: there is no input in it\n", place.c_str());
      return 1;
    }
    for (const Path& input : inputs) {
      std::printf("%s\n", input.c_str());
      std::fflush(stdout);
      const auto bytes = read(input);
      if (!bytes) {
        std::fprintf(stderr, "%s: cannot be read\n", input.c_str());
        return 1;
      }
      LLVMFuzzerTestOneInput(bytes->data(), bytes->size());
      ++count;
    }
  }
  std::printf("%zu inputs\n", count);
  return 0;
}

}  // namespace
}  // namespace kestrin::fuzz

int main(int argumentCount, char** arguments) {
  if (argumentCount < 2) {
    std::fprintf(stderr, "usage: %s FOLDER-OR-FILE...\n", arguments[0]);
    return 2;
  }
  return kestrin::fuzz::replay({arguments + 1, arguments + argumentCount});
}
