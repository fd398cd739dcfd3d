#include "tools/kestrin/screen/TerminalKind.h"

// The database's header gives common words a meaning of its own, so it is included here alone.
#include <curses.h>
#include <term.h>

namespace kestrin::app {
namespace {

std::string& collected() {
  static std::string text;
  return text;
}

int collect(int character) {
  collected() += static_cast<char>(character);
  return character;
}

}  // namespace

bool canBePainted(int output) {
  int reason = 0;
  if (setupterm(nullptr, output, &reason) != OK) return false;
  const bool can = !controlSequence("cup").empty() && !controlSequence("clear").empty();
  del_curterm(cur_term);
  return can;
}

std::string controlSequence(const std::string& name) {
  const char* const sequence = tigetstr(name.c_str());
  // The second is how the library says that no sequence has this name.
  // NOLINTNEXTLINE(performance-no-int-to-ptr)
  if (sequence == nullptr || sequence == reinterpret_cast<const char*>(-1)) return "";
  collected().clear();
  tputs(sequence, 1, collect);  // Without the pauses that are written in between.
  return collected();
}

}  // namespace kestrin::app
