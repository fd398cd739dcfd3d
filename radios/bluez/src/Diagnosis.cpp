#include "kestrin/bluez/Diagnosis.h"

#include <chrono>
#include <utility>

#include "DiagnosisFacts.h"

namespace kestrin::bluez {
namespace {

constexpr Time kLookLimit = std::chrono::seconds(5);

constexpr char kBusSubject[] = "message bus";
constexpr char kDaemonSubject[] = "daemon";
constexpr char kPermissionSubject[] = "permission";
constexpr char kBlockSubject[] = "radio block";

Finding good(std::string subject, std::string text) {
  return {std::move(subject), Verdict::good, std::move(text), {}};
}

Finding trouble(std::string subject, std::string text, std::string advice) {
  return {std::move(subject), Verdict::trouble, std::move(text), std::move(advice)};
}

Finding notSeen(std::string subject, const std::string& without) {
  return {std::move(subject), Verdict::notSeen, "not to be seen without " + without, {}};
}

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const auto& word : words) text += (text.empty() ? "" : ", ") + word;
  return text;
}

bool isTimeout(const CallError& error) {
  return error.name == "org.freedesktop.DBus.Error.Timeout" ||
         error.name == "org.freedesktop.DBus.Error.NoReply";
}

Finding busFinding(const DiagnosisFacts& facts) {
  const auto& error = facts.daemon.busTrouble;
  if (!error) return good(kBusSubject, "answers");
  const std::string text = "cannot be used: " + error->message;
  if (isRefusal(*error)) {
    return trouble(kBusSubject, text, "let user " + facts.user.name + " use it, or run as root");
  }
  if (isTimeout(*error)) {
    return trouble(kBusSubject, text,
                   "see 'systemctl status dbus'; a restart of the machine helps");
  }
  return trouble(kBusSubject, text, "install the package dbus, 'systemctl start dbus'");
}

Finding daemonFinding(const DiagnosisFacts& facts) {
  const DaemonFacts& daemon = facts.daemon;
  if (!daemon.isThere && facts.machine.adapters.empty()) {
    return trouble(kDaemonSubject, "bluetoothd is not running, and the kernel has no adapter",
                   "plug an adapter in, install the package bluez, 'systemctl start bluetooth'");
  }
  if (!daemon.isThere) {
    return trouble(kDaemonSubject, "bluetoothd is not running",
                   "install the package bluez, 'systemctl start bluetooth'");
  }
  if (daemon.trouble && !isRefusal(*daemon.trouble)) {
    return trouble(kDaemonSubject, "bluetoothd does not answer: " + daemon.trouble->message,
                   "'systemctl restart bluetooth'");
  }
  return good(kDaemonSubject, daemon.version.empty()
                                  ? "bluetoothd runs and does not say its version"
                                  : "bluetoothd runs, BlueZ " + daemon.version);
}

Finding permissionFinding(const UserFacts& user, bool refused) {
  if (!refused) {
    return good(kPermissionSubject, "user " + user.name + " may talk to the daemon");
  }
  const std::string text = "user " + user.name + " may not talk to the daemon";
  if (!user.groupExists || user.hasGroup) {
    return trouble(kPermissionSubject, text,
                   "run as root, or allow this user to send to org.bluez in /etc/dbus-1/system.d");
  }
  if (user.isListed) {
    return trouble(kPermissionSubject, text,
                   "log out and in again: this session is older than the membership in the group "
                   "bluetooth");
  }
  return trouble(kPermissionSubject, text,
                 "'adduser " + user.name + " bluetooth' and log in again, or run as root");
}

Finding blockFinding(const std::vector<Block>& blocks, bool harmless) {
  if (blocks.empty()) return good(kBlockSubject, "none");
  std::vector<std::string> radios;
  bool byHardware = false;
  for (const auto& block : blocks) {
    radios.push_back(block.radio);
    byHardware = byHardware || block.byHardware;
  }
  const std::string text = joined(radios) + (blocks.size() == 1 ? " is" : " are") + " blocked" +
                           (byHardware ? " by a switch or key of the machine" : "");
  if (harmless) return good(kBlockSubject, text + ", the adapter in use is not");
  return trouble(kBlockSubject, text,
                 byHardware ? "turn radio on with the machine's switch or key (flight mode)"
                            : "'rfkill unblock bluetooth'");
}

