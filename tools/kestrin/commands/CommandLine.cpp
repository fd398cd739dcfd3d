#include "tools/kestrin/commands/CommandLine.h"

#include <unistd.h>

#include <CLI/CLI.hpp>

#include <charconv>
#include <cmath>
#include <sstream>
#include <string>
#include <vector>

#include "tools/kestrin/commands/Commands.h"
#include "tools/kestrin/commands/RunOnRadio.h"
#include "tools/kestrin/commands/UnexpectedWord.h"
#include "tools/kestrin/console/Console.h"
#include "tools/kestrin/radio/RadioEnvironment.h"
#include "tools/kestrin/screen/ScreenLog.h"
#include "tools/kestrin/screen/TerminalScreen.h"
#include "tools/kestrin/text/SafeText.h"

namespace kestrin::app {
namespace {

constexpr char kHidden[] = "";  // CLI11's name for the group that the help leaves out.

struct Requests {
  DemoRequest demo;
  RadioRequest radio;
  ScanRequest scan;
  MonitorRequest monitor;
  SendRequest send;
  std::vector<std::string> frames;
  FrameRequest frame;
  std::string recording;
  TimelineRequest timeline;
  DoctorRequest doctor;
};

/// Accepts a span of time: zero or more seconds, a hundred years at most.
std::string checkSeconds(const std::string& text) {
  constexpr double kMost = 3.0e9;
  double seconds = -1;
  const char* const end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, seconds);
  const bool number = result.ec == std::errc() && result.ptr == end;
  if (number && std::isfinite(seconds) && seconds >= 0 && seconds <= kMost) return "";
  return "'" + printable(text) + "' is not a number of seconds, as in 2 or 0.5";
}

/// An empty NAME is most often a variable that a script forgot to set, and would fit every reader.
std::string checkName(const std::string& text) {
  return text.empty() ? "is empty; give a part of the reader's name" : "";
}

std::string checkRadio(const std::string& text) {
  if (text == "bluez" || text == "simulated") return "";
  return "'" + printable(text) + "' is not a radio; there are bluez and simulated";
}

void addRecord(CLI::App& command, std::optional<std::string>& file) {
  command
      .add_option("--record", file,
                  "Write everything that passes between application, radio and reader to a file, "
                  "one JSON object per line, for replay and timeline")
      ->type_name("FILE");
}

void addRadioOptions(CLI::App& command, RadioRequest& radio) {
  const auto chosen = [&radio](const std::string& name) {
    radio.kind = name == "simulated" ? RadioKind::simulated : RadioKind::bluez;
  };
  command
      .add_option_function<std::string>(
          "--radio", chosen,
          "bluez: the real one, over the system's Bluetooth daemon (default); simulated: virtual "
          "readers in this process")
      ->check(checkRadio)
      ->type_name("bluez|simulated");
  command.add_option("--adapter", radio.adapter, "The adapter of the real radio, as in hci0")
      ->type_name("NAME");
  command.add_flag("--log", radio.log, "Show the library's log on standard error");
  command.add_flag("--virtual-time", radio.virtualTime, "For tests")->group(kHidden);
  addRecord(command, radio.record);
}

void addJson(CLI::App& command, bool& json) {
  command.add_flag("--json", json, "Print one JSON object per line, for programs that read it");
}

void addSearchTimeout(CLI::App& command, double& timeout) {
  command
      .add_option("--timeout", timeout,
                  "Give up when the reader is not found within this time, or found and not plugged "
                  "in within as long again")
      ->check(checkSeconds)
      ->type_name("SECONDS")
      ->capture_default_str();
}

void addDemo(CLI::App& app, Requests& requests) {
  CLI::App* const command = app.add_subcommand(
      "demo", "Do the main job on the simulated radio and print a timeline of it");
  command->add_flag("--virtual-time", requests.demo.virtualTime,
                    "End at once: time passes only on the timeline");
  command->add_flag("--log", requests.demo.log, "Show the library's log on standard error");
  addRecord(*command, requests.demo.record);
  command->footer("Example:\n  kestrin demo --virtual-time");
}

void addScan(CLI::App& app, Requests& requests) {
  CLI::App* const command = app.add_subcommand(
      "scan", "Print the readers in range, one line each: name, tab, identifier");
  command
      ->add_option("--for", requests.scan.duration, "End after this time (else when interrupted)")
      ->check(checkSeconds)
      ->type_name("SECONDS");
  addJson(*command, requests.scan.json);
  addRadioOptions(*command, requests.radio);
  command->footer(
      "The radio's state is told on standard error.\n\nExamples:\n"
      "  kestrin scan --for 5\n  kestrin scan --radio simulated");
}

void addMonitor(CLI::App& app, Requests& requests) {
  CLI::App* const command =
      app.add_subcommand("monitor", "Connect to a reader and show what it sends until interrupted");
  command
      ->add_option("NAME", requests.monitor.name,
                   "A part of the reader's name, where case counts, or its identifier; left out: "
                   "the one reader in range")
      ->check(checkName);
  addSearchTimeout(*command, requests.monitor.timeout);
  command->add_option("--for", requests.monitor.duration, "For tests")
      ->check(checkSeconds)
      ->group(kHidden);
  addJson(*command, requests.monitor.json);
  addRadioOptions(*command, requests.radio);
  command->footer(
      "On a terminal a live screen; else READER, PLUGGED, UNPLUGGED and FRAME lines. A lost link "
      "is\n"
      "made again.\n\nExamples:\n"
      "  kestrin monitor KVR-0417\n  kestrin monitor TQM --radio simulated");
}

void addSend(CLI::App& app, Requests& requests) {
  CLI::App* const command = app.add_subcommand(
      "send", "Connect to a reader, send frames and print the frames that arrive");
  command
      ->add_option("NAME", requests.send.name,
                   "A part of the reader's name, where case counts, or its identifier")
      ->required()
      ->check(checkName);
  command
      ->add_option("FRAME", requests.frames,
                   "Whole frames in hexadecimal, CRC included, as `kestrin frame` prints them")
      ->required();
  command->add_option("--for", requests.send.duration, "Listen this long after the last frame")
      ->check(checkSeconds)
      ->type_name("SECONDS")
      ->capture_default_str();
  addSearchTimeout(*command, requests.send.timeout);
  addJson(*command, requests.send.json);
  addRadioOptions(*command, requests.radio);
  command->footer(
      "Prints READER, PLUGGED, SENT, FRAME and UNPLUGGED lines.\n\nExamples:\n"
      "  kestrin send KVR-0417 BB00030001B17E6597\n"
      "  kestrin send KVR-0417 --radio simulated \"$(kestrin frame 00 03 B1)\"");
}

void addFrame(CLI::App& app, Requests& requests) {
  CLI::App* const command = app.add_subcommand("frame", "Print a whole frame, CRC included");
  command->add_option("TYPE", requests.frame.type, "The message type, 00 for commands")->required();
  command->add_option("CODE", requests.frame.code, "The command's code")->required();
  command->add_option("PAYLOAD", requests.frame.payload, "The payload; none if left out");
  command->footer("All in hexadecimal.\n\nExample:\n  kestrin frame 00 03 B1");
}

void addReplay(CLI::App& app, Requests& requests) {
  CLI::App* const command = app.add_subcommand(
      "replay", "Feed recorded arrivals to the assembler and print what comes of them");
  command->add_option("FILE", requests.recording, "The recording, - for standard input")
      ->required();
  command->footer(
      "Input: what --record has written, or one arrival per line in hexadecimal; an empty line\n"
      "is an arrival of no bytes, a line that starts with # a comment. Output: LOG and FRAME "
      "lines.\n\nExamples:\n"
      "  kestrin replay recording.txt\n"
      "  echo 'BB 01 03 00 01 B1 7E 20 37' | kestrin replay -");
}

void addTimeline(CLI::App& app, Requests& requests) {
  CLI::App* const command =
      app.add_subcommand("timeline", "Draw a recorded conversation as an SVG picture");
  TimelineRequest& request = requests.timeline;
  command->add_option("FILE", request.file, "What --record has written, - for standard input")
      ->required();
  command->add_option("--output", request.output, "The file for the picture (else standard output)")
      ->type_name("FILE");
  command->add_flag("--sequence", request.sequence,
                    "Draw who talks to whom, in order, instead of when");
  command->add_option("--from", request.from, "Leave out what was before")
      ->check(checkSeconds)
      ->type_name("SECONDS");
  command->add_option("--to", request.to, "Leave out what was after")
      ->check(checkSeconds)
      ->type_name("SECONDS");
  command->footer(
      "Examples:\n  kestrin demo --virtual-time --record demo.jsonl\n"
      "  kestrin timeline demo.jsonl --output demo.svg\n"
      "  kestrin timeline --sequence demo.jsonl --to 3 --output link-up.svg");
}

void addDoctor(CLI::App& app, Requests& requests) {
  CLI::App* const command = app.add_subcommand(
      "doctor", "Look at what the real radio needs of this machine and say what to do");
  command->add_option("--adapter", requests.doctor.adapter, "The adapter to be used, as in hci0")
      ->type_name("NAME");
  command->footer(
      "Changes nothing. The exit status is 0 when a scan would work, else 1.\n\nExample:\n"
      "  kestrin doctor");
}

/// On a terminal a monitor shows a screen, with the log on it unless that goes somewhere else.
void askForScreen(TerminalScreen& screen, Requests& requests) {
  requests.monitor.screen = &screen;
  if (!requests.radio.log) return;
  const bool logIsSeen = ::isatty(STDERR_FILENO) == 1;
  requests.monitor.log = std::make_shared<ScreenLog>(logIsSeen ? nullptr : logSink(true));
  requests.radio.logTo = requests.monitor.log;
}

int run(const std::string& command, Requests& requests, Console& console) {
  if (command == "demo") return runDemo(requests.demo, console);
  if (command == "frame") return runFrame(requests.frame, console);
  if (command == "replay") return runReplay(requests.recording, console);
  if (command == "timeline") return runTimeline(requests.timeline, console);
  if (command == "doctor") return runDoctor(requests.doctor, console);
  if (command == "send" && !readFrames(requests.frames, requests.send, console)) {
    return kWrongUsage;
  }
  TerminalScreen screen(STDIN_FILENO, STDOUT_FILENO);
  if (command == "monitor" && !requests.monitor.json && screen.isPossible())
    askForScreen(screen, requests);
  return runOnRadio(command, requests.radio, screen, console, [&](RadioEnvironment& environment) {
    if (command == "scan") return runScan(requests.scan, environment, console);
    if (command == "monitor") return runMonitor(requests.monitor, environment, console);
    return runSend(requests.send, environment, console);
  });
}

/// The options of a command that its help shows.
std::vector<std::string> optionsOf(const CLI::App& command) {
  std::vector<std::string> names;
  for (const CLI::Option* option : command.get_options()) {
    if (option->get_positional() || option->get_group() == kHidden) continue;
    for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
  }
  return names;
}

KnownCommand known(const CLI::App& command) { return {command.get_name(), optionsOf(command)}; }

std::string unexpectedInWords(const CLI::App& app, const CLI::App* command,
                              const std::string& typed) {
  const auto all = app.get_subcommands({});
  std::vector<KnownCommand> commands;
  commands.reserve(all.size());
  for (const CLI::App* each : all) commands.push_back(known(*each));
  return tellUnexpected(commands, known(command != nullptr ? *command : app), command != nullptr,
                        typed);
}

/// Help and version are not errors; everything else is wrong usage, told in one line.
int tellParseResult(const CLI::App& app, const CLI::ParseError& error, Console& console) {
  if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
    std::ostringstream text;
    app.exit(error, text, text);
    std::string shown = text.str();
    while (shown.ends_with('\n')) shown.pop_back();
    console.line(shown);
    return finishOutput(console);
  }
  const std::vector<CLI::App*> commands = app.get_subcommands();
  // What was not expected says more than what is missing because of it.
  const std::vector<std::string> unexpected = app.remaining(true);
  std::string text = error.what();
  const bool early = commands.empty() || !app.remaining(false).empty();
  if (!unexpected.empty()) {
    text = unexpectedInWords(app, early ? nullptr : commands.front(), unexpected.front());
  } else if (commands.empty()) {
    text = "a command is missing";
  }
  const std::string place = early ? "kestrin" : "kestrin " + commands.front()->get_name();
  console.note(printable(text) + " (" + place + " --help tells more)");
  return kWrongUsage;
}

}  // namespace

