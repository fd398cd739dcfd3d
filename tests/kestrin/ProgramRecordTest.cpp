// Recordings, pictures of them and output for programs, as a user gets them: exact output, errors
// and exit status.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "kestrin/ProgramRun.h"

namespace kestrin::app::test {
namespace {

/// A folder that is gone with the test.
class RecordProgram : public testing::Test {
 public:
  ~RecordProgram() override { std::filesystem::remove_all(folder_); }

 protected:
  RecordProgram() {
    std::string name = testing::TempDir() + "kestrin-record-XXXXXX";
    EXPECT_NE(::mkdtemp(name.data()), nullptr);
    folder_ = name;
  }

  [[nodiscard]] std::string path(const std::string& name) const { return folder_ + "/" + name; }
  std::string write(const std::string& name, const std::string& content) {
    std::ofstream(path(name), std::ios::binary) << content;
    return path(name);
  }
  static std::string content(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
  }
  /// The demo's recording, made once.
  std::string demo() {
    const Outcome run = kestrin({"demo", "--virtual-time", "--record", path("demo.jsonl")});
    EXPECT_EQ(run.status, 0) << run.errors;
    return content(path("demo.jsonl"));
  }
  static void expectFailure(const Outcome& run, const std::string& text) {
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.output, "");
    EXPECT_EQ(run.errors, "kestrin: " + text + "\n");
  }

