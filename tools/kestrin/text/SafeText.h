// Text from elsewhere, such as a name from the air, as it may be shown: on a terminal, in XML;
// how wide it is there, and how it is cut.
//
// Threads: pure functions.
// Errors: none. Any bytes are taken; those that are not UTF-8 are escaped one by one.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kestrin::app {

/// Safe for a terminal and a person: bytes that are not UTF-8 and characters that steer a terminal,
/// turn the direction of text around or cannot be seen as `\xNN`, a backslash as `\\`.
std::string printable(std::string_view text);

/// `printable`, as it may stand in XML, as an attribute too.
std::string xmlText(std::string_view text);

/// How many cells of a terminal it takes at most. What `printable` escapes counts as its escape
/// does; a backslash counts as one.
std::size_t cellsOf(std::string_view text);

/// `text`, or its beginning and `...`, in at most `cells` cells. Marks stay with their letter.
std::string fitted(std::string_view text, std::size_t cells);

/// `text` with spaces behind it up to `cells`, or cut.
std::string padded(std::string_view text, std::size_t cells);

/// `text`, or its beginning in at most `cells` cells with `...` behind it.
std::string shortened(std::string_view text, std::size_t cells);

}  // namespace kestrin::app
