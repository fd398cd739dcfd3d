// A recording in a file, as the interfaces for other languages offer it.
//
// Threads: as RecordingStream.
// Lifetime: the file is closed with the drop.
// Errors: a file that cannot be opened or written makes a recording that is not whole.
#pragma once

#include <fstream>
#include <string>
#include <utility>

#include "KestrinBLESDK/recording/RecordingSink.h"
#include "KestrinBLESDK/recording/RecordingStream.h"

namespace kestrin::bindings {

class FileRecording final : public RecordingSink {
 public:
  FileRecording(const std::string& path, const std::string& program)
      : file_(path, std::ios::binary), stream_(file_, headerOf(program)) {}
  void take(const RecordedEvent& event) noexcept override { stream_.take(event); }
  [[nodiscard]] bool isWhole() const { return stream_.isWhole(); }

 private:
  static RecordingHeader headerOf(const std::string& program) {
    RecordingHeader header;
    header.program = program;
    return header;
  }

  std::ofstream file_;
  RecordingStream stream_;
};

}  // namespace kestrin::bindings
