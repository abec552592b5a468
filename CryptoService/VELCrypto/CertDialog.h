#pragma once
// The choice of a certificate by the user: in a window, which is a program of its own, or, where
// there is no desktop, as a numbered list on the terminal. One thread at a time, but for
// RefreshDisplayCerts, which any thread may call while the dialog is open. No lock of the library
// is held then.
#include <memory>
#include <mutex>

#include "CertOffer.h"
#include "Object.h"
#include "VELUsbKeyDll.h"

namespace velcrypto {

class CertDialog : public Object<IVELKeyDisplayCertUIEx> {
 public:
  // "zh_CN", "en", ...; null or empty is the environment's.
  ULONG SetLanguage(LPCSTR pLanguage) override {
    m_language = pLanguage == nullptr ? "" : pLanguage;
    return kOk;
  }

  // Appends what the user chose to `pChosen`; several only with bMultiple. No certificate: nothing
  // is chosen. A single one with skipping enabled is chosen without asking.
  // kCancelled  by the user, or there is no way to ask (the call queue tells which)
  // kTimeout    no answer within $VEL_CERT_DIALOG_TIMEOUT seconds (600)
  // kDeviceRemoved  the chosen certificate is not there any more
  // kFailed     the dialog crashed, was killed, or gave no sensible answer
  ULONG DisplayUI(BOOL bMultiple, ISmartList<tag_VEL_CERT_INFO>* pCerts,
                  ISmartList<tag_VEL_CERT_INFO>* pChosen) override;

  ULONG EnableSingleCertSkipUI(BOOL bEnable) override {
    m_skip = bEnable != FALSE;
    return kOk;
  }

  // The open dialog shows these certificates from now on; without one nothing happens.
  ULONG RefreshDisplayCerts(ISmartList<tag_VEL_CERT_INFO>* pCerts) override;

 private:
  class Open;
  Outcome Ask(const DialogOptions& options, ISmartList<tag_VEL_CERT_INFO>* certificates,
              ISmartList<tag_VEL_CERT_INFO>* chosen);

  bool m_skip = false;
  std::string m_language;
  std::mutex m_mutex;  // guards the pointer
  std::shared_ptr<LiveOffer> m_open;
};

}  // namespace velcrypto
