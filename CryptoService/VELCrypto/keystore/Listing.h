#pragma once
// What a key store folder holds, remembered from one listing to the next: a file is read again when
// its stamp has changed. Public data only. One thread at a time.
#include <map>
#include <string>
#include <vector>

#include "../Backend.h"
#include "Files.h"

namespace velcrypto {

class Listing {
 public:
  static constexpr size_t kMaxFileSize = 1 << 20;

  explicit Listing(std::string path) : m_path(std::move(path)) {}

  Outcome Refresh(std::vector<IdentityPtr>* identities, std::vector<Skipped>* skipped);

 private:
  struct Entry {
    FileStamp stamp;
    FileStamp beside;      // of the certificate file that was used, else all zero
    bool settled = false;  // older than the clock of the file system is coarse
    IdentityPtr identity;  // null: left out for `reason`
    Outcome reason;
  };

  bool IsCurrent(const Descriptor& folder, const std::string& name, const struct stat& info,
                 const Entry& entry) const;
  Entry Read(const Descriptor& folder, const std::string& name) const;

  const std::string m_path;
  std::map<std::string, Entry> m_entries;
};

}  // namespace velcrypto
