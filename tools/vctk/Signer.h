#pragma once
// Signs one file after the other with one choice of certificate and PIN.
#include <string>

#include "Choice.h"
#include "Commands.h"

namespace vctk {

class Signer {
 public:
  // Opens the session; nothing is asked yet. `standardInputTaken`: it gives the data.
  Signer(const SignOptions& options, bool standardInputTaken);

  // base64  the content. Returns the signature as base64 on one line. The first call asks for
  // certificate and PIN as far as they are not given: by the dialogs of the device library, or,
  // where it has none for the PIN, on the terminal.
  std::string Sign(const std::string& base64);

  // What the device library recorded.
  std::string CallRecord() { return m_session.CallRecord(); }

 private:
  bool MayUseDialogs() const;
  bool SignByDialogs(const std::string& base64, std::string* signature);
  uint32_t AskByDialogs(const std::string& base64, std::string* signature);
  std::string SignFirst(const std::string& base64);
  std::string SignWithPin(const std::string& base64);
  void TakeCertificate(const Certificate& certificate);

  const SignOptions& m_options;
  PinSource m_pins;
  const KeyList m_keyList;
  const std::vector<Filter> m_filters;
  Session m_session;
  bool m_isFirst = true;
  bool m_byDialogs;
  bool m_noPinDialog = false;
  Certificate m_certificate;
  Pin m_pin;
};

}  // namespace vctk
