#pragma once
// The operations of the device manager that no host of this library calls: they do nothing and say
// so.
#include "Object.h"
#include "Outcome.h"
#include "VELUsbKeyDll.h"

namespace velcrypto {

class UnusedOperations : public Object<IVELDeviceManager> {
 public:
  ULONG AddKey(ISmartList<tag_VEL_KEY_INFO>*, BOOL) override { return kNotSupported; }
  ULONG DeleteKey(ISmartList<tag_VEL_KEY_INFO>*, BOOL) override { return kNotSupported; }
  ULONG DoAction(VEL_DEVICE_MANAGER_ACTION_TYPE, LPCSTR, BYTE*, DWORD, IBuffer*) override {
    return kNotSupported;
  }
  ULONG SetKeyChangeCallBack(PKEYCHANGECALLBACK, LPVOID) override { return kNotSupported; }
  ULONG GetKeyDevInfoByCertSN(LPCSTR, PVEL_DEVICE_INFO) override { return kNotSupported; }
  ULONG RefreshCertList() override { return kNotSupported; }
  ULONG RefreshSepcialCertList(VEL_CERT_INFO*) override { return kNotSupported; }
  ULONG SetKeyInfoSaveCallBack(PKEYINFOSAVECALLBACK, LPVOID) override { return kNotSupported; }
  ULONG RegCertListBroadcastObject(UI_RECIVE_CERTLIST_INFO*) override { return kNotSupported; }
  ULONG UnregCertListBroadcastObject(UI_RECIVE_CERTLIST_INFO*) override { return kNotSupported; }
  ULONG P7SignEx(VEL_CERT_INFO*, VEL_HASH_ALG, BOOL, BOOL, BYTE*, DWORD, IBuffer*,
                 VEL_SIGN_UNAUTH_DATA*, ULONG) override {
    return kNotSupported;
  }
  ULONG AddUnauthAttr2P7SignedData(BYTE*, DWORD, VEL_SIGN_UNAUTH_DATA*, ULONG, IBuffer*) override {
    return kNotSupported;
  }
  ULONG GetUnauthAttrFrmP7SigndDat(BYTE*, DWORD, LPCSTR, IBuffer*) override {
    return kNotSupported;
  }
  ULONG Encrypt(VEL_CERT_INFO*, BYTE*, DWORD, IBuffer*) override { return kNotSupported; }
  ULONG Decrypt(VEL_CERT_INFO*, BYTE*, DWORD, IBuffer*) override { return kNotSupported; }
  ULONG P7UnEnvelope(BYTE*, DWORD, IBuffer*) override { return kNotSupported; }
  ULONG P7Envelope(VEL_CERT_INFO*, BYTE*, DWORD, IBuffer*) override { return kNotSupported; }
  ULONG P1SignInit(VEL_CERT_INFO*, VEL_HASH_ALG) override { return kNotSupported; }
  ULONG P1SignUpdate(BYTE*, DWORD) override { return kNotSupported; }
  ULONG P1SignFinal(IBuffer*) override { return kNotSupported; }
  ULONG P7AttachSignInit(VEL_CERT_INFO*, VEL_HASH_ALG, BOOL) override { return kNotSupported; }
  ULONG P7AttachSignUpdate(BYTE*, DWORD) override { return kNotSupported; }
  ULONG P7AttachSignFinal(IBuffer*) override { return kNotSupported; }
  ULONG P7DetachSignInit(VEL_CERT_INFO*, VEL_HASH_ALG, BOOL) override { return kNotSupported; }
  ULONG P7DetachSignUpdate(BYTE*, DWORD) override { return kNotSupported; }
  ULONG P7DetachSignFinal(IBuffer*) override { return kNotSupported; }
  ULONG P1VerifyInit(VEL_CERT_INFO*, VEL_HASH_ALG) override { return kNotSupported; }
  ULONG P1VerifyUpdate(BYTE*, DWORD) override { return kNotSupported; }
  ULONG P1VerifyFinal(BYTE*, DWORD) override { return kNotSupported; }
  ULONG P1Verify(VEL_CERT_INFO*, VEL_HASH_ALG, BYTE*, DWORD, BYTE*, DWORD) override {
    return kNotSupported;
  }
  ULONG P7AttachVerifyInit() override { return kNotSupported; }
  ULONG P7AttachVerifyUpdate(BYTE*, DWORD) override { return kNotSupported; }
  ULONG P7AttachVerifyFinal(IBuffer*) override { return kNotSupported; }
  ULONG P7AttachVerify(BYTE*, DWORD, IBuffer*) override { return kNotSupported; }
  ULONG P7DetachVerifyInit(BYTE*, DWORD) override { return kNotSupported; }
  ULONG P7DetachVerifyUpdate(BYTE*, DWORD) override { return kNotSupported; }
  ULONG P7DetachVerifyFinal() override { return kNotSupported; }
  ULONG P7DetachVerify(BYTE*, DWORD, BYTE*, DWORD) override { return kNotSupported; }
  ULONG FilterCertList(ISmartList<tag_VEL_CERT_FILTER_ITEM>*,
                       ISmartList<tag_VEL_CERT_INFO>*) override {
    return kNotSupported;
  }
  ULONG GetSignCerts(ISmartList<tag_VEL_CERT_INFO>*, ISmartList<tag_VEL_CERT_FILTER_ITEM>*,
                     BOOL) override {
    return kNotSupported;
  }
  ULONG GetEncryptCerts(ISmartList<tag_VEL_CERT_INFO>*, ISmartList<tag_VEL_CERT_FILTER_ITEM>*,
                        BOOL) override {
    return kNotSupported;
  }
  ULONG P7EnvelopeInit(VEL_CERT_INFO*) override { return kNotSupported; }
  ULONG P7EnvelopeUpdata(BYTE*, DWORD) override { return kNotSupported; }
  ULONG P7EnvelopeFinal(IBuffer*) override { return kNotSupported; }
  ULONG RefreshCertList(BOOL) override { return kNotSupported; }
  ULONG SetFlags(ULONG) override { return kNotSupported; }
  ULONG CspKeyInfoCombine(BOOL) override { return kNotSupported; }
  ULONG DeleteKeyEx(ISmartList<tag_VEL_KEY_INFO_EX>*, BOOL) override { return kNotSupported; }
  ULONG KeyHasFingerByCertSN(LPCSTR) override { return kNotSupported; }
  ULONG KeyVerifyFingerByCertSN(LPCSTR, ULONG) override { return kNotSupported; }
  ULONG KeyVerifyFingerByCertSN(LPCSTR, ULONG, ULONG) override { return kNotSupported; }
  ULONG P1ByCertEntity(BYTE*, BYTE*, IBuffer*) override { return kNotSupported; }
  ULONG SetDevPinCode(LPWSTR) override { return kNotSupported; }
};

}  // namespace velcrypto
