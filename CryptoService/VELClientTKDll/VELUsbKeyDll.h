#pragma once
// The interfaces of the crypto device library and the loader that opens it at run time.
//
// All objects are reference counted (SmartObject.h). Operations return 0 or a device error code
// unless they say otherwise; lengths count bytes. The slot order of every interface is frozen, and
// so are the odd spellings: operations are added at the end or not at all. Whoever makes the
// objects may be built by another compiler, so no exception and no run-time type crosses.
#include "SmartBuffer.h"
#include "SmartList.h"
#include "SmartObject.h"
#include "VELInterface.h"
#include "VelKeyTypes.h"
#include "VelString.h"

class IVELUsbKeyClass;
class IVELApplication;
class IVELContainer;
class IVELDevice;
class IVELHashKey;
class IVELSessionKey;
class IVELTokenPrivileges;

typedef ULONG (*PKEYCHANGECALLBACK)(VEL_KEY_CHANGE_INFO_TYPE type, VEL_CERT_INFO* pCert,
                                    LPVOID pContext);
typedef ULONG (*PKEYINFOSAVECALLBACK)(ISmartList<tag_VEL_KEY_INFO_EX>* pKeys, LPVOID pContext);

// The underlying interface of a device object.
class IVELPKIBase {
 public:
  virtual VEL_CRYPTO_INTERFACE_TYPE GetBaseType() = 0;
  virtual PVOID GetBaseInterface() = 0;
  virtual HANDLE GetHandle() = 0;
  // The underlying interface's own code of the last failure.
  virtual ULONG GetOrgErrorCode() = 0;
};

// The devices of one interface library.
class IVELDeviceSet : public ISmartObject, public IVELPKIBase {
 public:
  virtual ULONG InitDLLInterface(LPCSTR pLibName, VEL_CRYPTO_INTERFACE_TYPE type, LPCSTR pFlags,
                                 LPVOID pReserved) = 0;
  virtual ULONG Initialize() = 0;
  virtual ULONG Finalize() = 0;
  virtual ULONG EnumDevice(ISmartList<CVelStringT<char>>* pNames) = 0;
  virtual ULONG DeviceIsExists(LPCSTR pName, BOOL* pExists) = 0;
  virtual IVELDevice* CreatDeviceInstance() = 0;
  virtual IVELDevice* GetDeviceByDeviceName(LPCSTR pName) = 0;
};

// The record of device calls.
class IVELCallQueue : public ISmartObject {
 public:
  virtual ULONG Enable(BOOL bCallQueueEnable, BOOL bHeadInfoEnable) = 0;
  virtual ULONG Clear() = 0;
  // The whole text, the object's until its next call; null counts as empty.
  virtual LPCSTR Get() = 0;
};

// The certificate dialog.
class IVELKeyDisplayCertUIEx : public ISmartObject {
 public:
  virtual ULONG SetLanguage(LPCSTR pLanguage) = 0;
  // Adds the user's choice from pCerts to pChosen.
  virtual ULONG DisplayUI(BOOL bMultiple, ISmartList<tag_VEL_CERT_INFO>* pCerts,
                          ISmartList<tag_VEL_CERT_INFO>* pChosen) = 0;
  // With one certificate alone, DisplayUI takes it without asking.
  virtual ULONG EnableSingleCertSkipUI(BOOL bEnable) = 0;
  virtual ULONG RefreshDisplayCerts(ISmartList<tag_VEL_CERT_INFO>* pCerts) = 0;
};

// Conversions that need no device.
class IVELKeyAuxClass : public ISmartObject {
 public:
  virtual ULONG CheckCertExistBySerialNum(IVELUsbKeyClass* pUsbKey, VEL_CRYPTO_INTERFACE_TYPE type,
                                          LPCSTR pLibName, LPCSTR pCertSN, BOOL* pExists) = 0;
  virtual ULONG MSRSAHashDer2BYTE(PBYTE pDer, DWORD nSize, PBYTE pHash, DWORD* pHashLen) = 0;
  virtual ULONG BYTE2MSRSAHashDer(PBYTE pHash, DWORD nSize, PBYTE pDer, DWORD* pDerLen) = 0;
  virtual ULONG AssembleRSAPubKeyStruct(PBYTE pKey, DWORD nSize, PBYTE pResult,
                                        DWORD* pResultLen) = 0;
  virtual ULONG ConvertPkcs7ToPkcs1(PBYTE pP7, DWORD nSize, PBYTE pP1, DWORD* pP1Len) = 0;
  virtual ULONG GetXMLSignatureInfo(LPCSTR pXml, LPCSTR pName, PBYTE pResult,
                                    DWORD* pResultLen) = 0;
  // A null buffer asks for the size.
  virtual ULONG AssembleP1DataToP7Data(PVEL_P1_TO_P7_PARAM pParam, PBYTE pResult,
                                       DWORD* pResultLen) = 0;
  virtual ULONG GetP7EnvelopeInfo(PBYTE pP7, DWORD nSize, LPCSTR pName, PBYTE pResult,
                                  DWORD* pResultLen) = 0;
};

