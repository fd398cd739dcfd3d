// The built program on files: what it prints and how it ends.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <filesystem>

#include "gateway/commands/GatewayProgram.h"
#include "tools/gateway/log/Log.h"

namespace kestrin::gateway {
namespace {

using testing::Test;

constexpr const char* kConfig =
    "[gateway]\nname = \"hall-1\"\nconsumers = [\"wms\"]\n[radio]\nkind = \"simulated\"\n"
    "[log]\ndirectory = \"log\"\n[broker]\nhost = \"localhost\"\n[[reader]]\nname = \"KVR-0417\"\n";

bool has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}
bool isOneLine(const std::string& text) { return text.find('\n') + 1 == text.size(); }

TEST(GatewayProgram, HelpAndVersionAreResults) {
  const ProgramOutcome help = runProgram({"--help"});
  EXPECT_EQ(help.status, 0);
  for (const std::string command :
       {"run", "check-config", "log", "tail", "export", "consume", "status"}) {
    EXPECT_TRUE(has(help.output, "\n  " + command)) << command;
    const ProgramOutcome own = runProgram({command, "--help"});
    EXPECT_EQ(own.status, 0);
    EXPECT_TRUE(has(own.output, "Usage: kestrin-gateway " + command)) << own.output;
  }
  EXPECT_EQ(runProgram({"--version"}).output, "kestrin-gateway " KESTRIN_VERSION "\n");
}

TEST(GatewayProgram, WrongUsageIsOneLineAndStatusTwo) {
  const std::vector<std::vector<std::string>> wrong{
      {},
      {"runs", "a.toml"},
      {"run"},
      {"run", ""},
      {"run", "a", "b"},
      {"tail"},
      {"tail", "log", "--from", "0"},
      {"tail", "log", "--from", "-1"},
      {"tail", "log", "--count", "many"},
      {"export", "log"},
      {"export", "log", "--csv", "a", "--jsonl", "b"},
      {"consume"},
      {"consume", "--gateway", "a", "--name", "b", "--state", "c", "--port", "0"},
      {"consume", "--gateway", "a", "--name", "b", "--state", "c", "--port", "65536"},
      {"consume", "--gateway", "a/b", "--name", "b", "--state", "c"},
      {"consume", "--gateway", "a", "--name", "", "--state", "c"},
      {"consume", "--gateway", "a", "--name", "b", "--state", "c", "--ca", "d"},
      {"consume", "--gateway", "a", "--name", "b", "--state", "c", "--host", ""}};
  for (const auto& arguments : wrong) {
    const ProgramOutcome run = runProgram(arguments);
    const std::string typed = testing::PrintToString(arguments);
    EXPECT_EQ(run.status, 2) << typed;
    EXPECT_EQ(run.output, "") << typed;
    EXPECT_TRUE(isOneLine(run.errors)) << typed << run.errors;
    EXPECT_EQ(run.errors.find("kestrin-gateway: "), 0U) << run.errors;
  }
}

TEST(GatewayProgram, AMistypedWordIsMetWithTheRightOne) {
  EXPECT_TRUE(has(runProgram({"chek-config", "a"}).errors, "did you mean check-config?"));
  EXPECT_TRUE(has(runProgram({"consume", "--stat", "a"}).errors, "did you mean --state?"));
}

TEST(GatewayProgram, CheckConfigSaysThatAFileIsRight) {
  const TestFolder folder;
  const ProgramOutcome run = runProgram({"check-config", folder.write("gateway.toml", kConfig)});
  EXPECT_EQ(run.status, 0) << run.output;
  EXPECT_TRUE(has(run.output, "gateway.toml: is right; gateway hall-1, 1 readers")) << run.output;
  EXPECT_EQ(run.errors, "");
}

TEST(GatewayProgram, CheckConfigSaysHowDurableAGatewayWithoutAConsumerIs) {
  const TestFolder folder;
  std::string text = kConfig;
  text.replace(text.find("[\"wms\"]"), 7, "[]");
  ProgramOutcome run = runProgram({"check-config", folder.write("gateway.toml", text)});
  EXPECT_EQ(run.status, 0) << run.output;
  EXPECT_TRUE(has(run.errors, "declared: the gateway is as durable as your broker")) << run.errors;
  text += "[[webhook]]\nname = \"erp\"\nurl = \"https://erp.example/\"\n";
  run = runProgram({"check-config", folder.write("gateway.toml", text)});
  EXPECT_TRUE(has(run.errors, "declared: but for its webhooks the gateway is")) << run.errors;
}

TEST(GatewayProgram, CheckConfigNamesFileLineAndKeyOfEachComplaint) {
  const TestFolder folder;
  std::string text = kConfig;
  text.replace(text.find("kind"), 4, "kimd");
  text.replace(text.find("localhost"), 9, "");
  const std::string file = folder.write("gateway.toml", text);
  const ProgramOutcome run = runProgram({"check-config", file});
  EXPECT_EQ(run.status, 2);
  EXPECT_TRUE(has(run.output, file + ":5:")) << run.output;
  EXPECT_TRUE(has(run.output, "kimd")) << run.output;
  EXPECT_TRUE(has(run.output, "broker.host")) << run.output;
  const ProgramOutcome start = runProgram({"run", file});
  EXPECT_EQ(start.status, 2);
  EXPECT_TRUE(has(start.errors, file + ":5:")) << start.errors;
}

TEST(GatewayProgram, AConfigurationThatIsNotThereIsStatusTwo) {
  for (const std::string command : {"run", "check-config"}) {
    const ProgramOutcome run = runProgram({command, "/no/such/gateway.toml"});
    EXPECT_EQ(run.status, 2);
    EXPECT_TRUE(has(run.errors + run.output, "/no/such/gateway.toml")) << run.errors;
  }
}

TEST(GatewayProgram, AScriptThatIsWrongIsStatusTwo) {
  const TestFolder folder;
  folder.write("readers.txt", "soon KVR-0417\n");
  std::string text = kConfig;
  text.replace(text.find("[log]"), 5, "script = \"readers.txt\"\n[log]");
  const ProgramOutcome run = runProgram({"run", folder.write("gateway.toml", text)});
  EXPECT_EQ(run.status, 2);
  EXPECT_TRUE(has(run.errors, "readers.txt:1: 'soon' is not a pause")) << run.errors;
}

/// A log with a frame, a name that could steer a terminal, and nothing else.
class LogFolderTest : public Test {
 protected:
  void SetUp() override {
    LogOptions options;
    options.folder = log;
    std::string error;
    const auto opened = Log::open(systemFiles(), options, error);
    ASSERT_TRUE(opened) << error;
    identity = opened->identity();
    FileError failed;
    Record record;
    record.reader = "C0:00:00:00:00:01";
    record.name = "KVR\x1b[2J";
    record.wallMs = 1795352709123;
    record.bytes = {0xBB, 0x01};
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(opened->append(record, failed)) << failed.text;
  }

