// zeltool cert FILE [--password PW] [--export OUT.der]: reads a certificate (DER, PEM, PKCS#7 in
// PEM or DER, PKCS#12) and prints its record as one JSON object; --export writes the DER
// certificate of a PKCS#12 container.
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>

#include <zelutility/cert.h>
#include <zelutility/json_factory.h>

#include "commands.h"
#include "zeltool_input.h"

namespace {

struct CertOptions {
  std::string file;
  std::string password;
  std::string exportPath;
  bool hasPassword = false;
};

std::shared_ptr<ZELJson> NewObject() { return ZELJsonFactory::ParseJsonString("{}", 2, nullptr); }

std::shared_ptr<ZELJson> AddressJson(const AddressInfo& a) {
  auto node = NewObject();
  node->SetString("country", a.country.c_str());
  node->SetString("stateOrProvince", a.stateOrProvince.c_str());
  node->SetString("locality", a.locality.c_str());
  node->SetString("organization", a.organization.c_str());
  node->SetString("organizationalUnit", a.organizationalUnit.c_str());
  node->SetString("commonName", a.commonName.c_str());
  return node;
}

std::shared_ptr<ZELJson> CertJson(const CertInfo& c) {
  auto node = NewObject();
  node->SetString("version", c.version.c_str());
  node->SetString("serialNumber", c.serialNumber.c_str());
  node->SetString("notBefore", c.notBefore.c_str());
  node->SetString("notAfter", c.notAfter.c_str());
  node->SetJson("issuer", AddressJson(c.issuer));
  node->SetJson("subject", AddressJson(c.subject));
  node->SetString("publicKey", c.publicKey.c_str());
  node->SetString("publicKeyParams", c.publicKeyParams.c_str());
  node->SetString("signatureAlgorithm", c.signatureAlgorithm.c_str());
  node->SetString("digestAlgorithm", c.digestAlgorithm.c_str());
  node->SetString("thumbprint", c.thumbprint.c_str());
  node->SetString("authorityKeyId", c.authorityKeyId.c_str());
  node->SetString("subjectKeyId", c.subjectKeyId.c_str());
  node->SetString("basicConstraints", c.basicConstraints.c_str());
  node->SetString("keyUsage", c.keyUsage.c_str());
  node->SetString("extendedKeyUsage", c.extendedKeyUsage.c_str());
  node->SetString("crlDistributionPoints", c.crlDistributionPoints.c_str());
  node->SetString("authorityInfoAccess", c.authorityInfoAccess.c_str());
  return node;
}

int Fail(const std::string& message) {
  std::fprintf(stderr, "zeltool cert: %s\n", message.c_str());
  return 1;
}

int RunCert(const CertOptions& options) {
  std::string bytes;
  if (!zeltool::ReadAll(options.file, bytes)) return Fail("cannot open " + options.file);
  if (bytes.empty()) return Fail(options.file + " is empty");
  const CMRL_ByteString data(bytes.data(), static_cast<int>(bytes.size()));
  const CMRL_ByteString password(options.password.c_str());

  CertInfo info;
  try {
    // A password means a container; without one, the plain forms come first and a container
    // is still tried with the empty password.
    int pkcs12Code = -1;
    bool read = false;
    if (options.hasPassword) {
      pkcs12Code = ParsePrivateKeyCert(data, password, info);
      read = pkcs12Code == 0 || (pkcs12Code == -1 && ParsePublicKeyCert(data, info));
    } else {
      read = ParsePublicKeyCert(data, info);
      if (!read) {
        pkcs12Code = ParsePrivateKeyCert(data, password, info);
        read = pkcs12Code == 0;
      }
    }
    if (!read) {
      return Fail(pkcs12Code == 1 ? options.file + ": the PKCS#12 container did not open (password?)"
                                  : options.file + ": no certificate found");
    }
  } catch (const std::out_of_range& e) {
    return Fail(options.file + ": unreadable validity time (" + e.what() + ")");
  }

  if (!options.exportPath.empty()) {
    const int code = ExportPublicKeyCert(data, password, options.exportPath.c_str());
    if (code != 0) {
      return Fail(code == 1 ? "export: the PKCS#12 container did not open"
                            : "export: no PKCS#12 certificate, or cannot write " + options.exportPath);
    }
  }

  const CMRL_ByteString json = ZELJsonFactory::BuildJsonString(CertJson(info), nullptr);
  std::printf("%s\n", json.c_str());
  return 0;
}

}  // namespace

void AddCertCommand(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<CertOptions>();
  CLI::App* command = app.add_subcommand(
      "cert", "Read a certificate (DER, PEM, PKCS#7, PKCS#12) and print its record as JSON");
  command->add_option("file", options->file, "Certificate or container file")->required();
  command->add_option("--password", options->password, "PKCS#12 password (\"\" for none)");
  command->add_option("--export", options->exportPath, "Write the PKCS#12 certificate here as DER");
  command->callback([options, command, &exitCode] {
    options->hasPassword = command->count("--password") > 0;
    exitCode = RunCert(*options);
  });
}