// All configured key families together: certificates, PINs, signatures. One operation at a time.
class IVELDeviceManager : public ISmartObject {
 public:
  virtual ULONG EnablePinStatusCheck(BOOL bEnable) = 0;
  virtual ULONG Initialize(IVELUsbKeyClass* pUsbKey) = 0;
  virtual ULONG AddKey(ISmartList<tag_VEL_KEY_INFO>* pKeys, BOOL bClear) = 0;
  virtual ULONG DeleteKey(ISmartList<tag_VEL_KEY_INFO>* pKeys, BOOL bAll) = 0;
  // Adds the certificates that pass all filters to the list.
  virtual ULONG GetCertList(ISmartList<tag_VEL_CERT_FILTER_ITEM>* pFilters,
                            ISmartList<tag_VEL_CERT_INFO>* pCerts) = 0;
  virtual ULONG DoAction(VEL_DEVICE_MANAGER_ACTION_TYPE action, LPCSTR pCertSN, BYTE* pData,
                         DWORD nSize, IBuffer* pResult) = 0;
  virtual ULONG SetKeyChangeCallBack(PKEYCHANGECALLBACK pCallback, LPVOID pContext) = 0;
  virtual ULONG KeyPinCodeHandleByCertSN(VEL_PIN_CODE_OPER_TYPE operation, LPCSTR pCertSN,
                                         VEL_PIN_CODE_TYPE type, LPCSTR pPin, LPCSTR pNewPin,
                                         VEL_PIN_INFO* pInfo) = 0;
  virtual ULONG GetKeyDevInfoByCertSN(LPCSTR pCertSN, PVEL_DEVICE_INFO pInfo) = 0;
  virtual ULONG RefreshCertList() = 0;
  virtual ULONG EnablePinDialog(BOOL bEnable) = 0;
  virtual ULONG RefreshSepcialCertList(VEL_CERT_INFO* pCert) = 0;
  virtual ULONG SetKeyInfoSaveCallBack(PKEYINFOSAVECALLBACK pCallback, LPVOID pContext) = 0;
  virtual ULONG RegCertListBroadcastObject(UI_RECIVE_CERTLIST_INFO* pInfo) = 0;
  virtual ULONG UnregCertListBroadcastObject(UI_RECIVE_CERTLIST_INFO* pInfo) = 0;
  virtual ULONG P1Sign(VEL_CERT_INFO* pCert, VEL_HASH_ALG hashAlg, BYTE* pData, DWORD nSize,
                       IBuffer* pSignature) = 0;
  virtual ULONG P7Sign(VEL_CERT_INFO* pCert, VEL_HASH_ALG hashAlg, BOOL bDetach, BOOL bIncludeCert,
                       BYTE* pData, DWORD nSize, IBuffer* pSignature) = 0;
  virtual ULONG P7SignEx(VEL_CERT_INFO* pCert, VEL_HASH_ALG hashAlg, BOOL bDetach,
                         BOOL bIncludeCert, BYTE* pData, DWORD nSize, IBuffer* pSignature,
                         VEL_SIGN_UNAUTH_DATA* pAttributes, ULONG nAttributes) = 0;
  virtual ULONG AddUnauthAttr2P7SignedData(BYTE* pData, DWORD nSize,
                                           VEL_SIGN_UNAUTH_DATA* pAttributes, ULONG nAttributes,
                                           IBuffer* pResult) = 0;
  virtual ULONG GetUnauthAttrFrmP7SigndDat(BYTE* pData, DWORD nSize, LPCSTR pObjId,
                                           IBuffer* pResult) = 0;
  virtual ULONG Encrypt(VEL_CERT_INFO* pCert, BYTE* pData, DWORD nSize, IBuffer* pResult) = 0;
  virtual ULONG Decrypt(VEL_CERT_INFO* pCert, BYTE* pData, DWORD nSize, IBuffer* pResult) = 0;
  virtual ULONG P7UnEnvelope(BYTE* pData, DWORD nSize, IBuffer* pResult) = 0;
  virtual ULONG P7Envelope(VEL_CERT_INFO* pCert, BYTE* pData, DWORD nSize, IBuffer* pResult) = 0;
  virtual ULONG P1SignInit(VEL_CERT_INFO* pCert, VEL_HASH_ALG hashAlg) = 0;
  virtual ULONG P1SignUpdate(BYTE* pData, DWORD nSize) = 0;
  virtual ULONG P1SignFinal(IBuffer* pSignature) = 0;
  virtual ULONG P7AttachSignInit(VEL_CERT_INFO* pCert, VEL_HASH_ALG hashAlg, BOOL bIncludeCert) = 0;
  virtual ULONG P7AttachSignUpdate(BYTE* pData, DWORD nSize) = 0;
  virtual ULONG P7AttachSignFinal(IBuffer* pSignature) = 0;
  virtual ULONG P7DetachSignInit(VEL_CERT_INFO* pCert, VEL_HASH_ALG hashAlg, BOOL bIncludeCert) = 0;
  virtual ULONG P7DetachSignUpdate(BYTE* pData, DWORD nSize) = 0;
  virtual ULONG P7DetachSignFinal(IBuffer* pSignature) = 0;
  virtual ULONG P1VerifyInit(VEL_CERT_INFO* pCert, VEL_HASH_ALG hashAlg) = 0;
  virtual ULONG P1VerifyUpdate(BYTE* pData, DWORD nSize) = 0;
  virtual ULONG P1VerifyFinal(BYTE* pSignature, DWORD nSize) = 0;
  virtual ULONG P1Verify(VEL_CERT_INFO* pCert, VEL_HASH_ALG hashAlg, BYTE* pData, DWORD nSize,
                         BYTE* pSignature, DWORD nSignature) = 0;
  virtual ULONG P7AttachVerifyInit() = 0;
  virtual ULONG P7AttachVerifyUpdate(BYTE* pData, DWORD nSize) = 0;
  virtual ULONG P7AttachVerifyFinal(IBuffer* pContent) = 0;
  virtual ULONG P7AttachVerify(BYTE* pSigned, DWORD nSigned, IBuffer* pContent) = 0;
  virtual ULONG P7DetachVerifyInit(BYTE* pSigned, DWORD nSigned) = 0;
  virtual ULONG P7DetachVerifyUpdate(BYTE* pData, DWORD nSize) = 0;
  virtual ULONG P7DetachVerifyFinal() = 0;
  virtual ULONG P7DetachVerify(BYTE* pData, DWORD nSize, BYTE* pSigned, DWORD nSigned) = 0;
  virtual ULONG FilterCertList(ISmartList<tag_VEL_CERT_FILTER_ITEM>* pFilters,
                               ISmartList<tag_VEL_CERT_INFO>* pCerts) = 0;
  virtual ULONG GetSignCerts(ISmartList<tag_VEL_CERT_INFO>* pCerts,
                             ISmartList<tag_VEL_CERT_FILTER_ITEM>* pFilters, BOOL bRefresh) = 0;
  virtual ULONG GetEncryptCerts(ISmartList<tag_VEL_CERT_INFO>* pCerts,
                                ISmartList<tag_VEL_CERT_FILTER_ITEM>* pFilters, BOOL bRefresh) = 0;
  virtual ULONG P7EnvelopeInit(VEL_CERT_INFO* pCert) = 0;
  virtual ULONG P7EnvelopeUpdata(BYTE* pData, DWORD nSize) = 0;
  virtual ULONG P7EnvelopeFinal(IBuffer* pResult) = 0;
  virtual ~IVELDeviceManager() {}
  virtual ULONG RefreshCertList(BOOL bForce) = 0;
  virtual ULONG SetFlags(ULONG nFlags) = 0;
  virtual ULONG SetKeyCheckTime(ULONG nTime) = 0;
  virtual ULONG CspKeyInfoCombine(BOOL bCombine) = 0;
  virtual ULONG AddKeyEx(ISmartList<tag_VEL_KEY_INFO_EX>* pKeys, BOOL bClear) = 0;
  virtual ULONG DeleteKeyEx(ISmartList<tag_VEL_KEY_INFO_EX>* pKeys, BOOL bAll) = 0;
  virtual ULONG KeyHasFingerByCertSN(LPCSTR pCertSN) = 0;
  virtual ULONG KeyVerifyFingerByCertSN(LPCSTR pCertSN, ULONG nTimeout) = 0;
  virtual ULONG KeyVerifyFingerByCertSN(LPCSTR pCertSN, ULONG nTimeout, ULONG nFlags) = 0;
  virtual ULONG P1ByCertEntity(BYTE* pCert, BYTE* pData, IBuffer* pSignature) = 0;
  virtual ULONG SetForcePinDialog(BOOL bForce) = 0;
  // The PIN for the next signature with the certificate; the empty one forgets it.
  virtual ULONG SetPinCode(VEL_PIN_CODE_TYPE type, LPWSTR pPin, VEL_CERT_INFO* pCert) = 0;
  // Tries left after a failure.
  virtual ULONG GetPinRetryTimes() = 0;
  virtual ULONG SetDevPinCode(LPWSTR pPin) = 0;
};

