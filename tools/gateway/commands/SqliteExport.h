// Records as the table `records` of a new SQLite database.
//
// Threads: one. Lifetime: as RecordWriter.h says. Errors: one line for a person.
#pragma once

#include <memory>
#include <string>

#include "tools/gateway/commands/RecordWriter.h"

namespace kestrin::gateway {

/// Null, with the reason in `error`.
std::unique_ptr<RecordWriter> makeSqliteWriter(const std::string& path, std::string& error);

}  // namespace kestrin::gateway
