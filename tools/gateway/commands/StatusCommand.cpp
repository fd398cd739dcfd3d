#include "tools/gateway/commands/Commands.h"
#include "tools/gateway/commands/SafeText.h"
#include "tools/gateway/commands/StatusFetch.h"
#include "tools/gateway/commands/StatusPrint.h"
#include "tools/gateway/config/Config.h"
#include "tools/gateway/config/Quantities.h"
#include "tools/gateway/message/Status.h"

namespace kestrin::gateway {
namespace {

/// Where a page that listens everywhere is found from here.
std::string hostFromHere(const std::string& address) {
  if (address == "0.0.0.0") return "127.0.0.1";
  if (address == "::") return "[::1]";
  return address.find(':') == std::string::npos ? address : '[' + address + ']';
}

bool isCredential(const std::optional<std::string>& path) {
  return path && path->starts_with(kCredential);
}

std::optional<StatusPlace> placeOfConfig(const std::string& file, Output& output) {
  std::vector<ConfigComplaint> complaints;
  const auto config = readConfig(file, complaints, Credentials::notLookedAt);
  for (const ConfigComplaint& each : complaints) output.note(each.printed());
  if (!config) return std::nullopt;
  const PageConfig& page = config->page;
  if (!page.on) {
    output.note(file + " has no page to ask; a section [page] would be right");
    return std::nullopt;
  }
  StatusPlace place;
  place.isHere = true;
  place.url = (page.certificateFile ? "https://" : "http://") + hostFromHere(page.address) + ':' +
              std::to_string(page.port);
  if (isCredential(page.tokenFile) || isCredential(page.certificateFile)) {
    output.note(file +
                " leaves the page's token or certificate to the service alone; right would be "
                "--url " +
                place.url + " with --token-file and --ca");
    return std::nullopt;
  }
  place.caFile = page.certificateFile;
  place.hasOwnCertificate = page.certificateFile.has_value();
  std::string error;
  if (page.tokenFile) place.token = readToken(*page.tokenFile, error);
  return place;
}

std::optional<StatusPlace> placeOfUrl(const StatusRequest& request, Output& output) {
  StatusPlace place;
  place.url = request.url.value_or("");
  while (place.url.ends_with('/')) place.url.pop_back();
  const auto address = webAddressOf(place.url);
  if (!address) {
    output.note("'" + safeText(place.url) +
                "' is not where a page is; right would be https://gateway.example:8417");
    return std::nullopt;
  }
  place.isHere = isLoopback(address->host);
  place.caFile = request.caFile;
  if (!request.tokenFile) return place;
  if (!address->isSecure && !place.isHere) {
    output.note("everybody on the way could read the token; https:// would be right");
    return std::nullopt;
  }
  std::string error;
  place.token = readToken(*request.tokenFile, error);
  if (place.token) return place;
  output.note(error);
  return std::nullopt;
}

}  // namespace

int printStatus(const StatusRequest& request, Output& output) {
  if (request.config && (request.tokenFile || request.caFile)) {
    output.note("--token-file and --ca are for --url; a configuration names its own");
    return kWrongUsage;
  }
  const auto place =
      request.config ? placeOfConfig(*request.config, output) : placeOfUrl(request, output);
  if (!place) return kWrongUsage;
  std::string error;
  const auto text = fetchStatus(*place, error);
  const auto status = text ? statusOf(*text, error) : std::nullopt;
  if (!status) {
    output.note(place->url + ": " + lineText(error));
    return kFailure;
  }
  if (request.json) {
    output.line(textOf(*status));
  } else {
    for (const std::string& each : linesOf(*status)) output.line(each);
  }
  const int done = finishOutput(output);
  return done == kSuccess && !status->trouble.empty() ? kTrouble : done;
}

}  // namespace kestrin::gateway
