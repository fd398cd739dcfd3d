// Certificates for a test, made when it runs: an authority and what it signs.
//
// Threads: one, see ChildProcess.
// Lifetime: the files go with the object.
// Errors: `failure` says what openssl printed.
#pragma once

#include "gateway/support/TestFolder.h"

#include <optional>
#include <string>
#include <vector>

namespace kestrin::gateway {

struct CertificateFiles {
  std::string certificate;
  std::string key;
};

class TestCertificates {
 public:
  TestCertificates();

  [[nodiscard]] const std::string& authority() const { return authority_.certificate; }
  /// Valid from now on, for this host, or in the name of this client.
  CertificateFiles makeFor(const std::string& name);
  /// Valid in the past only.
  CertificateFiles makeExpiredFor(const std::string& name);
  [[nodiscard]] const std::optional<std::string>& failure() const { return failure_; }
  [[nodiscard]] const TestFolder& folder() const { return folder_; }

 private:
  void run(const std::vector<std::string>& command);
  CertificateFiles request(const std::string& name, std::string& requestFile);

  TestFolder folder_;
  CertificateFiles authority_;
  std::optional<std::string> failure_;
  int made_ = 0;
};

}  // namespace kestrin::gateway