  const TestFolder folder;
  const std::string log = folder.pathOf("log");
  LogIdentity identity;
};

TEST_F(LogFolderTest, LogPrintsALineForEachRecord) {
  const ProgramOutcome run = runProgram({"log", log});
  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_TRUE(has(run.output, "# log " + identity)) << run.output;
  EXPECT_TRUE(has(run.output,
                  "\n3 2026-11-22T13:05:09.123Z C0:00:00:00:00:01 KVR\\x1b[2J link 0 "
                  "frame bb01\n"))
      << run.output;
}

TEST_F(LogFolderTest, AFolderWithoutALogIsSaid) {
  std::filesystem::create_directory(folder.pathOf("nothing"));
  for (const std::string command : {"log", "tail", "export"}) {
    std::vector<std::string> arguments{command, folder.pathOf("nothing")};
    if (command == "export") arguments.insert(arguments.end(), {"--csv", folder.pathOf("out")});
    const ProgramOutcome run = runProgram(arguments);
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(isOneLine(run.errors)) << run.errors;
    EXPECT_TRUE(has(run.errors, folder.pathOf("nothing"))) << run.errors;
    EXPECT_FALSE(std::filesystem::exists(folder.pathOf("out")));
  }
}

TEST_F(LogFolderTest, TailPrintsWhatThereIsAndEndsWhenItHasPrintedSoMuch) {
  const ProgramOutcome json = runProgram({"tail", log, "--from", "2", "--count", "1"});
  EXPECT_EQ(json.status, 0) << json.errors;
  EXPECT_EQ(json.output.find("{\"v\":1,\"log\":\"" + identity + "\",\"n\":2,"), 0U) << json.output;
  EXPECT_TRUE(isOneLine(json.output));
  EXPECT_EQ(json.errors, "");
  const ProgramOutcome text = runProgram({"tail", log, "--count", "3", "--text"});
  EXPECT_EQ(text.status, 0);
  EXPECT_TRUE(has(text.output,
                  "\n3 2026-11-22T13:05:09.123Z C0:00:00:00:00:01 KVR\\x1b[2J link 0 "
                  "frame bb01\n"))
      << text.output;
}

TEST_F(LogFolderTest, TailTakesAConfigurationForItsLog) {
  const ProgramOutcome run =
      runProgram({"tail", folder.write("gateway.toml", kConfig), "--count", "3"});
  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_TRUE(has(run.output, "\"n\":3,")) << run.output;
  EXPECT_EQ(runProgram({"tail", folder.write("wrong.toml", "[gateway]\n")}).status, 2);
  EXPECT_EQ(runProgram({"tail", folder.pathOf("nothing")}).status, 2);
}

TEST_F(LogFolderTest, TailFollowsUntilItIsAskedToEnd) {
  for (const int number : {SIGINT, SIGTERM}) {
    const TestFolder place;
    GatewayProgram tail(place, "tail", {"tail", log});
    ASSERT_TRUE(comesTrue([&] { return has(tail.output(), "\"n\":3,"); })) << tail.errors();
    tail.signal(number);
    EXPECT_EQ(tail.finish(), 0);
    EXPECT_EQ(tail.errors(), "");
  }
}

TEST_F(LogFolderTest, TailEndsInSilenceWhenNobodyReadsItAnyMore) {
  ChildProcess process;
  // `head` ends after one line; that there is nothing more to write must not matter.
  const std::string command = std::string("set -o pipefail; ") + GATEWAY_PROGRAM + " tail " + log +
                              " | head -n 1 >" + folder.pathOf("one");
  ASSERT_TRUE(process.start({"/bin/bash", "-c", command}, folder.pathOf("said")));
  EXPECT_EQ(process.wait(), 0);
  EXPECT_EQ(contentsOf(folder.pathOf("said")), "");
  EXPECT_TRUE(isOneLine(contentsOf(folder.pathOf("one"))));
}

TEST_F(LogFolderTest, TailEndsThoughItsReaderDoesNotRead) {
  {
    LogOptions options;
    options.folder = log;
    std::string error;
    const auto opened = Log::open(systemFiles(), options, error);
    ASSERT_TRUE(opened) << error;
    Record record;
    record.bytes.resize(1000, 1);
    FileError failed;
    for (int i = 0; i < 500; ++i) ASSERT_TRUE(opened->append(record, failed)) << failed.text;
  }
  ChildProcess process;
  // The pipe is full soon, and stays so.
  const std::string command =
      "{ " + std::string(GATEWAY_PROGRAM) + " tail " + log + " --from 1 & echo $! >" +
      folder.pathOf("pid") + "; wait $!; echo $? >" + folder.pathOf("status") +
      "; } | { while [ ! -e " + folder.pathOf("status") + " ]; do read -r line <" +
      folder.pathOf("pid") + "; sleep 0.1; done; }";
  ASSERT_TRUE(process.start({"/bin/bash", "-c", command}, folder.pathOf("said")));
  ASSERT_TRUE(comesTrue([&] { return contentsOf(folder.pathOf("pid")).ends_with('\n'); }));
  const pid_t tail = std::stoi(contentsOf(folder.pathOf("pid")));
  // It has taken what the pipe has room for.
  ASSERT_TRUE(comesTrue([&] {
    const std::string io = contentsOf("/proc/" + std::to_string(tail) + "/io");
    const auto at = io.find("wchar: ");
    return at != std::string::npos && std::stoul(io.substr(at + 7)) >= 60'000;
  }));
  ASSERT_EQ(::kill(tail, SIGTERM), 0);
  EXPECT_EQ(process.wait(), 0);
  EXPECT_EQ(contentsOf(folder.pathOf("status")), "0\n") << contentsOf(folder.pathOf("said"));
}

/// Whether a terminal shows it and does nothing else: printable, and UTF-8 without controls.
::testing::AssertionResult isHarmless(const std::string& text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<std::uint8_t>(text[i]);
    const auto next = i + 1 < text.size() ? static_cast<std::uint8_t>(text[i + 1]) : 0U;
    const bool isControl = (byte < ' ' && byte != '\n') || byte == 0x7F;
    if (isControl || (byte == 0xC2 && next < 0xA0) || byte >= 0xF8 ||
        text.find("\u202E") != std::string::npos) {
      return ::testing::AssertionFailure() << "byte " << int{byte} << " in " << text;
    }
  }
  return ::testing::AssertionSuccess();
}

