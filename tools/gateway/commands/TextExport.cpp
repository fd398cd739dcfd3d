#include "tools/gateway/commands/TextExport.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "tools/gateway/commands/Output.h"
#include "tools/gateway/commands/RecordRow.h"
#include "tools/gateway/message/Messages.h"

namespace kestrin::gateway {
namespace {

std::string withReason(const std::string& path, const std::error_code& why) {
  return path + ": " + why.message();
}

/// Lines of text in a file.
class LineWriter : public RecordWriter {
 public:
  LineWriter(std::string path, int descriptor) : path_(std::move(path)), descriptor_(descriptor) {}
  ~LineWriter() override { ::close(descriptor_); }

  std::optional<std::string> write(const LogIdentity& log, const Record& record) override {
    constexpr std::size_t kLargeWrite = 65536;
    held_ += lineFor(log, record);
    return held_.size() < kLargeWrite ? std::nullopt : flush();
  }
  std::optional<std::string> finish() override {
    if (auto why = flush()) return why;
    if (::fsync(descriptor_) == 0) return std::nullopt;
    return withReason(path_, std::error_code(errno, std::generic_category()));
  }

 protected:
  virtual std::string lineFor(const LogIdentity& log, const Record& record) = 0;
  void hold(const std::string& text) { held_ += text; }

 private:
  std::optional<std::string> flush() {
    const auto failed = writeAll(descriptor_, held_);
    held_.clear();
    if (!failed) return std::nullopt;
    return withReason(path_, *failed);
  }

  const std::string path_;
  const int descriptor_;
  std::string held_;
};

class CsvWriter final : public LineWriter {
 public:
  CsvWriter(std::string path, int descriptor) : LineWriter(std::move(path), descriptor) {
    std::string head;
    for (const std::string& name : columnNames()) head += (head.empty() ? "" : ",") + name;
    hold(head + "\r\n");
  }

 private:
  std::string lineFor(const LogIdentity& log, const Record& record) override {
    std::string line;
    for (const auto& column : columnsOf(rowOf(log, record))) {
      line += csvField(column.value_or("")) + ",";
    }
    line.pop_back();
    return line + "\r\n";
  }
};

class JsonLinesWriter final : public LineWriter {
 public:
  using LineWriter::LineWriter;

 private:
  std::string lineFor(const LogIdentity& log, const Record& record) override {
    return payloadOf(record, log, FrameFormat::json) + "\n";
  }
};

/// Below zero, with the reason in `error`, where it cannot be made.
int newFile(const std::string& path, std::string& error) {
  constexpr mode_t kMode = 0644;
  const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kMode);
  if (descriptor < 0) error = withReason(path, std::error_code(errno, std::generic_category()));
  return descriptor;
}

}  // namespace

std::string csvField(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  return quoted + "\"";
}

std::unique_ptr<RecordWriter> makeCsvWriter(const std::string& path, std::string& error) {
  const int descriptor = newFile(path, error);
  if (descriptor < 0) return nullptr;
  return std::make_unique<CsvWriter>(path, descriptor);
}

std::unique_ptr<RecordWriter> makeJsonLinesWriter(const std::string& path, std::string& error) {
  const int descriptor = newFile(path, error);
  if (descriptor < 0) return nullptr;
  return std::make_unique<JsonLinesWriter>(path, descriptor);
}

}  // namespace kestrin::gateway
