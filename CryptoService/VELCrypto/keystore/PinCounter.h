#pragma once
// The tries that are left for the PIN of one key, kept in a file of the key store as a token keeps
// them in its memory. A try is written down before it is made, so neither a crash nor a second
// process wins one. The file is named for the certificate: renaming or importing the key again
// changes nothing.
#include <string>

#include "Files.h"

namespace velcrypto {

class PinCounter {
 public:
  static constexpr unsigned kMaxTries = 10;

  PinCounter() = default;
  ~PinCounter();

  // Waits, up to some seconds, for other users of the counter and keeps it until destruction.
  Outcome Open(const Descriptor& folder, const std::string& certificateId);

  unsigned left() const { return m_left; }

  // Takes one try, safe on the disk when it returns; kPinLocked when none is left.
  Outcome Spend();

  // Sets the tries left.
  Outcome Set(unsigned left);

  // The tries left, without waiting. A damaged counter allows none.
  static Outcome Read(const Descriptor& folder, const std::string& certificateId, unsigned* left);

 private:
  Descriptor m_file;
  unsigned m_left = 0;
};

}  // namespace velcrypto
