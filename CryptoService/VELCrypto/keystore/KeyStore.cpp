#include "KeyStore.h"

#include <errno.h>
#include <fcntl.h>
#include <pwd.h>
#include <stdlib.h>

#include <map>
#include <mutex>

#include "../Signing.h"
#include "../Text.h"
#include "Listing.h"
#include "PinCounter.h"
#include "Pkcs12File.h"

namespace velcrypto {

namespace {

// UTF-8 bytes. The lower bound is that of common tokens.
const unsigned kMinPinLength = 4;
const unsigned kMaxPinLength = 64;

Outcome CheckLength(const Secret& pin) {
  if (pin.size() >= kMinPinLength && pin.size() <= kMaxPinLength) return kOk;
  return {kPinLengthWrong, 0, "a PIN has 4 to 64 bytes"};
}

std::string IdOf(const Identity& identity) {
  return Narrow(identity.facts->record.VELCertUniqueID);
}

class KeyStore : public Backend {
 public:
  explicit KeyStore(const std::string& folder) : m_path(folder), m_listing(folder) {}

  Outcome List(std::vector<IdentityPtr>* identities, std::vector<Skipped>* skipped) override {
    const std::lock_guard<std::mutex> lock(m_listingMutex);
    return m_listing.Refresh(identities, skipped);
  }

  Outcome LogIn(const Identity& identity, const Secret& pin) override;
  Outcome LogOut(const Identity& identity) override;
  bool IsLoggedIn(const Identity& identity) override;
  Outcome ChangePin(const Identity& identity, const Secret& oldPin, const Secret& newPin) override;
  Outcome GetPinState(const Identity& identity, PinState* state) override;
  Outcome SignDigest(const Identity& identity, const Secret* pin, const std::vector<BYTE>& digest,
                     std::vector<BYTE>* signature) override;

  void Close() override {
    const std::lock_guard<std::mutex> lock(m_loginsMutex);
    m_logins.clear();
  }

 private:
  using SharedKey = std::shared_ptr<EVP_PKEY>;
  struct Login {
    FileStamp stamp;
    SharedKey key;
  };
  // A file whose key the PIN has opened; the counter is held, so no other try can come between.
  struct Opened {
    Descriptor folder;
    PinCounter counter;
    std::vector<BYTE> file;
    FileStamp stamp;
    KeyPtr key;
  };

  Outcome Open(const Identity& identity, const Secret& pin, Opened* opened) const;
  Outcome FindLogin(const Identity& identity, SharedKey* key);
  void KeepLogin(const Identity& identity, const FileStamp& stamp, KeyPtr key);