// One certificate. Texts belong to the object until its next call.
class IVELCertificate : public ISmartObject, public IVELPKIBase {
 public:
  virtual ULONG CreateFromMemory(const BYTE* pData, DWORD nSize, LPCSTR pPassword) = 0;
  virtual LPCSTR GetSubject(BOOL bReverse) = 0;
  virtual LPCSTR GetSubjectCN() = 0;
  virtual LPCSTR GetIssuer(BOOL bReverse) = 0;
  virtual LPCSTR GetIssuerCN() = 0;
  virtual LPCSTR GetSerialNumber(CHAR cSeparator) = 0;
  virtual LPCSTR GetEffectiveDate() = 0;
  virtual LPCSTR GetExpirationDate() = 0;
  virtual ULONG GetEffectiveDate(LPSYSTEMTIME pTime) = 0;
  virtual ULONG GetExpirationDate(LPSYSTEMTIME pTime) = 0;
  virtual LPCSTR GetCertBase64() = 0;
  virtual LPCSTR GetKeyAlgorithm() = 0;
  virtual BOOL IsExpired() = 0;
  virtual LPCSTR GetCertInfoByOid(LPCSTR pOid) = 0;
  virtual ULONG GetPublicKey(BYTE* pKey, ULONG nSize, ULONG* pNeeded) = 0;
  virtual LPCSTR GetPublicKey(CHAR cSeparator) = 0;
  virtual ULONG GetPublicKeyLength() = 0;
  virtual ULONG GetKeyUsage() = 0;
  virtual LPCSTR GetKeyUsageString() = 0;
  virtual BOOL IsEncryptionCert() = 0;
  virtual BOOL IsSignatureCert() = 0;
  virtual BOOL IsRootCert() = 0;
  virtual BOOL IsValid() = 0;
  virtual LPCSTR GetVersion() = 0;
  virtual LPCSTR GetIssuerC() = 0;
  virtual LPCSTR GetIssuerO() = 0;
  virtual LPCSTR GetIssuerOU() = 0;
  virtual LPCSTR GetIssuerS() = 0;
  virtual LPCSTR GetIssuerL() = 0;
  virtual LPCSTR GetIssuerEmail() = 0;
  virtual LPCSTR GetExtensionInfo(CHAR cSeparator) = 0;
  virtual LPCSTR GetSubjectEmail() = 0;
  virtual ULONG GetRawCertData(BYTE* pData, DWORD nSize) = 0;
  virtual VEL_ASYMM_ALG GetAsymmAlg() = 0;
};

