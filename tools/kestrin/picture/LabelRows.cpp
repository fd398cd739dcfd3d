#include "tools/kestrin/picture/LabelRows.h"

#include <algorithm>

namespace kestrin::app {

std::vector<std::size_t> labelRows(std::span<const LabelSpan> labels) {
  std::vector<std::size_t> rows(labels.size(), 0);
  // From the right: over everything that begins within the label it must be higher, since the
  // leaders of those go down from their own rows.
  for (std::size_t i = labels.size(); i > 0; --i) {
    const std::size_t label = i - 1;
    for (std::size_t later = i; later < labels.size(); ++later) {
      if (labels[later].begin > labels[label].end) break;
      rows[label] = std::max(rows[label], rows[later] + 1);
    }
  }
  return rows;
}

}  // namespace kestrin::app