  const std::string m_path;
  std::mutex m_listingMutex;
  Listing m_listing;
  std::mutex m_loginsMutex;
  std::map<std::string, Login> m_logins;  // by file name
};

Outcome KeyStore::Open(const Identity& identity, const Secret& pin, Opened* opened) const {
  Outcome outcome = CheckLength(pin);
  if (!outcome.ok()) return outcome;
  opened->folder = OpenFolder(m_path);
  if (!opened->folder.ok()) return SystemOutcome(kFileReadFailed, m_path);
  outcome = opened->counter.Open(opened->folder, IdOf(identity));
  if (!outcome.ok()) return outcome;
  outcome =
      ReadFileOf(opened->folder, identity.id, Listing::kMaxFileSize, &opened->file, &opened->stamp);
  if (!outcome.ok()) return outcome;
  const unsigned before = opened->counter.left();
  outcome = opened->counter.Spend();
  if (!outcome.ok()) return outcome;
  const std::vector<BYTE>& certificate = identity.facts->der;
  outcome = OpenPkcs12Key(opened->file, pin, certificate.data(), certificate.size(), &opened->key);
  if (outcome.code == kPinWrong) {
    // The last try leaves a locked key, and that is what the user has to know.
    if (opened->counter.left() == 0) outcome.code = kPinLocked;
    return outcome;
  }
  // A right PIN, or a fault that says nothing about the PIN.
  opened->counter.Set(outcome.ok() ? PinCounter::kMaxTries : before);
  return outcome;
}

Outcome KeyStore::LogIn(const Identity& identity, const Secret& pin) {
  Opened opened;
  const Outcome outcome = Open(identity, pin, &opened);
  if (outcome.ok()) KeepLogin(identity, opened.stamp, std::move(opened.key));
  return outcome;
}

void KeyStore::KeepLogin(const Identity& identity, const FileStamp& stamp, KeyPtr key) {
  const std::lock_guard<std::mutex> lock(m_loginsMutex);
  m_logins[identity.id] = {stamp, SharedKey(key.release(), EVP_PKEY_free)};
}

Outcome KeyStore::LogOut(const Identity& identity) {
  const std::lock_guard<std::mutex> lock(m_loginsMutex);
  m_logins.erase(identity.id);
  return kOk;
}

// A login ends when its file goes or changes: that is this kind's unplugging.
Outcome KeyStore::FindLogin(const Identity& identity, SharedKey* key) {
  struct stat info;
  const std::string path = m_path + "/" + identity.id;
  const bool present = lstat(path.c_str(), &info) == 0;
  const int error = errno;
  const std::lock_guard<std::mutex> lock(m_loginsMutex);
  const auto login = m_logins.find(identity.id);
  if (login != m_logins.end() && present && login->second.stamp == FileStamp(info)) {
    *key = login->second.key;
    return kOk;
  }
  if (login != m_logins.end()) m_logins.erase(login);
  if (present) return {kNotLoggedIn, 0, "the PIN is needed"};
  errno = error;
  return SystemOutcome(kFileReadFailed, identity.id);
}

bool KeyStore::IsLoggedIn(const Identity& identity) {
  SharedKey key;
  return FindLogin(identity, &key).ok();
}

Outcome KeyStore::ChangePin(const Identity& identity, const Secret& oldPin, const Secret& newPin) {
  Outcome outcome = CheckLength(newPin);
  if (!outcome.ok()) return outcome;
  const bool loggedIn = IsLoggedIn(identity);
  Opened opened;
  outcome = Open(identity, oldPin, &opened);
  if (!outcome.ok()) return outcome;
  std::vector<BYTE> changed;
  outcome = WithNewPin(opened.file, oldPin, newPin, &changed);
  if (outcome.ok()) {
    KeyPtr reopened;
    outcome = OpenPkcs12Key(changed, newPin, identity.facts->der.data(), identity.facts->der.size(),
                            &reopened);
  }
  if (outcome.ok()) outcome = ReplaceFile(opened.folder, identity.id, changed);
  struct stat info;
  if (outcome.ok() && loggedIn &&
      fstatat(opened.folder.get(), identity.id.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0) {
    KeepLogin(identity, FileStamp(info), std::move(opened.key));
  }
  return outcome;
}

Outcome KeyStore::GetPinState(const Identity& identity, PinState* state) {
  const Descriptor folder = OpenFolder(m_path);
  if (!folder.ok()) return SystemOutcome(kFileReadFailed, m_path);
  state->minLength = kMinPinLength;
  state->maxLength = kMaxPinLength;
  state->maxTries = PinCounter::kMaxTries;
  return PinCounter::Read(folder, IdOf(identity), &state->triesLeft);
}

Outcome KeyStore::SignDigest(const Identity& identity, const Secret* pin,
                             const std::vector<BYTE>& digest, std::vector<BYTE>* signature) {
  SharedKey key;
  Outcome outcome;
  if (pin == nullptr) {
    outcome = FindLogin(identity, &key);
  } else {
    Opened opened;
    outcome = Open(identity, *pin, &opened);
    if (outcome.ok()) key.reset(opened.key.release(), EVP_PKEY_free);
  }
  return outcome.ok() ? SignWithKey(key.get(), digest, signature) : outcome;
}

std::string HomeFolder() {
  const char* const home = getenv("HOME");
  if (home != nullptr && home[0] != '\0') return home;
  char text[4096];
  passwd entry = {};
  passwd* found = nullptr;
  if (getpwuid_r(getuid(), &entry, text, sizeof(text), &found) != 0 || found == nullptr) return "";
  return found->pw_dir;
}

}  // namespace

std::string KeyStoreFolder(const std::string& configured) {
  if (!configured.empty()) return configured;
  const char* const folder = getenv("VEL_KEYSTORE");
  if (folder != nullptr && folder[0] != '\0') return folder;
  const char* const data = getenv("XDG_DATA_HOME");
  // A relative path there is to be ignored.
  if (data != nullptr && data[0] == '/') return std::string(data) + "/vel/keystore";
  return HomeFolder() + "/.local/share/vel/keystore";
}

std::unique_ptr<Backend> OpenKeyStore(const std::string& folder, Outcome*) {
  return std::make_unique<KeyStore>(folder);
}

}  // namespace velcrypto
