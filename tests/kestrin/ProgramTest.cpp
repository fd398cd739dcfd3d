// The application as a user runs it: exact output, errors and exit status.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "kestrin/ProgramRun.h"

namespace kestrin::app::test {
namespace {

using Arguments = std::vector<std::string>;

/// A file that is gone with the test.
class TemporaryFile {
 public:
  explicit TemporaryFile(const std::string& content) {
    std::string name = testing::TempDir() + "kestrin-recording-XXXXXX";
    const int descriptor = ::mkstemp(name.data());
    EXPECT_GE(descriptor, 0);
    ::close(descriptor);
    path_ = name;
    std::ofstream(path_, std::ios::binary) << content;
  }
  ~TemporaryFile() { std::filesystem::remove(path_); }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  std::string path_;
};

Outcome replayOf(const std::string& input) { return kestrin({"replay", "-"}, {.input = input}); }

void expectUsageError(const Arguments& arguments, const std::string& text) {
  const Outcome run = kestrin(arguments);
  EXPECT_EQ(run.status, 2) << text;
  EXPECT_EQ(run.output, "") << text;
  EXPECT_EQ(run.errors, "kestrin: " + text + "\n");
}

std::string lastLine(const std::string& text) {
  const std::size_t end = text.find_last_not_of('\n');
  const std::size_t begin = text.find_last_of('\n', end);
  return text.substr(begin + 1, end - begin);
}

constexpr char kInfo[] = "FRAME bb01030013b15669727475616c2072656164657220312e307e39fe\n";

TEST(FrameProgram, PrintsTheWholeFrame) {
  const Outcome run = kestrin({"frame", "00", "03", "B1"});
  EXPECT_EQ(run.output, "BB 00 03 00 01 B1 7E 65 97\n");
  EXPECT_EQ(run.errors, "");
  EXPECT_EQ(run.status, 0);
}

TEST(FrameProgram, ThePayloadMayBeLeftOutOrHaveBlanks) {
  EXPECT_EQ(kestrin({"frame", "01", "a2"}).output, "BB 01 A2 00 00 7E 23 1A\n");
  EXPECT_EQ(kestrin({"frame", "01", "a2", ""}).output, "BB 01 A2 00 00 7E 23 1A\n");
  EXPECT_EQ(kestrin({"frame", "00", "03", " b1 "}).output, "BB 00 03 00 01 B1 7E 65 97\n");
}

TEST(FrameProgram, TheLengthFieldHasTwoBytes) {
  std::string payload;
  for (int i = 0; i < 300; ++i) payload += "00";
  const Outcome run = kestrin({"frame", "00", "03", payload});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output.substr(0, 15), "BB 00 03 01 2C ");
  EXPECT_EQ(run.output.size(), 308U * 3);
}

TEST(FrameProgram, NamesWhatIsWrong) {
  expectUsageError({"frame", "00", "03", "0xB1"},
                   "PAYLOAD '0xB1', column 2: bytes are written without 0x, as in BB 00 03");
  expectUsageError({"frame", "00", "03", "B1 G0"},
                   "PAYLOAD 'B1 G0', column 4: 'G' is not a hexadecimal digit");
  expectUsageError({"frame", "0", "03"},
                   "TYPE '0', column 1: a byte is two hexadecimal digits, here is one");
  expectUsageError({"frame", "00", "0303"},
                   "CODE '0303': is one byte, two hexadecimal digits, as in 00");
  expectUsageError({"frame", "", "03"}, "TYPE '': is one byte, two hexadecimal digits, as in 00");
  expectUsageError({"frame", "00"}, "CODE is required (kestrin frame --help tells more)");
  expectUsageError({"frame", "00", "03", "B1", "B2"},
                   "'B2' is not expected here (kestrin frame --help tells more)");
  expectUsageError({"frame", "\x1b[2J", "03"},
                   "TYPE '\\x1b[2J', column 1: '\\x1b' is not a hexadecimal digit");
}

TEST(ReplayProgram, PrintsLogsAndFramesInOrder) {
  const Outcome run = replayOf("BB 01 03 00 01 B1 7E 20 37 00\n\n");
  // The frame is delivered again: a byte behind it keeps it in the receive buffer.
  EXPECT_EQ(run.output,
            "LOG [RX BLE] <bb010300 01b17e20 37>\nFRAME bb01030001b17e2037\n"
            "LOG [RX BLE] <bb010300 01b17e20 37>\nFRAME bb01030001b17e2037\n");
  EXPECT_EQ(run.errors, "");
  EXPECT_EQ(run.status, 0);
}

TEST(ReplayProgram, AFinalLineEndAddsNoArrival) {
  const std::string once = "LOG [RX BLE] <bb010300 01b17e20 37>\nFRAME bb01030001b17e2037\n";
  EXPECT_EQ(replayOf("BB0103 0001B17E 203700\n").output, once);
  EXPECT_EQ(replayOf("BB0103 0001B17E 203700").output, once);
  EXPECT_EQ(replayOf("BB0103 0001B17E 203700\r\n").output, once);
  EXPECT_EQ(replayOf("BB0103 0001B17E 203700\n# end\n").output, once);
  EXPECT_EQ(replayOf("BB0103 0001B17E 203700\n  ").output, once + once);
  EXPECT_EQ(replayOf("BB0103 0001B17E 203700\n\r\n").output, once + once);
}

TEST(ReplayProgram, JoinsAFrameThatCameInPieces) {
  EXPECT_EQ(replayOf("# a frame\nbb01\n0300 01\n\nb17e20\n37").output,
            "LOG [RX BLE] <bb010300 01b17e20 37>\nFRAME bb01030001b17e2037\n");
}

TEST(ReplayProgram, PrintsTheParsersErrors) {
  EXPECT_EQ(replayOf("BB 00").output, "LOG [ERROR]parseFrmReader:MESSAGE\n");
  EXPECT_EQ(replayOf("BB 01 03 00 01 B1 7E 37 20").output, "LOG [parseRcpFrmReader] CRC_ERROR\n");
  EXPECT_EQ(replayOf("BB 01 03 00 01 B1 7F").output,
            "LOG [ERROR]parseFrmReader:ENDMARK abyte = 7F\nLOG [Test] <bb010300 01b17f>\n");
}

TEST(ReplayProgram, NothingGivesNothing) {
  const Outcome run = replayOf("");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output + run.errors, "");
  EXPECT_EQ(replayOf("\n\n# nothing\n").output, "");
}

