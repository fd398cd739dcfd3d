// Records as text: a table of commas (RFC 4180), or JSON Lines, as payloads are.
//
// Threads: one. Lifetime: as RecordWriter.h says. Errors: one line for a person.
#pragma once

#include <memory>
#include <string>

#include "tools/gateway/commands/RecordWriter.h"

namespace kestrin::gateway {

/// Write to the new file `path`; null, with the reason in `error`.
std::unique_ptr<RecordWriter> makeCsvWriter(const std::string& path, std::string& error);
std::unique_ptr<RecordWriter> makeJsonLinesWriter(const std::string& path, std::string& error);

/// A field of a table of commas: in quotes where it has to be.
std::string csvField(const std::string& text);

}  // namespace kestrin::gateway
