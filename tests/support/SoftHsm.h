#pragma once
// Software tokens of SoftHSM 2 in a folder of their own, filled by the programs that users fill
// tokens with. The module in this process finds them by SOFTHSM2_CONF, which the constructor sets.
#include <string>
#include <vector>

#include "Program.h"

class SoftHsm {
 public:
  static constexpr char kPin[] = "12345678";

  SoftHsm();

  static std::string Module();   // its path
  static std::string KeyList();  // P11 with that module, RSA with SHA256

  void MakeToken(const std::string& label) const;
  void DeleteToken(const std::string& label) const;
  // Both parts of the key from a PKCS#8 PEM file; `id` in hexadecimal digits.
  void ImportKey(const std::string& label, const std::string& key, const std::string& id) const;
  void ImportCertificate(const std::string& label, const std::string& pem,
                         const std::string& id) const;

 private:
  std::string Run(const std::vector<std::string>& command) const;

  TemporaryFolder m_folder;
};
