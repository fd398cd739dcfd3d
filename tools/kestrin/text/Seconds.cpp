#include "tools/kestrin/text/Seconds.h"

namespace kestrin::app {

std::string millisecondsText(Time duration) {
  const auto count = std::chrono::round<std::chrono::milliseconds>(duration).count();
  const std::string fraction = std::to_string(count % 1000);
  return std::to_string(count / 1000) + '.' + std::string(3 - fraction.size(), '0') + fraction;
}

std::string secondsText(Time duration) {
  std::string text = millisecondsText(duration);
  text.erase(text.find_last_not_of('0') + 1);
  if (text.ends_with('.')) text.pop_back();
  return text;
}

}  // namespace kestrin::app
