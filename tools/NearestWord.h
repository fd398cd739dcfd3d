// The known word that a mistyped one was probably meant to be.
//
// Threads: pure functions. Errors: none.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kestrin::tools {

/// How many letters have to be left out, added, changed or exchanged with their neighbour to make
/// `b` of `a`, none of them twice.
inline std::size_t lettersApart(std::string_view a, std::string_view b) {
  std::vector<std::size_t> beforeLast(b.size() + 1);
  std::vector<std::size_t> last(b.size() + 1);
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    beforeLast.swap(last);
    last.swap(row);
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t change = a[i - 1] == b[j - 1] ? 0 : 1;
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + change});
      const bool exchanged = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
      if (exchanged) row[j] = std::min(row[j], beforeLast[j - 2] + 1);
    }
  }
  return row[b.size()];
}

/// The one of `known` that is nearest to `word`, minus signs in front aside; empty when none is
/// near: a third of its letters may differ. The beginning of a word is near, too.
inline std::string nearestWord(std::string_view word, const std::vector<std::string>& known) {
  const auto bare = [](std::string_view text) {
    return text.substr(std::min(text.find_first_not_of('-'), text.size()));
  };
  const std::string_view typed = bare(word);
  constexpr std::size_t kLongest = 64;  // What is longer is nobody's option.
  if (typed.empty() || typed.size() > kLongest) return "";
  std::string nearest;
  std::size_t least = kLongest;
  for (const std::string& candidate : known) {
    const std::string_view name = bare(candidate);
    const bool begun = typed.size() > 1 && name.starts_with(typed);
    const std::size_t apart = begun ? 1 : lettersApart(typed, name);
    if (apart * 3 > std::max(typed.size(), name.size()) || apart >= least) continue;
    least = apart;
    nearest = candidate;
  }
  return nearest;
}

}  // namespace kestrin::tools