// The factory as the device library sees it: it receives one in IVELDeviceManager::Initialize.
class IVELUsbKeyClass {
 public:
  virtual IVELDeviceSet* CreateDeviceSetInstance(VEL_CRYPTO_INTERFACE_TYPE type) = 0;
  virtual IVELCertificate* CreateCertificateInstance() = 0;
  virtual IVELKeyAuxClass* CreateAuxClassInstance() = 0;
  virtual IVELKeyDisplayCertUIEx* CreateCertUIInstance() = 0;
  virtual IVELDeviceManager* CreateDeviceManagerInstance() = 0;
  virtual IVELCallQueue* CreateCallQueueInstance() = 0;
  virtual IVELSessionKey* CreateSessionKeyInstance() = 0;
  virtual IVELTokenPrivileges* CreateTokenPrivilegesInstance() = 0;
  virtual IVELDevice* CreateDeviceInstance(IVELDeviceSet* pDeviceSet) = 0;
  virtual IVELApplication* CreateApplicationInstance(IVELDevice* pDevice) = 0;
  virtual IVELHashKey* CreateHashKeyInstance(IVELDevice* pDevice) = 0;
  virtual IVELContainer* CreateContainerInstance(IVELDevice* pDevice, IVELApplication* pApplication,
                                                 IVELHashKey* pHashKey) = 0;
  virtual ~IVELUsbKeyClass() {}
};

