#include "tools/vreader/Orders.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <functional>
#include <optional>
#include <utility>

#include "tools/vreader/Numbers.h"

namespace kestrin::vreader {

namespace {

constexpr std::string_view kBlanks = " \t\r";

std::string_view trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// Takes the first word off `text`; empty when there is none.
std::string_view takeWord(std::string_view& text) {
  text = trimmed(text);
  const std::string_view word = text.substr(0, text.find_first_of(kBlanks));
  text.remove_prefix(word.size());
  text = trimmed(text);
  return word;
}

std::optional<bool> switchFrom(std::string_view word) {
  if (word == "on") return true;
  if (word == "off") return false;
  return std::nullopt;
}

std::optional<Bytes> bytesFrom(std::string_view digits) {
  if (digits.size() % 2 != 0) return std::nullopt;
  Bytes bytes;
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    std::uint8_t byte = 0;
    const char* const end = digits.data() + i + 2;
    const auto result = std::from_chars(digits.data() + i, end, byte, 16);
    if (result.ec != std::errc() || result.ptr != end) return std::nullopt;
    bytes.push_back(byte);
  }
  return bytes;
}

using Refusal = VirtualDevice::Refusal;
// What an order does once all of it has been read.
using Action = std::function<Refusal(VirtualDevice&)>;

// The words of an order behind its device. What is wrong with them is noted here.
struct Arguments {
  std::string_view left;
  std::string problem;

  std::string_view word() { return takeWord(left); }
  Action wrong(std::string why) {
    problem = std::move(why);
    return {};
  }
};

Action drop(Arguments& arguments) {
  const std::string_view word = arguments.word();
  constexpr auto kDefault = static_cast<std::uint8_t>(hci::ErrorCode::connectionTimeout);
  const auto reason = word.empty() ? kDefault : numberFrom<std::uint8_t>(word);
  if (!reason || *reason == 0) return arguments.wrong("a reason is a code from 0x01 to 0xff");
  return [reason = *reason](VirtualDevice& device) { return device.drop(reason); };
}

Action silent(Arguments& arguments) {
  const std::string_view word = arguments.word();
  if (const auto answers = numberFrom<std::uint32_t>(word); answers && *answers > 0) {
    return [answers = *answers](VirtualDevice& device) {
      device.setSilentAfter(answers);
      return Refusal();
    };
  }
  const auto on = switchFrom(word);
  if (!on) return arguments.wrong("say on, off, or after how many answers");
  return [on = *on](VirtualDevice& device) {
    device.setSilent(on);
    return Refusal();
  };
}

Action advertise(Arguments& arguments) {
  const auto on = switchFrom(arguments.word());
  if (!on) return arguments.wrong("say on or off");
  return [on = *on](VirtualDevice& device) {
    device.setAdvertising(on);
    return Refusal();
  };
}

Action vanish(Arguments&) {
  return [](VirtualDevice& device) {
    device.vanish();
    return Refusal();
  };
}

Action comeBack(Arguments&) {
  return [](VirtualDevice& device) {
    device.comeBack();
    return Refusal();
  };
}

Action rename(Arguments& arguments) {
  const std::string name(std::exchange(arguments.left, {}));
  return [name](VirtualDevice& device) {
    device.rename(name.empty() ? std::nullopt : std::optional(name));
    return Refusal();
  };
}

Action refuse(Arguments& arguments) {
  using Access = AttServer::Access;
  constexpr std::array<std::pair<std::string_view, Access>, 3> kAccesses{
      {{"reads", Access::read}, {"writes", Access::write}, {"subscriptions", Access::subscribe}}};
  const std::string_view what = arguments.word();
  const auto* const access =
      std::ranges::find(kAccesses, what, &std::pair<std::string_view, Access>::first);
  if (access == kAccesses.end()) return arguments.wrong("say reads, writes or subscriptions");
  const std::string_view word = arguments.word();
  const auto code = numberFrom<std::uint8_t>(word);
  if (word != "off" && (!code || *code == 0)) {
    return arguments.wrong("say an ATT error code from 0x01 to 0xff, or off");
  }
  return [which = access->second, code](VirtualDevice& device) {
    device.refuse(which, code);
    return Refusal();
  };
}

Action notify(Arguments& arguments) {
  const auto value = bytesFrom(arguments.word());
  if (!value) return arguments.wrong("a value is pairs of hexadecimal digits");
  return [value = *value](VirtualDevice& device) { return device.notify(value); };
}

Action notifyTx(Arguments& arguments) {
  const auto value = bytesFrom(arguments.word());
  if (!value) return arguments.wrong("a value is pairs of hexadecimal digits");
  return [value = *value](VirtualDevice& device) { return device.notifyTx(value); };
}

// What a burst may ask for: nobody can do anything else while values leave together.
constexpr std::uint32_t kMostInABurst = 100'000;
constexpr std::uint32_t kMostTogether = 1'000;

// Takes "LENGTH" or "LENGTH-LENGTH" into `wanted`; false when it is neither.
bool takeLengths(std::string_view word, Burst& wanted) {
  const auto dash = word.find('-');
  const auto first = numberFrom<std::size_t>(word.substr(0, dash));
  if (!first) return false;
  wanted.length = *first;
  if (dash == std::string_view::npos) return true;
  wanted.longest = numberFrom<std::size_t>(word.substr(dash + 1));
  return wanted.longest && *wanted.longest >= *first;
}

Action burst(Arguments& arguments) {
  Burst wanted;
  const auto count = numberFrom<std::uint32_t>(arguments.word());
  if (!count || *count == 0 || !takeLengths(arguments.word(), wanted)) {
    return arguments.wrong("say how many notifications and how long each is");
  }
  if (*count > kMostInABurst) {
    return arguments.wrong("a burst has at most " + std::to_string(kMostInABurst) +
                           " notifications");
  }
  wanted.count = *count;
  if (const auto word = arguments.word(); !word.empty()) {
    const auto together = numberFrom<std::uint32_t>(word);
    if (!together || *together == 0) return arguments.wrong("at least 1 leaves at a time");
    if (*together > kMostTogether) {
      return arguments.wrong("at most " + std::to_string(kMostTogether) + " leave at a time");
    }
    wanted.perEvent = *together;
  }
  if (const auto word = arguments.word(); !word.empty()) {
    const auto milliseconds = numberFrom<std::uint32_t>(word);
    if (!milliseconds) return arguments.wrong("the interval is a number of milliseconds");
    wanted.interval = std::chrono::milliseconds(*milliseconds);
  }
  return [wanted](VirtualDevice& device) { return device.burst(wanted); };
}

Action greet(Arguments& arguments) {
  constexpr std::size_t kLength = 20;
  const std::string_view word = arguments.word();
  std::optional<Burst> greeting;
  if (word != "off") {
    const auto count = numberFrom<std::uint32_t>(word);
    if (!count || *count == 0 || *count > kMostTogether) {
      return arguments.wrong("say how many, at most " + std::to_string(kMostTogether) + ", or off");
    }
    greeting = Burst{.count = *count, .length = kLength, .perEvent = *count};
  }
  return [greeting](VirtualDevice& device) {
    device.greet(greeting);
    return Refusal();
  };
}

struct Order {
  std::string_view verb;
  std::string_view arguments;
  std::string_view explanation;
  Action (*parse)(Arguments&);
  // Whether the device begins to advertise again by it.
  bool changesAdvertising;
};

constexpr std::array kOrders{
    Order{"drop", "DEVICE [REASON]",
          "end the link; the host is told the HCI error code REASON (0x08, a timeout)", &drop,
          false},
    Order{"silent", "DEVICE on|off|ANSWERS",
          "keep the link but answer nothing and notify nothing; with a number, after so many\n"
          "      answers more",
          &silent, false},
    Order{"vanish", "DEVICE",
          "go out of range: no advertisements; a link is lost after its supervision timeout",
          &vanish, false},
    Order{"return", "DEVICE", "come back into range", &comeBack, true},
    Order{"rename", "DEVICE [NAME]", "advertise another name, or none", &rename, true},
    Order{"advertise", "DEVICE on|off", "start or stop advertising", &advertise, true},
    Order{"refuse", "DEVICE reads|writes|subscriptions CODE|off",
          "answer with the ATT error CODE from now on", &refuse, false},
    Order{"notify", "DEVICE [HEX]", "notify one value, which may be empty", &notify, false},
    Order{"notify-tx", "DEVICE [HEX]", "the same on the characteristic that commands come on",
          &notifyTx, false},
    Order{"burst", "DEVICE COUNT LENGTH[-LENGTH] [TOGETHER [MILLISECONDS]]",
          "notify COUNT numbered values, TOGETHER (6) of them every MILLISECONDS (8); with two\n"
          "      LENGTHs each is a byte longer than the one before, then it begins again",
          &burst, false},
    Order{"greet", "DEVICE COUNT|off",
          "from now on notify COUNT numbered values at once whenever the host has subscribed",
          &greet, false},
};

}  // namespace

