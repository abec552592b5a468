#include "CertDialog.h"

#include <stdlib.h>

#include <algorithm>

#include "CertDialogProgram.h"
#include "CertDialogTerminal.h"
#include "ChildProgram.h"
#include "Text.h"

namespace velcrypto {

namespace {

std::chrono::seconds Patience() {
  const long seconds = strtol(EnvironmentText("VEL_CERT_DIALOG_TIMEOUT").c_str(), nullptr, 10);
  return seconds > 0 ? std::chrono::seconds(std::min(seconds, 86400L)) : DialogOptions().patience;
}

Answer AskSomehow(LiveOffer& offer, const DialogOptions& options) {
  // For batch jobs: nobody is to be asked.
  if (EnvironmentText("VEL_CERT_DIALOG") == "none") {
    return {{kCancelled, 0, "certificate dialogs are off"}, {}, false};
  }
  const std::string program = FindDialogProgram();
  Answer answer;
  if (!program.empty()) {
    answer = AskProgram(program, offer, options);
    if (answer.shown) return answer;
  }
  const Answer onTerminal = AskTerminal(offer, options);
  if (onTerminal.shown) return onTerminal;
  if (!program.empty()) return answer;
  return {{kCancelled, 0, "there is neither a desktop with the dialog nor a terminal"}, {}, false};
}

// A dialog may be open for long: the key may be gone. What cannot be looked into now is left to the
// operation that follows.
bool IsStillThere(const tag_VEL_CERT_INFO& record) {
  const OpenedBackend opened =
      OpenBackend(record.CryptoInterfaceType, Narrow(record.InterfaceLibName));
  std::vector<IdentityPtr> identities;
  std::vector<Skipped> skipped;
  if (opened.backend == nullptr || !opened.backend->List(&identities, &skipped).ok()) return true;
  return std::any_of(identities.begin(), identities.end(), [&record](const IdentityPtr& identity) {
    return identity->facts->record.VELCertUniqueID.CompareNoCase(record.VELCertUniqueID) == 0;
  });
}

}  // namespace

// The list is reachable for RefreshDisplayCerts while the dialog is open.
class CertDialog::Open {
 public:
  Open(CertDialog& dialog, std::shared_ptr<LiveOffer> offer) : m_dialog(dialog) {
    const std::lock_guard<std::mutex> lock(m_dialog.m_mutex);
    m_dialog.m_open = std::move(offer);
  }
  ~Open() {
    const std::lock_guard<std::mutex> lock(m_dialog.m_mutex);
    m_dialog.m_open.reset();
  }
  Open(const Open&) = delete;
  Open& operator=(const Open&) = delete;

 private:
  CertDialog& m_dialog;
};

ULONG CertDialog::DisplayUI(BOOL bMultiple, ISmartList<tag_VEL_CERT_INFO>* pCerts,
                            ISmartList<tag_VEL_CERT_INFO>* pChosen) {
  return Recorded("DisplayUI", [&](std::string&) -> Outcome {
    if (pCerts == nullptr || pChosen == nullptr) return kInvalidParameter;
    if (pCerts->GetCount() == 0) return kOk;
    if (pCerts->GetCount() == 1 && m_skip) {
      pChosen->AddItem(pCerts->GetItem(0));
      return kOk;
    }
    return Ask({bMultiple != FALSE, m_language, Patience()}, pCerts, pChosen);
  });
}

Outcome CertDialog::Ask(const DialogOptions& options, ISmartList<tag_VEL_CERT_INFO>* certificates,
                        ISmartList<tag_VEL_CERT_INFO>* chosen) {
  const auto live = std::make_shared<LiveOffer>(OfferOf(certificates));
  const Open open(*this, live);
  const Answer answer = AskSomehow(*live, options);
  if (!answer.outcome.ok()) return answer.outcome;
  const Offer offer = live->Take();
  std::vector<const tag_VEL_CERT_INFO*> records;
  for (const std::string& id : answer.ids) {
    const auto found = std::find_if(offer.begin(), offer.end(),
                                    [&id](const Offered& each) { return each.id == id; });
    if (found == offer.end() || !IsStillThere(found->record)) {
      return {kDeviceRemoved, 0, "the chosen certificate is gone"};
    }
    records.push_back(&found->record);
  }
  for (const tag_VEL_CERT_INFO* record : records) chosen->AddItem(*record);
  return kOk;
}

ULONG CertDialog::RefreshDisplayCerts(ISmartList<tag_VEL_CERT_INFO>* pCerts) {
  return Contained([&]() -> Outcome {
           if (pCerts == nullptr) return kInvalidParameter;
           std::shared_ptr<LiveOffer> open;
           {
             const std::lock_guard<std::mutex> lock(m_mutex);
             open = m_open;
           }
           if (open != nullptr) open->Replace(OfferOf(pCerts));
           return kOk;
         })
      .code;
}

}  // namespace velcrypto