typedef IVELDeviceSet* (*PCreateUsbKeyInstance_DeviceSet)(VEL_CRYPTO_INTERFACE_TYPE type);
typedef IVELCertificate* (*PCreateUsbKeyInstance_Certificate)();
typedef IVELKeyAuxClass* (*PCreateUsbKeyInstance_AuxClass)();
typedef IVELKeyDisplayCertUIEx* (*PCreateUsbKeyInstance_CertUI)();
typedef IVELDeviceManager* (*PCreateUsbKeyInstance_DeviceManager)();
typedef IVELCallQueue* (*PCreateUsbKeyInstance_CallQueue)();
typedef IVELSessionKey* (*PCreateUsbKeyInstance_SessionKey)();
typedef IVELTokenPrivileges* (*PCreateUsbKeyInstance_TokenPrivileges)();
typedef IVELDevice* (*PCreateUsbKeyInstance_Device)(IVELDeviceSet* pDeviceSet);
typedef IVELApplication* (*PCreateUsbKeyInstance_Application)(IVELDevice* pDevice);
typedef IVELHashKey* (*PCreateUsbKeyInstance_HashKey)(IVELDevice* pDevice);
typedef IVELContainer* (*PCreateUsbKeyInstance_Container)(IVELDevice* pDevice,
                                                          IVELApplication* pApplication,
                                                          IVELHashKey* pHashKey);

// Opens the device library, resolves its twelve factories and passes their objects on. Objects must
// be released before the library is closed. One thread at a time.
class CVELUsbKey : public IVELUsbKeyClass {
 public:
  CVELUsbKey() = default;
  CVELUsbKey(const CVELUsbKey&) = delete;
  CVELUsbKey& operator=(const CVELUsbKey&) = delete;

  // Opens `name` (at most 127 bytes of it are used) from the system's library search path; a
  // library that is open already is closed first. 0, or all bits set: the library cannot be opened
  // ("err <reason>" on standard output), or it lacks a factory: then it stays open, and the
  // factories before the missing one are usable.
  DWORD LoadDll(LPCTSTR name);

  // Closes the library, if one is open; the factory pointers stay as they are.
  void UnloadDll();

  // Each gives null when its factory is missing.
  IVELDeviceSet* CreateDeviceSetInstance(VEL_CRYPTO_INTERFACE_TYPE type) override;
  IVELCertificate* CreateCertificateInstance() override;
  IVELKeyAuxClass* CreateAuxClassInstance() override;
  IVELKeyDisplayCertUIEx* CreateCertUIInstance() override;
  IVELDeviceManager* CreateDeviceManagerInstance() override;
  IVELCallQueue* CreateCallQueueInstance() override;
  IVELSessionKey* CreateSessionKeyInstance() override;
  IVELTokenPrivileges* CreateTokenPrivilegesInstance() override;
  IVELDevice* CreateDeviceInstance(IVELDeviceSet* pDeviceSet) override;
  IVELApplication* CreateApplicationInstance(IVELDevice* pDevice) override;
  IVELHashKey* CreateHashKeyInstance(IVELDevice* pDevice) override;
  IVELContainer* CreateContainerInstance(IVELDevice* pDevice, IVELApplication* pApplication,
                                         IVELHashKey* pHashKey) override;
  ~CVELUsbKey() override;

  PVOID m_hDllInstance = nullptr;
  PCreateUsbKeyInstance_DeviceSet m_CreateUsbKeyInstance_DeviceSet = nullptr;
  PCreateUsbKeyInstance_Certificate m_CreateUsbKeyInstance_Certificate = nullptr;
  PCreateUsbKeyInstance_AuxClass m_CreateUsbKeyInstance_AuxClass = nullptr;
  PCreateUsbKeyInstance_CertUI m_CreateUsbKeyInstance_CertUI = nullptr;
  PCreateUsbKeyInstance_DeviceManager m_CreateUsbKeyInstance_DeviceManager = nullptr;
  PCreateUsbKeyInstance_CallQueue m_CreateUsbKeyInstance_CallQueue = nullptr;
  PCreateUsbKeyInstance_SessionKey m_CreateUsbKeyInstance_SessionKey = nullptr;
  PCreateUsbKeyInstance_TokenPrivileges m_CreateUsbKeyInstance_TokenPrivileges = nullptr;
  PCreateUsbKeyInstance_Device m_CreateUsbKeyInstance_Device = nullptr;
  PCreateUsbKeyInstance_Application m_CreateUsbKeyInstance_Application = nullptr;
  PCreateUsbKeyInstance_HashKey m_CreateUsbKeyInstance_HashKey = nullptr;
  PCreateUsbKeyInstance_Container m_CreateUsbKeyInstance_Container = nullptr;
};