Finding noAdapter(const DiagnosisFacts& facts) {
  if (facts.wantedAdapter && !facts.daemon.adapters.empty()) {
    std::vector<std::string> names;
    for (const auto& [path, adapter] : facts.daemon.adapters) {
      names.emplace_back(lastElement(path));
    }
    return trouble("adapter " + *facts.wantedAdapter, "is not there", "use " + joined(names));
  }
  if (facts.machine.adapters.empty()) {
    return trouble("adapter", "the kernel has none",
                   "plug one in; 'dmesg' tells of one that has no driver or firmware");
  }
  return trouble("adapter",
                 "the kernel has " + joined(facts.machine.adapters) + ", the daemon shows none",
                 "'systemctl restart bluetooth', then see 'journalctl -u bluetooth'");
}

Finding adapterFinding(const std::string& path, const AdapterFacts& adapter, bool used,
                       bool blocked) {
  const std::string name(lastElement(path));
  const std::string subject = "adapter " + name;
  std::string text = adapter.address;
  if (!adapter.alias.empty()) text += " '" + adapter.alias + "'";
  text += adapter.object.powered ? ", powered on" : ", powered off";
  if (!used) return good(subject, text + ", not in use");
  if (!adapter.isCentral) {
    return trouble(subject, text + ", cannot connect to devices", "use another adapter");
  }
  if (adapter.object.powered) return good(subject, text);
  return trouble(
      subject, text,
      blocked ? "end the block, then 'bluetoothctl power on'" : "'bluetoothctl power on'");
}

void concludeAdapters(const DiagnosisFacts& facts, Diagnosis& diagnosis) {
  std::map<std::string, AdapterObject> objects;
  for (const auto& [path, adapter] : facts.daemon.adapters) objects[path] = adapter.object;
  const std::string used = chooseAdapter(objects, facts.wantedAdapter, {}, false);
  const bool powered = !used.empty() && objects.at(used).powered;
  diagnosis.findings.push_back(blockFinding(facts.machine.blocks, powered));
  if (used.empty()) diagnosis.findings.push_back(noAdapter(facts));
  for (const auto& [path, adapter] : facts.daemon.adapters) {
    diagnosis.findings.push_back(
        adapterFinding(path, adapter, path == used, !facts.machine.blocks.empty()));
  }
  diagnosis.scanWorks = powered && facts.daemon.adapters.at(used).isCentral;
}

}  // namespace

Diagnosis conclude(const DiagnosisFacts& facts) {
  Diagnosis diagnosis;
  auto& findings = diagnosis.findings;
  findings.push_back(busFinding(facts));
  const bool bus = findings.back().verdict == Verdict::good;
  findings.push_back(bus ? daemonFinding(facts) : notSeen(kDaemonSubject, "the message bus"));
  const bool daemon = findings.back().verdict == Verdict::good;
  const bool refused = facts.daemon.trouble && isRefusal(*facts.daemon.trouble);
  findings.push_back(daemon ? permissionFinding(facts.user, refused)
                            : notSeen(kPermissionSubject, "the daemon"));
  if (daemon && !refused) {
    concludeAdapters(facts, diagnosis);
    return diagnosis;
  }
  findings.push_back(blockFinding(facts.machine.blocks, false));
  findings.push_back(notSeen("adapter", refused ? "the permission" : "the daemon"));
  return diagnosis;
}

Diagnosis diagnose(const Options& options) {
  try {
    return conclude({.wantedAdapter = options.adapter,
                     .daemon = lookAtDaemon(options, kLookLimit),
                     .machine = lookAtMachine({}),
                     .user = lookAtUser()});
  } catch (const std::exception& error) {
    // This machine is short of memory or threads.
    return {.scanWorks = false,
            .findings = {trouble(kBusSubject, std::string("cannot be looked at: ") + error.what(),
                                 "end other programs")}};
  }
}

}  // namespace kestrin::bluez
