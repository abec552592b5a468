// Calls every virtual operation through its interface on an object whose tables were laid by hand
// in C, and compares the slot that was reached with slots.txt.
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <map>
#include <sstream>

#include "SlotObject.h"
#include "VELUsbKeyDll.h"

namespace {

struct Slot {
  std::string interface;
  long number;
  std::string operation;
};

std::vector<Slot> SlotsInText() {
  std::ifstream file(CONTRACT "/slots.txt");
  std::vector<Slot> slots;
  for (std::string line; std::getline(file, line);) {
    if (line.empty() || line[0] == '#') continue;
    Slot slot;
    std::istringstream fields(line);
    fields >> slot.interface >> slot.number >> std::ws;
    std::getline(fields, slot.operation);
    slots.push_back(slot);
  }
  return slots;
}

using CertList = ISmartList<tag_VEL_CERT_INFO>;
using StringW = IVelStringT<wchar_t>;

template <typename Interface>
Interface* HandLaid() {
  return static_cast<Interface*>(SlotObject());
}

#define CALL(interface, name, call)                                               \
  {                                                                               \
    std::string(#interface " ") + name, [] { (void)HandLaid<interface>()->call; } \
  }

const std::map<std::string, std::function<void()>> kCalls = {
    CALL(IBuffer, "Alloc", Alloc({})),
    CALL(IBuffer, "ReAlloc", ReAlloc({})),
    CALL(IBuffer, "Free", Free()),
    CALL(IBuffer, "AppendBuffer", AppendBuffer({}, {})),
    CALL(IBuffer, "SetBuffer", SetBuffer({}, {})),
    CALL(IBuffer, "GetBuffer", GetBuffer({}, {})),
    CALL(IBuffer, "GetSize", GetSize()),
    CALL(IBuffer, "GetAddress", GetAddress()),
    CALL(IBuffer, "GetBytes", GetBytes()),
    CALL(CSmartBuffer, "Alloc", Alloc({})),
    CALL(CSmartBuffer, "ReAlloc", ReAlloc({})),
    CALL(CSmartBuffer, "Free", Free()),
    CALL(CSmartBuffer, "AppendBuffer", AppendBuffer({}, {})),
    CALL(CSmartBuffer, "SetBuffer", SetBuffer({}, {})),
    CALL(CSmartBuffer, "GetBuffer", GetBuffer({}, {})),
    CALL(CSmartBuffer, "GetSize", GetSize()),
    CALL(CSmartBuffer, "GetAddress", GetAddress()),
    CALL(CSmartBuffer, "GetBytes", GetBytes()),
    CALL(ISmartObject, "Destroy", Destroy()),
    CALL(ISmartObject, "AddRef", AddRef()),
    CALL(ISmartObject, "Release", Release()),
    CALL(IVELPKIBase, "GetBaseType", GetBaseType()),
    CALL(IVELPKIBase, "GetBaseInterface", GetBaseInterface()),
    CALL(IVELPKIBase, "GetHandle", GetHandle()),
    CALL(IVELPKIBase, "GetOrgErrorCode", GetOrgErrorCode()),
    CALL(IVELDeviceSet, "Destroy", Destroy()),
    CALL(IVELDeviceSet, "AddRef", AddRef()),
    CALL(IVELDeviceSet, "Release", Release()),
    CALL(IVELDeviceSet, "InitDLLInterface", InitDLLInterface({}, {}, {}, {})),
    CALL(IVELDeviceSet, "Initialize", Initialize()),
    CALL(IVELDeviceSet, "Finalize", Finalize()),
    CALL(IVELDeviceSet, "EnumDevice", EnumDevice({})),
    CALL(IVELDeviceSet, "DeviceIsExists", DeviceIsExists({}, {})),
    CALL(IVELDeviceSet, "CreatDeviceInstance", CreatDeviceInstance()),
    CALL(IVELDeviceSet, "GetDeviceByDeviceName", GetDeviceByDeviceName({})),
    CALL(IVELCallQueue, "Destroy", Destroy()),
    CALL(IVELCallQueue, "AddRef", AddRef()),
    CALL(IVELCallQueue, "Release", Release()),
    CALL(IVELCallQueue, "Enable", Enable({}, {})),
    CALL(IVELCallQueue, "Clear", Clear()),
    CALL(IVELCallQueue, "Get", Get()),
    CALL(IVELKeyDisplayCertUIEx, "Destroy", Destroy()),
    CALL(IVELKeyDisplayCertUIEx, "AddRef", AddRef()),
    CALL(IVELKeyDisplayCertUIEx, "Release", Release()),
    CALL(IVELKeyDisplayCertUIEx, "SetLanguage", SetLanguage({})),
    CALL(IVELKeyDisplayCertUIEx, "DisplayUI", DisplayUI({}, {}, {})),
    CALL(IVELKeyDisplayCertUIEx, "EnableSingleCertSkipUI", EnableSingleCertSkipUI({})),
    CALL(IVELKeyDisplayCertUIEx, "RefreshDisplayCerts", RefreshDisplayCerts({})),
    CALL(IVELKeyAuxClass, "Destroy", Destroy()),
    CALL(IVELKeyAuxClass, "AddRef", AddRef()),
    CALL(IVELKeyAuxClass, "Release", Release()),
    CALL(IVELKeyAuxClass, "CheckCertExistBySerialNum", CheckCertExistBySerialNum({}, {}, {}, {}, {})),
    CALL(IVELKeyAuxClass, "MSRSAHashDer2BYTE", MSRSAHashDer2BYTE({}, {}, {}, {})),
    CALL(IVELKeyAuxClass, "BYTE2MSRSAHashDer", BYTE2MSRSAHashDer({}, {}, {}, {})),
    CALL(IVELKeyAuxClass, "AssembleRSAPubKeyStruct", AssembleRSAPubKeyStruct({}, {}, {}, {})),
    CALL(IVELKeyAuxClass, "ConvertPkcs7ToPkcs1", ConvertPkcs7ToPkcs1({}, {}, {}, {})),
    CALL(IVELKeyAuxClass, "GetXMLSignatureInfo", GetXMLSignatureInfo({}, {}, {}, {})),
    CALL(IVELKeyAuxClass, "AssembleP1DataToP7Data", AssembleP1DataToP7Data({}, {}, {})),
    CALL(IVELKeyAuxClass, "GetP7EnvelopeInfo", GetP7EnvelopeInfo({}, {}, {}, {}, {})),
    CALL(IVELCertificate, "Destroy", Destroy()),
    CALL(IVELCertificate, "AddRef", AddRef()),
    CALL(IVELCertificate, "Release", Release()),
    CALL(IVELCertificate, "CreateFromMemory", CreateFromMemory({}, {}, {})),
    CALL(IVELCertificate, "GetSubject", GetSubject({})),
    CALL(IVELCertificate, "GetSubjectCN", GetSubjectCN()),
    CALL(IVELCertificate, "GetIssuer", GetIssuer({})),
    CALL(IVELCertificate, "GetIssuerCN", GetIssuerCN()),
    CALL(IVELCertificate, "GetSerialNumber", GetSerialNumber({})),
    CALL(IVELCertificate, "GetEffectiveDate()", GetEffectiveDate()),
    CALL(IVELCertificate, "GetExpirationDate()", GetExpirationDate()),
    CALL(IVELCertificate, "GetEffectiveDate(LPSYSTEMTIME)", GetEffectiveDate({})),
    CALL(IVELCertificate, "GetExpirationDate(LPSYSTEMTIME)", GetExpirationDate({})),
    CALL(IVELCertificate, "GetCertBase64", GetCertBase64()),
    CALL(IVELCertificate, "GetKeyAlgorithm", GetKeyAlgorithm()),
    CALL(IVELCertificate, "IsExpired", IsExpired()),
    CALL(IVELCertificate, "GetCertInfoByOid", GetCertInfoByOid({})),
    CALL(IVELCertificate, "GetPublicKey(BYTE*, ULONG, ULONG*)", GetPublicKey({}, {}, {})),
    CALL(IVELCertificate, "GetPublicKey(CHAR)", GetPublicKey({})),
    CALL(IVELCertificate, "GetPublicKeyLength", GetPublicKeyLength()),
    CALL(IVELCertificate, "GetKeyUsage", GetKeyUsage()),
    CALL(IVELCertificate, "GetKeyUsageString", GetKeyUsageString()),
    CALL(IVELCertificate, "IsEncryptionCert", IsEncryptionCert()),
    CALL(IVELCertificate, "IsSignatureCert", IsSignatureCert()),
    CALL(IVELCertificate, "IsRootCert", IsRootCert()),
    CALL(IVELCertificate, "IsValid", IsValid()),
    CALL(IVELCertificate, "GetVersion", GetVersion()),
    CALL(IVELCertificate, "GetIssuerC", GetIssuerC()),
    CALL(IVELCertificate, "GetIssuerO", GetIssuerO()),
    CALL(IVELCertificate, "GetIssuerOU", GetIssuerOU()),
    CALL(IVELCertificate, "GetIssuerS", GetIssuerS()),
    CALL(IVELCertificate, "GetIssuerL", GetIssuerL()),
    CALL(IVELCertificate, "GetIssuerEmail", GetIssuerEmail()),
    CALL(IVELCertificate, "GetExtensionInfo", GetExtensionInfo({})),
    CALL(IVELCertificate, "GetSubjectEmail", GetSubjectEmail()),
    CALL(IVELCertificate, "GetRawCertData", GetRawCertData({}, {})),
    CALL(IVELCertificate, "GetAsymmAlg", GetAsymmAlg()),
    CALL(IVELDeviceManager, "Destroy", Destroy()),
    CALL(IVELDeviceManager, "AddRef", AddRef()),
    CALL(IVELDeviceManager, "Release", Release()),
    CALL(IVELDeviceManager, "EnablePinStatusCheck", EnablePinStatusCheck({})),
    CALL(IVELDeviceManager, "Initialize", Initialize({})),
    CALL(IVELDeviceManager, "AddKey", AddKey({}, {})),
    CALL(IVELDeviceManager, "DeleteKey", DeleteKey({}, {})),
    CALL(IVELDeviceManager, "GetCertList", GetCertList({}, {})),
    CALL(IVELDeviceManager, "DoAction", DoAction({}, {}, {}, {}, {})),
    CALL(IVELDeviceManager, "SetKeyChangeCallBack", SetKeyChangeCallBack({}, {})),
    CALL(IVELDeviceManager, "KeyPinCodeHandleByCertSN", KeyPinCodeHandleByCertSN({}, {}, {}, {}, {}, {})),
    CALL(IVELDeviceManager, "GetKeyDevInfoByCertSN", GetKeyDevInfoByCertSN({}, {})),
    CALL(IVELDeviceManager, "RefreshCertList()", RefreshCertList()),
    CALL(IVELDeviceManager, "EnablePinDialog", EnablePinDialog({})),
    CALL(IVELDeviceManager, "RefreshSepcialCertList", RefreshSepcialCertList({})),
    CALL(IVELDeviceManager, "SetKeyInfoSaveCallBack", SetKeyInfoSaveCallBack({}, {})),
    CALL(IVELDeviceManager, "RegCertListBroadcastObject", RegCertListBroadcastObject({})),
    CALL(IVELDeviceManager, "UnregCertListBroadcastObject", UnregCertListBroadcastObject({})),
    CALL(IVELDeviceManager, "P1Sign", P1Sign({}, {}, {}, {}, {})),
    CALL(IVELDeviceManager, "P7Sign", P7Sign({}, {}, {}, {}, {}, {}, {})),
    CALL(IVELDeviceManager, "P7SignEx", P7SignEx({}, {}, {}, {}, {}, {}, {}, {}, {})),
    CALL(IVELDeviceManager, "AddUnauthAttr2P7SignedData", AddUnauthAttr2P7SignedData({}, {}, {}, {}, {})),
    CALL(IVELDeviceManager, "GetUnauthAttrFrmP7SigndDat", GetUnauthAttrFrmP7SigndDat({}, {}, {}, {})),
    CALL(IVELDeviceManager, "Encrypt", Encrypt({}, {}, {}, {})),
    CALL(IVELDeviceManager, "Decrypt", Decrypt({}, {}, {}, {})),
    CALL(IVELDeviceManager, "P7UnEnvelope", P7UnEnvelope({}, {}, {})),
    CALL(IVELDeviceManager, "P7Envelope", P7Envelope({}, {}, {}, {})),
    CALL(IVELDeviceManager, "P1SignInit", P1SignInit({}, {})),
    CALL(IVELDeviceManager, "P1SignUpdate", P1SignUpdate({}, {})),
    CALL(IVELDeviceManager, "P1SignFinal", P1SignFinal({})),
    CALL(IVELDeviceManager, "P7AttachSignInit", P7AttachSignInit({}, {}, {})),
    CALL(IVELDeviceManager, "P7AttachSignUpdate", P7AttachSignUpdate({}, {})),
    CALL(IVELDeviceManager, "P7AttachSignFinal", P7AttachSignFinal({})),
    CALL(IVELDeviceManager, "P7DetachSignInit", P7DetachSignInit({}, {}, {})),
    CALL(IVELDeviceManager, "P7DetachSignUpdate", P7DetachSignUpdate({}, {})),
    CALL(IVELDeviceManager, "P7DetachSignFinal", P7DetachSignFinal({})),
    CALL(IVELDeviceManager, "P1VerifyInit", P1VerifyInit({}, {})),
    CALL(IVELDeviceManager, "P1VerifyUpdate", P1VerifyUpdate({}, {})),
    CALL(IVELDeviceManager, "P1VerifyFinal", P1VerifyFinal({}, {})),
    CALL(IVELDeviceManager, "P1Verify", P1Verify({}, {}, {}, {}, {}, {})),
    CALL(IVELDeviceManager, "P7AttachVerifyInit", P7AttachVerifyInit()),
    CALL(IVELDeviceManager, "P7AttachVerifyUpdate", P7AttachVerifyUpdate({}, {})),
    CALL(IVELDeviceManager, "P7AttachVerifyFinal", P7AttachVerifyFinal({})),
    CALL(IVELDeviceManager, "P7AttachVerify", P7AttachVerify({}, {}, {})),
    CALL(IVELDeviceManager, "P7DetachVerifyInit", P7DetachVerifyInit({}, {})),
    CALL(IVELDeviceManager, "P7DetachVerifyUpdate", P7DetachVerifyUpdate({}, {})),
    CALL(IVELDeviceManager, "P7DetachVerifyFinal", P7DetachVerifyFinal()),
    CALL(IVELDeviceManager, "P7DetachVerify", P7DetachVerify({}, {}, {}, {})),
    CALL(IVELDeviceManager, "FilterCertList", FilterCertList({}, {})),
    CALL(IVELDeviceManager, "GetSignCerts", GetSignCerts({}, {}, {})),
    CALL(IVELDeviceManager, "GetEncryptCerts", GetEncryptCerts({}, {}, {})),
    CALL(IVELDeviceManager, "P7EnvelopeInit", P7EnvelopeInit({})),
    CALL(IVELDeviceManager, "P7EnvelopeUpdata", P7EnvelopeUpdata({}, {})),
    CALL(IVELDeviceManager, "P7EnvelopeFinal", P7EnvelopeFinal({})),
    CALL(IVELDeviceManager, "RefreshCertList(BOOL)", RefreshCertList({})),
    CALL(IVELDeviceManager, "SetFlags", SetFlags({})),
    CALL(IVELDeviceManager, "SetKeyCheckTime", SetKeyCheckTime({})),
    CALL(IVELDeviceManager, "CspKeyInfoCombine", CspKeyInfoCombine({})),
    CALL(IVELDeviceManager, "AddKeyEx", AddKeyEx({}, {})),
    CALL(IVELDeviceManager, "DeleteKeyEx", DeleteKeyEx({}, {})),
    CALL(IVELDeviceManager, "KeyHasFingerByCertSN", KeyHasFingerByCertSN({})),
    CALL(IVELDeviceManager, "KeyVerifyFingerByCertSN(LPCSTR, ULONG)", KeyVerifyFingerByCertSN({}, {})),
    CALL(IVELDeviceManager, "KeyVerifyFingerByCertSN(LPCSTR, ULONG, ULONG)", KeyVerifyFingerByCertSN({}, {}, {})),
    CALL(IVELDeviceManager, "P1ByCertEntity", P1ByCertEntity({}, {}, {})),
    CALL(IVELDeviceManager, "SetForcePinDialog", SetForcePinDialog({})),
    CALL(IVELDeviceManager, "SetPinCode", SetPinCode({}, {}, {})),
    CALL(IVELDeviceManager, "GetPinRetryTimes", GetPinRetryTimes()),
    CALL(IVELDeviceManager, "SetDevPinCode", SetDevPinCode({})),
    CALL(IVELUsbKeyClass, "CreateDeviceSetInstance", CreateDeviceSetInstance({})),
    CALL(IVELUsbKeyClass, "CreateCertificateInstance", CreateCertificateInstance()),
    CALL(IVELUsbKeyClass, "CreateAuxClassInstance", CreateAuxClassInstance()),
    CALL(IVELUsbKeyClass, "CreateCertUIInstance", CreateCertUIInstance()),
    CALL(IVELUsbKeyClass, "CreateDeviceManagerInstance", CreateDeviceManagerInstance()),
    CALL(IVELUsbKeyClass, "CreateCallQueueInstance", CreateCallQueueInstance()),
    CALL(IVELUsbKeyClass, "CreateSessionKeyInstance", CreateSessionKeyInstance()),
    CALL(IVELUsbKeyClass, "CreateTokenPrivilegesInstance", CreateTokenPrivilegesInstance()),
    CALL(IVELUsbKeyClass, "CreateDeviceInstance", CreateDeviceInstance({})),
    CALL(IVELUsbKeyClass, "CreateApplicationInstance", CreateApplicationInstance({})),
    CALL(IVELUsbKeyClass, "CreateHashKeyInstance", CreateHashKeyInstance({})),
    CALL(IVELUsbKeyClass, "CreateContainerInstance", CreateContainerInstance({}, {}, {})),
    CALL(CSmartBuffer, "complete destructor", ~CSmartBuffer()),
    {"CSmartBuffer deleting destructor", [] { delete HandLaid<CSmartBuffer>(); }},
    CALL(IVELDeviceManager, "complete destructor", ~IVELDeviceManager()),
    {"IVELDeviceManager deleting destructor", [] { delete HandLaid<IVELDeviceManager>(); }},
    CALL(IVELUsbKeyClass, "complete destructor", ~IVELUsbKeyClass()),
    {"IVELUsbKeyClass deleting destructor", [] { delete HandLaid<IVELUsbKeyClass>(); }},

    {"ISmartList AddItem", [] { HandLaid<CertList>()->AddItem({}); }},
    {"ISmartList GetCount", [] { HandLaid<CertList>()->GetCount(); }},
    {"ISmartList Clear", [] { HandLaid<CertList>()->Clear(); }},
    {"ISmartList GetData",
     [] {
       tag_VEL_CERT_INFO cert;
       HandLaid<CertList>()->GetData(0, cert);
     }},
    {"ISmartList GetItem", [] { (void)&HandLaid<CertList>()->GetItem(0); }},
    {"ISmartList RemoveItem(int index)", [] { HandLaid<CertList>()->RemoveItem(0); }},
    {"ISmartList RemoveItem(const T& item)",
     [] { HandLaid<CertList>()->RemoveItem(tag_VEL_CERT_INFO()); }},
    {"ISmartList operator[]", [] { (void)&(*HandLaid<CertList>())[0]; }},
    {"IVelStringT AddString", [] { HandLaid<StringW>()->AddString(nullptr); }},
    {"IVelStringT Empty", [] { HandLaid<StringW>()->Empty(); }},
};

TEST(Slots, EveryOperationIsInItsSlot) {
  const std::vector<Slot> slots = SlotsInText();
  EXPECT_EQ(slots.size(), kCalls.size());
  for (const Slot& slot : slots) {
    const auto call = kCalls.find(slot.interface + " " + slot.operation);
    ASSERT_NE(call, kCalls.end()) << slot.interface << " " << slot.operation;
    LastSlot();
    call->second();
    EXPECT_EQ(LastSlot(), slot.number) << slot.interface << " " << slot.operation
                                       << " moved: device libraries that exist have it at the slot "
                                          "of slots.txt. Put new operations "
                                          "behind the last of their interface, and into slots.txt.";
  }
}

// The second base lies one pointer behind the first, and its operations get that address.
template <typename Interface>
void SecondBaseHasTheSecondTable() {
  Interface* const object = HandLaid<Interface>();
  void* const secondBase = static_cast<char*>(SlotObject()) + sizeof(void*);
  const std::function<void()> calls[] = {
      [&] { (void)object->GetBaseType(); }, [&] { (void)object->GetBaseInterface(); },
      [&] { (void)object->GetHandle(); }, [&] { (void)object->GetOrgErrorCode(); }};
  for (long slot = 0; slot < 4; ++slot) {
    calls[slot]();
    EXPECT_EQ(LastSlot(), 1000 + slot);
    EXPECT_EQ(LastObject(), secondBase);
  }
}

TEST(Slots, TheSecondBaseOfADeviceSetHasATableOfItsOwn) {
  SecondBaseHasTheSecondTable<IVELDeviceSet>();
}

TEST(Slots, TheSecondBaseOfACertificateHasATableOfItsOwn) {
  SecondBaseHasTheSecondTable<IVELCertificate>();
}

}  // namespace