TEST(ReplayProgram, ReadsAFile) {
  const TemporaryFile file("BB0103 0001B17E 2037\n");
  const Outcome run = kestrin({"replay", file.path()});
  EXPECT_EQ(run.output, "LOG [RX BLE] <bb010300 01b17e20 37>\nFRAME bb01030001b17e2037\n");
  EXPECT_EQ(run.status, 0);
}

TEST(ReplayProgram, TellsWhatIsNoHexBeforeItPrintsAnything) {
  const TemporaryFile file("BB0103 0001B17E 2037\n# fine\n\nBB 0G\n");
  const Outcome run = kestrin({"replay", file.path()});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.output, "");
  EXPECT_EQ(run.errors,
            "kestrin: " + file.path() + ":4: column 5: 'G' is not a hexadecimal digit\n");
  const Outcome piped = replayOf("BB0103 0001B17E 2037\r\nBB 0\r\n");
  EXPECT_EQ(piped.status, 1);
  EXPECT_EQ(piped.output, "");
  EXPECT_EQ(piped.errors,
            "kestrin: standard input:2: column 4: a byte is two hexadecimal digits, here is one\n");
}

TEST(ReplayProgram, TellsWhichFileCanNotBeRead) {
  const Outcome missing = kestrin({"replay", "/nowhere/recording\n"});
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.output, "");
  EXPECT_EQ(missing.errors, "kestrin: /nowhere/recording\\x0a: No such file or directory\n");
  const Outcome folder = kestrin({"replay", "/"});
  EXPECT_EQ(folder.status, 1);
  EXPECT_EQ(folder.errors, "kestrin: /: Is a directory\n");
  const Outcome empty = kestrin({"replay", ""});
  EXPECT_EQ(empty.status, 1);
  EXPECT_EQ(empty.errors, "kestrin: '': No such file or directory\n");
}

