// The section about the page: who may reach it, and what that takes.
#include "gateway/config/ConfigTexts.h"

namespace kestrin::gateway {
namespace {

PageConfig pageOf(const std::string& section) {
  ConfigText text;
  text.more += section;
  return configOf(text.text()).page;
}

/// The complaint about a section behind a configuration that is right, without its place.
std::string complaintAbout(const std::string& section) {
  ConfigText text;
  text.more += section;
  const auto line = complaintOf(text.text());
  return line.substr(std::min(line.find(": ") + 2, line.size()));
}

constexpr char kOpen[] =
    " can be reached by other machines; [page.tls] with certificate and key, and token_file, or "
    "address = \"127.0.0.1\" would be right";

TEST(PageConfig, WithoutItsSectionThereIsNoPage) { EXPECT_FALSE(pageOf("").on); }

TEST(PageConfig, WithItsSectionThePageIsForThisMachineAndOnlyReads) {
  const PageConfig page = pageOf("[page]\n");
  EXPECT_TRUE(page.on);
  EXPECT_EQ(page.address, "127.0.0.1");
  EXPECT_EQ(page.port, 8417);
  EXPECT_FALSE(page.commands);
  EXPECT_FALSE(pageOf("[page]\non = false\n").on);
}

TEST(PageConfig, TakesEveryKey) {
  const PageConfig page = pageOf(
      "[page]\naddress = \"::\"\nport = 443\nnames = [\"hall.example\", \"h\"]\ntoken_file = "
      "\"t\"\n"
      "commands = true\n[page.tls]\ncertificate = \"c\"\nkey = \"k\"\n");
  EXPECT_EQ(page.address, "::");
  EXPECT_EQ(page.port, 443);
  EXPECT_EQ(page.names, (std::vector<std::string>{"hall.example", "h"}));
  EXPECT_EQ(page.tokenFile, "t");
  EXPECT_TRUE(page.commands);
  EXPECT_EQ(page.certificateFile, "c");
  EXPECT_EQ(page.keyFile, "k");
}

TEST(PageConfig, BeyondThisMachineItTakesTlsAndAToken) {
  const std::string tls = "[page.tls]\ncertificate = \"c\"\nkey = \"k\"\n";
  for (const std::string address : {"0.0.0.0", "192.0.2.7", "::", "2001:db8::1"}) {
    const std::string section = "[page]\naddress = \"" + address + "\"\n";
    const std::string why = "page.address: " + address + kOpen;
    EXPECT_EQ(complaintAbout(section), why);
    EXPECT_EQ(complaintAbout(section + "token_file = \"t\"\n"), why);
    EXPECT_EQ(complaintAbout(section + tls), why);
    EXPECT_TRUE(pageOf(std::string(section).append("token_file = \"t\"\n").append(tls)).on);
    EXPECT_FALSE(pageOf(section + "on = false\n").on);
  }
  for (const std::string address : {"127.0.0.1", "127.8.0.1", "::1"}) {
    EXPECT_TRUE(pageOf("[page]\naddress = \"" + address + "\"\n").on) << address;
  }
}

TEST(PageConfig, CommandsTakeAToken) {
  EXPECT_EQ(complaintAbout("[page]\ncommands = true\n"),
            "page.commands: commands need a token; token_file = \"FILE\" beside it would be right");
}

TEST(PageConfig, WhatIsNoAddressOrNameIsNamed) {
  EXPECT_EQ(complaintAbout("[page]\naddress = \"eth0\"\n"),
            "page.address: \"eth0\" is not an address; an address of this machine in digits, as in "
            "\"127.0.0.1\", or \"0.0.0.0\" for all of them, would be right");
  EXPECT_EQ(complaintAbout("[page]\nnames = [\"a b\"]\n"),
            "page.names: \"a b\" is not a host's name; a list of host names, as in "
            "[\"gateway.example\"], would be right");
  EXPECT_EQ(complaintAbout("[page]\nport = 0\n").substr(0, 11), "page.port: ");
  EXPECT_EQ(complaintAbout("[page]\nprot = 80\n"),
            "page.prot: this key is not known; port would be right");
}

TEST(PageConfig, TlsTakesACertificateAndItsKey) {
  EXPECT_EQ(complaintAbout("[page.tls]\ncertificate = \"c\"\n"),
            "page.tls.key: it is missing; the name of a file would be right");
}

TEST(PageConfig, AChangeTakesARestart) {
  Config before;
  Config after;
  after.page = {true, "::1", 1, {"n"}, "t", true, "c", "k"};
  EXPECT_EQ(needsRestart(before, after),
            (std::vector<std::string>{"page.on", "page.address", "page.port", "page.names",
                                      "page.token_file", "page.commands", "page.tls.certificate",
                                      "page.tls.key"}));
}

}  // namespace
}  // namespace kestrin::gateway
