#include "FakeManager.h"

#include "FakeCertificates.h"
#include "Render.h"

namespace {

const char* NameOf(VEL_PIN_CODE_OPER_TYPE operation) {
  switch (operation) {
    case VEL_PIN_CODE_OPER_TYPE_LOGIN:
      return "Login";
    case VEL_PIN_CODE_OPER_TYPE_LOGOUT:
      return "Logout";
    case VEL_PIN_CODE_OPER_TYPE_CHANGE_PIN:
      return "ChangePin";
    case VEL_PIN_CODE_OPER_TYPE_GET_PIN_INFO:
      return "GetPinInfo";
    default:
      return "UnknownPinOperation";
  }
}

ULONG Sign(const char* operation, const std::string& signature, IBuffer* out) {
  const ULONG code = Fake().NextCode(operation);
  if (code == 0) out->SetBuffer(signature.data(), static_cast<unsigned>(signature.size()));
  return code;
}

}  // namespace

ULONG FakeManager::EnablePinStatusCheck(BOOL enable) {
  Fake().Record("EnablePinStatusCheck", enable);
  return Fake().NextCode("EnablePinStatusCheck");
}

ULONG FakeManager::Initialize(IVELUsbKeyClass* loader) {
  Fake().Record("Initialize", loader == nullptr ? "null" : "loader");
  if (Fake().recording) Fake().loader = loader;
  return Fake().NextCode("Initialize");
}

ULONG FakeManager::GetCertList(ISmartList<tag_VEL_CERT_FILTER_ITEM>* filters,
                               ISmartList<tag_VEL_CERT_INFO>* certs) {
  if (Fake().recording) Fake().Record("GetCertList", Shown(*filters));
  for (const FakeCert& cert : Fake().certs) {
    if (Passes(cert, *filters)) certs->AddItem(RecordOf(cert));
  }
  return Fake().NextCode("GetCertList");
}

ULONG FakeManager::KeyPinCodeHandleByCertSN(VEL_PIN_CODE_OPER_TYPE operation, LPCSTR serial,
                                            VEL_PIN_CODE_TYPE type, LPCSTR pin, LPCSTR newPin,
                                            VEL_PIN_INFO* info) {
  const char* const name = NameOf(operation);
  Fake().Record(name, Shown(serial), type, Shown(pin), Shown(newPin),
                info == nullptr ? "null" : "info");
  const ULONG code = Fake().NextCode(name);
  if (code == 0 && info != nullptr) info->RemainRetryCount = Fake().remainRetryCount;
  return code;
}

ULONG FakeManager::P1Sign(VEL_CERT_INFO* cert, VEL_HASH_ALG hash, BYTE* data, DWORD size,
                          IBuffer* signature) {
  if (Fake().recording) {
    Fake().Record("P1Sign", Shown(cert->SerialNumber), hash, Shown(data, size));
  }
  return Sign("P1Sign", Fake().p1Signature, signature);
}

ULONG FakeManager::P7Sign(VEL_CERT_INFO* cert, VEL_HASH_ALG hash, BOOL detach, BOOL includeCert,
                          BYTE* data, DWORD size, IBuffer* signature) {
  if (Fake().recording) {
    Fake().Record("P7Sign", Shown(cert->SerialNumber), hash, detach, includeCert,
                  Shown(data, size));
  }
  return Sign("P7Sign", Fake().p7Signature, signature);
}

ULONG FakeManager::SetKeyCheckTime(ULONG time) {
  Fake().Record("SetKeyCheckTime", time);
  return Fake().NextCode("SetKeyCheckTime");
}

ULONG FakeManager::AddKeyEx(ISmartList<tag_VEL_KEY_INFO_EX>* keys, BOOL clear) {
  if (Fake().recording) Fake().Record("AddKeyEx", Shown(*keys), clear);
  return Fake().NextCode("AddKeyEx");
}

ULONG FakeManager::SetForcePinDialog(BOOL force) {
  Fake().Record("SetForcePinDialog", force);
  return Fake().NextCode("SetForcePinDialog");
}

ULONG FakeManager::SetPinCode(VEL_PIN_CODE_TYPE type, LPWSTR pin, VEL_CERT_INFO* cert) {
  Fake().Record("SetPinCode", type, Shown(pin), Shown(cert->SerialNumber));
  return Fake().NextCode("SetPinCode");
}

ULONG FakeManager::GetPinRetryTimes() {
  Fake().Record("GetPinRetryTimes");
  return Fake().pinRetryTimes;
}