TEST(ReplayProgram, TakesInputOfAnyLength) {
  std::string input;
  for (int i = 0; i < 20000; ++i) input += "BB 01 03 00 01 B1 7E 20 37\n";
  const Outcome run = replayOf(input);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(std::count(run.output.begin(), run.output.end(), '\n'), 40000);
}

TEST(Program, AnOutputThatCanNotBeWrittenIsAnError) {
  const Outcome run = kestrin({"frame", "00", "03"}, {.outputFile = "/dev/full"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.errors, "kestrin: standard output: No space left on device\n");
  const Outcome replayed =
      kestrin({"replay", "-"}, {.input = "BB 00\n", .outputFile = "/dev/full"});
  EXPECT_EQ(replayed.status, 1);
  EXPECT_EQ(replayed.errors, "kestrin: standard output: No space left on device\n");
}

TEST(Program, AnOutputThatNobodyReadsEndsItWithoutACrash) {
  for (const Arguments& arguments :
       {Arguments{"demo", "--virtual-time"},
        Arguments{"monitor", "TQM", "--radio", "simulated", "--virtual-time"}}) {
    Program program(kestrinPath(), arguments, {.unread = true});
    EXPECT_EQ(program.finish(), 1);
    EXPECT_EQ(program.errors(), "kestrin: standard output: Broken pipe\n");
  }
}

TEST(Program, TellsItsVersion) {
  const Outcome run = kestrin({"--version"});
  EXPECT_EQ(run.output, "kestrin " KESTRIN_VERSION "\n");
  EXPECT_EQ(run.errors, "");
  EXPECT_EQ(run.status, 0);
}

TEST(Program, HelpsWithExamplesOfEachCommand) {
  const Outcome all = kestrin({"--help"});
  EXPECT_EQ(all.status, 0);
  EXPECT_EQ(all.errors, "");
  for (const char* command : {"demo", "scan", "monitor", "send", "frame", "replay", "doctor"}) {
    EXPECT_NE(all.output.find(std::string("\n  kestrin ") + command), std::string::npos) << command;
    const Outcome one = kestrin({command, "--help"});
    EXPECT_EQ(one.status, 0);
    EXPECT_EQ(one.errors, "");
    EXPECT_NE(one.output.find("Example"), std::string::npos) << command;
    EXPECT_NE(one.output.find(std::string("kestrin ") + command), std::string::npos) << command;
  }
}

TEST(Program, WrongUsageIsOneLineThatNamesTheArgument) {
  expectUsageError({}, "a command is missing (kestrin --help tells more)");
  expectUsageError({"bogus"}, "'bogus' is not a command (kestrin --help tells more)");
  expectUsageError({"--foo"}, "'--foo' is not an option of kestrin (kestrin --help tells more)");
  expectUsageError({"replay"}, "FILE is required (kestrin replay --help tells more)");
  expectUsageError({"send"}, "NAME is required (kestrin send --help tells more)");
  expectUsageError({"monitor", ""},
                   "NAME: is empty; give a part of the reader's name (kestrin monitor --help tells "
                   "more)");
  expectUsageError({"send", "", "BB00030001B17E6597"},
                   "NAME: is empty; give a part of the reader's name (kestrin send --help tells "
                   "more)");
  expectUsageError({"send", "KVR"}, "FRAME is required (kestrin send --help tells more)");
  expectUsageError({"demo", "now"}, "'now' is not expected here (kestrin demo --help tells more)");
  expectUsageError({"doctor", "now"},
                   "'now' is not expected here (kestrin doctor --help tells more)");
  expectUsageError(
      {"scan", "--for", "x"},
      "--for: 'x' is not a number of seconds, as in 2 or 0.5 (kestrin scan --help tells "
      "more)");
  for (const char* span : {"-1", "nan", "inf", "1e99", "2s", " 2"}) {
    expectUsageError(
        {"monitor", "KVR", std::string("--timeout=") + span},
        std::string("--timeout: '") + span +
            "' is not a number of seconds, as in 2 or 0.5 (kestrin monitor --help tells "
            "more)");
  }
  expectUsageError(
      {"scan", "--radio", "cb"},
      "--radio: 'cb' is not a radio; there are bluez and simulated (kestrin scan --help "
      "tells more)");
  expectUsageError({"scan", "--radio", "simulated", "--adapter", "hci0"},
                   "--adapter: only the real radio has adapters; leave out --radio simulated");
  expectUsageError({"scan", "--virtual-time"},
                   "--virtual-time: only the simulated radio has it; add --radio simulated");
}

TEST(Program, AMistypedWordIsToldWithWhatWasProbablyMeant) {
  expectUsageError({"sacn"},
                   "'sacn' is not a command; did you mean scan? (kestrin --help tells more)");
  expectUsageError(
      {"--versoin"},
      "'--versoin' is not an option of kestrin; did you mean --version? (kestrin --help "
      "tells more)");
  for (const Arguments& arguments :
       {Arguments{"monitor", "--timout", "3"}, Arguments{"monitor", "KVR", "--timout=3"}}) {
    expectUsageError(
        arguments,
        "'--timout' is not an option of monitor; did you mean --timeout? (kestrin monitor "
        "--help tells more)");
  }
  expectUsageError(
      {"monitor", "-timeout", "3"},
      "'-timeout' is not an option of monitor; did you mean --timeout? (kestrin monitor "
      "--help tells more)");
}

TEST(Program, AnOptionInTheWrongPlaceIsToldWhereItBelongs) {
  expectUsageError(
      {"scan", "--timeout", "3"},
      "'--timeout' is not an option of scan, but of monitor and send (kestrin scan --help "
      "tells more)");
  expectUsageError({"--radio", "simulated", "scan"},
                   "'--radio' is written behind a command; it belongs to scan, monitor and send "
                   "(kestrin --help tells more)");
}

TEST(Program, AnOptionThatHelpDoesNotShowIsNotSuggested) {
  expectUsageError({"scan", "--virtual-tim"},
                   "'--virtual-tim' is not an option of scan (kestrin scan --help tells more)");
}

TEST(Program, ARadioThatIsNotThereIsAFailureWithAReason) {
  for (const Arguments& arguments : {Arguments{"scan"}, Arguments{"monitor", "KVR"},
                                     Arguments{"send", "KVR", "BB00030001B17E6597"}}) {
    const Outcome run =
        kestrin(arguments, {.environment = {"DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nowhere/bus"}});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.output, "");
    EXPECT_EQ(std::count(run.errors.begin(), run.errors.end(), '\n'), 1) << run.errors;
#ifdef KESTRIN_HAS_BLUEZ
    EXPECT_NE(run.errors.find("message bus cannot be reached"), std::string::npos) << run.errors;
#else
    EXPECT_EQ(run.errors,
              "kestrin: --radio bluez: this build has no such radio; the one it has is --radio "
              "simulated\n");
#endif
  }
}

