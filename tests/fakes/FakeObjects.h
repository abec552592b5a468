#pragma once
// The dialog, the conversions, the call queue and objects of which only the address matters.
#include <string>

#include "Counted.h"
#include "VELUsbKeyDll.h"

class FakeDialog : public Counted<IVELKeyDisplayCertUIEx> {
 public:
  using Counted::Counted;
  ULONG SetLanguage(LPCSTR language) override;
  ULONG DisplayUI(BOOL multiple, ISmartList<tag_VEL_CERT_INFO>* certs,
                  ISmartList<tag_VEL_CERT_INFO>* chosen) override;
  ULONG EnableSingleCertSkipUI(BOOL enable) override;
  ULONG RefreshDisplayCerts(ISmartList<tag_VEL_CERT_INFO>* certs) override;
};

class FakeAuxClass : public Counted<IVELKeyAuxClass> {
 public:
  using Counted::Counted;
  ULONG CheckCertExistBySerialNum(IVELUsbKeyClass*, VEL_CRYPTO_INTERFACE_TYPE, LPCSTR, LPCSTR,
                                  BOOL*) override;
  ULONG MSRSAHashDer2BYTE(PBYTE, DWORD, PBYTE, DWORD*) override;
  ULONG BYTE2MSRSAHashDer(PBYTE, DWORD, PBYTE, DWORD*) override;
  ULONG AssembleRSAPubKeyStruct(PBYTE, DWORD, PBYTE, DWORD*) override;
  ULONG ConvertPkcs7ToPkcs1(PBYTE, DWORD, PBYTE, DWORD*) override;
  ULONG GetXMLSignatureInfo(LPCSTR, LPCSTR, PBYTE, DWORD*) override;
  ULONG AssembleP1DataToP7Data(PVEL_P1_TO_P7_PARAM param, PBYTE result, DWORD* resultLen) override;
  ULONG GetP7EnvelopeInfo(PBYTE, DWORD, LPCSTR, PBYTE, DWORD*) override;
};

class FakeCallQueue : public Counted<IVELCallQueue> {
 public:
  using Counted::Counted;
  ULONG Enable(BOOL queue, BOOL headInfo) override;
  ULONG Clear() override;
  LPCSTR Get() override;

 private:
  std::string m_text;
};
