#include "kestrin/TerminalEmulator.h"

#include <algorithm>
#include <set>

namespace kestrin::app::test {
namespace {

/// Numbers between semicolons; 0 for one that is left out.
std::vector<std::size_t> numbersIn(std::string_view text) {
  std::vector<std::size_t> numbers(1);
  for (const char c : text) {
    if (c == ';') {
      numbers.push_back(0);
    } else {
      numbers.back() = numbers.back() * 10 + static_cast<std::size_t>(c - '0');
    }
  }
  return numbers;
}

/// Whether it stands on the letter in front of it: the commonest marks.
bool isMark(std::string_view letter) { return letter >= "\u0300" && letter <= "\u036f"; }

}  // namespace

TerminalEmulator::TerminalEmulator(std::size_t columns, std::size_t rows) { resize(columns, rows); }

void TerminalEmulator::resize(std::size_t columns, std::size_t rows) {
  columns_ = columns;
  cells_.resize(rows);
  for (Row& row : cells_) row.resize(columns);
  regionBegin_ = 0;
  regionEnd_ = rows;
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
  if (text[1] == '(') return text.size() < 3 ? 0 : 3;  // A set of letters.
  if (text[1] == 'M' && row_ == regionBegin_) {
    scroll(regionBegin_, 1, false);
    return 2;
  }
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

void TerminalEmulator::control(std::string_view text, char final) {
  if (text.starts_with('?') && (final == 'h' || final == 'l')) {
    mode(text, final == 'h');
    return;
  }
  const bool isPlain = std::all_of(text.begin(), text.end(),
                                   [](char c) { return c == ';' || (c >= '0' && c <= '9'); });
  if (isPlain) {
    const Parameters parameters = numbersIn(text);
    if (final == 'm') {
      style(parameters);
      return;
    }
    // Windows' titles and sizes, of which there are none here, and insertion, which is off.
    if (final == 't' || (final == 'l' && text == "4")) return;
    if (moved(parameters, final) || changed(parameters, final)) return;
  }
  strange_.append(text) += final;
}

/// Whether it was a movement of the cursor.
bool TerminalEmulator::moved(const Parameters& parameters, char final) {
  const std::size_t count = std::max<std::size_t>(parameters[0], 1);
  const std::size_t lastRow = cells_.empty() ? 0 : cells_.size() - 1;
  const std::size_t lastColumn = columns_ == 0 ? 0 : columns_ - 1;
  switch (final) {
    case 'A':
      row_ -= std::min(row_, count);
      return true;
    case 'B':
      row_ = std::min(row_ + count, lastRow);
      return true;
    case 'C':
      column_ = std::min(column_ + count, lastColumn);
      return true;
    case 'D':
      column_ -= std::min(column_, count);
      return true;
    case 'G':
      column_ = std::min(count - 1, lastColumn);
      return true;
    case 'd':
      row_ = std::min(count - 1, lastRow);
      return true;
    case 'H':
      row_ = std::min(count - 1, lastRow);
      column_ =
          parameters.size() < 2 || parameters[1] == 0 ? 0 : std::min(parameters[1] - 1, lastColumn);
      return true;
    default:
      return false;
  }
}

/// Whether it was a change of what is shown.
bool TerminalEmulator::changed(const Parameters& parameters, char final) {
  const std::size_t count = std::max<std::size_t>(parameters[0], 1);
  if (row_ >= cells_.size()) return false;
  Row& row = cells_[row_];
  const std::size_t at = std::min(column_, columns_);
  switch (final) {
    case 'J':
      if (parameters[0] == 1 || parameters[0] > 2) return false;
      if (parameters[0] == 0) erase(at, columns_);
      for (std::size_t i = parameters[0] == 2 ? 0 : row_ + 1; i < cells_.size(); ++i) {
        cells_[i].assign(columns_, {});
      }
      return true;
    case 'K':
      if (parameters[0] > 1) return false;
      if (parameters[0] == 0) erase(at, columns_);
      if (parameters[0] == 1) erase(0, at + 1);
      return true;
    case 'X':
      erase(at, count);
      return true;
    case 'P':
      row.erase(row.begin() + static_cast<std::ptrdiff_t>(at),
                row.begin() + static_cast<std::ptrdiff_t>(std::min(at + count, columns_)));
      row.resize(columns_);
      return true;
    case '@':
      row.insert(row.begin() + static_cast<std::ptrdiff_t>(at), count, {});
      row.resize(columns_);
      return true;
    case 'L':
    case 'M':
      scroll(row_, count, final == 'M');
      return true;
    case 'S':
    case 'T':
      scroll(regionBegin_, count, final == 'S');
      return true;
    case 'r':
      regionBegin_ = count - 1;
      regionEnd_ = parameters.size() < 2 || parameters[1] == 0
                       ? cells_.size()
                       : std::min(parameters[1], cells_.size());
      row_ = column_ = 0;
      return true;
    case 'b':
      for (std::size_t i = 0; i < count; ++i) put(lastLetter_);
      return true;
    default:
      return false;
  }
}

void TerminalEmulator::scroll(std::size_t first, std::size_t count, bool up) {
  for (std::size_t i = 0; i < count && first < regionEnd_; ++i) {
    const auto begin = cells_.begin() + static_cast<std::ptrdiff_t>(first);
    const auto end = cells_.begin() + static_cast<std::ptrdiff_t>(regionEnd_);
    std::rotate(begin, up ? begin + 1 : end - 1, end);
    cells_[up ? regionEnd_ - 1 : first].assign(columns_, {});
  }
}

void TerminalEmulator::erase(std::size_t column, std::size_t count) {
  for (std::size_t i = column; i < std::min(column + count, columns_); ++i) cells_[row_][i] = {};
}

void TerminalEmulator::style(const Parameters& parameters) {
  std::set<std::size_t> now;
  if (!style_.empty()) {
    for (const std::size_t number : numbersIn(style_)) now.insert(number);
  }
  for (const std::size_t number : parameters) {
    if (number == 0) now.clear();
    if (number == 22) std::erase_if(now, [](std::size_t old) { return old == 1 || old == 2; });
    if (number >= 30 && number <= 39) {
      std::erase_if(now, [](std::size_t old) { return old >= 30 && old <= 37; });
    }
    if ((number >= 1 && number <= 9) || (number >= 30 && number <= 37)) now.insert(number);
  }
  style_.clear();
  for (const std::size_t number : now) {
    style_ += (style_.empty() ? "" : ";") + std::to_string(number);
  }
  styled_ = styled_ || !style_.empty();
}

void TerminalEmulator::mode(std::string_view parameters, bool on) {
  if (parameters == "?1049") {
    secondScreen_ = on;
  } else if (parameters == "?25") {
    cursor_ = on;
  } else if (parameters == "?12") {
    // Whether the cursor blinks.
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
    steer(letter.front());
  } else if (isMark(letter) && row_ < cells_.size() && column_ > 0) {
    cells_[row_][column_ - 1].letter += letter;
  } else if (row_ < cells_.size() && column_ < columns_) {
    cells_[row_][column_++] = {std::string(letter), style_};
    lastLetter_ = letter;
  } else {
    ++cut_;
  }
}

/// A control character that moves the cursor. The program has seen to it that the system passes a
/// line feed on as it is.
void TerminalEmulator::steer(char character) {
  switch (character) {
    case '\b':
      column_ -= std::min<std::size_t>(column_, 1);
      break;
    case '\r':
      column_ = 0;
      break;
    case '\n':
      if (row_ + 1 == regionEnd_) {
        scroll(regionBegin_, 1, true);
      } else {
        row_ = std::min(row_ + 1, cells_.empty() ? 0 : cells_.size() - 1);
      }
      break;
    default:
      strange_ += character;
  }
}

std::vector<std::string> TerminalEmulator::rows() const {
  std::vector<std::string> rows;
  for (const auto& cells : cells_) {
    std::string row;
    for (const Cell& cell : cells) row += cell.letter;
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
