#include "kestrin/TerminalEmulator.h"

#include <cstdlib>

namespace kestrin::app::test {

TerminalEmulator::TerminalEmulator(std::size_t columns, std::size_t rows) { resize(columns, rows); }

void TerminalEmulator::resize(std::size_t columns, std::size_t rows) {
  columns_ = columns;
  cells_.resize(rows);
  for (auto& row : cells_) row.resize(columns, " ");
}

void TerminalEmulator::take(std::string_view text) {
  unfinished_ += text;
  std::string_view left = unfinished_;
  while (!left.empty()) {
    if (left.front() == '\x1b') {
      const std::size_t length = takeSequence(left);
      if (length == 0) break;
      left.remove_prefix(length);
      continue;
    }
    const auto first = static_cast<unsigned char>(left.front());
    const std::size_t length = first < 0xC0 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    if (length > left.size()) break;
    put(left.substr(0, length));
    left.remove_prefix(length);
  }
  unfinished_ = std::string(left);
}

/// The length of the sequence at the beginning of `text`, 0 when its end has not come yet.
std::size_t TerminalEmulator::takeSequence(std::string_view text) {
  if (text.size() < 2) return 0;
  if (text[1] != '[') {
    strange_ += text.substr(0, 2);
    return 2;
  }
  for (std::size_t i = 2; i < text.size(); ++i) {
    if (text[i] < '@' || text[i] > '~') continue;
    control(text.substr(2, i - 2), text[i]);
    return i + 1;
  }
  return 0;
}

void TerminalEmulator::control(std::string_view parameters, char final) {
  if (final == 'h' || final == 'l') {
    mode(parameters, final == 'h');
  } else if (final == 'm') {
    styled_ = styled_ || parameters != "0";
  } else if (final == 'H') {
    row_ = parameters.empty() ? 0 : std::strtoul(std::string(parameters).c_str(), nullptr, 10) - 1;
    column_ = 0;
  } else if (final == 'K') {
    if (row_ < cells_.size()) {
      for (std::size_t i = column_; i < columns_; ++i) cells_[row_][i] = " ";
    }
  } else if (final == 'J' && parameters == "2") {
    for (auto& row : cells_) row.assign(columns_, " ");
  } else {
    strange_.append(parameters) += final;
  }
}

void TerminalEmulator::mode(std::string_view parameters, bool on) {
  if (parameters == "?1049") {
    secondScreen_ = on;
  } else if (parameters == "?25") {
    cursor_ = on;
  } else if (parameters == "?7") {
    wraps_ = on;
  } else {
    strange_ += parameters;
  }
}

void TerminalEmulator::put(std::string_view letter) {
  if (!secondScreen_) {
    outside_ += letter;
    return;
  }
  const auto first = static_cast<unsigned char>(letter.front());
  if (letter.size() == 1 && (first < 0x20 || first >= 0x7F)) {
    strange_ += letter;
  } else if (row_ < cells_.size() && column_ < columns_) {
    cells_[row_][column_++] = letter;
  } else {
    ++cut_;
  }
}

std::vector<std::string> TerminalEmulator::rows() const {
  std::vector<std::string> rows;
  for (const auto& cells : cells_) {
    std::string row;
    for (const std::string& cell : cells) row += cell;
    row.erase(row.find_last_not_of(' ') + 1);
    rows.push_back(row);
  }
  return rows;
}

std::string TerminalEmulator::text() const {
  std::string text;
  for (const std::string& row : rows()) text += row + '\n';
  return text;
}

}  // namespace kestrin::app::test
