#include <filesystem>
#include <memory>
#include <system_error>

#include "tools/gateway/commands/Commands.h"
#include "tools/gateway/commands/SqliteExport.h"
#include "tools/gateway/commands/TextExport.h"
#include "tools/gateway/log/LogReader.h"

namespace kestrin::gateway {
namespace {

std::unique_ptr<RecordWriter> writerFor(ExportForm form, const std::string& path,
                                        std::string& error) {
  switch (form) {
    case ExportForm::csv:
      return makeCsvWriter(path, error);
    case ExportForm::jsonLines:
      return makeJsonLinesWriter(path, error);
    case ExportForm::sqlite:
      break;
  }
  return makeSqliteWriter(path, error);
}

/// Everything that can be read; absent: it is in the file.
std::optional<std::string> copy(LogReader& reader, RecordWriter& writer, Output& output,
                                std::uint64_t& count) {
  Record record;
  for (; reader.next(record); ++count) {
    if (auto why = writer.write(reader.identity(), record)) return why;
  }
  for (const std::string& each : reader.takeFindings()) output.note(each);
  return writer.finish();
}

/// A name beside the file, so that the file is there whole or not at all.
std::optional<std::string> writeBeside(LogReader& reader, const ExportRequest& request,
                                       const std::string& fresh, Output& output,
                                       std::uint64_t& count) {
  std::error_code ignored;
  std::filesystem::remove(fresh, ignored);
  std::string error;
  const auto writer = writerFor(request.form, fresh, error);
  if (!writer) return error;
  return copy(reader, *writer, output, count);
}

std::optional<std::string> putInPlace(const ExportRequest& request, const std::string& fresh) {
  std::error_code failed;
  if (request.force) {
    std::filesystem::rename(fresh, request.file, failed);
  } else {
    // Fails where the name has been taken meanwhile.
    std::filesystem::create_hard_link(fresh, request.file, failed);
  }
  if (failed) return request.file + ": " + failed.message();
  std::filesystem::remove(fresh, failed);
  return std::nullopt;
}

}  // namespace

int exportLog(const ExportRequest& request, Output& output) {
  std::error_code ignored;
  if (!request.force && std::filesystem::exists(request.file, ignored)) {
    output.note(request.file + ": is there already; name another file, or add --force");
    return kFailure;
  }
  std::string error;
  const auto reader = LogReader::open(systemFiles(), request.folder, error);
  if (!reader) {
    output.note(error);
    return kFailure;
  }
  const std::string fresh = request.file + ".new";
  std::uint64_t count = 0;
  auto why = writeBeside(*reader, request, fresh, output, count);
  if (!why) why = putInPlace(request, fresh);
  if (why) {
    std::filesystem::remove(fresh, ignored);
    output.note(*why);
    return kFailure;
  }
  output.note(std::to_string(count) + " records of the log " + reader->identity() + " are in " +
              request.file);
  return kSuccess;
}

}  // namespace kestrin::gateway
