#include "FakeObjects.h"

#include <cstring>

#include "FakeCertificates.h"
#include "Render.h"

static ULONG Unused(const char* operation) {
  Fake().Record(operation);
  return 0xE0000008;
}

ULONG FakeDialog::SetLanguage(LPCSTR) {
  return Unused("SetLanguage");
}

ULONG FakeDialog::DisplayUI(BOOL multiple, ISmartList<tag_VEL_CERT_INFO>* certs,
                            ISmartList<tag_VEL_CERT_INFO>* chosen) {
  const int count = static_cast<int>(certs->GetCount());
  Fake().Record("DisplayUI", multiple, std::to_string(count) + " shown");
  const ULONG code = Fake().NextCode("DisplayUI");
  if (code != 0) return code;
  if (Fake().dialogBrings) {
    chosen->AddItem(RecordOf(*Fake().dialogBrings));
  } else if (Fake().dialogPicks >= 0 && Fake().dialogPicks < count) {
    chosen->AddItem(certs->GetItem(Fake().dialogPicks));
  }
  return 0;
}

ULONG FakeDialog::EnableSingleCertSkipUI(BOOL enable) {
  Fake().Record("EnableSingleCertSkipUI", enable);
  return Fake().NextCode("EnableSingleCertSkipUI");
}

ULONG FakeDialog::RefreshDisplayCerts(ISmartList<tag_VEL_CERT_INFO>* certs) {
  Fake().Record("RefreshDisplayCerts", std::to_string(certs->GetCount()) + " shown");
  return Fake().NextCode("RefreshDisplayCerts");
}

ULONG FakeAuxClass::CheckCertExistBySerialNum(IVELUsbKeyClass*, VEL_CRYPTO_INTERFACE_TYPE, LPCSTR,
                                              LPCSTR, BOOL*) {
  return Unused("CheckCertExistBySerialNum");
}
ULONG FakeAuxClass::MSRSAHashDer2BYTE(PBYTE, DWORD, PBYTE, DWORD*) {
  return Unused("MSRSAHashDer2BYTE");
}
ULONG FakeAuxClass::BYTE2MSRSAHashDer(PBYTE, DWORD, PBYTE, DWORD*) {
  return Unused("BYTE2MSRSAHashDer");
}
ULONG FakeAuxClass::AssembleRSAPubKeyStruct(PBYTE, DWORD, PBYTE, DWORD*) {
  return Unused("AssembleRSAPubKeyStruct");
}
ULONG FakeAuxClass::ConvertPkcs7ToPkcs1(PBYTE, DWORD, PBYTE, DWORD*) {
  return Unused("ConvertPkcs7ToPkcs1");
}
ULONG FakeAuxClass::GetXMLSignatureInfo(LPCSTR, LPCSTR, PBYTE, DWORD*) {
  return Unused("GetXMLSignatureInfo");
}
ULONG FakeAuxClass::GetP7EnvelopeInfo(PBYTE, DWORD, LPCSTR, PBYTE, DWORD*) {
  return Unused("GetP7EnvelopeInfo");
}

ULONG FakeAuxClass::AssembleP1DataToP7Data(PVEL_P1_TO_P7_PARAM param, PBYTE result,
                                           DWORD* resultLen) {
  Fake().Record("AssembleP1DataToP7Data", param->DetachType, param->HashAlg,
                Shown(param->OrgDataBuffer, param->OrgDataLen),
                Shown(param->P1DataBuffer, param->P1DataLen),
                Shown(param->CertBuffer, param->CertLen), result == nullptr ? "size" : "result");
  const ULONG code = Fake().NextCode("AssembleP1DataToP7Data");
  if (code != 0) return code;
  const std::string& wrapped = Fake().wrapped;
  if (result == nullptr) {
    *resultLen = Fake().wrappedSize.value_or(wrapped.size());
    return 0;
  }
  if (*resultLen < wrapped.size()) return 0xE0000004;
  memcpy(result, wrapped.data(), wrapped.size());
  *resultLen = wrapped.size();
  return 0;
}

ULONG FakeCallQueue::Enable(BOOL queue, BOOL headInfo) {
  Fake().Record("Enable", queue, headInfo);
  return Fake().NextCode("Enable");
}

ULONG FakeCallQueue::Clear() {
  Fake().Record("Clear");
  const ULONG code = Fake().NextCode("Clear");
  if (code == 0) Fake().queue = "";
  return code;
}

LPCSTR FakeCallQueue::Get() {
  Fake().Record("Get");
  if (!Fake().queue) return nullptr;
  m_text = *Fake().queue;
  return m_text.c_str();
}