TEST(DoctorProgram, TellsOnOneScreenWhatIsMissingAndWhatToDo) {
  const Outcome run =
      kestrin({"doctor"}, {.environment = {"DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nowhere/bus"}});
  EXPECT_EQ(run.status, 1);
#ifdef KESTRIN_HAS_BLUEZ
  const std::string beginning =
      "TROUBLE  message bus  cannot be used: No such file or directory\n"
      "                      -> install the package dbus, 'systemctl start dbus'\n"
      "-        daemon       not to be seen without the message bus\n"
      "-        permission   not to be seen without the daemon\n";
  EXPECT_EQ(run.output.substr(0, beginning.size()), beginning);
  EXPECT_EQ(lastLine(run.output), "A scan does not work.");
  EXPECT_LE(std::count(run.output.begin(), run.output.end(), '\n'), 24) << run.output;
  EXPECT_EQ(run.errors, "");
#else
  EXPECT_EQ(run.output, "");
  EXPECT_EQ(run.errors.find("kestrin: doctor: this build has no real radio to look at"), 0U)
      << run.errors;
#endif
}

TEST(DemoProgram, InVirtualTimeIsTheSameToTheByte) {
  const Outcome first = kestrin({"demo", "--virtual-time"});
  const Outcome second = kestrin({"demo", "--virtual-time"});
  EXPECT_EQ(first.status, 0);
  EXPECT_EQ(first.errors, "");
  EXPECT_EQ(first.output, second.output);
}

