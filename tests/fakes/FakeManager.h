#pragma once
#include "Counted.h"
#include "UnusedDeviceManager.h"

class FakeManager : public Counted<UnusedDeviceManager> {
 public:
  using Counted::Counted;

  ULONG EnablePinStatusCheck(BOOL enable) override;
  ULONG Initialize(IVELUsbKeyClass* loader) override;
  ULONG GetCertList(ISmartList<tag_VEL_CERT_FILTER_ITEM>* filters,
                    ISmartList<tag_VEL_CERT_INFO>* certs) override;
  ULONG KeyPinCodeHandleByCertSN(VEL_PIN_CODE_OPER_TYPE operation, LPCSTR serial,
                                 VEL_PIN_CODE_TYPE type, LPCSTR pin, LPCSTR newPin,
                                 VEL_PIN_INFO* info) override;
  ULONG P1Sign(VEL_CERT_INFO* cert, VEL_HASH_ALG hash, BYTE* data, DWORD size,
               IBuffer* signature) override;
  ULONG P7Sign(VEL_CERT_INFO* cert, VEL_HASH_ALG hash, BOOL detach, BOOL includeCert, BYTE* data,
               DWORD size, IBuffer* signature) override;
  ULONG SetKeyCheckTime(ULONG time) override;
  ULONG AddKeyEx(ISmartList<tag_VEL_KEY_INFO_EX>* keys, BOOL clear) override;
  ULONG SetForcePinDialog(BOOL force) override;
  ULONG SetPinCode(VEL_PIN_CODE_TYPE type, LPWSTR pin, VEL_CERT_INFO* cert) override;
  ULONG GetPinRetryTimes() override;
};
