#include "tools/gateway/config/ConfigRules.h"

#include <algorithm>
#include <limits>
#include <tuple>
#include <utility>

#include "tools/gateway/config/ConfigSection.h"
#include "tools/gateway/config/Quantities.h"

namespace kestrin::gateway {
namespace {

using Words = std::vector<std::string>;
using namespace std::chrono_literals;

constexpr std::uint64_t kLeastBudget = 1ULL << 20U;
constexpr auto kLargest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
constexpr std::string_view kNameRight = "1 to 64 of the characters A-Z, a-z, 0-9, _ and -";
constexpr std::string_view kFileRight = "the name of a file";
constexpr std::size_t kLongestCredential = 200;
constexpr std::string_view kReaderRight = "name = \"KVR-0417\" or address = \"C0:00:00:00:00:01\"";

// Every key, by its section. What is mistyped or stands in the wrong section is looked up here.
const Words kTop{"gateway", "radio", "log", "broker", "page", "reader", "webhook"};
const Words kGateway{"name", "format", "consumers"};
const Words kRadio{"kind", "adapter", "script"};
const Words kLog{"directory", "budget", "sync"};
const Words kBroker{"host",          "port",       "protocol", "user",
                    "password_file", "keep_alive", "window",   "tls"};
const Words kTls{"on", "ca", "certificate", "key"};
const Words kPage{"on", "address", "port", "names", "token_file", "commands", "tls"};
const Words kPageTls{"certificate", "key"};
const Words kReader{"name", "address"};
const Words kWebhook{"name", "url", "token_file", "headers_file", "ca", "batch", "timeout"};

Words allPaths() {
  Words paths;
  const auto add = [&paths](const std::string& section, const Words& keys) {
    for (const std::string& key : keys) paths.emplace_back(section).append(1, '.').append(key);
  };
  add("gateway", kGateway);
  add("radio", kRadio);
  add("log", kLog);
  add("broker", kBroker);
  add("broker.tls", kTls);
  add("page", kPage);
  add("page.tls", kPageTls);
  add("[reader]", {"address"});
  add("[webhook]", {"url", "token_file", "headers_file", "batch", "timeout"});
  return paths;
}

class Judge {
 public:
  explicit Judge(JudgedConfig& judged, const std::string& file)
      : judged_(judged),
        config_(judged.config),
        file_(file),
        top_(judged.tree, "", file, judged.complaints) {}

  void judge() {
    known(top_, kTop);
    inSection("gateway", kGateway, &Judge::gateway);
    inSection("radio", kRadio, &Judge::radio);
    inSection("log", kLog, &Judge::log);
    inSection("broker", kBroker, &Judge::broker);
    inSection("page", kPage, &Judge::page);
    readers();
    webhooks();
  }

 private:
  void inSection(const char* name, const Words& keys, void (Judge::*rules)(ConfigSection&));
  void known(ConfigSection& section, const Words& keys);
  void gateway(ConfigSection& section);
  void consumers(ConfigSection& section);
  void radio(ConfigSection& section);
  void log(ConfigSection& section);
  void budget(ConfigSection& section);
  void sync(ConfigSection& section);
  void broker(ConfigSection& section);
  void host(ConfigSection& section);
  void keepAlive(ConfigSection& section);
  void tls(ConfigSection& broker);
  void certificate(ConfigSection& section);
  void secrets(ConfigSection& section);
  void page(ConfigSection& section);
  void pageAddress(ConfigSection& section);
  void pageNames(ConfigSection& section);
  void pageTls(ConfigSection& page);
  void pageAccess(ConfigSection& section);
  void readers();
  void reader(const ConfigNode& node, std::size_t index);
  void readerName(ConfigSection& section, ReaderConfig& reader);
  void readerAddress(ConfigSection& section, ReaderConfig& reader);
  void keepReader(const ConfigNode& node, ConfigSection& section, ReaderConfig reader);
  void webhooks();
  void webhook(const ConfigNode& node, std::size_t index);
  void webhookName(ConfigSection& section, WebhookConfig& webhook);
  void webhookUrl(ConfigSection& section, WebhookConfig& webhook);
  void webhookTimeout(ConfigSection& section, WebhookConfig& webhook);

  std::optional<std::string> path(ConfigSection& section, std::string_view key,
                                  std::string_view right);
  static std::optional<std::string> credential(ConfigSection& section, std::string_view key,
                                               const std::string& text);
  std::optional<std::chrono::milliseconds> duration(ConfigSection& section, std::string_view key,
                                                    std::string_view right);