TEST(DemoProgram, ShowsTheMainJob) {
  const std::string shown = kestrin({"demo", "--virtual-time"}).output;
  std::size_t place = 0;
  // In this order.
  for (const char* text : {"seen: 'kvr-lamp', ignored",
                           "seen: 'KVR-0417', passes the name filter",
                           "scanningBleDeive 'KVR-0417'",
                           "seen: 'Speaker', ignored",
                           "seen: 'KVR-Q62T 0012', passes",
                           "a device without a name, ignored",
                           "connectBLE 'KVR-0417'",
                           "the link is up",
                           "write   9 bytes  BB 00 03 00 01 B1 7E 65 97",
                           "frame  27 bytes: type 01, code 03",
                           "plugChangedStatus true",
                           "send   45 bytes",
                           "write  20 bytes",
                           "write  20 bytes",
                           "write   5 bytes",
                           "notify 20 bytes",
                           "frame  45 bytes",
                           "The link is lost",
                           "plugChangedStatus false",
                           "connectBLE 'KVR-0417'",
                           "plugChangedStatus true",
                           "close",
                           "plugChangedStatus false",
                           "the link is down",
                           "plugChangedStatus false",
                           "connectBLE 'KVR-Q62T 0012'",
                           "plugChangedStatus true",
                           "raw    20 bytes",
                           "close",
                           "plugChangedStatus false",
                           "plugChangedStatus false",
                           "\nFigures: "}) {
    place = shown.find(text, place);
    ASSERT_NE(place, std::string::npos) << text << " is not there, or too early, in\n" << shown;
    place += std::string(text).size();
  }
  EXPECT_EQ(lastLine(shown),
            "Figures: 3 readers accepted, 3 devices ignored; 5 frames sent in 9 writes of 117 "
            "bytes; 6 frames and 3 raw values received in 15 notifications of 213 bytes; 1 link "
            "lost; 9.381 s");
}

TEST(DemoProgram, CanShowTheLog) {
  const Outcome run = kestrin({"demo", "--virtual-time", "--log"});
  EXPECT_EQ(run.output, kestrin({"demo", "--virtual-time"}).output);
  EXPECT_NE(run.errors.find("DiscoverPeripheral  Speaker\n"), std::string::npos);
}

