#pragma once
// Asks the user for the PIN of one key, in one dialog until the PIN is right. While it is open the
// caller holds no lock: the key may be removed, and other threads go on. One thread at a time.
#include "Backend.h"
#include "Pinentry.h"

namespace velcrypto {

class PinPrompt {
 public:
  // The identity's names are shown.
  explicit PinPrompt(const Identity& identity, const Pinentry::Patience& patience = {});

  // Asks, with `state` as it is now; the first call starts $VEL_PINENTRY, or pinentry. A PIN of a
  // length that the key cannot have is not returned but asked for again. Fails as Pinentry does;
  // kPinLengthWrong when something answers with such PINs for ever; kPinWrong when the PIN that
  // the key refused would come again from a store of the program's.
  Outcome Ask(const PinState& state, Secret* pin);

  // The PIN that came last was wrong: the next Ask says so.
  void Refuse() { m_refused = true; }

 private:
  std::string Description(const PinState& state) const;

  const Pinentry::Patience m_patience;
  const std::string m_certificate, m_issuer, m_serial, m_key;
  std::unique_ptr<Pinentry> m_pinentry;
  bool m_refused = false;
};

// A PIN dialog is open: one at a time in a process, for keys that are typed must not go to another
// one. The wait for the turn holds no lock, nor does the turn itself.
class PinTurn {
 public:
  PinTurn();
  ~PinTurn();
  PinTurn(const PinTurn&) = delete;
  PinTurn& operator=(const PinTurn&) = delete;
};

}  // namespace velcrypto
