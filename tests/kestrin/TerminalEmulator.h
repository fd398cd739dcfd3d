// What a terminal would show of what was written to it: as much of one as the live screen needs.
//
// Threads: one at a time. Lifetime: plain values.
// Errors: a control character or sequence that it does not know is kept, see `strange`.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kestrin::app::test {

class TerminalEmulator {
 public:
  explicit TerminalEmulator(std::size_t columns = 80, std::size_t rows = 24);

  /// Takes text in pieces of any size.
  void take(std::string_view text);
  void resize(std::size_t columns, std::size_t rows);

  /// The screen's rows without the spaces at their ends.
  [[nodiscard]] std::vector<std::string> rows() const;
  /// All of them, a line end behind each.
  [[nodiscard]] std::string text() const;
  [[nodiscard]] bool shows(std::string_view text) const {
    return this->text().find(text) != std::string::npos;
  }
  [[nodiscard]] bool isSecondScreen() const { return secondScreen_; }
  [[nodiscard]] bool hasCursor() const { return cursor_; }
  [[nodiscard]] bool wraps() const { return wraps_; }
  [[nodiscard]] bool wasStyled() const { return styled_; }
  /// How the letter of a cell looks: the parameters of its style, as in `1;32`; empty for plain.
  [[nodiscard]] const std::string& styleAt(std::size_t row, std::size_t column) const {
    return cells_.at(row).at(column).style;
  }
  /// What came outside the second screen, plain text.
  [[nodiscard]] const std::string& outside() const { return outside_; }
  /// The sequences that it does not know.
  [[nodiscard]] const std::string& strange() const { return strange_; }
  /// Letters that were written behind the last column.
  [[nodiscard]] std::size_t cutLetters() const { return cut_; }

 private:
  struct Cell {
    std::string letter = " ";
    std::string style;
  };
  using Row = std::vector<Cell>;
  using Parameters = std::vector<std::size_t>;

  std::size_t takeSequence(std::string_view text);
  void control(std::string_view text, char final);
  bool moved(const Parameters& parameters, char final);
  bool changed(const Parameters& parameters, char final);
  void mode(std::string_view parameters, bool on);
  void style(const Parameters& parameters);
  void put(std::string_view letter);
  /// Moves rows of the scrolling region, from `first` on, up or down; blank ones come after them.
  void scroll(std::size_t first, std::size_t count, bool up);
  void steer(char character);
  /// Blank cells from a place of the current row on, as many as there are.
  void erase(std::size_t column, std::size_t count);

  std::vector<Row> cells_;
  std::string style_;
  std::string lastLetter_;
  std::size_t regionBegin_ = 0;
  std::size_t regionEnd_ = 0;
  std::size_t columns_ = 0;
  std::size_t row_ = 0;
  std::size_t column_ = 0;
  bool secondScreen_ = false;
  bool cursor_ = true;
  bool wraps_ = true;
  bool styled_ = false;
  std::size_t cut_ = 0;
  std::string unfinished_;
  std::string outside_;
  std::string strange_;
};

}  // namespace kestrin::app::test
