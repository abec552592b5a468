#pragma once
// What a kind of key store or token does for the device library. A new kind is one folder with a
// class of this shape and one line in Backends.cpp; nothing outside the folder knows its types.
//
// A backend serves all device managers of the process at once: every function may be called from
// any thread. It stays until the process ends, and does not outlive a fork: the child makes its
// own.
#include <memory>
#include <string>
#include <vector>

#include "CertFacts.h"
#include "Outcome.h"
#include "Secret.h"

namespace velcrypto {

// One certificate with, as a rule, its private key.
struct Identity {
  CertFactsPtr facts;
  std::vector<std::vector<BYTE>> issuers;  // DER, nearest first, as far as the device holds them
  bool hasKey = false;
  std::string application, container, device;  // UTF-8; for the record
  std::string id;     // the backend's own name of the key, of no meaning to others
  std::string login;  // the same for all identities that one login opens
};
using IdentityPtr = std::shared_ptr<const Identity>;

// PIN lengths count UTF-8 bytes.
struct PinState {
  unsigned minLength = 0;
  unsigned maxLength = 0;
  unsigned maxTries = 0;   // 0: the device tells no numbers, and triesLeft is a lower bound
  unsigned triesLeft = 0;  // 0: locked
};

// What is left out of a listing, and why.
struct Skipped {
  std::string device;
  Outcome reason;
};

class Backend {
 public:
  virtual ~Backend() = default;

  // Appends what is there now, in an order that stays. A device that cannot be read is told in
  // `skipped` and hides no other; the result fails when there is nothing to look into at all.
  virtual Outcome List(std::vector<IdentityPtr>* identities, std::vector<Skipped>* skipped) = 0;

  // What the last List has found, without a look at the devices: enough to go to the device of a
  // certificate that was listed. May be empty at any time.
  virtual std::vector<IdentityPtr> Known() { return {}; }

  // Checks the PIN and keeps the key usable until LogOut, removal or Close. Each call spends a
  // try; a PIN of impossible length (kPinLengthWrong) spends none.
  virtual Outcome LogIn(const Identity& identity, const Secret& pin) = 0;

  // Fine when nobody is logged in.
  virtual Outcome LogOut(const Identity& identity) = 0;
  virtual bool IsLoggedIn(const Identity& identity) = 0;

  virtual Outcome ChangePin(const Identity& identity, const Secret& oldPin,
                            const Secret& newPin) = 0;
  virtual Outcome GetPinState(const Identity& identity, PinState* state) = 0;

  // Signs `digest`: for RSA a DigestInfo in DER, padded as PKCS#1 v1.5; for SM2 the 32 bytes e,
  // the signature being the DER SEQUENCE of r and s. With a PIN it is tried once and opens the key
  // for this signature only; without one the key must be logged in (kNotLoggedIn).
  virtual Outcome SignDigest(const Identity& identity, const Secret* pin,
                             const std::vector<BYTE>& digest, std::vector<BYTE>* signature) = 0;

  // Ends all logins. The backend may be used again.
  virtual void Close() = 0;
};

}  // namespace velcrypto
