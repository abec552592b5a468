#include "SoftHsm.h"

#include <stdlib.h>

#include <filesystem>
#include <stdexcept>

SoftHsm::SoftHsm() {
  std::filesystem::create_directory(m_folder.File("tokens"));
  WriteText(m_folder.File("softhsm2.conf"),
            "directories.tokendir = " + m_folder.File("tokens") +
                "\nobjectstore.backend = file\nlog.level = ERROR\n");
  setenv("SOFTHSM2_CONF", m_folder.File("softhsm2.conf").c_str(), 1);
}

std::string SoftHsm::Module() {
  return SOFTHSM_MODULE;
}

std::string SoftHsm::KeyList() {
  const std::string name = OutputOf({"openssl", "base64", "-A"}, Module());
  return "<authinfo><liblist><lib type=\"P11\" version=\"1\" dllname=\"" + name +
         "\"><algid val=\"SHA256\" sm2_hashalg=\"SM3\"/></lib></liblist></authinfo>";
}

std::string SoftHsm::Run(const std::vector<std::string>& command) const {
  Invocation invocation;
  invocation.command = command;
  invocation.environment = {{"SOFTHSM2_CONF", m_folder.File("softhsm2.conf")}};
  const Outcome outcome = RunProgram(invocation);
  if (outcome.exitCode != 0)
    throw std::runtime_error(command[0] + ": " + outcome.err + outcome.out);
  return outcome.out;
}

void SoftHsm::MakeToken(const std::string& label) const {
  Run({"softhsm2-util", "--init-token", "--free", "--label", label, "--so-pin", "87654321", "--pin",
       kPin});
}

void SoftHsm::DeleteToken(const std::string& label) const {
  Run({"softhsm2-util", "--delete-token", "--token", label});
}

void SoftHsm::ImportKey(const std::string& label, const std::string& key,
                        const std::string& id) const {
  Run({"softhsm2-util", "--import", key, "--token", label, "--label", "key", "--id", id, "--pin",
       kPin});
}

void SoftHsm::ImportCertificate(const std::string& label, const std::string& pem,
                                const std::string& id) const {
  const std::string der = m_folder.File("certificate.der");
  OutputOf({"openssl", "x509", "-in", pem, "-outform", "DER", "-out", der});
  Run({"pkcs11-tool", "--module", Module(), "--token-label", label, "--login", "--pin", kPin,
       "--write-object", der, "--type", "cert", "--label", "certificate", "--id", id});
}
