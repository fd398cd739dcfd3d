// The commands of `kestrin-gateway`, one function each.
//
// Threads: one at a time; `run`, `tail` and `consume` turn a run loop.
// Lifetime: everything ends with the call.
// Errors: said in one line each; the exit status says which kind.
#pragma once

#include <optional>
#include <string>

#include "tools/gateway/commands/Output.h"
#include "tools/gateway/commands/RecordWriter.h"
#include "tools/gateway/config/Config.h"

namespace kestrin::gateway {

inline constexpr int kSuccess = 0;
inline constexpr int kFailure = 1;     ///< Something failed while it ran.
inline constexpr int kWrongUsage = 2;  ///< The configuration or the command line is wrong.

struct RunRequest {
  std::string config;
  std::optional<std::string> sent{};  ///< Where simulated readers write down what they send.
  /// Where each record is written down once the log has it: log, number, bytes.
  std::optional<std::string> taken{};
  bool log = false;  ///< Whether the library's log is shown.
};
int runGateway(const RunRequest& request, Output& output);

int checkConfig(const std::string& file, Output& output);

struct LogRequest {
  std::string folder;
};
int printLog(const LogRequest& request, Output& output);

struct TailRequest {
  std::string place;  ///< The log's folder, or the gateway's configuration.
  std::optional<RecordNumber> from{};
  std::optional<std::uint64_t> count{};
  bool text = false;  ///< As `log` prints it, instead of JSON.
};
int tailLog(const TailRequest& request, Output& output);

struct ExportRequest {
  std::string folder;
  ExportForm form = ExportForm::csv;
  std::string file;
  bool force = false;  ///< Whether a file that is there is replaced.
};
int exportLog(const ExportRequest& request, Output& output);

struct ConsumeRequest {
  std::string gateway;
  std::string name;
  std::string state;
  BrokerConfig broker{};
};
int consume(const ConsumeRequest& request, Output& output);

/// Something is wrong with the gateway that the status is of.
inline constexpr int kTrouble = 3;

struct StatusRequest {
  std::optional<std::string> config{};  ///< Whose page is asked; else `url` is.
  std::optional<std::string> url{};     ///< Without a path.
  std::optional<std::string> tokenFile{};
  std::optional<std::string> caFile{};
  bool json = false;
};
int printStatus(const StatusRequest& request, Output& output);

/// Flushes; the exit status of a command whose work is done.
int finishOutput(Output& output);

}  // namespace kestrin::gateway
