#include "Token.h"

#include <openssl/ec.h>

#include <algorithm>
#include <chrono>

#include "../Signing.h"
#include "../Text.h"
#include "Errors.h"

namespace velcrypto {

namespace {

using EcdsaPtr = Owned<ECDSA_SIG, ECDSA_SIG_free>;

// Longer than any signature, shorter than a user's patience.
const std::chrono::seconds kBusy(60);

// A token that is busy, perhaps with a user at its keys, is there: what is known of it is listed.
const std::chrono::seconds kListingWaits(1);

// RSA of 8192 bits.
const size_t kSignatureRoom = 1024;

// Fields of fixed width, filled up with blanks.
template <size_t Size>
std::string FieldText(const unsigned char (&field)[Size]) {
  std::string text(reinterpret_cast<const char*>(field), Size);
  text.erase(std::find(text.begin(), text.end(), '\0'), text.end());
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

CK_UTF8CHAR_PTR PinBytes(const Secret& pin) {
  return reinterpret_cast<CK_UTF8CHAR_PTR>(const_cast<char*>(pin.c_str()));
}

bool IsLoggedInState(CK_STATE state) {
  return state == CKS_RO_USER_FUNCTIONS || state == CKS_RW_USER_FUNCTIONS;
}

// Tokens give r and s as two numbers of 32 bytes; some give DER at once. Empty for anything else.
Bytes DerOfSm2(const Bytes& signature) {
  EcdsaPtr pair;
  if (signature.size() == 64) {
    BIGNUM* const r = BN_bin2bn(signature.data(), 32, nullptr);
    BIGNUM* const s = BN_bin2bn(signature.data() + 32, 32, nullptr);
    pair.reset(ECDSA_SIG_new());
    if (ECDSA_SIG_set0(pair.get(), r, s) != 1) return {};
  } else {
    const BYTE* at = signature.data();
    pair.reset(d2i_ECDSA_SIG(nullptr, &at, static_cast<long>(signature.size())));
    if (pair == nullptr) return {};
  }
  Bytes der(static_cast<size_t>(std::max(0, i2d_ECDSA_SIG(pair.get(), nullptr))));
  BYTE* at = der.data();
  i2d_ECDSA_SIG(pair.get(), &at);
  return der;
}

std::string IdOf(const Identity& identity) {
  return Narrow(identity.facts->record.VELCertUniqueID);
}

}  // namespace

// Some modules show one card as several tokens, a PIN each, of one serial number.
std::string Token::KeyOf(const CK_TOKEN_INFO& info) {
  return FieldText(info.manufacturerID) + "/" + FieldText(info.model) + "/" +
         FieldText(info.serialNumber) + "/" + FieldText(info.label);
}

Token::Token(std::shared_ptr<Module> module, CK_SLOT_ID slot, const CK_TOKEN_INFO& info,
             unsigned ordinal)
    : m_module(std::move(module)),
      m_key(KeyOf(info)),
      m_ordinal(ordinal),
      m_name(ordinal == 0 ? m_key : m_key + "#" + std::to_string(ordinal)),
      m_sortingName(FieldText(info.label) + '\n' + FieldText(info.serialNumber) + '\n' +
                    std::to_string(ordinal)),
      m_slot(slot),
      m_info(info) {}

bool Token::IsLoggedIn() {
  Lock lock;
  return !Take(&lock).ok() || m_loggedIn;
}

Outcome Token::Take(Lock* lock) {
  *lock = Lock(m_mutex, kBusy);
  if (lock->owns_lock()) return kOk;
  return {kTimeout, 0, "the token is busy"};
}

void Token::EndLogin() {
  m_loggedIn = false;
  m_keys.clear();
}

void Token::DropSession() {
  if (m_session != CK_INVALID_HANDLE) m_module->Call(&CK_FUNCTION_LIST::C_CloseSession, m_session);
  LoseSession();
}

void Token::LoseSession() {
  m_session = CK_INVALID_HANDLE;
  m_ways.clear();
  m_contents.Forget();
  EndLogin();
}

void Token::Forget() {
  Lock lock;
  if (Take(&lock).ok()) LoseSession();
}

// The token may have come back in another slot, and another token in its own.
Outcome Token::FindSlot() {
  CK_TOKEN_INFO info;
  const Outcome here = m_module->ReadToken(m_slot, &info);
  if (here.ok() && KeyOf(info) == m_key) {
    m_info = info;
    return kOk;
  }
  std::vector<CK_SLOT_ID> slots;
  const Outcome outcome = m_module->ListSlots(&slots);
  if (!outcome.ok()) return outcome;
  unsigned alike = 0;
  for (const CK_SLOT_ID slot : slots) {
    if (!m_module->ReadToken(slot, &info).ok() || KeyOf(info) != m_key || alike++ != m_ordinal)
      continue;
    m_slot = slot;
    m_info = info;
    return kOk;
  }
  return {kDeviceNotPresent, here.native, "the token is not plugged in"};
}

bool Token::SessionStands() {
  if (m_session == CK_INVALID_HANDLE) return false;
  CK_SESSION_INFO info = {};
  const CK_RV result = m_module->Call(&CK_FUNCTION_LIST::C_GetSessionInfo, m_session, &info);
  if (result != CKR_OK) return false;
  if (m_loggedIn && !IsLoggedInState(info.state)) EndLogin();
  return true;
}

// Makes sure of a session that is good now. No PIN is sent before, so none is sent twice.
Outcome Token::Ready() {
  if (SessionStands()) return kOk;
  DropSession();
  const Outcome outcome = FindSlot();
  if (!outcome.ok()) return outcome;
  const CK_RV result =
      m_module->Call(&CK_FUNCTION_LIST::C_OpenSession, m_slot, CK_FLAGS{CKF_SERIAL_SESSION},
                     static_cast<void*>(nullptr), CK_NOTIFY{nullptr}, &m_session);
  if (result != CKR_OK) m_session = CK_INVALID_HANDLE;
  return CryptokiOutcome("C_OpenSession", result);
}

Outcome Token::RefreshInfo() {
  CK_TOKEN_INFO info;
  if (m_module->ReadToken(m_slot, &info).ok() && KeyOf(info) == m_key) {
    m_info = info;
    return kOk;
  }
  DropSession();
  return Ready();
}

// Right before a PIN is sent. The session stands, so the PIN reaches the token that it is for;
// whether it may be tried has to be asked only when wrong ones were.
Outcome Token::RefreshTries() {
  const CK_FLAGS warnings = CKF_USER_PIN_COUNT_LOW | CKF_USER_PIN_FINAL_TRY | CKF_USER_PIN_LOCKED;
  return m_wrongPinGiven || Has(warnings) ? RefreshInfo() : kOk;
}

Outcome Token::Look(CK_SLOT_ID slot, const CK_TOKEN_INFO& info) {
  if (slot != m_slot) DropSession();
  m_slot = slot;
  m_info = info;
  CK_RV result = CKR_OK;
  for (int attempt = 0; attempt < 2; ++attempt) {
    const Outcome outcome = Ready();
    if (!outcome.ok()) return outcome;
    const TokenNames names = {m_name, FieldText(m_info.label), FieldText(m_info.serialNumber)};
    result = m_contents.Refresh({m_module.get(), m_session}, m_loggedIn, names, shared_from_this());
    if (result == CKR_OK) return kOk;
    DropSession();
    if (!IsStale(result)) break;
  }
  return CryptokiOutcome("C_FindObjects", result);
}

bool Token::ListUnchanged(CK_SLOT_ID slot, std::vector<IdentityPtr>* identities,
                          std::vector<Skipped>* skipped) {
  const Lock lock(m_mutex, std::chrono::seconds(0));
  if (!lock.owns_lock() || slot != m_slot || !SessionStands() ||
      !m_contents.AreSame({m_module.get(), m_session}, m_loggedIn)) {
    return false;
  }
  *identities = m_contents.identities();
  *skipped = m_contents.skipped();
  return true;
}

Outcome Token::List(CK_SLOT_ID slot, const CK_TOKEN_INFO& info,
                    std::vector<IdentityPtr>* identities, std::vector<Skipped>* skipped) {
  const Lock lock(m_mutex, kListingWaits);
  Outcome outcome;
  if (lock.owns_lock()) {
    outcome = Look(slot, info);
    const std::lock_guard<std::mutex> known(m_knownMutex);
    m_known = outcome.ok() ? m_contents.identities() : std::vector<IdentityPtr>();
    m_knownSkipped = outcome.ok() ? m_contents.skipped() : std::vector<Skipped>();
  }
  const std::lock_guard<std::mutex> known(m_knownMutex);
  identities->insert(identities->end(), m_known.begin(), m_known.end());
  skipped->insert(skipped->end(), m_knownSkipped.begin(), m_knownSkipped.end());
  return outcome;
}

Outcome Token::CheckPin(const Secret& pin) const {
  if (Has(CKF_PROTECTED_AUTHENTICATION_PATH)) return kOk;
  // Tokens that do not tell their limits have nothing or rubbish there.
  const CK_ULONG most = m_info.ulMaxPinLen == 0 ? CK_UNAVAILABLE_INFORMATION : m_info.ulMaxPinLen;
  const CK_ULONG least = m_info.ulMinPinLen > most ? 0 : m_info.ulMinPinLen;
  if (pin.size() >= least && pin.size() <= most) return kOk;
  return {kPinLengthWrong, 0,
          "the PIN has " + std::to_string(least) + " to " + std::to_string(most) + " bytes"};
}

CK_RV Token::CallLogin(CK_USER_TYPE user, const Secret& pin) {
  const bool onTheReader = Has(CKF_PROTECTED_AUTHENTICATION_PATH);
  return m_module->Call(&CK_FUNCTION_LIST::C_Login, m_session, user,
                        onTheReader ? nullptr : PinBytes(pin),
                        onTheReader ? CK_ULONG{0} : CK_ULONG{pin.size()});
}

Outcome Token::AfterPin(const char* call, CK_RV result) {
  Outcome outcome = CryptokiOutcome(call, result);
  if (outcome.ok()) m_wrongPinGiven = false;
  if (outcome.code != kPinWrong) return outcome;
  m_wrongPinGiven = true;
  // The last try leaves a locked token, and that is what the user has to know.
  if (RefreshInfo().ok() && Has(CKF_USER_PIN_LOCKED)) outcome.code = kPinLocked;
  return outcome;
}

// The module counts a login for the whole process, whoever made it, and a second one is accepted
// without a look at the PIN. So an old login ends first: the PIN has to be checked.
Outcome Token::LogInNow(const Secret& pin) {
  Outcome outcome = RefreshTries();
  if (outcome.ok()) outcome = CheckPin(pin);
  if (!outcome.ok()) return outcome;
  if (Has(CKF_USER_PIN_LOCKED)) return {kPinLocked, 0, "the token says that its PIN is locked"};
  if (m_loggedIn) m_module->Call(&CK_FUNCTION_LIST::C_Logout, m_session);
  EndLogin();
  CK_RV result = CallLogin(CKU_USER, pin);
  if (result == CKR_USER_ALREADY_LOGGED_IN) {
    m_module->Call(&CK_FUNCTION_LIST::C_Logout, m_session);
    result = CallLogin(CKU_USER, pin);
  }
  if (result == CKR_USER_PIN_NOT_INITIALIZED && !Has(CKF_LOGIN_REQUIRED)) return kOk;
  outcome = AfterPin("C_Login", result);
  m_loggedIn = outcome.ok();
  return outcome;
}

Outcome Token::LogIn(const Secret& pin) {
  Lock lock;
  Outcome outcome = Take(&lock);
  if (outcome.ok()) outcome = Ready();
  return outcome.ok() ? LogInNow(pin) : outcome;
}

Outcome Token::LogOut() {
  Lock lock;
  const Outcome outcome = Take(&lock);
  if (!outcome.ok()) return outcome;
  if (!m_loggedIn) return kOk;
  EndLogin();
  const CK_RV result = m_module->Call(&CK_FUNCTION_LIST::C_Logout, m_session);
  // What is gone is logged out.
  if (result == CKR_USER_NOT_LOGGED_IN || IsStale(result)) return kOk;
  return CryptokiOutcome("C_Logout", result);
}

void Token::Close() {
  if (!LogOut().ok()) return;
  Lock lock;
  if (Take(&lock).ok()) DropSession();
}

Outcome Token::ChangePin(const Secret& oldPin, const Secret& newPin) {
  Lock lock;
  Outcome outcome = Take(&lock);
  if (outcome.ok()) outcome = Ready();
  if (outcome.ok()) outcome = RefreshInfo();
  if (outcome.ok()) outcome = CheckPin(newPin);
  if (outcome.ok()) outcome = CheckPin(oldPin);
  if (!outcome.ok()) return outcome;
  if (Has(CKF_USER_PIN_LOCKED)) return {kPinLocked, 0, "the token says that its PIN is locked"};
  CK_SESSION_HANDLE writing = CK_INVALID_HANDLE;
  CK_RV result = m_module->Call(&CK_FUNCTION_LIST::C_OpenSession, m_slot,
                                CK_FLAGS{CKF_SERIAL_SESSION | CKF_RW_SESSION},
                                static_cast<void*>(nullptr), CK_NOTIFY{nullptr}, &writing);
  if (result != CKR_OK) return CryptokiOutcome("C_OpenSession", result);
  const bool onTheReader = Has(CKF_PROTECTED_AUTHENTICATION_PATH);
  result = onTheReader
               ? m_module->Call(&CK_FUNCTION_LIST::C_SetPIN, writing, CK_UTF8CHAR_PTR{nullptr},
                                CK_ULONG{0}, CK_UTF8CHAR_PTR{nullptr}, CK_ULONG{0})
               : m_module->Call(&CK_FUNCTION_LIST::C_SetPIN, writing, PinBytes(oldPin),
                                CK_ULONG{oldPin.size()}, PinBytes(newPin), CK_ULONG{newPin.size()});
  outcome = AfterPin("C_SetPIN", result);
  m_module->Call(&CK_FUNCTION_LIST::C_CloseSession, writing);
  return outcome;
}

// A token tells flags, not numbers. Without "final try" one more wrong PIN does not lock it; one
// that shows no flag at all after a wrong PIN keeps its state to itself.
Outcome Token::GetPinState(PinState* state) {
  Lock lock;
  Outcome outcome = Take(&lock);
  if (outcome.ok()) outcome = Ready();
  if (outcome.ok()) outcome = RefreshInfo();
  if (!outcome.ok()) return outcome;
  state->minLength = static_cast<unsigned>(std::min<CK_ULONG>(m_info.ulMinPinLen, 0xFFFF));
  state->maxLength = static_cast<unsigned>(std::min<CK_ULONG>(m_info.ulMaxPinLen, 0xFFFF));
  if (Has(CKF_USER_PIN_LOCKED)) {
    state->triesLeft = 0;
  } else if (Has(CKF_USER_PIN_FINAL_TRY)) {
    state->triesLeft = 1;
  } else {
    state->triesLeft = m_wrongPinGiven && !Has(CKF_USER_PIN_COUNT_LOW) ? 1 : 2;
  }
  return kOk;
}

// Logins change handles, but not what leads to them. Another key that has taken the place would be
// known by its signature.
bool Token::FindKeyAgain(const std::string& certificateId, Key* key) {
  const auto way = m_ways.find(certificateId);
  if (way == m_ways.end()) return false;
  std::vector<CK_OBJECT_HANDLE> handles;
  const CK_RV result = FindObjects({m_module.get(), m_session}, way->second.wanted, &handles);
  if (result != CKR_OK || handles.size() != 1) return false;
  *key = {handles[0], way->second.asksEachTime};
  m_keys[certificateId] = *key;
  return true;
}

Outcome Token::FindKey(const Identity& identity, const Bytes& keyId, Key* key) {
  const auto known = m_keys.find(IdOf(identity));
  if (known != m_keys.end()) {
    *key = known->second;
    return kOk;
  }
  if (FindKeyAgain(IdOf(identity), key)) return kOk;
  const SessionHandle session = {m_module.get(), m_session};
  const Bytes modulus = ModulusOf(identity.facts->parsed.get());
  const Template anyKey = Template().Add(CKA_CLASS, CKO_PRIVATE_KEY);
  const auto search = [&](const Template& wanted, bool sameId) -> Outcome {
    std::vector<CK_OBJECT_HANDLE> handles;
    CK_RV result = FindObjects(session, wanted, &handles);
    if (result != CKR_OK) return CryptokiOutcome("C_FindObjects", result);
    for (const CK_OBJECT_HANDLE handle : handles) {
      Attributes values;
      result = ReadAttributes(session, handle, KeyAttributes(), &values);
      if (result != CKR_OK) return CryptokiOutcome("C_GetAttributeValue", result);
      const Bytes told = ModulusOf(values);
      if (told != modulus && !(sameId && told.empty())) continue;
      if (told.empty() && !sameId) continue;
      *key = {handle, TruthOf(values, CKA_ALWAYS_AUTHENTICATE)};
      m_keys[IdOf(identity)] = *key;
      m_contents.NoteKey(IdOf(identity), true);
      if (handles.size() == 1) m_ways[IdOf(identity)] = {wanted, key->asksEachTime};
      return kOk;
    }
    return {kKeyNotFound, 0, "the token has no private key of this certificate"};
  };
  Outcome outcome = kKeyNotFound;
  if (!keyId.empty()) outcome = search(Template(anyKey).Add(CKA_ID, keyId), true);
  if (outcome.code == kKeyNotFound) outcome = search(anyKey, false);
  if (outcome.code == kKeyNotFound && m_loggedIn) m_contents.NoteKey(IdOf(identity), false);
  return outcome;
}

bool Token::IsOpen(const Identity& identity, const Bytes& keyId) {
  Lock lock;
  if (!Take(&lock).ok() || !Ready().ok()) return false;
  if (Has(CKF_PROTECTED_AUTHENTICATION_PATH)) return true;
  if (!m_loggedIn && Has(CKF_LOGIN_REQUIRED)) return false;
  Key key = {};
  // Logged in and no key: there is nothing that a PIN could help.
  return FindKey(identity, keyId, &key).ok() ? !key.asksEachTime : m_loggedIn;
}

CK_RV Token::SignWith(CK_MECHANISM_TYPE mechanism, const Key& key, const Secret* pin,
                      const Bytes& digest, Bytes* signature) {
  CK_MECHANISM parameters = {mechanism, nullptr, 0};
  CK_RV result = m_module->Call(&CK_FUNCTION_LIST::C_SignInit, m_session, &parameters, key.handle);
  if (result != CKR_OK) return result;
  CK_RV login = CKR_OK;
  if (key.asksEachTime) {
    static const Secret* const none = new Secret;
    login = CallLogin(CKU_CONTEXT_SPECIFIC, pin == nullptr ? *none : *pin);
  }
  signature->resize(kSignatureRoom);
  CK_ULONG size = signature->size();
  // After a failed login, too: nothing else ends the operation.
  result = m_module->Call(&CK_FUNCTION_LIST::C_Sign, m_session, const_cast<BYTE*>(digest.data()),
                          CK_ULONG{digest.size()}, signature->data(), &size);
  signature->resize(std::min<size_t>(size, kSignatureRoom));
  return login == CKR_OK ? result : login;
}

// PKCS#11 has no number for SM2: makers take numbers of their own, some that of ECDSA.
std::vector<CK_MECHANISM_TYPE> Token::Sm2Mechanisms() {
  if (m_sm2Mechanism != CK_UNAVAILABLE_INFORMATION) return {m_sm2Mechanism};
  CK_ULONG count = 0;
  std::vector<CK_MECHANISM_TYPE> all, usable;
  if (m_module->Call(&CK_FUNCTION_LIST::C_GetMechanismList, m_slot, CK_MECHANISM_TYPE_PTR{nullptr},
                     &count) != CKR_OK) {
    return {CKM_ECDSA};
  }
  all.resize(count);
  if (m_module->Call(&CK_FUNCTION_LIST::C_GetMechanismList, m_slot, all.data(), &count) != CKR_OK) {
    return {CKM_ECDSA};
  }
  all.resize(std::min<size_t>(count, all.size()));
  std::copy_if(all.begin(), all.end(), std::back_inserter(usable), [&](CK_MECHANISM_TYPE type) {
    CK_MECHANISM_INFO info = {};
    return type >= CKM_VENDOR_DEFINED &&
           m_module->Call(&CK_FUNCTION_LIST::C_GetMechanismInfo, m_slot, type, &info) == CKR_OK &&
           (info.flags & CKF_SIGN) != 0;
  });
  if (std::find(all.begin(), all.end(), CKM_ECDSA) != all.end()) usable.push_back(CKM_ECDSA);
  return usable;
}

// The mechanism whose signature holds is the right one; the token keeps its name for later.
Outcome Token::SignSm2(const Identity& identity, const Key& key, const Secret* pin,
                       const Bytes& digest, Bytes* signature) {
  EVP_PKEY* const publicKey = X509_get0_pubkey(identity.facts->parsed.get());
  Outcome outcome = {kInvalidMechanism, 0, "the token names no mechanism for SM2"};
  for (const CK_MECHANISM_TYPE mechanism : Sm2Mechanisms()) {
    Bytes raw;
    const CK_RV result = SignWith(mechanism, key, pin, digest, &raw);
    outcome = AfterPin("C_Sign", result);
    if (IsStale(result) || outcome.code == kPinWrong || outcome.code == kPinLocked) break;
    if (!outcome.ok()) continue;
    *signature = DerOfSm2(raw);
    outcome = VerifyDigest(publicKey, digest, *signature);
    if (!outcome.ok()) continue;
    m_sm2Mechanism = mechanism;
    break;
  }
  return outcome;
}

Outcome Token::SignNow(const Identity& identity, const Bytes& keyId, const Secret* pin,
                       const Bytes& digest, Bytes* signature) {
  Outcome outcome;
  for (int attempt = 0; attempt < 2; ++attempt) {
    Key key = {};
    outcome = FindKey(identity, keyId, &key);
    if (!outcome.ok()) return outcome;
    if (key.asksEachTime && pin == nullptr && !Has(CKF_PROTECTED_AUTHENTICATION_PATH)) {
      return {kNotLoggedIn, 0, "the key asks for the PIN at each use"};
    }
    outcome = identity.facts->record.AsymmAlg == VEL_ASYMM_ALG_RSA
                  ? AfterPin("C_Sign", SignWith(CKM_RSA_PKCS, key, pin, digest, signature))
                  : SignSm2(identity, key, pin, digest, signature);
    // Handles go stale when others log the token out and in again.
    if (outcome.native != CKR_KEY_HANDLE_INVALID && outcome.native != CKR_OBJECT_HANDLE_INVALID) {
      break;
    }
    m_keys.clear();
  }
  return outcome;
}

Outcome Token::Sign(const Identity& identity, const Bytes& keyId, const Secret* pin,
                    const Bytes& digest, Bytes* signature) {
  Lock lock;
  Outcome outcome = Take(&lock);
  if (outcome.ok()) outcome = Ready();
  if (!outcome.ok()) return outcome;
  const bool stays = m_loggedIn;
  const bool onTheReader = Has(CKF_PROTECTED_AUTHENTICATION_PATH);
  Key key = {};
  // Logged in, a key that asks at each use gets the PIN itself: that is one try, not two.
  const bool forTheKey = m_loggedIn && FindKey(identity, keyId, &key).ok() && key.asksEachTime;
  if ((pin != nullptr && !forTheKey) || (onTheReader && !m_loggedIn)) {
    static const Secret* const none = new Secret;
    outcome = LogInNow(pin == nullptr ? *none : *pin);
  } else if (!m_loggedIn && Has(CKF_LOGIN_REQUIRED)) {
    outcome = {kNotLoggedIn, 0, "the PIN is needed"};
  }
  if (outcome.ok()) outcome = SignNow(identity, keyId, pin, digest, signature);
  if (!stays && m_loggedIn) {
    m_module->Call(&CK_FUNCTION_LIST::C_Logout, m_session);
    EndLogin();
  }
  return outcome;
}

}  // namespace velcrypto
