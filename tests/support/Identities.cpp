#include "Identities.h"

#include <filesystem>
#include <vector>

namespace {

const char kDistId[] = "distid:1234567812345678";

std::string Trimmed(std::string text) {
  while (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

std::string SerialOf(const std::string& certificate) {
  const std::string line =
      Trimmed(OutputOf({"openssl", "x509", "-in", certificate, "-noout", "-serial"}));
  return line.substr(line.find('=') + 1);
}

void MakeRequest(const std::string& stem, const std::string& name, bool sm2) {
  const std::string key = stem + ".key";
  OutputOf(sm2 ? std::vector<std::string>{"openssl", "genpkey", "-algorithm", "SM2", "-out", key}
               : std::vector<std::string>{"openssl", "genpkey", "-algorithm", "RSA", "-pkeyopt",
                                          "rsa_keygen_bits:2048", "-out", key});
  std::vector<std::string> request = {
      "openssl", "req",        "-new", "-key", key, "-utf8", "-subj", "/C=CN/O=演示机构/CN=" + name,
      "-out",    stem + ".csr"};
  if (sm2) request.insert(request.end(), {"-sm3", "-sigopt", kDistId});
  OutputOf(request);
}

}  // namespace

Identities::Identities() : m_authority(m_folder.File("ca.pem")) {
  OutputOf({"openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-sha256", "-days", "30",
            "-utf8", "-subj", "/C=CN/O=演示机构/CN=演示根证书", "-keyout", m_folder.File("ca.key"),
            "-out", m_authority});
  m_rsa = Make("rsa", "张三", false);
  m_sm2 = Make("sm2", "李四", true);
}

Identity Identities::Make(const std::string& stem, const std::string& name, bool sm2,
                          const std::string& usage) const {
  const std::string path = m_folder.File(stem);
  MakeRequest(path, name, sm2);
  WriteText(path + ".cnf", "basicConstraints=critical,CA:FALSE\nkeyUsage=critical," + usage + "\n");
  std::vector<std::string> issue = {"openssl",
                                    "x509",
                                    "-req",
                                    "-in",
                                    path + ".csr",
                                    "-CA",
                                    m_authority,
                                    "-CAkey",
                                    m_folder.File("ca.key"),
                                    "-CAcreateserial",
                                    "-sha256",
                                    "-days",
                                    "30",
                                    "-extfile",
                                    path + ".cnf",
                                    "-out",
                                    path + ".pem"};
  if (sm2) issue.insert(issue.end(), {"-vfyopt", kDistId});
  OutputOf(issue);
  OutputOf({"openssl", "pkcs12", "-export", "-in", path + ".pem", "-inkey", path + ".key", "-name",
            name, "-certpbe", "NONE", "-passout", std::string("pass:") + kPin, "-out",
            path + ".p12"});
  return {path + ".pem", path + ".p12", SerialOf(path + ".pem"), name};
}

const Identities& SharedIdentities() {
  static const Identities identities;
  return identities;
}

void PutInto(const std::string& keyStore, const Identity& identity) {
  std::filesystem::create_directories(keyStore);
  std::filesystem::permissions(keyStore, std::filesystem::perms::owner_all);
  std::filesystem::copy(identity.pkcs12, keyStore);
}
