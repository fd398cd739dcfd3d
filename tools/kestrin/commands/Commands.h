// The commands of this application, one file each, and what they are told on the command line.
//
// Threads: each runs on the thread that calls it until it is done.
// Errors: each returns the exit status and says on the console what was wrong.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kestrin::app {

class Console;
class RadioEnvironment;
class ScreenLog;
class TerminalScreen;

/// Exit statuses. Wrong usage includes wrong hexadecimal text on the command line.
inline constexpr int kSuccess = 0;
inline constexpr int kFailure = 1;
inline constexpr int kWrongUsage = 2;

struct FrameRequest {
  std::string type;
  std::string code;
  std::string payload;
};
/// Prints the whole frame.
int runFrame(const FrameRequest& request, Console& console);

/// Feeds the recording in `file`, standard input for `-`, to a fresh manager's assembler and prints
/// what comes of it.
int runReplay(const std::string& file, Console& console);

struct TimelineRequest {
  /// The recording, standard input for `-`.
  std::string file;
  /// The file for the picture; absent: standard output.
  std::optional<std::string> output;
  /// Whether the picture shows who talks to whom instead of when.
  bool sequence = false;
  /// The part to be drawn, in seconds from the beginning.
  double from = 0;
  std::optional<double> to;
};
/// Draws a recording.
int runTimeline(const TimelineRequest& request, Console& console);

struct ScanRequest {
  /// Seconds; absent: until interrupted.
  std::optional<double> duration;
  /// Whether the output is JSON.
  bool json = false;
};
/// Prints the readers in range.
int runScan(const ScanRequest& request, RadioEnvironment& environment, Console& console);

struct MonitorRequest {
  std::string name;
  /// Seconds to find the reader, and again to get its link up.
  double timeout = 30;
  /// Seconds from plugged in; absent: until interrupted.
  std::optional<double> duration;
  /// Whether the output is JSON.
  bool json = false;
  /// Where it is shown as a live screen; null: as lines.
  TerminalScreen* screen = nullptr;
  /// The library's log on that screen, if it is wanted.
  std::shared_ptr<ScreenLog> log{};
};
/// Shows what a reader sends.
int runMonitor(const MonitorRequest& request, RadioEnvironment& environment, Console& console);

struct SendRequest {
  std::string name;
  std::vector<std::vector<std::uint8_t>> frames;
  /// Seconds to find the reader, and again to get its link up.
  double timeout = 30;
  /// Seconds to listen after the last frame.
  double duration = 2;
  /// Whether the output is JSON.
  bool json = false;
};
/// Reads the frames of a command line; on an error says so and returns false.
bool readFrames(const std::vector<std::string>& texts, SendRequest& request, Console& console);
/// Sends frames to a reader and prints what it answers.
int runSend(const SendRequest& request, RadioEnvironment& environment, Console& console);

struct DemoRequest {
  bool virtualTime = false;
  bool log = false;
  /// The file for a recording; absent: none.
  std::optional<std::string> record;
};
/// Does the main job on the simulated radio and prints a timeline of it.
int runDemo(const DemoRequest& request, Console& console);

struct DoctorRequest {
  /// The adapter that is to be used; absent: the radio's own choice.
  std::optional<std::string> adapter;
};
/// Looks at what the real radio needs of this machine and prints it; a failure unless a scan would
/// work.
int runDoctor(const DoctorRequest& request, Console& console);

/// The exit status of a command that has done its work: a failure, which it tells, when standard
/// output could not be written.
int finishOutput(Console& console);

}  // namespace kestrin::app