int runCommandLine(int argumentCount, const char* const* arguments, Console& console) {
  Requests requests;
  CLI::App app("Works a handheld RFID reader over Bluetooth Low Energy.", "kestrin");
  app.set_version_flag("--version", "kestrin " KESTRIN_VERSION);
  // Exactly one, so that a command's own arguments are never taken for a further command.
  app.require_subcommand(1);
  addDemo(app, requests);
  addScan(app, requests);
  addMonitor(app, requests);
  addSend(app, requests);
  addFrame(app, requests);
  addReplay(app, requests);
  addTimeline(app, requests);
  addDoctor(app, requests);
  app.footer(
      "Examples:\n  kestrin demo\n  kestrin scan --for 5\n  kestrin monitor KVR-0417\n"
      "  kestrin send KVR-0417 BB00030001B17E6597\n  kestrin frame 00 03 B1\n"
      "  kestrin replay recording.txt\n  kestrin timeline recording.jsonl --output link.svg\n"
      "  kestrin doctor\n\n"
      "Without a reader at hand: add --radio simulated to scan, monitor and send.\n"
      "Exit status: 0 done, 1 failed, 2 wrong usage.");
  try {
    app.parse(argumentCount, arguments);
  } catch (const CLI::ParseError& error) {
    return tellParseResult(app, error, console);
  }
  return run(app.get_subcommands().front()->get_name(), requests, console);
}

int finishOutput(Console& console) {
  console.flush();
  if (!console.outputError()) return kSuccess;
  console.note("standard output: " + console.outputError()->message());
  return kFailure;
}

}  // namespace kestrin::app
