// The kernel's side of a diagnosis, and the user's.
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>

#include "DiagnosisFacts.h"

namespace kestrin::bluez {
namespace {

constexpr char kGroup[] = "bluetooth";

std::vector<std::filesystem::path> entriesOf(const std::string& folder) {
  std::vector<std::filesystem::path> entries;
  std::error_code error;
  std::filesystem::directory_iterator at(folder, error);
  for (; !error && at != std::filesystem::directory_iterator(); at.increment(error)) {
    entries.push_back(at->path());
  }
  std::sort(entries.begin(), entries.end());
  return entries;
}

std::string wordIn(const std::filesystem::path& file) {
  std::string word;
  std::ifstream(file) >> word;
  return word;
}

bool processHasGroup(gid_t group) {
  if (::getegid() == group) return true;
  const int count = ::getgroups(0, nullptr);
  std::vector<gid_t> groups(static_cast<std::size_t>(std::max(count, 0)));
  if (::getgroups(count, groups.data()) != count) return false;
  return std::find(groups.begin(), groups.end(), group) != groups.end();
}

}  // namespace

MachineFacts lookAtMachine(const MachinePlaces& places) {
  MachineFacts facts;
  for (const auto& radio : entriesOf(places.blocks)) {
    if (wordIn(radio / "type") != "bluetooth") continue;
    const bool hard = wordIn(radio / "hard") == "1";
    if (hard || wordIn(radio / "soft") == "1") {
      facts.blocks.push_back({.radio = wordIn(radio / "name"), .byHardware = hard});
    }
  }
  for (const auto& adapter : entriesOf(places.adapters)) {
    // A link is listed there as well, `hci0:64`.
    const std::string name = adapter.filename();
    if (name.find(':') == std::string::npos) facts.adapters.push_back(name);
  }
  return facts;
}

UserFacts lookAtUser() {
  UserFacts facts{.name = std::to_string(::geteuid())};
  std::array<char, 16384> texts{};
  passwd user{};
  passwd* foundUser = nullptr;
  if (::getpwuid_r(::geteuid(), &user, texts.data(), texts.size(), &foundUser) == 0 &&
      foundUser != nullptr) {
    facts.name = user.pw_name;
  }
  group members{};
  group* foundGroup = nullptr;
  if (::getgrnam_r(kGroup, &members, texts.data(), texts.size(), &foundGroup) == 0 &&
      foundGroup != nullptr) {
    facts.groupExists = true;
    facts.hasGroup = processHasGroup(members.gr_gid);
    for (char** member = members.gr_mem; *member != nullptr; ++member) {
      facts.isListed = facts.isListed || facts.name == *member;
    }
  }
  return facts;
}

}  // namespace kestrin::bluez
