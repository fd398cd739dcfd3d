// The configuration's own file and the files that it names.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cstdlib>

#include <filesystem>
#include <fstream>

#include "gateway/config/ConfigTexts.h"
#include "gateway/support/TestEnvironment.h"

namespace kestrin::gateway {
namespace {

using Lines = std::vector<std::string>;

class ConfigFiles : public testing::Test {
 protected:
  void SetUp() override {
    std::string name = testing::TempDir() + "/kestrin-config-XXXXXX";
    ASSERT_NE(::mkdtemp(name.data()), nullptr);
    folder_ = name;
  }
  void TearDown() override {
    removeVariable("CREDENTIALS_DIRECTORY");
    std::filesystem::remove_all(folder_);
  }

  std::string put(const std::string& name, const std::string& content, ::mode_t mode = 0600) {
    std::string path = folder_ + '/' + name;
    std::ofstream(path) << content;
    EXPECT_EQ(::chmod(path.c_str(), mode), 0);
    return path;
  }
  Lines complaints(const std::string& path) {
    std::vector<ConfigComplaint> complaints;
    EXPECT_FALSE(readConfig(path, complaints));
    return printedOf(complaints);
  }
  std::string withSecrets() {
    ConfigText text;
    text.broker +=
        "user = \"me\"\npassword_file = \"password\"\n[broker.tls]\nca = \"ca\"\n"
        "certificate = \"certificate\"\nkey = \"key\"\n";
    return put("gateway.toml", text.text());
  }

  /// A configuration whose broker's password is a credential, and where credentials are.
  std::string withCredential(const std::string& name) {
    std::filesystem::create_directory(folder_ + "/credentials");
    setVariable("CREDENTIALS_DIRECTORY", (folder_ + "/credentials"));
    ConfigText text;
    text.broker += "user = \"me\"\npassword_file = \"credential:" + name + "\"\n";
    return put("gateway.toml", text.text());
  }

