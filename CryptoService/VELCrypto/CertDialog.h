#pragma once
// The choice of a certificate. There is no dialog yet: the choice is made where nothing needs to
// be asked, and counts as cancelled elsewhere. One thread at a time.
#include "Object.h"
#include "VELUsbKeyDll.h"

namespace velcrypto {

class CertDialog : public Object<IVELKeyDisplayCertUIEx> {
 public:
  ULONG SetLanguage(LPCSTR) override { return kNotSupported; }

  // No certificate: nothing is chosen. A single one with skipping enabled is chosen.
  ULONG DisplayUI(BOOL bMultiple, ISmartList<tag_VEL_CERT_INFO>* pCerts,
                  ISmartList<tag_VEL_CERT_INFO>* pChosen) override;
  ULONG EnableSingleCertSkipUI(BOOL bEnable) override {
    m_skip = bEnable != FALSE;
    return kOk;
  }
  ULONG RefreshDisplayCerts(ISmartList<tag_VEL_CERT_INFO>* pCerts) override {
    return pCerts == nullptr ? kInvalidParameter : kOk;
  }

 private:
  bool m_skip = false;
};

}  // namespace velcrypto