TEST(RadioPrograms, ScanPrintsTheReaders) {
  const Outcome run = kestrin({"scan", "--radio", "simulated", "--virtual-time", "--for", "1"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output,
            "KVR-0417\tC0:00:00:00:00:02\nTQM_HOLV-1\tC0:00:00:00:00:04\n"
            "KVR-Q62T 0012\tC0:00:00:00:00:06\n");
  EXPECT_EQ(run.errors, "kestrin: the radio is powered on\n");
}

TEST(RadioPrograms, SendPrintsTheAnswer) {
  const Outcome run = kestrin(
      {"send", "0417", "BB 00 03 00 01 B1 7E 65 97", "--radio", "simulated", "--virtual-time"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, std::string("READER KVR-0417 C0:00:00:00:00:02\n") + kInfo +
                            "PLUGGED\nSENT bb00030001b17e6597\n" + kInfo +
                            "UNPLUGGED\nUNPLUGGED\n");
  EXPECT_EQ(run.errors, "");
}

TEST(RadioPrograms, SendRefusesWrongHexBeforeItDoesAnything) {
  expectUsageError({"send", "KVR", "BB00030001B17E6597", "BB0", "--radio", "simulated"},
                   "FRAME 2 'BB0', column 3: a byte is two hexadecimal digits, here is one");
}

TEST(RadioPrograms, GiveUpAReaderThatIsNotThere) {
  // The names of commands are names like any other here.
  for (const Arguments& arguments :
       {Arguments{"send", "scan", "BB00030001B17E6597"}, Arguments{"monitor", "scan"}}) {
    Arguments all = arguments;
    all.insert(all.end(), {"--radio", "simulated", "--virtual-time", "--timeout", "0.5"});
    const Outcome run = kestrin(all);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.output, "");
    EXPECT_EQ(run.errors,
              "kestrin: no reader whose name contains 'scan' was found within 0.5 s; in range: "
              "'KVR-0417', 'TQM_HOLV-1', 'KVR-Q62T 0012'\n");
  }
}

TEST(RadioPrograms, MonitorPrintsFramesThatComeByThemselves) {
  const Outcome run =
      kestrin({"monitor", "TQM", "--radio", "simulated", "--virtual-time", "--for", "1.5"});
  EXPECT_EQ(run.status, 0);
  EXPECT_NE(run.output.find("PLUGGED\nFRAME bb0222000dc4e2801160600002041700580"),
            std::string::npos)
      << run.output;
}

TEST(RadioPrograms, TheLogIsShownOnDemand) {
  const Outcome run =
      kestrin({"monitor", "0417", "--radio", "simulated", "--virtual-time", "--for", "0", "--log"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.errors.substr(0, run.errors.find("Disc")), " CBManager is powered on\nstart San\n");
  EXPECT_NE(run.errors.find("\nBLE Disconnected\n"), std::string::npos);
}

#ifdef FIRST_READER_PROGRAM
TEST(FirstReaderExample, FindsAReaderAndTalksToIt) {
  Program program(FIRST_READER_PROGRAM, {}, {});
  EXPECT_EQ(program.finish(), 0);
  EXPECT_EQ(program.output(),
            "found KVR-0417\n"
            "frame <bb010300 13b15669 72747561 6c207265 61646572 20312e30 7e39fe>\n"
            "plugged in\n"
            "frame <bb012200 007efe22>\n"
            "unplugged\nunplugged\n");
  EXPECT_NE(program.errors().find("[TX BLE] <bb002200 007e"), std::string::npos);
}
#endif

class SignalledProgram : public testing::TestWithParam<int> {};

TEST_P(SignalledProgram, MonitorClosesAndEndsCleanly) {
  Program program(kestrinPath(), {"monitor", "0417", "--radio", "simulated", "--virtual-time"}, {});
  ASSERT_TRUE(program.readUntil("PLUGGED\n"));
  program.signal(GetParam());
  EXPECT_EQ(program.finish(), 0);
  EXPECT_EQ(program.output(), std::string("READER KVR-0417 C0:00:00:00:00:02\n") + kInfo +
                                  "PLUGGED\nUNPLUGGED\nUNPLUGGED\n");
  EXPECT_EQ(program.errors(), "");
}

TEST_P(SignalledProgram, SendClosesAndEndsCleanly) {
  Program program(kestrinPath(),
                  {"send", "0417", "BB00030001B17E6597", "--radio", "simulated", "--virtual-time",
                   "--for", "3e9"},
                  {});
  ASSERT_TRUE(program.readUntil("SENT"));
  program.signal(GetParam());
  EXPECT_EQ(program.finish(), 0);
  EXPECT_TRUE(program.output().ends_with("UNPLUGGED\nUNPLUGGED\n")) << program.output();
  EXPECT_EQ(program.errors(), "");
}

TEST_P(SignalledProgram, ScanEndsCleanly) {
  Program program(kestrinPath(), {"scan", "--radio", "simulated", "--virtual-time"}, {});
  ASSERT_TRUE(program.readUntil("0417"));
  program.signal(GetParam());
  EXPECT_EQ(program.finish(), 0);
}

INSTANTIATE_TEST_SUITE_P(EachSignal, SignalledProgram, testing::Values(SIGINT, SIGTERM, SIGHUP),
                         [](const auto& value) {
                           return std::string(::sigabbrev_np(value.param));
                         });

}  // namespace
}  // namespace kestrin::app::test
