// Which row over a line a label has, so that no label covers another or the leader of another.
//
// Threads: pure functions. Errors: none.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace kestrin::app {

/// From the leader, which stands at the beginning, to the end of the text.
struct LabelSpan {
  double begin = 0;
  double end = 0;
};

/// A row for each label, 0 next to the line. The labels come in the order of where they begin; of
/// two that would meet, the earlier one stands higher.
std::vector<std::size_t> labelRows(std::span<const LabelSpan> labels);

}  // namespace kestrin::app
