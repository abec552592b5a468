#pragma once
// One token, known by its serial number wherever it is plugged in: its session, its login, its
// PIN and its keys. Any thread; operations on one token follow each other.
//
// One session is kept, for opening one is slow. When the token has been away, the session is void
// and a new one is opened; a login that was is lost then.
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "../Backend.h"
#include "Contents.h"
#include "Module.h"
#include "TimedMutex.h"

namespace velcrypto {

class Token : public std::enable_shared_from_this<Token> {
 public:
  // What tells tokens apart, the same after plugging in again.
  static std::string KeyOf(const CK_TOKEN_INFO& info);

  // `ordinal` counts the tokens of one key, from 0.
  Token(std::shared_ptr<Module> module, CK_SLOT_ID slot, const CK_TOKEN_INFO& info,
        unsigned ordinal);

  const std::string& key() const { return m_key; }
  unsigned ordinal() const { return m_ordinal; }

  // Label, serial number and ordinal: the order of a listing, and no other token's.
  const std::string& sortingName() const { return m_sortingName; }

  // Appends what was listed last when its session still stands in that slot and shows the objects
  // that it showed then: another token ends the session, so the token need not be asked who it is.
  bool ListUnchanged(CK_SLOT_ID slot, std::vector<IdentityPtr>* identities,
                     std::vector<Skipped>* skipped);

  // Appends the certificates of the token, which has just been seen in that slot.
  Outcome List(CK_SLOT_ID slot, const CK_TOKEN_INFO& info, std::vector<IdentityPtr>* identities,
               std::vector<Skipped>* skipped);

  // The module was started again: handles and logins are gone.
  void Forget();

  bool IsLoggedIn();  // by this library

  Outcome LogIn(const Secret& pin);
  Outcome LogOut();
  Outcome ChangePin(const Secret& oldPin, const Secret& newPin);
  Outcome GetPinState(PinState* state);

  // Whether the key signs without a PIN now.
  bool IsOpen(const Identity& identity, const Bytes& keyId);

  Outcome Sign(const Identity& identity, const Bytes& keyId, const Secret* pin, const Bytes& digest,
               Bytes* signature);

  // Logs out and closes the session.
  void Close();

 private:
  using Lock = std::unique_lock<TimedMutex>;
  struct Key {
    CK_OBJECT_HANDLE handle;
    bool asksEachTime;
  };
  struct Way {
    Template wanted;  // has led to this key and to no other
    bool asksEachTime;
  };

  Outcome Take(Lock* lock);
  bool SessionStands();
  Outcome Ready();
  Outcome FindSlot();
  Outcome RefreshInfo();
  Outcome RefreshTries();
  Outcome Look(CK_SLOT_ID slot, const CK_TOKEN_INFO& info);
  void DropSession();
  void LoseSession();
  void EndLogin();
  bool Has(CK_FLAGS flag) const { return (m_info.flags & flag) != 0; }
  Outcome CheckPin(const Secret& pin) const;
  Outcome LogInNow(const Secret& pin);
  CK_RV CallLogin(CK_USER_TYPE user, const Secret& pin);
  Outcome AfterPin(const char* call, CK_RV result);
  Outcome FindKey(const Identity& identity, const Bytes& keyId, Key* key);
  bool FindKeyAgain(const std::string& certificateId, Key* key);
  Outcome SignNow(const Identity& identity, const Bytes& keyId, const Secret* pin,
                  const Bytes& digest, Bytes* signature);
  Outcome SignSm2(const Identity& identity, const Key& key, const Secret* pin, const Bytes& digest,
                  Bytes* signature);
  CK_RV SignWith(CK_MECHANISM_TYPE mechanism, const Key& key, const Secret* pin,
                 const Bytes& digest, Bytes* signature);
  std::vector<CK_MECHANISM_TYPE> Sm2Mechanisms();

  const std::shared_ptr<Module> m_module;
  const std::string m_key;
  const unsigned m_ordinal;
  const std::string m_name;
  const std::string m_sortingName;
  TimedMutex m_mutex;
  CK_SLOT_ID m_slot;
  CK_TOKEN_INFO m_info;
  CK_SESSION_HANDLE m_session = CK_INVALID_HANDLE;
  bool m_loggedIn = false;
  bool m_wrongPinGiven = false;       // since the last right one, by this process
  std::map<std::string, Key> m_keys;  // found in this session and login; by the certificate
  std::map<std::string, Way> m_ways;  // to keys found in this session; they stay as they are
  CK_MECHANISM_TYPE m_sm2Mechanism = CK_UNAVAILABLE_INFORMATION;  // the one that has worked
  Contents m_contents;
  std::mutex m_knownMutex;  // guards what was listed last
  std::vector<IdentityPtr> m_known;
  std::vector<Skipped> m_knownSkipped;
};

}  // namespace velcrypto
