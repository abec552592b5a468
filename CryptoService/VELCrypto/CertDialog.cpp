#include "CertDialog.h"

namespace velcrypto {

ULONG CertDialog::DisplayUI(BOOL, ISmartList<tag_VEL_CERT_INFO>* pCerts,
                            ISmartList<tag_VEL_CERT_INFO>* pChosen) {
  return Recorded("DisplayUI", [&](std::string&) -> Outcome {
    if (pCerts == nullptr || pChosen == nullptr) return kInvalidParameter;
    if (pCerts->GetCount() == 0) return kOk;
    if (pCerts->GetCount() > 1 || !m_skip) return {kCancelled, 0, "there is no dialog"};
    pChosen->AddItem(pCerts->GetItem(0));
    return kOk;
  });
}

}  // namespace velcrypto