 private:
  std::string folder_;
};

using ReplayOfJson = RecordProgram;
using TimelineProgram = RecordProgram;
using JsonProgram = RecordProgram;

constexpr char kHeaderLine[] = R"({"format":"kestrin-recording","version":1})"
                               "\n";
constexpr char kArrivalLine[] =
    R"({"time":1.5,"direction":"in","kind":"notification","identifier":"C0","characteristic":"FFF1","bytes":"bb01030001b17e2037"})"
    "\n";
constexpr char kReplayed[] = "LOG [RX BLE] <bb010300 01b17e20 37>\nFRAME bb01030001b17e2037\n";

TEST_F(RecordProgram, ARecordingChangesNothingThatIsPrinted) {
  const Outcome plain = kestrin({"demo", "--virtual-time"});
  const Outcome recorded = kestrin({"demo", "--virtual-time", "--record", path("demo.jsonl")});
  EXPECT_EQ(recorded.output, plain.output);
  EXPECT_EQ(recorded.errors, "");
  EXPECT_EQ(recorded.status, 0);
}

TEST_F(RecordProgram, InVirtualTimeTheSameRunGivesTheSameFile) {
  const std::string first = demo();
  EXPECT_GT(first.size(), 10000U);
  EXPECT_EQ(demo(), first);
  EXPECT_EQ(first.find("started"), std::string::npos);
}

TEST_F(RecordProgram, EachCommandSaysWhichOneItWasAndWhen) {
  EXPECT_EQ(kestrin({"scan", "--radio", "simulated", "--for", "0", "--record", path("a")}).status,
            0);
  const std::string header = content(path("a")).substr(0, content(path("a")).find('\n'));
  EXPECT_EQ(header.find(R"({"format":"kestrin-recording","version":1,"program":"kestrin )"), 0U);
  EXPECT_NE(header.find(R"("command":"scan","radio":"simulated","started":"20)"), std::string::npos)
      << header;
}

TEST_F(RecordProgram, AFileThatCanNotBeMadeEndsTheCommandAtOnce) {
  const std::string file = path("nowhere/a");
  expectFailure(kestrin({"scan", "--radio", "simulated", "--record", file}),
                "--record '" + file + "': No such file or directory");
  expectFailure(kestrin({"demo", "--record", ""}), "--record '': No such file or directory");
}

TEST_F(RecordProgram, AFullDiskIsToldAndTheCommandGoesOn) {
  const Outcome run = kestrin({"demo", "--virtual-time", "--record", "/dev/full"});
  EXPECT_EQ(run.output, kestrin({"demo", "--virtual-time"}).output);
  EXPECT_EQ(run.errors,
            "kestrin: --record '/dev/full': No space left on device; the recording ends here, the "
            "command goes on\n");
  EXPECT_EQ(run.status, 1);
}

TEST_F(RecordProgram, AKilledProcessLeavesWhatHadHappened) {
  {
    Program program(kestrinPath(),
                    {"monitor", "KVR-0417", "--radio", "simulated", "--record", path("a")}, {});
    ASSERT_TRUE(program.readUntil("READER"));
    program.signal(SIGKILL);
    EXPECT_EQ(program.finish(), 128 + SIGKILL);
  }
  const Outcome run = kestrin({"replay", path("a")});
  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_EQ(run.errors, "");
  EXPECT_NE(content(path("a")).find("\"kind\":\"reader\""), std::string::npos);
}

TEST_F(ReplayOfJson, IsToldFromThePlainFormByItself) {
  const std::string recording = std::string(kHeaderLine) + kArrivalLine;
  const Outcome run = kestrin({"replay", write("a", recording)});
  EXPECT_EQ(run.output, kReplayed);
  EXPECT_EQ(run.errors, "");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(kestrin({"replay", "-"}, {.input = recording}).output, kReplayed);
  EXPECT_EQ(kestrin({"replay", "-"}, {.input = "BB 01 03 00 01 B1 7E 20 37"}).output, kReplayed);
}

TEST_F(ReplayOfJson, ReadsACutRecordingUpToTheCutAndSaysSo) {
  const std::string file =
      write("a", std::string(kHeaderLine) + kArrivalLine + std::string(kArrivalLine).substr(0, 50));
  const Outcome run = kestrin({"replay", file});
  EXPECT_EQ(run.output, kReplayed);
  EXPECT_EQ(run.errors, "kestrin: " + file +
                            ":3: the recording has been cut in this line; what stands in front of "
                            "it is read\n");
  EXPECT_EQ(run.status, 0);
}

TEST_F(ReplayOfJson, TellsOtherDamageWithItsPlace) {
  const std::string input =
      std::string(kHeaderLine) + R"({"time":1,"kind":"frame","bytes":"b"})" + "\n" + kArrivalLine;
  expectFailure(kestrin({"replay", "-"}, {.input = input}),
                "standard input:2: column 35: a byte is two hexadecimal digits, here is one");
  expectFailure(kestrin({"replay", "-"}, {.input = "{}\n"}),
                "standard input:1: column 1: the field \"format\" is missing: a recording begins "
                "with {\"format\":\"kestrin-recording\",\"version\":1");
}

TEST_F(TimelineProgram, DrawsARecordingBothWays) {
  demo();
  const Outcome timeline = kestrin({"timeline", path("demo.jsonl")});
  EXPECT_EQ(timeline.status, 0);
  EXPECT_EQ(timeline.errors, "");
  EXPECT_EQ(timeline.output.find("<svg xmlns="), 0U);
  EXPECT_NE(timeline.output.find(">2 s p_pluggedEvent</text>"), std::string::npos);
  EXPECT_NE(timeline.output.find(">0.5 s p_getReaderInfo</text>"), std::string::npos);
  EXPECT_NE(timeline.output.find(">0.05 s</text>"), std::string::npos);
  const Outcome sequence = kestrin({"timeline", "--sequence", path("demo.jsonl")});
  EXPECT_EQ(sequence.status, 0);
  EXPECT_NE(sequence.output.find(">in 2 s: p_pluggedEvent</text>"), std::string::npos);
  EXPECT_EQ(kestrin({"timeline", "-"}, {.input = content(path("demo.jsonl"))}).output,
            timeline.output);
}

TEST_F(TimelineProgram, WritesToAFile) {
  demo();
  const Outcome run = kestrin({"timeline", path("demo.jsonl"), "--output", path("demo.svg")});
  EXPECT_EQ(run.output + run.errors, "");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(content(path("demo.svg")), kestrin({"timeline", path("demo.jsonl")}).output);
  expectFailure(kestrin({"timeline", path("demo.jsonl"), "--output", "/dev/full"}),
                "--output '/dev/full': No space left on device");
  expectFailure(kestrin({"timeline", path("demo.jsonl"), "--output", path("no/where")}),
                "--output '" + path("no/where") + "': No such file or directory");
}

TEST_F(TimelineProgram, TakesAPartOfARecording) {
  demo();
  const Outcome run = kestrin({"timeline", path("demo.jsonl"), "--from", "1.2", "--to", "2"});
  EXPECT_EQ(run.status, 0);
  EXPECT_NE(run.output.find(">connectBLE &apos;KVR-0417&apos;<"), std::string::npos);
  EXPECT_EQ(run.output.find(">scanBLE<"), std::string::npos);
  EXPECT_EQ(run.output.find(">plugged in<"), std::string::npos);
  expectFailure(kestrin({"timeline", path("demo.jsonl"), "--from", "1000"}),
                "'" + path("demo.jsonl") + "': there is nothing in it to be drawn");
}

TEST_F(TimelineProgram, SaysWhatCanNotBeDrawn) {
  const std::string plain = write("plain", "BB 00\n");
  expectFailure(
      kestrin({"timeline", plain}),
      "'" + plain + "' has arrivals without their times; a timeline needs what --record writes");
  std::string much = kHeaderLine;
  for (int i = 0; i < 5001; ++i) much += "{\"time\":1,\"kind\":\"scan\"}\n";
  expectFailure(kestrin({"timeline", write("much", much)}),
                "'" + path("much") +
                    "': too much for one picture: 5001 events in 0 s; --from and --to take a part "
                    "of it");
}

TEST_F(JsonProgram, ScanPrintsStatesAndReaders) {
  const Outcome run =
      kestrin({"scan", "--radio", "simulated", "--virtual-time", "--for", "0.03", "--json"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(
      run.output,
      R"({"time":0.000000,"direction":"in","kind":"state","state":"powered-on"})"
      "\n"
      R"({"time":0.025351,"direction":"in","kind":"reader","name":"KVR-0417","identifier":"C0:00:00:00:00:02"})"
      "\n");
}

TEST_F(JsonProgram, SendPrintsWhatPasses) {
  const Outcome run = kestrin({"send", "KVR-0417", "BB00030001B17E6597", "--radio", "simulated",
                               "--virtual-time", "--json"});
  EXPECT_EQ(run.status, 0);
  std::string kinds;
  std::istringstream lines(run.output);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t begin = line.find("\"kind\":\"") + 8;
    kinds += line.substr(begin, line.find('"', begin) - begin) + " ";
  }
  EXPECT_EQ(kinds, "reader frame plug sent frame plug plug ");
  EXPECT_NE(run.output.find(R"("kind":"sent","bytes":"bb00030001b17e6597","accepted":true})"),
            std::string::npos);
}

}  // namespace
}  // namespace kestrin::app::test