  std::string folder_;
};

TEST_F(ConfigFiles, AFileIsReadWithTheFilesThatItNames) {
  const auto path = withSecrets();
  put("password", "swordfish\n");
  put("ca", "", 0644);
  put("certificate", "", 0644);
  put("key", "");
  std::vector<ConfigComplaint> complaints;
  const auto config = readConfig(path, complaints);
  EXPECT_EQ(printedOf(complaints), Lines());
  ASSERT_TRUE(config);
  EXPECT_EQ(config->broker.tls.keyFile, folder_ + "/key");
}

TEST_F(ConfigFiles, FilesThatAreNotThereAreNamedWhereTheConfigurationNamesThem) {
  const auto path = withSecrets();
  const std::string why = " cannot be read: No such file or directory";
  EXPECT_EQ(complaints(path),
            (Lines{path + ":8:17: broker.password_file: " + folder_ + "/password" + why,
                   path + ":10:6: broker.tls.ca: " + folder_ + "/ca" + why,
                   path + ":11:15: broker.tls.certificate: " + folder_ + "/certificate" + why,
                   path + ":12:7: broker.tls.key: " + folder_ + "/key" + why}));
}

TEST_F(ConfigFiles, SecretsThatOthersCanReadAreRefused) {
  const auto path = withSecrets();
  put("password", "swordfish\n", 0604);
  put("ca", "", 0644);
  put("certificate", "", 0644);
  put("key", "", 0620);
  const std::string why = " can be used by others than its owner; chmod 600 would be right";
  EXPECT_EQ(complaints(path),
            (Lines{path + ":8:17: broker.password_file: " + folder_ + "/password" + why,
                   path + ":12:7: broker.tls.key: " + folder_ + "/key" + why}));
}

TEST_F(ConfigFiles, AFolderInAFilesPlaceIsRefused) {
  const auto path = withSecrets();
  put("password", "swordfish\n");
  put("certificate", "", 0644);
  put("key", "");
  std::filesystem::create_directory(folder_ + "/ca");
  EXPECT_EQ(complaints(path), Lines{path + ":10:6: broker.tls.ca: " + folder_ +
                                    "/ca is a folder; a file would be right"});
}

TEST_F(ConfigFiles, WhatIsWrongInItAndWithItsFilesIsToldTogether) {
  ConfigText text;
  text.log += "budget = 5\n";
  text.broker += "[broker.tls]\nca = \"ca\"\n";
  const auto lines = complaints(put("gateway.toml", text.text()));
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_NE(lines[0].find(":5:10: log.budget: "), std::string::npos) << lines[0];
  EXPECT_NE(lines[1].find(":9:6: broker.tls.ca: "), std::string::npos) << lines[1];
}

TEST_F(ConfigFiles, AConfigurationThatIsNotThereIsToldSo) {
  const std::string path = folder_ + "/none.toml";
  EXPECT_EQ(complaints(path), Lines{path + ": it cannot be read: No such file or directory"});
}

TEST_F(ConfigFiles, AFolderIsNotAConfiguration) {
  EXPECT_EQ(complaints(folder_), Lines{folder_ + ": it is a folder; a file would be right"});
}

TEST_F(ConfigFiles, APipeIsNotWaitedFor) {
  const std::string path = folder_ + "/pipe";
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  EXPECT_EQ(complaints(path), Lines{path + ": it is not a file; a file would be right"});
}

TEST_F(ConfigFiles, WhatIsMuchTooLongIsNotReadToItsEnd) {
  const auto path = put("gateway.toml", "");
  ASSERT_EQ(::truncate(path.c_str(), 1LL << 30U), 0);
  EXPECT_EQ(complaints(path).size(), 1U);
}

TEST_F(ConfigFiles, AProgramIsNotAConfiguration) {
  std::vector<ConfigComplaint> complaints;
  EXPECT_FALSE(readConfig("/proc/self/exe", complaints));
  EXPECT_EQ(complaints.size(), 1U);
}

TEST_F(ConfigFiles, ACredentialIsTheFileOfThatNameThatTheServiceIsGiven) {
  const auto path = withCredential("broker.password");
  put("credentials/broker.password", "swordfish\n", 0400);
  std::vector<ConfigComplaint> complaints;
  const auto config = readConfig(path, complaints);
  EXPECT_EQ(printedOf(complaints), Lines());
  ASSERT_TRUE(config);
  EXPECT_EQ(config->broker.passwordFile, folder_ + "/credentials/broker.password");
}

TEST_F(ConfigFiles, ACredentialOfTheUnitsFolderHasTheUnitsNameInFront) {
  const auto path = withCredential("broker.password");
  put("credentials/kestrin-gateway_broker.password", "swordfish\n", 0400);
  std::vector<ConfigComplaint> complaints;
  const auto config = readConfig(path, complaints);
  EXPECT_EQ(printedOf(complaints), Lines());
  ASSERT_TRUE(config);
  EXPECT_EQ(config->broker.passwordFile, folder_ + "/credentials/kestrin-gateway_broker.password");
}

TEST_F(ConfigFiles, ThePageAndWebhooksHaveCredentialsToo) {
  withCredential("broker.password");
  put("credentials/kestrin-gateway_page.token", "0123456789abcdef\n", 0400);
  put("credentials/erp.token", "swordfish\n", 0400);
  ConfigText text;
  text.more +=
      "[page]\ntoken_file = \"credential:page.token\"\n[[webhook]]\nname = \"erp\"\n"
      "url = \"https://erp.example/\"\ntoken_file = \"credential:erp.token\"\n";
  const auto path = put("gateway.toml", text.text());
  std::vector<ConfigComplaint> complaints;
  const auto given = readConfig(path, complaints);
  const auto named = readConfig(path, complaints, Credentials::notLookedAt);
  EXPECT_EQ(printedOf(complaints), Lines());
  ASSERT_TRUE(given && named);
  EXPECT_EQ(given->page.tokenFile, folder_ + "/credentials/kestrin-gateway_page.token");
  EXPECT_EQ(given->webhooks.at(0).tokenFile, folder_ + "/credentials/erp.token");
  EXPECT_EQ(named->page.tokenFile, "credential:page.token");
  EXPECT_EQ(named->webhooks.at(0).tokenFile, "credential:erp.token");
}

TEST_F(ConfigFiles, ACredentialWithoutATokenInItIsRefused) {
  withCredential("broker.password");
  const auto token = put("credentials/page.token", "short\n", 0400);
  ConfigText text;
  text.more += "[page]\ntoken_file = \"credential:page.token\"\n";
  const auto lines = complaints(put("gateway.toml", text.text()));
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_NE(lines[0].find("page.token_file: " + token + " has no token"), std::string::npos)
      << lines[0];
}

TEST_F(ConfigFiles, ACredentialThatTheServiceIsNotGivenSaysWhereItWouldComeFrom) {
  const auto path = withCredential("broker.password");
  EXPECT_EQ(complaints(path),
            Lines{path + ":8:17: broker.password_file: the service was given no credential "
                         "broker.password; a file /etc/kestrin-gateway/credentials/broker.password "
                         "and a restart would be right"});
}

TEST_F(ConfigFiles, ACredentialThatOthersCanReadIsRefusedLikeEveryKey) {
  const auto path = withCredential("broker.password");
  const auto secret = put("credentials/broker.password", "swordfish\n", 0644);
  EXPECT_EQ(complaints(path),
            Lines{path + ":8:17: broker.password_file: " + secret +
                  " can be used by others than its owner; chmod 600 would be right"});
}

TEST_F(ConfigFiles, WithoutAServiceThereAreNoCredentials) {
  const auto path = withCredential("broker.password");
  removeVariable("CREDENTIALS_DIRECTORY");
  EXPECT_EQ(complaints(path),
            Lines{path + ":8:17: broker.password_file: credential:broker.password is there for a "
                         "service only; the unit with LoadCredential= would be right, or the name "
                         "of a file"});
}

TEST_F(ConfigFiles, CredentialsThatAreNotLookedAtKeepTheirNames) {
  const auto path = withCredential("broker.password");
  std::vector<ConfigComplaint> complaints;
  const auto config = readConfig(path, complaints, Credentials::notLookedAt);
  EXPECT_EQ(printedOf(complaints), Lines());
  ASSERT_TRUE(config);
  EXPECT_EQ(config->broker.passwordFile, "credential:broker.password");
}

TEST_F(ConfigFiles, TheNameOfACredentialLeadsNowhereElse) {
  for (const std::string name : {"", "..", "../key", "a/b", ".key", "a b"}) {
    const auto path = withCredential(name);
    std::string line = path;
    line.append(":8:17: broker.password_file: \"credential:").append(name);
    line.append("\" is not a credential; \"credential:NAME\" would be right, with a name of ");
    line.append("A-Z a-z 0-9 _ . -");
    EXPECT_EQ(complaints(path), Lines{line});
  }
}

}  // namespace
}  // namespace kestrin::gateway
