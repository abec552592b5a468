#pragma once
// The operations of a device manager that the toolkit has no use for. Each leaves its name in the
// record, so that a call that went to a wrong slot shows, and answers "not supported".
#include "FakeDevice.h"
#include "VELUsbKeyDll.h"

class UnusedDeviceManager : public IVELDeviceManager {
 public:
  ULONG AddKey(ISmartList<tag_VEL_KEY_INFO>*, BOOL) override { return Unused("AddKey"); }
  ULONG DeleteKey(ISmartList<tag_VEL_KEY_INFO>*, BOOL) override { return Unused("DeleteKey"); }
  ULONG DoAction(VEL_DEVICE_MANAGER_ACTION_TYPE, LPCSTR, BYTE*, DWORD, IBuffer*) override {
    return Unused("DoAction");
  }
  ULONG SetKeyChangeCallBack(PKEYCHANGECALLBACK, LPVOID) override {
    return Unused("SetKeyChangeCallBack");
  }
  ULONG GetKeyDevInfoByCertSN(LPCSTR, PVEL_DEVICE_INFO) override {
    return Unused("GetKeyDevInfoByCertSN");
  }
  ULONG RefreshCertList() override { return Unused("RefreshCertList"); }
  ULONG EnablePinDialog(BOOL) override { return Unused("EnablePinDialog"); }
  ULONG RefreshSepcialCertList(VEL_CERT_INFO*) override { return Unused("RefreshSepcialCertList"); }
  ULONG SetKeyInfoSaveCallBack(PKEYINFOSAVECALLBACK, LPVOID) override {
    return Unused("SetKeyInfoSaveCallBack");
  }
  ULONG RegCertListBroadcastObject(UI_RECIVE_CERTLIST_INFO*) override {
    return Unused("RegCertListBroadcastObject");
  }
  ULONG UnregCertListBroadcastObject(UI_RECIVE_CERTLIST_INFO*) override {
    return Unused("UnregCertListBroadcastObject");
  }
  ULONG P7SignEx(VEL_CERT_INFO*, VEL_HASH_ALG, BOOL, BOOL, BYTE*, DWORD, IBuffer*,
                 VEL_SIGN_UNAUTH_DATA*, ULONG) override {
    return Unused("P7SignEx");
  }
  ULONG AddUnauthAttr2P7SignedData(BYTE*, DWORD, VEL_SIGN_UNAUTH_DATA*, ULONG, IBuffer*) override {
    return Unused("AddUnauthAttr2P7SignedData");
  }
  ULONG GetUnauthAttrFrmP7SigndDat(BYTE*, DWORD, LPCSTR, IBuffer*) override {
    return Unused("GetUnauthAttrFrmP7SigndDat");
  }
  ULONG Encrypt(VEL_CERT_INFO*, BYTE*, DWORD, IBuffer*) override { return Unused("Encrypt"); }
  ULONG Decrypt(VEL_CERT_INFO*, BYTE*, DWORD, IBuffer*) override { return Unused("Decrypt"); }
  ULONG P7UnEnvelope(BYTE*, DWORD, IBuffer*) override { return Unused("P7UnEnvelope"); }
  ULONG P7Envelope(VEL_CERT_INFO*, BYTE*, DWORD, IBuffer*) override { return Unused("P7Envelope"); }
  ULONG P1SignInit(VEL_CERT_INFO*, VEL_HASH_ALG) override { return Unused("P1SignInit"); }
  ULONG P1SignUpdate(BYTE*, DWORD) override { return Unused("P1SignUpdate"); }
  ULONG P1SignFinal(IBuffer*) override { return Unused("P1SignFinal"); }
  ULONG P7AttachSignInit(VEL_CERT_INFO*, VEL_HASH_ALG, BOOL) override {
    return Unused("P7AttachSignInit");
  }
  ULONG P7AttachSignUpdate(BYTE*, DWORD) override { return Unused("P7AttachSignUpdate"); }
  ULONG P7AttachSignFinal(IBuffer*) override { return Unused("P7AttachSignFinal"); }
  ULONG P7DetachSignInit(VEL_CERT_INFO*, VEL_HASH_ALG, BOOL) override {
    return Unused("P7DetachSignInit");
  }
  ULONG P7DetachSignUpdate(BYTE*, DWORD) override { return Unused("P7DetachSignUpdate"); }
  ULONG P7DetachSignFinal(IBuffer*) override { return Unused("P7DetachSignFinal"); }
  ULONG P1VerifyInit(VEL_CERT_INFO*, VEL_HASH_ALG) override { return Unused("P1VerifyInit"); }
  ULONG P1VerifyUpdate(BYTE*, DWORD) override { return Unused("P1VerifyUpdate"); }
  ULONG P1VerifyFinal(BYTE*, DWORD) override { return Unused("P1VerifyFinal"); }
  ULONG P1Verify(VEL_CERT_INFO*, VEL_HASH_ALG, BYTE*, DWORD, BYTE*, DWORD) override {
    return Unused("P1Verify");
  }
  ULONG P7AttachVerifyInit() override { return Unused("P7AttachVerifyInit"); }
  ULONG P7AttachVerifyUpdate(BYTE*, DWORD) override { return Unused("P7AttachVerifyUpdate"); }
  ULONG P7AttachVerifyFinal(IBuffer*) override { return Unused("P7AttachVerifyFinal"); }
  ULONG P7AttachVerify(BYTE*, DWORD, IBuffer*) override { return Unused("P7AttachVerify"); }
  ULONG P7DetachVerifyInit(BYTE*, DWORD) override { return Unused("P7DetachVerifyInit"); }
  ULONG P7DetachVerifyUpdate(BYTE*, DWORD) override { return Unused("P7DetachVerifyUpdate"); }
  ULONG P7DetachVerifyFinal() override { return Unused("P7DetachVerifyFinal"); }
  ULONG P7DetachVerify(BYTE*, DWORD, BYTE*, DWORD) override { return Unused("P7DetachVerify"); }
  ULONG FilterCertList(ISmartList<tag_VEL_CERT_FILTER_ITEM>*,
                       ISmartList<tag_VEL_CERT_INFO>*) override {
    return Unused("FilterCertList");
  }
  ULONG GetSignCerts(ISmartList<tag_VEL_CERT_INFO>*, ISmartList<tag_VEL_CERT_FILTER_ITEM>*,
                     BOOL) override {
    return Unused("GetSignCerts");
  }
  ULONG GetEncryptCerts(ISmartList<tag_VEL_CERT_INFO>*, ISmartList<tag_VEL_CERT_FILTER_ITEM>*,
                        BOOL) override {
    return Unused("GetEncryptCerts");
  }
  ULONG P7EnvelopeInit(VEL_CERT_INFO*) override { return Unused("P7EnvelopeInit"); }
  ULONG P7EnvelopeUpdata(BYTE*, DWORD) override { return Unused("P7EnvelopeUpdata"); }
  ULONG P7EnvelopeFinal(IBuffer*) override { return Unused("P7EnvelopeFinal"); }
  ULONG RefreshCertList(BOOL) override { return Unused("RefreshCertList"); }
  ULONG SetFlags(ULONG) override { return Unused("SetFlags"); }
  ULONG CspKeyInfoCombine(BOOL) override { return Unused("CspKeyInfoCombine"); }
  ULONG DeleteKeyEx(ISmartList<tag_VEL_KEY_INFO_EX>*, BOOL) override {
    return Unused("DeleteKeyEx");
  }
  ULONG KeyHasFingerByCertSN(LPCSTR) override { return Unused("KeyHasFingerByCertSN"); }
  ULONG KeyVerifyFingerByCertSN(LPCSTR, ULONG) override {
    return Unused("KeyVerifyFingerByCertSN");
  }
  ULONG KeyVerifyFingerByCertSN(LPCSTR, ULONG, ULONG) override {
    return Unused("KeyVerifyFingerByCertSN");
  }
  ULONG P1ByCertEntity(BYTE*, BYTE*, IBuffer*) override { return Unused("P1ByCertEntity"); }
  ULONG SetDevPinCode(LPWSTR) override { return Unused("SetDevPinCode"); }

 private:
  static ULONG Unused(const char* operation) {
    Fake().Record(operation);
    return 0xE0000008;
  }
};
