#include "tools/gateway/commands/CommandLine.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "tools/NearestWord.h"
#include "tools/gateway/commands/Commands.h"
#include "tools/gateway/commands/SafeText.h"

namespace kestrin::gateway {
namespace {

constexpr std::uint16_t kPlainPort = 1883;
constexpr std::uint16_t kTlsPort = 8883;

struct Requests {
  RunRequest run;
  std::string config;
  LogRequest log;
  TailRequest tail;
  ExportRequest exporting;
  ConsumeRequest consume;
  StatusRequest status;
  std::uint32_t port = 0;
};

/// An empty word is most often a variable that a script forgot to set.
std::string checkFilled(const std::string& text) {
  return text.empty() ? "is empty; name a file or folder" : "";
}

std::string checkNumber(const std::string& text) {
  const bool isNumber = !text.empty() && text.size() <= 18 && text.front() != '0' &&
                        text.find_first_not_of("0123456789") == std::string::npos;
  return isNumber ? "" : "'" + safeText(text) + "' is not a number from 1 on";
}

std::string checkPort(const std::string& text) {
  constexpr int kMost = 65535;
  const bool digits = !text.empty() && text.size() <= 5 &&
                      text.find_first_not_of("0123456789") == std::string::npos;
  if (digits && std::stoi(text) >= 1 && std::stoi(text) <= kMost) return "";
  return "'" + safeText(text) + "' is not a port; right are 1 to 65535";
}

void addRun(CLI::App& app, Requests& requests) {
  CLI::App* const command =
      app.add_subcommand("run", "Hold the readers, keep what they send, hand it to the broker");
  command->add_option("CONFIG", requests.run.config, "The configuration, a TOML file")
      ->required()
      ->check(checkFilled);
  command->add_flag("--log", requests.run.log, "Show the library's log on standard error");
  command
      ->add_option("--sent", requests.run.sent,
                   "With the simulated radio: add what its readers send to this file, a line each")
      ->type_name("FILE");
  command
      ->add_option(
          "--taken", requests.run.taken,
          "Add what the log has taken to this file, a line each, to hold a consumer against")
      ->type_name("FILE");
  command->footer(
      "Stays in the foreground; a line for each event on standard error. SIGTERM and SIGINT stop\n"
      "it, SIGHUP reads the configuration again.\n\nExample:\n"
      "  kestrin-gateway run gateway.toml");
}

void addCheckConfig(CLI::App& app, Requests& requests) {
  CLI::App* const command =
      app.add_subcommand("check-config", "Say of a configuration what is wrong in it");
  command->add_option("FILE", requests.config, "The configuration")->required()->check(checkFilled);
  command->footer(
      "Prints every complaint with file, line, column and key. The exit status is 0 when there is\n"
      "none, else 2.\n\nExample:\n  kestrin-gateway check-config gateway.toml");
}

void addLog(CLI::App& app, Requests& requests) {
  CLI::App* const command = app.add_subcommand("log", "Print the records of a log");
  command->add_option("FOLDER", requests.log.folder, "The log's folder, or that of a damaged one")
      ->required()
      ->check(checkFilled);
  command->footer(
      "Changes nothing, and may be used while the gateway runs. What is wrong with the log is "
      "said\n"
      "on standard error.\n\nExample:\n  kestrin-gateway log /var/lib/kestrin-gateway/log");
}

void addTail(CLI::App& app, Requests& requests) {
  CLI::App* const command =
      app.add_subcommand("tail", "Print a log's records as they come, a line each");
  TailRequest& request = requests.tail;
  command->add_option("FOLDER", request.place, "The log's folder, or the gateway's configuration")
      ->required()
      ->check(checkFilled);
  command->add_option("--from", request.from, "Begin with this number, and not with the last ten")
      ->check(checkNumber)
      ->type_name("NUMBER");
  command->add_option("--count", request.count, "End after so many records")
      ->check(checkNumber)
      ->type_name("NUMBER");
  command->add_flag("--text", request.text, "Lines as `log` prints them, and not JSON");
  command->footer(
      "Changes nothing, and follows the log while the gateway runs. What is not in the log any\n"
      "more is said by number on standard error. SIGTERM, SIGINT and a reader of its output that\n"
      "goes away end it.\n\nExample:\n  kestrin-gateway tail /var/lib/kestrin-gateway/log");
}

void addExport(CLI::App& app, Requests& requests) {
  CLI::App* const command = app.add_subcommand("export", "Write the records of a log to a file");
  command->add_option("FOLDER", requests.exporting.folder, "The log's folder")
      ->required()
      ->check(checkFilled);
  const auto form = [&requests](ExportForm chosen) {
    return [&requests, chosen](const std::string& file) {
      requests.exporting.form = chosen;
      requests.exporting.file = file;
    };
  };
  auto* const forms = command->add_option_group("forms", "One of them");
  forms->require_option(1);
  forms->add_option_function<std::string>("--csv", form(ExportForm::csv), "A table of commas")
      ->type_name("FILE")
      ->check(checkFilled);
  forms->add_option_function<std::string>("--jsonl", form(ExportForm::jsonLines), "Lines of JSON")
      ->type_name("FILE")
      ->check(checkFilled);
  forms->add_option_function<std::string>("--sqlite", form(ExportForm::sqlite), "A SQLite database")
      ->type_name("FILE")
      ->check(checkFilled);
  command->add_flag("--force", requests.exporting.force, "Replace a file that is there");
  command->footer("Example:\n  kestrin-gateway export /var/lib/kestrin-gateway/log --csv log.csv");
}

void addTls(CLI::App& command, BrokerConfig& broker) {
  command.add_flag("--tls", broker.tls.on, "Encrypt the connection");
  command
      .add_option("--ca", broker.tls.caFile, "Whom to trust, instead of the system's; with --tls")
      ->type_name("FILE");
  command.add_option("--certificate", broker.tls.certificateFile, "The consumer's; with --tls")
      ->type_name("FILE");
  command.add_option("--key", broker.tls.keyFile, "The certificate's key")->type_name("FILE");
}

void addConsume(CLI::App& app, Requests& requests) {
  CLI::App* const command =
      app.add_subcommand("consume", "Print what a gateway's readers send, each record once");
  ConsumeRequest& request = requests.consume;
  command->add_option("--gateway", request.gateway, "The gateway's name")->required();
  command
      ->add_option("--name", request.name,
                   "The consumer's name, as the gateway's configuration declares it")
      ->required();
  command
      ->add_option("--state", request.state,
                   "Where it keeps up to where it has everything; made if it is not there")
      ->type_name("FILE")
      ->required()
      ->check(checkFilled);
  request.broker.host = "localhost";
  command->add_option("--host", request.broker.host, "The broker's host")->capture_default_str();
  command->add_option("--port", requests.port, "The broker's port (1883, with TLS 8883)")
      ->check(checkPort)
      ->type_name("PORT");
  command->add_option("--user", request.broker.user, "The user that the broker knows");
  command->add_option("--password-file", request.broker.passwordFile, "A file with the password")
      ->type_name("FILE");
  addTls(*command, request.broker);
  command->footer(
      "Prints a line of JSON for each record. A record is committed once it was printed and the\n"
      "state is on the disk: killed in between, it is printed once more, with the same number.\n"
      "SIGTERM and SIGINT end it.\n\nExample:\n"
      "  kestrin-gateway consume --gateway hall-1 --name wms --state wms.state >>frames.jsonl");
}

void addStatus(CLI::App& app, Requests& requests) {
  CLI::App* const command = app.add_subcommand("status", "Say how a gateway is");
  StatusRequest& request = requests.status;
  auto* const places = command->add_option_group("places", "One of them");
  places->require_option(1);
  places->add_option("CONFIG", request.config, "The configuration of a gateway on this machine")
      ->check(checkFilled);
  places->add_option("--url", request.url, "Where its page is, as in https://gateway.example:8417")
      ->type_name("URL");
  command->add_option("--token-file", request.tokenFile, "A file with the page's token; with --url")
      ->type_name("FILE");
  command->add_option("--ca", request.caFile, "Whom to trust, instead of the system's; with --url")
      ->type_name("FILE");
  command->add_flag("--json", request.json, "Print it as JSON, for programs");
  command->footer(
      "It asks the gateway's page, which [page] in the configuration turns on. The exit status is\n"
      "0 when nothing is wrong, 3 when something is, 1 when the gateway cannot be asked.\n\n"
      "Example:\n  kestrin-gateway status /etc/kestrin-gateway/gateway.toml");
}

int run(const std::string& command, Requests& requests, Output& output) {
  if (command == "run") return runGateway(requests.run, output);
  if (command == "check-config") return checkConfig(requests.config, output);
  if (command == "log") return printLog(requests.log, output);
  if (command == "tail") return tailLog(requests.tail, output);
  if (command == "export") return exportLog(requests.exporting, output);
  if (command == "status") return printStatus(requests.status, output);
  BrokerConfig& broker = requests.consume.broker;
  const std::uint16_t usual = broker.tls.on ? kTlsPort : kPlainPort;
  broker.port = requests.port == 0 ? usual : static_cast<std::uint16_t>(requests.port);
  const bool hasFiles = broker.tls.caFile || broker.tls.certificateFile || broker.tls.keyFile;
  if (hasFiles && !broker.tls.on) {
    output.note("--ca, --certificate and --key are for an encrypted connection; add --tls");
    return kWrongUsage;
  }
  return consume(requests.consume, output);
}

/// What may stand where an unexpected word stands.
std::vector<std::string> knownWords(const CLI::App& app, const CLI::App* command) {
  std::vector<std::string> words;
  if (command == nullptr) {
    for (const CLI::App* each : app.get_subcommands({})) words.push_back(each->get_name());
    return words;
  }
  for (const CLI::Option* option : command->get_options()) {
    for (const std::string& name : option->get_lnames()) words.push_back("--" + name);
  }
  return words;
}

std::string unexpectedInWords(const CLI::App& app, const CLI::App* command,
                              const std::string& typed) {
  std::string text = "'" + safeText(typed) + "' is not expected";
  if (command == nullptr) text = "'" + safeText(typed) + "' is not a command";
  const std::string meant = tools::nearestWord(typed, knownWords(app, command));
  return meant.empty() ? text : text + "; did you mean " + meant + "?";
}

/// Help and version are not errors; everything else is wrong usage, said in one line.
int sayParseResult(const CLI::App& app, const CLI::ParseError& error, Output& output) {
  if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
    std::ostringstream text;
    app.exit(error, text, text);
    std::string shown = text.str();
    while (shown.ends_with('\n')) shown.pop_back();
    output.line(shown);
    return finishOutput(output);
  }
  const std::vector<CLI::App*> commands = app.get_subcommands();
  const bool early = commands.empty() || !app.remaining(false).empty();
  const std::vector<std::string> unexpected = app.remaining(true);
  std::string text = error.what();
  if (!unexpected.empty()) {
    text = unexpectedInWords(app, early ? nullptr : commands.front(), unexpected.front());
  } else if (commands.empty()) {
    text = "a command is missing";
  }
  std::replace(text.begin(), text.end(), '\n', ' ');
  const std::string place = early ? "" : " " + commands.front()->get_name();
  output.note(safeText(text) + " (kestrin-gateway" + place + " --help says more)");
  return kWrongUsage;
}

}  // namespace

int runCommandLine(int argumentCount, const char* const* arguments, Output& output) {
  Requests requests;
  CLI::App app("Holds RFID readers, keeps what they send, and hands it to an MQTT broker.",
               "kestrin-gateway");
  app.set_version_flag("--version", "kestrin-gateway " KESTRIN_VERSION);
  app.require_subcommand(1);
  addRun(app, requests);
  addCheckConfig(app, requests);
  addLog(app, requests);
  addTail(app, requests);
  addExport(app, requests);
  addConsume(app, requests);
  addStatus(app, requests);
  app.footer("Exit status: 0 done, 1 failed, 2 wrong usage or configuration.");
  try {
    app.parse(argumentCount, arguments);
  } catch (const CLI::ParseError& error) {
    return sayParseResult(app, error, output);
  }
  return run(app.get_subcommands().front()->get_name(), requests, output);
}

}  // namespace kestrin::gateway
