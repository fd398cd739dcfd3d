// The system's journal, for lines with fields that `journalctl` can look for: KESTRIN_READER,
// KESTRIN_NUMBER and KESTRIN_REASON.
//
// Threads: one at a time.
// Lifetime: nothing is held.
// Errors: `writeToJournal` says whether the journal has taken the line.
#pragma once

#include "tools/gateway/core/Line.h"

#include <string>
#include <vector>

namespace kestrin::gateway {

/// Whether what is written to the descriptor goes to the journal, as $JOURNAL_STREAM says.
bool isJournal(int descriptor);

/// A line as the journal takes it: "NAME=value" each. Its texts may not be escaped any more.
std::vector<std::string> journalFields(const Line& line);

bool writeToJournal(const Line& line);

}  // namespace kestrin::gateway
