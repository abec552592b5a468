#pragma once
// The device manager: all configured key families together. One thread at a time for one manager;
// several managers may work at once. What must outlive a manager, logins and opened libraries,
// lives in the backends.
#include <map>
#include <string>
#include <vector>

#include "Filters.h"
#include "UnusedOperations.h"

namespace velcrypto {

class PinPrompt;

class DeviceManager : public UnusedOperations {
 public:
  ~DeviceManager() override { Process::Current().logins.Leave(this); }

  // Keys are added first, then the manager is initialised.
  ULONG AddKeyEx(ISmartList<tag_VEL_KEY_INFO_EX>* pKeys, BOOL bClear) override;
  ULONG Initialize(IVELUsbKeyClass* pUsbKey) override;

  ULONG GetCertList(ISmartList<tag_VEL_CERT_FILTER_ITEM>* pFilters,
                    ISmartList<tag_VEL_CERT_INFO>* pCerts) override;
  ULONG KeyPinCodeHandleByCertSN(VEL_PIN_CODE_OPER_TYPE operation, LPCSTR pCertSN,
                                 VEL_PIN_CODE_TYPE type, LPCSTR pPin, LPCSTR pNewPin,
                                 VEL_PIN_INFO* pInfo) override;
  ULONG SetPinCode(VEL_PIN_CODE_TYPE type, LPWSTR pPin, VEL_CERT_INFO* pCert) override;
  ULONG P1Sign(VEL_CERT_INFO* pCert, VEL_HASH_ALG hashAlg, BYTE* pData, DWORD nSize,
               IBuffer* pSignature) override;
  ULONG P7Sign(VEL_CERT_INFO* pCert, VEL_HASH_ALG hashAlg, BOOL bDetach, BOOL bIncludeCert,
               BYTE* pData, DWORD nSize, IBuffer* pSignature) override;

  // The tries left after this manager's last failure; 0 before any.
  ULONG GetPinRetryTimes() override { return m_triesLeft; }

  ULONG EnablePinDialog(BOOL bEnable) override;
  ULONG SetForcePinDialog(BOOL bForce) override;

  // Accepted without effect: a listing always looks at the devices afresh, and PINs are not
  // checked ahead of their use.
  ULONG EnablePinStatusCheck(BOOL) override { return kOk; }
  ULONG SetKeyCheckTime(ULONG) override { return kOk; }

 private:
  struct Found {
    Listed listed;
    Backend* backend = nullptr;
    const Identity& identity() const { return *listed.identity; }
    std::string device() const { return identity().device + "/" + identity().container; }
  };
  // What one signature is asked for, and what came of it.
  struct Request {
    VEL_CERT_INFO* certificate;
    VEL_HASH_ALG hashAlg;
    const BYTE* data;
    size_t size;
    IBuffer* result;
  };
  struct Signed {
    Found found;
    X509Ptr signer;
    std::vector<BYTE> signature;
  };

  Outcome Configure(ISmartList<tag_VEL_KEY_INFO_EX>* keys, bool clear);
  Outcome CheckFamilies();
  // At the devices, or at what the last listing found where the backend remembers it.
  enum class Look { kNow, kKnown };
  static Outcome ListFamily(const tag_VEL_KEY_INFO_EX& key, Look look, std::vector<Found>* found);
  Outcome ListAll(std::vector<Found>* found);
  static tag_VEL_CERT_INFO RecordOf(const Found& found);
  Outcome FindBySerial(LPCSTR serial, Found* found);
  template <typename Matches>
  static Outcome FindIn(const tag_VEL_KEY_INFO_EX& key, Look look, Matches&& matches, Found* found);
  Outcome FindByRecord(const VEL_CERT_INFO& record, Look look, Found* found);
  Outcome HandlePin(VEL_PIN_CODE_OPER_TYPE operation, Found* found, Secret pin,
                    const Secret& newPin);
  Outcome LogIn(const Found& found, const Secret& pin);
  Outcome NotePinState(const Found& found, Outcome outcome, VEL_PIN_INFO* info);
  using Pins = std::map<std::wstring, Secret>;  // by the certificate's unique id
  static bool TakePin(Pins* pins, const Found& found, Secret* pin);
  static Outcome AskOnce(const Found& found, PinPrompt* prompt, Secret* pin);
  Outcome FindAgain(Found* found);
  Outcome AskAndLogIn(Found* found, Secret* pin);
  Outcome Unlock(Found* found, Secret* pin);
  Outcome SignDigest(Found* found, EVP_PKEY* publicKey, const std::vector<BYTE>& digest,
                     std::vector<BYTE>* signature);
  Outcome Sign(const Request& request, Signed* result);
  static Outcome WriteP7(const Request& request, const Signed& result, bool detached,
                         bool withCertificates);

  std::vector<tag_VEL_KEY_INFO_EX> m_keys;
  bool m_initialized = false;
  bool m_mayAsk = true;
  bool m_mustAsk = false;
  ULONG m_triesLeft = 0;
  Pins m_pins;  // each is tried once
  // Of LOGIN, for keys that ask at each use: they open the first signature after it.
  Pins m_loginPins;
};

}  // namespace velcrypto
