// Initialisation: key patches, the device library, the key list.
#include <stdlib.h>

#include <algorithm>
#include <exception>
#include <new>
#include <string>

#include "base64.h"
#include "DeviceErrorCodes.h"
#include "Markup.h"
#include "ToolkitLog.h"
#include "VELClientTKImp.h"

namespace {

const wchar_t kDeviceLibrary[] = L"libVELCrypto64.so";

// Read once for the whole process: later sessions see the same families even if the disk changed.
const std::string& KeyPatch() {
  static const std::string patch = [] {
    std::string text;
    GetKeyPatchXml(text);
    return text;
  }();
  return patch;
}

// Copies the bytes that `base64` holds as text, up to a zero byte, cut to the field. An empty
// attribute leaves the field alone.
template <size_t N>
void DecodeInto(CHAR (&field)[N], const std::wstring& base64) {
  if (base64.empty()) return;
  memset(field, 0, N);
  CBase64 decoder;
  unsigned long length = 0;
  const void* const bytes = decoder.Decode(base64.c_str(), &length);
  if (bytes == nullptr) return;
  const size_t count = std::min<size_t>(length, N - 1);
  memcpy(field, bytes, strnlen(static_cast<const char*>(bytes), count));
}

void ReadLib(CMarkup& doc, tag_VEL_KEY_INFO_EX& key) {
  const std::wstring type = doc.GetAttrib(L"type");
  if (!type.empty()) key.CryptoInterfaceType = EnumCryptoInterfaceType(type.c_str());
  const std::wstring version = doc.GetAttrib(L"version");
  if (!version.empty()) key.LibVersion = wcstoul(version.c_str(), nullptr, 0);
  DecodeInto(key.InterfaceLibName, doc.GetAttrib(L"dllname"));
}

void ReadAlgId(CMarkup& doc, tag_VEL_KEY_INFO_EX& key) {
  const std::wstring rsaHash = doc.GetAttrib(L"val");
  if (!rsaHash.empty()) key.RSAHashALg = EnumHashAlg(rsaHash.c_str());
  const std::wstring sm2Hash = doc.GetAttrib(L"sm2_hashalg");
  key.SM2HashALg = sm2Hash.empty() ? VEL_HASH_ALG(key.RSAHashALg) : EnumHashAlg(sm2Hash.c_str());
}

void ReadPvid(CMarkup& doc, tag_VEL_KEY_INFO_EX& key) {
  key.PVIDEnable = doc.GetAttrib(L"enable") == L"1";
  DecodeInto(key.PVID, doc.GetAttrib(L"val"));
}

// Reads the first child `name` of the current element, wherever it stands among the others.
void ReadChild(CMarkup& doc, const wchar_t* name, void (*read)(CMarkup&, tag_VEL_KEY_INFO_EX&),
               tag_VEL_KEY_INFO_EX& key) {
  if (!doc.FindChildElem(name)) return;
  doc.IntoElem();
  read(doc, key);
  doc.OutOfElem();
  // Leaving and entering the parent forgets the child, so that the next search starts in front.
  doc.OutOfElem();
  doc.IntoElem();
}

}  // namespace

BOOL CVELClientTKImp::Initialize(LPCSTR lpszSupportKeyXML) {
  m_LastError = 0;
  std::string keyList = lpszSupportKeyXML == nullptr ? "" : lpszSupportKeyXML;
  const std::string& patch = KeyPatch();
  if (!patch.empty()) {
    const size_t end = keyList.find("</liblist>");
    if (end != std::string::npos) keyList.insert(end, patch);
    VCTK_LOG_INFO(L"VELClientTKImp", L"Initialize", L"KeyXML After appling patch: %s",
                  static_cast<const wchar_t*>(CString(keyList.c_str())));
  }
  if (m_pVelUsbKey != nullptr) Finalize();
  m_pVelUsbKey = new (std::nothrow) CVELUsbKey;
  if (m_pVelUsbKey == nullptr) return Succeed(kErrorCreateFailed);
  m_LastError = m_pVelUsbKey->LoadDll(kDeviceLibrary);
  if (m_LastError != 0) m_LastError = m_pVelUsbKey->LoadDll(kDeviceLibrary);
  if (m_LastError == 0) m_LastError = SetKeyInfo(keyList.c_str());
  if (m_LastError == 0) {
    m_soCallQueue = m_pVelUsbKey->CreateCallQueueInstance();
    if (!m_soCallQueue) m_LastError = kErrorCreateFailed;
  }
  if (m_LastError != 0) Finalize();
  return m_LastError == 0;
}

ULONG CVELClientTKImp::SetKeyInfo(LPCSTR xml) {
  if (xml == nullptr || *xml == '\0') return kErrorGeneral;
  try {
    CMarkup doc;
    doc.SetDoc(static_cast<const wchar_t*>(CString(xml)));
    if (!doc.IsWellFormed()) return kErrorGeneral;
    if (!doc.FindElem(L"authinfo") || !doc.IntoElem()) return kErrorGeneral;
    if (!doc.FindElem(L"liblist")) return kErrorGeneral;
    while (doc.FindChildElem(L"lib")) {
      tag_VEL_KEY_INFO_EX key;
      doc.IntoElem();
      ReadLib(doc, key);
      ReadChild(doc, L"algid", ReadAlgId, key);
      ReadChild(doc, L"pvid", ReadPvid, key);
      m_KeyInfoList.AddItem(key);
      doc.OutOfElem();
    }
  } catch (const std::exception&) {
    return kErrorGeneral;
  }
  return 0;
}

void CVELClientTKImp::SetDefaultKeyInfo() {
  if (m_KeyInfoList.GetCount() != 0) return;
  tag_VEL_KEY_INFO_EX key;
  key.KeyInfoVersion = 0;
  key.Reference = 0;
  key.RSAHashALg = VEL_HASH_ALG_SHA1;
  key.SM2HashALg = VEL_HASH_ALG_SM3;
  m_KeyInfoList.AddItem(key);
}