  JudgedConfig& judged_;
  Config& config_;
  const std::string& file_;
  const Words paths_ = allPaths();
  ConfigSection top_;
  std::vector<std::uint32_t> readerLines_;  ///< Of each reader of the configuration.
};

void Judge::inSection(const char* name, const Words& keys, void (Judge::*rules)(ConfigSection&)) {
  const ConfigNode* const node = top_.find(name);
  if (node != nullptr && node->kind != ConfigKind::table) {
    return top_.refuseKind(*node, name, "a section, [" + std::string(name) + "],");
  }
  const ConfigNode missing;
  ConfigSection section(node == nullptr ? missing : *node, name, file_, judged_.complaints);
  known(section, keys);
  (this->*rules)(section);
}

void Judge::known(ConfigSection& section, const Words& keys) {
  constexpr std::string_view kSecret = "password";
  section.refuseOthers(keys, paths_, kSecret);
  if (const ConfigNode* const secret = section.find(kSecret)) {
    section.refuseAt(secret->keyPlace, kSecret,
                     "a secret does not stand here; password_file = \"FILE\" in [broker] would be "
                     "right, and the password in that file");
  }
}

void Judge::gateway(ConfigSection& section) {
  section.require("name", kNameRight);
  config_.name = section.text("name", kNameRight).value_or("");
  if (!config_.name.empty() && !isPlainName(config_.name)) {
    section.refuse("name", '"' + shownText(config_.name) + "\" cannot be part of a topic; " +
                               std::string(kNameRight) + " would be right");
  }
  const auto format = section.word("format", {"json", "cbor"});
  if (format == "cbor") config_.format = FrameFormat::cbor;
  consumers(section);
}

void Judge::consumers(ConfigSection& section) {
  constexpr std::string_view kRight = "a list of names, as in [\"warehouse\"],";
  const ConfigNode* const list = section.find("consumers");
  if (list == nullptr) return;
  if (list->kind != ConfigKind::list) return section.refuseKind(*list, "consumers", kRight);
  for (const ConfigNode& each : list->children) {
    const auto& known = config_.consumers;
    if (each.kind != ConfigKind::text) {
      section.refuseKind(each, "consumers", "a name in quotation marks");
    } else if (!isPlainName(each.text)) {
      section.refuseAt(each.place, "consumers",
                       '"' + shownText(each.text) + "\" cannot be part of a topic; " +
                           std::string(kNameRight) + " would be right");
    } else if (std::find(known.begin(), known.end(), each.text) != known.end()) {
      section.refuseAt(each.place, "consumers",
                       '"' + each.text + "\" is in the list twice; once would be right");
    } else {
      config_.consumers.push_back(each.text);
    }
  }
}

void Judge::radio(ConfigSection& section) {
  const auto kind = section.word("kind", {"bluez", "simulated"});
  const bool simulated = kind == "simulated";
  if (simulated) config_.radio = RadioChoice::simulated;
  config_.adapter = section.text("adapter", "the name of an adapter, as in \"hci0\",");
  config_.simulatedScript = path(section, "script", kFileRight);
  if (simulated && section.has("adapter")) {
    section.refuse("adapter", "a simulated radio has no adapter; kind = \"bluez\" would be right");
  }
  if (!simulated && section.has("script")) {
    section.refuse("script", "it is for the simulated radio; kind = \"simulated\" would be right");
  }
}

void Judge::log(ConfigSection& section) {
  constexpr std::string_view kRight = "the name of a folder";
  section.require("directory", kRight);
  config_.log.folder = path(section, "directory", kRight).value_or("");
  budget(section);
  sync(section);
}

void Judge::budget(ConfigSection& section) {
  constexpr std::string_view kRight = "a size from 1 MiB, as in \"4 GiB\" or in bytes,";
  const ConfigNode* const value = section.find("budget");
  if (value == nullptr) return;
  if (value->kind == ConfigKind::whole) {
    config_.log.budget =
        section.whole("budget", kLeastBudget, kLargest, kRight).value_or(config_.log.budget);
    return;
  }
  const auto text = section.text("budget", kRight);
  if (!text) return;
  const auto size = sizeOf(*text);
  if (size && *size >= kLeastBudget && *size <= kLargest) {
    config_.log.budget = *size;
    return;
  }
  section.refuse("budget", '"' + shownText(*text) + "\" is " +
                               (size ? "out of range" : "not a size") + "; " + std::string(kRight) +
                               " would be right");
}

void Judge::sync(ConfigSection& section) {
  constexpr std::string_view kRight = "a time from 1 ms to 1 min, as in \"50 ms\", or 0";
  const auto interval = duration(section, "sync", kRight);
  if (interval && *interval > 1min) {
    return section.refuse("sync", "it is too long; " + std::string(kRight) + " would be right");
  }
  config_.log.syncInterval = interval.value_or(config_.log.syncInterval);
}

void Judge::broker(ConfigSection& section) {
  host(section);
  const auto protocol = section.word("protocol", {"auto", "5", "3.1.1"});
  if (protocol == "5") config_.broker.protocol = 5;
  if (protocol == "3.1.1") config_.broker.protocol = 4;
  config_.broker.user = section.text("user", "a user's name");
  config_.broker.passwordFile = path(section, "password_file", kFileRight);
  keepAlive(section);
  if (const auto window = section.whole("window", 1, 100, "a whole number from 1 to 100")) {
    config_.broker.window = static_cast<std::uint16_t>(*window);
  }
  tls(section);
  const auto port = section.whole("port", 1, 65'535, "a port from 1 to 65535");
  config_.broker.port =
      static_cast<std::uint16_t>(port.value_or(config_.broker.tls.on ? 8883 : 1883));
  secrets(section);
}

void Judge::host(ConfigSection& section) {
  constexpr std::string_view kRight = "the name or address of the broker's host";
  section.require("host", kRight);
  const auto host = section.text("host", kRight);
  if (!host) return;
  config_.broker.host = *host;
  const bool address6 = host->find(':') != host->rfind(':');
  const bool odd = host->find_first_of("/@ []") != std::string::npos;
  const bool control = shownText(*host) != *host && host->size() < 60;
  if (host->find("//") == std::string::npos && !odd && !control && host->size() < 254 &&
      (address6 || host->find(':') == std::string::npos)) {
    return;
  }
  section.refuse("host", '"' + shownText(*host) + "\" is not a host; " + std::string(kRight) +
                             " alone would be right, and port for its port");
}

void Judge::keepAlive(ConfigSection& section) {
  constexpr std::string_view kRight = "a time from 5 s to 1 h in whole seconds, as in \"30 s\",";
  const auto time = duration(section, "keep_alive", kRight);
  if (!time) return;
  if (*time < 5s || *time > 1h || *time % 1s != 0ms) {
    return section.refuse("keep_alive",
                          "it is out of range; " + std::string(kRight) + " would be right");
  }
  config_.broker.keepAlive = std::chrono::duration_cast<std::chrono::seconds>(*time);
}

void Judge::tls(ConfigSection& broker) {
  const ConfigNode* const node = broker.find("tls");
  if (node == nullptr) return;
  if (node->kind != ConfigKind::table) {
    return broker.refuseKind(*node, "tls", "a section, [broker.tls],");
  }
  ConfigSection section(*node, "broker.tls", file_, judged_.complaints);
  known(section, kTls);
  TlsConfig& tls = config_.broker.tls;
  tls.on = section.truth("on").value_or(true);
  tls.caFile = path(section, "ca", kFileRight);
  certificate(section);
}

void Judge::certificate(ConfigSection& section) {
  TlsConfig& tls = config_.broker.tls;
  tls.certificateFile = path(section, "certificate", kFileRight);
  tls.keyFile = path(section, "key", kFileRight);
  if (section.has("certificate") == section.has("key")) return;
  const bool lacksKey = section.has("certificate");
  section.refuse(lacksKey ? "certificate" : "key",
                 std::string("it needs ") + (lacksKey ? "key" : "certificate") + " beside it");
}

void Judge::secrets(ConfigSection& section) {
  if (!section.has("password_file")) return;
  if (!section.has("user")) {
    section.refuse("password_file", "a password needs a user; user = \"NAME\" would be right");
  }
  const BrokerConfig& broker = config_.broker;
  if (broker.tls.on || broker.host.empty() || isLoopback(broker.host)) return;
  section.refuse("password_file",
                 "without TLS everybody on the way to " + shownText(broker.host) +
                     " could read the password; [broker.tls] with on = true would be right");
}

void Judge::page(ConfigSection& section) {
  PageConfig& page = config_.page;
  const bool isThere = top_.has("page");
  page.on = section.truth("on").value_or(isThere);
  pageAddress(section);
  page.port = static_cast<std::uint16_t>(
      section.whole("port", 1, 65'535, "a port from 1 to 65535").value_or(page.port));
  pageNames(section);
  page.tokenFile = path(section, "token_file", kFileRight);
  page.commands = section.truth("commands").value_or(false);
  pageTls(section);
  pageAccess(section);
}

void Judge::pageAddress(ConfigSection& section) {
  constexpr std::string_view kRight =
      "an address of this machine in digits, as in \"127.0.0.1\", or \"0.0.0.0\" for all of them,";
  const auto address = section.text("address", kRight);
  if (!address) return;
  config_.page.address = *address;
  if (isIpAddress(*address)) return;
  section.refuse("address", '"' + shownText(*address) + "\" is not an address; " +
                                std::string(kRight) + " would be right");
}

void Judge::pageNames(ConfigSection& section) {
  constexpr std::string_view kRight = "a list of host names, as in [\"gateway.example\"],";
  const ConfigNode* const list = section.find("names");
  if (list == nullptr) return;
  if (list->kind != ConfigKind::list) return section.refuseKind(*list, "names", kRight);
  for (const ConfigNode& each : list->children) {
    if (each.kind != ConfigKind::text) {
      section.refuseKind(each, "names", "a host's name in quotation marks");
    } else if (!isHostName(each.text)) {
      section.refuseAt(each.place, "names",
                       '"' + shownText(each.text) + "\" is not a host's name; " +
                           std::string(kRight) + " would be right");
    } else {
      config_.page.names.push_back(each.text);
    }
  }
}

void Judge::pageTls(ConfigSection& page) {
  const ConfigNode* const node = page.find("tls");
  if (node == nullptr) return;
  if (node->kind != ConfigKind::table) {
    return page.refuseKind(*node, "tls", "a section, [page.tls],");
  }
  ConfigSection section(*node, "page.tls", file_, judged_.complaints);
  known(section, kPageTls);
  section.require("certificate", kFileRight);
  section.require("key", kFileRight);
  config_.page.certificateFile = path(section, "certificate", kFileRight);
  config_.page.keyFile = path(section, "key", kFileRight);
}

void Judge::pageAccess(ConfigSection& section) {
  const PageConfig& page = config_.page;
  if (page.commands && !section.has("token_file")) {
    section.refuse("commands",
                   "commands need a token; token_file = \"FILE\" beside it would be right");
  }
  if (!page.on || isLoopback(page.address) || !isIpAddress(page.address)) return;
  if (section.has("tls") && section.has("token_file")) return;
  section.refuse("address",
                 shownText(page.address) +
                     " can be reached by other machines; [page.tls] with certificate "
                     "and key, and token_file, or address = \"127.0.0.1\" would be right");
}

void Judge::readers() {
  const ConfigNode* const list = top_.find("reader");
  if (list == nullptr) {
    return top_.refuse("reader", "it is missing; [[reader]] with " + std::string(kReaderRight) +
                                     " would be right, and reader = [] for none");
  }
  if (list->kind != ConfigKind::list) {
    return top_.refuseKind(*list, "reader", "[[reader]], in two pairs of brackets,");
  }
  for (std::size_t i = 0; i < list->children.size(); ++i) reader(list->children[i], i + 1);
}

void Judge::reader(const ConfigNode& node, std::size_t index) {
  const std::string path = "reader[" + std::to_string(index) + ']';
  if (node.kind != ConfigKind::table) {
    return top_.refuseKind(node, path, "[[reader]] with " + std::string(kReaderRight));
  }
  ConfigSection section(node, path, file_, judged_.complaints);
  known(section, kReader);
  if (section.has("name") == section.has("address")) {
    return section.refuse("", section.has("name") ? "it has a name and an address; one of them "
                                                    "would be right"
                                                  : "it needs " + std::string(kReaderRight));
  }
  ReaderConfig reader;
  if (section.has("name")) {
    readerName(section, reader);
  } else {
    readerAddress(section, reader);
  }
  if (!reader.reader.empty()) keepReader(node, section, std::move(reader));
}

void Judge::readerName(ConfigSection& section, ReaderConfig& reader) {
  constexpr std::string_view kRight = "a reader's whole name, as in \"KVR-0417\",";
  constexpr std::size_t kLongest = 248;  // What an advertiser's name may have.
  const auto name = section.text("name", kRight);
  if (!name) return;
  if (addressOf(*name)) {
    return section.refuse("name", "this is an address; address = \"" + *name + "\" would be right");
  }
  if (name->size() > kLongest) {
    return section.refuse("name", "it is too long; " + std::string(kRight) + " of at most " +
                                      std::to_string(kLongest) + " bytes would be right");
  }
  reader.reader = *name;
}

void Judge::readerAddress(ConfigSection& section, ReaderConfig& reader) {
  constexpr std::string_view kRight = "an address as in \"C0:00:00:00:00:01\"";
  const auto text = section.text("address", kRight);
  if (!text) return;
  const auto address = addressOf(*text);
  if (!address) {
    return section.refuse("address", '"' + shownText(*text) + "\" is not an address; " +
                                         std::string(kRight) + " would be right");
  }
  reader = {*address, true};
}

void Judge::keepReader(const ConfigNode& node, ConfigSection& section, ReaderConfig reader) {
  auto& known = config_.readers;
  const auto same = std::find(known.begin(), known.end(), reader);
  if (same != known.end()) {
    const auto index = static_cast<std::size_t>(same - known.begin());
    return section.refuse(reader.isAddress ? "address" : "name",
                          '"' + shownText(reader.reader) + "\" is in line " +
                              std::to_string(readerLines_[index]) +
                              " already; once would be right");
  }
  known.push_back(std::move(reader));
  readerLines_.push_back(node.place.line);
}

void Judge::webhooks() {
  const ConfigNode* const list = top_.find("webhook");
  if (list == nullptr) return;
  if (list->kind != ConfigKind::list) {
    return top_.refuseKind(*list, "webhook", "[[webhook]], in two pairs of brackets,");
  }
  for (std::size_t i = 0; i < list->children.size(); ++i) webhook(list->children[i], i + 1);
}

void Judge::webhook(const ConfigNode& node, std::size_t index) {
  const std::string at = "webhook[" + std::to_string(index) + ']';
  if (node.kind != ConfigKind::table) {
    return top_.refuseKind(node, at, "[[webhook]] with name and url");
  }
  ConfigSection section(node, at, file_, judged_.complaints);
  known(section, kWebhook);
  WebhookConfig webhook;
  webhookName(section, webhook);
  webhookUrl(section, webhook);
  webhook.tokenFile = path(section, "token_file", kFileRight);
  webhook.headersFile = path(section, "headers_file", kFileRight);
  webhook.caFile = path(section, "ca", kFileRight);
  if (const auto batch = section.whole("batch", 1, 1000, "a whole number from 1 to 1000")) {
    webhook.batch = static_cast<std::uint16_t>(*batch);
  }
  webhookTimeout(section, webhook);
  config_.webhooks.push_back(std::move(webhook));
}

void Judge::webhookName(ConfigSection& section, WebhookConfig& webhook) {
  section.require("name", kNameRight);
  webhook.name = section.text("name", kNameRight).value_or("");
  const std::string shown = '"' + shownText(webhook.name) + '"';
  if (!webhook.name.empty() && !isPlainName(webhook.name)) {
    section.refuse("name", shown + " is not a name for a consumer; " + std::string(kNameRight) +
                               " would be right");
  }
  const auto& consumers = config_.consumers;
  const auto& known = config_.webhooks;
  if (std::find(consumers.begin(), consumers.end(), webhook.name) != consumers.end()) {
    section.refuse("name", shown +
                               " is in gateway.consumers, who commit by the broker; a name of "
                               "its own would be right");
  } else if (!webhook.name.empty() &&
             std::any_of(known.begin(), known.end(),
                         [&](const auto& each) { return each.name == webhook.name; })) {
    section.refuse("name", shown + " is another webhook's already; once would be right");
  }
}

void Judge::webhookUrl(ConfigSection& section, WebhookConfig& webhook) {
  constexpr std::string_view kRight = "an address as in \"https://host.example/frames\"";
  section.require("url", kRight);
  const auto url = section.text("url", kRight);
  if (!url) return;
  const auto address = webAddressOf(*url);
  // It is not repeated: many have a secret in their path.
  if (!address) {
    return section.refuse("url", "it is not the address of a web service; " + std::string(kRight) +
                                     ", without a user and a fragment, would be right");
  }
  if (!address->isSecure && !isLoopback(address->host)) {
    return section.refuse("url", "with http everybody on the way to " + shownText(address->host) +
                                     " could read and change it; https would be right");
  }
  webhook.url = *url;
}

void Judge::webhookTimeout(ConfigSection& section, WebhookConfig& webhook) {
  constexpr std::string_view kRight = "a time from 1 s to 5 min, as in \"30 s\",";
  const auto timeout = duration(section, "timeout", kRight);
  if (!timeout) return;
  if (*timeout < 1s || *timeout > 5min) {
    return section.refuse("timeout",
                          "it is out of range; " + std::string(kRight) + " would be right");
  }
  webhook.timeout = *timeout;
}

std::optional<std::string> Judge::path(ConfigSection& section, std::string_view key,
                                       std::string_view right) {
  auto name = section.text(key, right);
  if (!name) return std::nullopt;
  if (name->find('\0') != std::string::npos || name->find('\n') != std::string::npos ||
      name->starts_with("-----BEGIN")) {
    section.refuse(key,
                   "its content does not belong here; " + std::string(right) + " would be right");
    return std::nullopt;
  }
  if (right == kFileRight && name->starts_with(kCredential)) return credential(section, key, *name);
  const auto slash = file_.rfind('/');
  if (name->starts_with('/') || slash == std::string::npos) return name;
  return file_.substr(0, slash + 1) + *name;
}

std::optional<std::string> Judge::credential(ConfigSection& section, std::string_view key,
                                             const std::string& text) {
  const auto name = std::string_view(text).substr(kCredential.size());
  const bool isPlain = std::all_of(name.begin(), name.end(), [](char c) {
    return isPlainName(std::string_view(&c, 1)) || c == '.';
  });
  if (isPlain && !name.empty() && name.front() != '.' && name.size() <= kLongestCredential) {
    return text;
  }
  section.refuse(key,
                 '"' + shownText(text) +
                     "\" is not a credential; \"credential:NAME\" would be right, with a name of"
                     " A-Z a-z 0-9 _ . -");
  return std::nullopt;
}

std::optional<std::chrono::milliseconds> Judge::duration(ConfigSection& section,
                                                         std::string_view key,
                                                         std::string_view right) {
  const ConfigNode* const value = section.find(key);
  if (value != nullptr && value->kind == ConfigKind::whole && value->whole == 0) return 0ms;
  const auto text = section.text(key, right);
  if (!text) return std::nullopt;
  const auto time = durationOf(*text);
  if (!time) {
    section.refuse(key, '"' + shownText(*text) + "\" is not a time; " + std::string(right) +
                            " would be right");
  }
  return time;
}

/// What stands in the brackets of "[2]"; 0 where there are none.
std::size_t wholeIn(std::string_view brackets) {
  std::size_t number = 0;
  for (const char c : brackets) {
    if (c >= '0' && c <= '9') number = number * 10 + static_cast<std::size_t>(c - '0');
  }
  return number;
}

}  // namespace

JudgedConfig judgedText(const std::string& text, const std::string& file) {
  JudgedConfig judged;
  ConfigSyntaxError error;
  auto tree = readConfigTree(text, error);
  if (!tree) {
    judged.complaints.push_back({file, error.place.line, error.place.column, "", error.text});
    return judged;
  }
  judged.tree = std::move(*tree);
  Judge(judged, file).judge();
  sortByPlace(judged.complaints);
  return judged;
}

ConfigPlace placeOfKey(const ConfigNode& tree, std::string_view path) {
  const ConfigNode* node = &tree;
  while (!path.empty()) {
    const auto end = std::min(path.find('.'), path.size());
    auto key = path.substr(0, end);
    const auto bracket = std::min(key.find('['), key.size());
    const auto index = wholeIn(key.substr(bracket));
    key = key.substr(0, bracket);
    const auto& children = node->children;
    const auto child = std::find_if(children.begin(), children.end(),
                                    [key](const auto& each) { return each.key == key; });
    if (child == children.end() || index > child->children.size()) return {};
    node = index == 0 ? &*child : &child->children[index - 1];
    path.remove_prefix(std::min(end + 1, path.size()));
  }
  return node->place;
}

void sortByPlace(std::vector<ConfigComplaint>& complaints) {
  std::stable_sort(complaints.begin(), complaints.end(), [](const auto& a, const auto& b) {
    return std::tie(a.line, a.column) < std::tie(b.line, b.column);
  });
}

}  // namespace kestrin::gateway
