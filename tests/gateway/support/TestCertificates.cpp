#include "gateway/support/TestCertificates.h"

#include "gateway/support/ChildProcess.h"

namespace kestrin::gateway {
namespace {

std::vector<std::string> keyOptions(const std::string& file) {
  return {"-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-keyout", file};
}

std::vector<std::string> joined(std::vector<std::string> first,
                                const std::vector<std::string>& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

}  // namespace

TestCertificates::TestCertificates()
    : authority_{folder_.pathOf("authority.crt"), folder_.pathOf("authority.key")} {
  folder_.write("index", "");
  folder_.write("authority.cnf",
                "[ca]\ndefault_ca = test\n[test]\ndatabase = " + folder_.pathOf("index") +
                    "\nnew_certs_dir = " + folder_.path() +
                    "\ndefault_md = sha256\npolicy = any\nrand_serial = yes\nunique_subject = no\n"
                    "[any]\ncommonName = supplied\n");
  run(joined({"openssl", "req", "-x509", "-days", "2", "-subj", "/CN=Test authority", "-out",
              authority_.certificate},
             keyOptions(authority_.key)));
}

void TestCertificates::run(const std::vector<std::string>& command) {
  if (!failure_) failure_ = failureOf(command, folder_.pathOf("openssl.output"));
}

CertificateFiles TestCertificates::request(const std::string& name, std::string& requestFile) {
  const std::string number = std::to_string(++made_);
  CertificateFiles files{folder_.pathOf(number + ".crt"), folder_.pathOf(number + ".key")};
  requestFile = folder_.pathOf(number + ".csr");
  folder_.write("extensions", "subjectAltName = DNS:" + name + "\n");
  run(joined({"openssl", "req", "-new", "-subj", "/CN=" + name, "-out", requestFile},
             keyOptions(files.key)));
  return files;
}

CertificateFiles TestCertificates::makeFor(const std::string& name) {
  std::string csr;
  CertificateFiles files = request(name, csr);
  run({"openssl", "x509", "-req", "-in", csr, "-CA", authority_.certificate, "-CAkey",
       authority_.key, "-CAcreateserial", "-days", "2", "-extfile", folder_.pathOf("extensions"),
       "-out", files.certificate});
  return files;
}

CertificateFiles TestCertificates::makeExpiredFor(const std::string& name) {
  std::string csr;
  CertificateFiles files = request(name, csr);
  run({"openssl",    "ca",
       "-batch",     "-notext",
       "-config",    folder_.pathOf("authority.cnf"),
       "-cert",      authority_.certificate,
       "-keyfile",   authority_.key,
       "-startdate", "20200101000000Z",
       "-enddate",   "20200201000000Z",
       "-in",        csr,
       "-extfile",   folder_.pathOf("extensions"),
       "-out",       files.certificate});
  return files;
}

}  // namespace kestrin::gateway