Orders::Outcome Orders::carryOut(std::string_view line) {
  std::string_view left = line;
  const std::string_view verb = takeWord(left);
  const auto* const order = std::ranges::find(kOrders, verb, &Order::verb);
  if (order == kOrders.end()) {
    return {false, "there is no order \"" + std::string(verb) + "\""};
  }
  const std::string_view id = takeWord(left);
  const auto device = find(id);
  if (!device) {
    return {false, "there is no device \"" + std::string(id) + "\"; there are " + deviceIds()};
  }
  Arguments arguments{left, {}};
  const Action action = order->parse(arguments);
  if (!action) return {false, arguments.problem};
  if (!arguments.left.empty()) {
    return {false, "\"" + std::string(arguments.left) + "\" is more than " +
                       std::string(order->verb) + " takes"};
  }
  if (auto reason = action(*device)) return {false, std::move(*reason)};
  if (order->changesAdvertising) controller_.advertisingChanged(*device);
  return {true, {}};
}

std::shared_ptr<VirtualDevice> Orders::find(std::string_view id) const {
  const auto found = std::ranges::find(devices_, id, &VirtualDevice::id);
  return found == devices_.end() ? nullptr : *found;
}

std::string Orders::deviceIds() const {
  std::string text;
  for (const auto& device : devices_) text += (text.empty() ? "" : ", ") + device->id();
  return text;
}

std::string Orders::help() {
  std::string text = "Orders, one per line:\n";
  for (const Order& order : kOrders) {
    text += "  " + std::string(order.verb) + " " + std::string(order.arguments) + "\n      " +
            std::string(order.explanation) + "\n";
  }
  return text;
}

}  // namespace kestrin::vreader