TEST_F(LogFolderTest, NothingFromTheAirSteersATerminal) {
  const std::vector<std::string> names{"\x1b[31mred\x1b[0m",
                                       "\x1b]0;title\x07",
                                       "a\nforged line",
                                       "\xC2\x9B\063\061m",
                                       "\xff\xfe\x80",
                                       std::string("nul\0nul", 7),
                                       "<script>alert(1)</script>",
                                       "\x7f\x08\x08",
                                       "\xE2\x80\xAEgnp.exe",
                                       "\xF0\x9F\x98"};
  {
    LogOptions options;
    options.folder = log;
    std::string error;
    const auto opened = Log::open(systemFiles(), options, error);
    ASSERT_TRUE(opened) << error;
    FileError failed;
    for (const std::string& name : names) {
      Record record;
      record.reader = name;
      record.name = name;
      record.bytes = {0x1B, 0x5B, 0x32, 0x4A};
      ASSERT_TRUE(opened->append(record, failed)) << failed.text;
    }
  }
  const std::string count = std::to_string(3 + names.size());
  const auto lines = static_cast<std::ptrdiff_t>(3 + names.size());
  for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
           {"log", log},
           {"tail", log, "--from", "1", "--count", count},
           {"tail", log, "--from", "1", "--count", count, "--text"}}) {
    const ProgramOutcome run = runProgram(arguments);
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_TRUE(isHarmless(run.output)) << arguments.front();
    EXPECT_EQ(run.errors, "");
    EXPECT_EQ(std::count(run.output.begin(), run.output.end(), '\n'),
              lines + (arguments.front() == "log" ? 1 : 0))
        << run.output;
  }
  EXPECT_TRUE(has(runProgram({"tail", log, "--from", "4", "--count", "1"}).output,
                  R"("name":"\u001b[31mred\u001b[0m")"));
}

TEST_F(LogFolderTest, ExportWritesANewFile) {
  const std::string out = folder.pathOf("out");
  const ProgramOutcome run = runProgram({"export", log, "--jsonl", out});
  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_TRUE(has(run.errors, "3 records of the log " + identity)) << run.errors;
  EXPECT_TRUE(has(contentsOf(out), "\"n\":3,")) << contentsOf(out);
  EXPECT_FALSE(std::filesystem::exists(out + ".new"));
}

TEST_F(LogFolderTest, ExportReplacesAFileOnlyWhenItIsAskedTo) {
  const std::string out = folder.write("out", "mine");
  const ProgramOutcome refused = runProgram({"export", log, "--csv", out});
  EXPECT_EQ(refused.status, 1);
  EXPECT_TRUE(has(refused.errors, out + ": is there already")) << refused.errors;
  EXPECT_EQ(contentsOf(out), "mine");
  EXPECT_EQ(runProgram({"export", log, "--csv", out, "--force"}).status, 0);
  EXPECT_EQ(contentsOf(out).find("log,n,kind"), 0U);
}

TEST_F(LogFolderTest, ExportMakesADatabase) {
  const std::string out = folder.pathOf("out.db");
  const ProgramOutcome run = runProgram({"export", log, "--sqlite", out});
  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_EQ(contentsOf(out).find("SQLite format 3"), 0U);
}

TEST_F(LogFolderTest, ALogThatAnotherGatewayHoldsIsStatusOne) {
  LogOptions options;
  options.folder = log;
  std::string error;
  const auto held = Log::open(systemFiles(), options, error);
  ASSERT_TRUE(held) << error;
  const ProgramOutcome run = runProgram({"run", folder.write("gateway.toml", kConfig)});
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(has(run.errors, log)) << run.errors;
  EXPECT_EQ(runProgram({"log", log}).status, 0);
}

TEST(GatewayProgram, OutputThatCannotBeWrittenIsStatusOne) {
  const TestFolder folder;
  const std::string config = folder.write("gateway.toml", kConfig);
  ChildProcess process;
  ASSERT_TRUE(process.start({"/bin/sh", "-c", std::string(GATEWAY_PROGRAM) + " --help >/dev/full"},
                            folder.pathOf("said")));
  EXPECT_EQ(process.wait(), 1);
  EXPECT_TRUE(has(contentsOf(folder.pathOf("said")), "standard output: "));
}

TEST(GatewayProgram, AStateThatIsDamagedOrTakenIsStatusOne) {
  const TestFolder folder;
  const std::string state = folder.write("state", "kestrin-gateway consumer 1\nsum 1\n");
  const ProgramOutcome run =
      runProgram({"consume", "--gateway", "a", "--name", "b", "--state", state});
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(has(run.errors, state + ": is damaged")) << run.errors;
}

}  // namespace
}  // namespace kestrin::gateway
