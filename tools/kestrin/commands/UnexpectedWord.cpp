#include "tools/kestrin/commands/UnexpectedWord.h"

#include <algorithm>

#include "tools/NearestWord.h"

namespace kestrin::app {
namespace {

std::string suggestion(const std::string& typed, const std::vector<std::string>& known) {
  const std::string meant = tools::nearestWord(typed, known);
  return meant.empty() ? "" : "; did you mean " + meant + "?";
}

/// The commands that have an option, as in `monitor and send`; empty if none has.
std::string commandsWith(const std::vector<KnownCommand>& commands, const std::string& option) {
  std::string text;
  for (const KnownCommand& command : commands) {
    if (std::find(command.options.begin(), command.options.end(), option) ==
        command.options.end()) {
      continue;
    }
    text += (text.empty() ? "" : ", ") + command.name;
  }
  if (const std::size_t last = text.rfind(", "); last != std::string::npos) {
    text.replace(last, 2, " and ");
  }
  return text;
}

}  // namespace

std::string tellUnexpected(const std::vector<KnownCommand>& commands, const KnownCommand& here,
                           bool inCommand, const std::string& typed) {
  if (!typed.starts_with('-')) {
    if (inCommand) return "'" + typed + "' is not expected here";
    std::vector<std::string> names;
    names.reserve(commands.size());
    for (const KnownCommand& command : commands) names.push_back(command.name);
    return "'" + typed + "' is not a command" + suggestion(typed, names);
  }
  const std::string option = typed.substr(0, typed.find('='));
  const std::string owners = commandsWith(commands, option);
  if (!inCommand && !owners.empty()) {
    return "'" + option + "' is written behind a command; it belongs to " + owners;
  }
  const std::string text = "'" + option + "' is not an option of " + here.name;
  // Another command's option is not a mistyped one.
  return owners.empty() ? text + suggestion(option, here.options) : text + ", but of " + owners;
}

}  // namespace kestrin::app
