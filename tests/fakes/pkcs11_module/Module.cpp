// The functions of the module.
#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/rsa.h>
#include <string.h>

#include <algorithm>

#include "State.h"

using fakep11::Bytes;
using fakep11::Call;
using fakep11::Get;
using fakep11::Object;
using fakep11::Session;
using fakep11::Slot;
using fakep11::State;
using fakep11::Token;

namespace {

using Guard = std::lock_guard<std::mutex>;

// Handles of objects: the slot's generation, the slot, the place on the token.
CK_OBJECT_HANDLE HandleOf(unsigned slot, unsigned generation, size_t index) {
  return (CK_OBJECT_HANDLE{generation} << 32) + (slot << 16) + index + 1;
}

template <size_t Size>
void Fill(unsigned char (&field)[Size], const std::string& text) {
  memset(field, ' ', Size);
  memcpy(field, text.data(), std::min(Size, text.size()));
}

bool IsVisible(const State& state, size_t slot) {
  if (!state.ways.looksWhenStarted) return state.slots[slot].token.has_value();
  return slot < state.visible.size() && state.visible[slot];
}

CK_RV FindSlot(State& state, CK_SLOT_ID id, Slot** slot) {
  if (id >= state.slots.size()) return CKR_SLOT_ID_INVALID;
  *slot = &state.slots[id];
  return (*slot)->token.has_value() ? CKR_OK : CKR_TOKEN_NOT_PRESENT;
}

CK_RV FindSession(State& state, CK_SESSION_HANDLE handle, Session** session, Slot** slot) {
  const auto found = state.sessions.find(handle);
  if (found == state.sessions.end()) return CKR_SESSION_HANDLE_INVALID;
  *session = &found->second;
  *slot = &state.slots[found->second.slot];
  if ((*slot)->generation == (*session)->generation) return CKR_OK;
  return state.ways.staleSession;
}

CK_FLAGS FlagsOf(const Token& token) {
  CK_FLAGS flags = token.flags;
  if (!token.showsTries) return flags;
  if (token.triesLeft < token.tries) flags |= CKF_USER_PIN_COUNT_LOW;
  if (token.triesLeft == 1) flags |= CKF_USER_PIN_FINAL_TRY;
  if (token.triesLeft == 0) flags |= CKF_USER_PIN_LOCKED;
  return flags;
}

CK_RV TryPin(Token* token, const unsigned char* pin, CK_ULONG size) {
  if (token->triesLeft == 0) return CKR_PIN_LOCKED;
  if (size < token->minPin || size > token->maxPin) return CKR_PIN_LEN_RANGE;
  const bool right = size == token->pin.size() && memcmp(pin, token->pin.data(), size) == 0;
  if (right) {
    token->triesLeft = token->tries;
    return CKR_OK;
  }
  --token->triesLeft;
  return CKR_PIN_INCORRECT;
}

template <typename T>
Bytes Of(T number) {
  Bytes bytes(sizeof(number));
  memcpy(bytes.data(), &number, sizeof(number));
  return bytes;
}

bool ModulusOf(const Object& object, Bytes* modulus) {
  if (EVP_PKEY_get_base_id(object.key.get()) != EVP_PKEY_RSA) return false;
  BIGNUM* number = nullptr;
  EVP_PKEY_get_bn_param(object.key.get(), OSSL_PKEY_PARAM_RSA_N, &number);
  modulus->resize(static_cast<size_t>(BN_num_bytes(number)));
  BN_bn2bin(number, modulus->data());
  BN_free(number);
  return true;
}

bool ValueOf(const Object& object, CK_ATTRIBUTE_TYPE type, Bytes* value) {
  const bool isCertificate = object.kind == CKO_CERTIFICATE;
  switch (type) {
    case CKA_CLASS:
      *value = Of(object.kind);
      return true;
    case CKA_ID:
      *value = object.id;
      return true;
    case CKA_LABEL:
      value->assign(object.label.begin(), object.label.end());
      return true;
    case CKA_VALUE:
      *value = object.der;
      return isCertificate;
    case CKA_CERTIFICATE_TYPE:
      *value = Of(CK_CERTIFICATE_TYPE{CKC_X_509});
      return isCertificate;
    case CKA_MODULUS:
      return !isCertificate && ModulusOf(object, value);
    case CKA_ALWAYS_AUTHENTICATE:
      *value = Of(CK_BBOOL{object.asksEachTime});
      return object.kind == CKO_PRIVATE_KEY;
    default:
      return false;
  }
}

bool Matches(const Object& object, const CK_ATTRIBUTE* wanted, CK_ULONG count) {
  return std::all_of(wanted, wanted + count, [&](const CK_ATTRIBUTE& attribute) {
    Bytes value;
    return ValueOf(object, attribute.type, &value) && value.size() == attribute.ulValueLen &&
           memcmp(value.data(), attribute.pValue, value.size()) == 0;
  });
}

const Object* FindObject(const State& state, const Session& session, CK_OBJECT_HANDLE handle) {
  const Slot& slot = state.slots[session.slot];
  for (size_t i = 0; i < slot.token->objects.size(); ++i) {
    const Object& object = slot.token->objects[i];
    if (HandleOf(session.slot, slot.generation, i) == handle &&
        (!object.isPrivate || slot.loggedIn)) {
      return &object;
    }
  }
  return nullptr;
}

Bytes RawOf(const Bytes& der) {
  const unsigned char* at = der.data();
  ECDSA_SIG* const pair = d2i_ECDSA_SIG(nullptr, &at, static_cast<long>(der.size()));
  Bytes raw(64);
  BN_bn2binpad(ECDSA_SIG_get0_r(pair), raw.data(), 32);
  BN_bn2binpad(ECDSA_SIG_get0_s(pair), raw.data() + 32, 32);
  ECDSA_SIG_free(pair);
  return raw;
}

Bytes Signature(EVP_PKEY* key, const Bytes& data) {
  EVP_PKEY_CTX* const context = EVP_PKEY_CTX_new(key, nullptr);
  Bytes signature(1024);
  size_t size = signature.size();
  EVP_PKEY_sign_init(context);
  const bool rsa = EVP_PKEY_get_base_id(key) == EVP_PKEY_RSA;
  if (rsa) EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_PADDING);
  if (EVP_PKEY_sign(context, signature.data(), &size, data.data(), data.size()) != 1) size = 0;
  EVP_PKEY_CTX_free(context);
  signature.resize(size);
  return rsa || size == 0 ? signature : RawOf(signature);
}

CK_RV Initialize(void* arguments) {
  const Call call("C_Initialize", false);
  if (call.result() != CKR_OK) return call.result();
  State& state = Get();
  const Guard lock(state.mutex);
  if (state.initialized) return CKR_CRYPTOKI_ALREADY_INITIALIZED;
  const auto* const given = static_cast<const CK_C_INITIALIZE_ARGS*>(arguments);
  if (!state.ways.locks && given != nullptr && (given->flags & CKF_OS_LOCKING_OK) != 0) {
    return CKR_CANT_LOCK;
  }
  state.initialized = true;
  state.visible.clear();
  for (const Slot& slot : state.slots) state.visible.push_back(slot.token.has_value());
  return CKR_OK;
}

CK_RV Finalize(void*) {
  const Call call("C_Finalize");
  if (call.result() != CKR_OK) return call.result();
  State& state = Get();
  const Guard lock(state.mutex);
  state.initialized = false;
  state.sessions.clear();
  for (Slot& slot : state.slots) slot.loggedIn = false;
  return CKR_OK;
}

CK_RV GetSlotList(CK_BBOOL present, CK_SLOT_ID* list, CK_ULONG* count) {
  const Call call("C_GetSlotList");
  if (call.result() != CKR_OK) return call.result();
  State& state = Get();
  const Guard lock(state.mutex);
  std::vector<CK_SLOT_ID> slots;
  for (size_t i = 0; i < state.slots.size(); ++i) {
    // Like a module of software tokens: there is always a slot.
    if (!present || IsVisible(state, i) || state.ways.looksWhenStarted) slots.push_back(i);
  }
  const CK_ULONG room = *count;
  *count = slots.size();
  if (list == nullptr) return CKR_OK;
  if (room < slots.size()) return CKR_BUFFER_TOO_SMALL;
  std::copy(slots.begin(), slots.end(), list);
  return CKR_OK;
}

CK_RV GetSlotInfo(CK_SLOT_ID, CK_SLOT_INFO* info) {
  const Call call("C_GetSlotInfo");
  if (call.result() != CKR_OK) return call.result();
  *info = {};
  State& state = Get();
  const Guard lock(state.mutex);
  if (state.ways.removable) info->flags = CKF_REMOVABLE_DEVICE;
  return CKR_OK;
}

CK_RV GetTokenInfo(CK_SLOT_ID id, CK_TOKEN_INFO* info) {
  const Call call("C_GetTokenInfo");
  if (call.result() != CKR_OK) return call.result();
  State& state = Get();
  const Guard lock(state.mutex);
  *info = {};
  Slot* slot = nullptr;
  const CK_RV result = FindSlot(state, id, &slot);
  if (state.ways.looksWhenStarted && (result != CKR_OK || !IsVisible(state, id))) {
    // An empty slot of a software token, or one whose token is broken.
    return IsVisible(state, id) ? CKR_GENERAL_ERROR : CKR_OK;
  }
  if (result != CKR_OK) return result;
  const Token& token = *slot->token;
  Fill(info->label, token.label);
  Fill(info->manufacturerID, "tests");
  Fill(info->model, "fake");
  Fill(info->serialNumber, token.serial);
  info->flags = FlagsOf(token);
  info->ulMinPinLen = token.minPin;
  info->ulMaxPinLen = token.maxPin;
  return CKR_OK;
}

CK_RV GetMechanismList(CK_SLOT_ID, CK_MECHANISM_TYPE* list, CK_ULONG* count) {
  const Call call("C_GetMechanismList");
  if (call.result() != CKR_OK) return call.result();
  const CK_MECHANISM_TYPE all[] = {CKM_RSA_PKCS, fakep11::kSm3, fakep11::kSm2OverData,
                                   fakep11::kSm2};
  *count = std::size(all);
  if (list != nullptr) std::copy(std::begin(all), std::end(all), list);
  return CKR_OK;
}

CK_RV GetMechanismInfo(CK_SLOT_ID, CK_MECHANISM_TYPE type, CK_MECHANISM_INFO* info) {
  const Call call("C_GetMechanismInfo");
  if (call.result() != CKR_OK) return call.result();
  *info = {};
  info->flags = type == fakep11::kSm3 ? CKF_DIGEST : CKF_SIGN;
  return CKR_OK;
}

CK_RV OpenSession(CK_SLOT_ID id, CK_FLAGS flags, void*, CK_NOTIFY, CK_SESSION_HANDLE* handle) {
  const Call call("C_OpenSession");
  if (call.result() != CKR_OK) return call.result();
  State& state = Get();
  const Guard lock(state.mutex);
  Slot* slot = nullptr;
  const CK_RV result = FindSlot(state, id, &slot);
  if (result != CKR_OK) return result;
  *handle = ++state.lastSession;
  Session& session = state.sessions[*handle];
  session.slot = static_cast<unsigned>(id);
  session.generation = slot->generation;
  session.writes = (flags & CKF_RW_SESSION) != 0;
  return CKR_OK;
}

CK_RV CloseSession(CK_SESSION_HANDLE handle) {
  const Call call("C_CloseSession");
  if (call.result() != CKR_OK) return call.result();
  State& state = Get();
  const Guard lock(state.mutex);
  Session* session = nullptr;
  Slot* slot = nullptr;
  const CK_RV result = FindSession(state, handle, &session, &slot);
  const unsigned number = session == nullptr ? 0 : session->slot;
  if (state.sessions.erase(handle) == 0) return CKR_SESSION_HANDLE_INVALID;
  const bool last = std::none_of(state.sessions.begin(), state.sessions.end(),
                                 [&](const auto& entry) { return entry.second.slot == number; });
  if (last) slot->loggedIn = false;
  return result;
}

CK_RV GetSessionInfo(CK_SESSION_HANDLE handle, CK_SESSION_INFO* info) {
  const Call call("C_GetSessionInfo");
  if (call.result() != CKR_OK) return call.result();
  State& state = Get();
  const Guard lock(state.mutex);
  Session* session = nullptr;
  Slot* slot = nullptr;
  const CK_RV result = FindSession(state, handle, &session, &slot);
  if (result != CKR_OK) return result;
  *info = {};
  info->slotID = session->slot;
  info->state = slot->loggedIn ? CKS_RO_USER_FUNCTIONS : CKS_RO_PUBLIC_SESSION;
  return CKR_OK;
}

CK_RV Login(CK_SESSION_HANDLE handle, CK_USER_TYPE user, unsigned char* pin, CK_ULONG size) {
  const Call call("C_Login");
  if (call.result() != CKR_OK) return call.result();
  State& state = Get();
  const Guard lock(state.mutex);
  Session* session = nullptr;
  Slot* slot = nullptr;
  CK_RV result = FindSession(state, handle, &session, &slot);
  if (result != CKR_OK) return result;
  const bool onTheReader = (slot->token->flags & CKF_PROTECTED_AUTHENTICATION_PATH) != 0;
  if (onTheReader != (pin == nullptr)) return CKR_ARGUMENTS_BAD;
  if (user == CKU_CONTEXT_SPECIFIC) {
    if (session->signer == nullptr) return CKR_OPERATION_NOT_INITIALIZED;
    result = onTheReader ? CKR_OK : TryPin(&*slot->token, pin, size);
    session->mayOnce = result == CKR_OK;
    return result;
  }
  if (slot->loggedIn) return CKR_USER_ALREADY_LOGGED_IN;
  result = onTheReader ? CKR_OK : TryPin(&*slot->token, pin, size);
  slot->loggedIn = result == CKR_OK;
  return result;
}

CK_RV Logout(CK_SESSION_HANDLE handle) {
  const Call call("C_Logout");
  if (call.result() != CKR_OK) return call.result();
  State& state = Get();
  const Guard lock(state.mutex);
  Session* session = nullptr;
  Slot* slot = nullptr;
  const CK_RV result = FindSession(state, handle, &session, &slot);
  if (result != CKR_OK) return result;
  if (!slot->loggedIn) return CKR_USER_NOT_LOGGED_IN;
  slot->loggedIn = false;
  return CKR_OK;
}

CK_RV SetPin(CK_SESSION_HANDLE handle, unsigned char* oldPin, CK_ULONG oldSize,
             unsigned char* newPin, CK_ULONG newSize) {
  const Call call("C_SetPIN");
  if (call.result() != CKR_OK) return call.result();
  State& state = Get();
  const Guard lock(state.mutex);
  Session* session = nullptr;
  Slot* slot = nullptr;
  CK_RV result = FindSession(state, handle, &session, &slot);
  if (result != CKR_OK) return result;
  if (!session->writes) return CKR_SESSION_READ_ONLY;
  result = TryPin(&*slot->token, oldPin, oldSize);
  if (result == CKR_OK) slot->token->pin.assign(reinterpret_cast<char*>(newPin), newSize);
  return result;
}

CK_RV FindObjectsInit(CK_SESSION_HANDLE handle, CK_ATTRIBUTE* wanted, CK_ULONG count) {
  const Call call("C_FindObjectsInit");
  if (call.result() != CKR_OK) return call.result();
  State& state = Get();
  const Guard lock(state.mutex);
  Session* session = nullptr;
  Slot* slot = nullptr;
  const CK_RV result = FindSession(state, handle, &session, &slot);
  if (result != CKR_OK) return result;
  if (session->finding) return CKR_OPERATION_ACTIVE;
  session->finding = true;
  const auto& objects = slot->token->objects;
  for (size_t i = 0; i < objects.size(); ++i) {
    if (objects[i].isPrivate && !slot->loggedIn) continue;
    if (Matches(objects[i], wanted, count)) {
      session->found.push_back(HandleOf(session->slot, slot->generation, i));
    }
  }
  return CKR_OK;
}

// A few at a time, as tokens do.
CK_RV FindObjects(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE* objects, CK_ULONG most,
                  CK_ULONG* count) {
  const Call call("C_FindObjects");
  if (call.result() != CKR_OK) return call.result();
  State& state = Get();
  const Guard lock(state.mutex);
  Session* session = nullptr;
  Slot* slot = nullptr;
  const CK_RV result = FindSession(state, handle, &session, &slot);
  if (result != CKR_OK) return result;
  *count = std::min({most, CK_ULONG{7}, CK_ULONG{session->found.size()}});
  const auto end = session->found.begin() + static_cast<long>(*count);
  std::copy(session->found.begin(), end, objects);
  session->found.erase(session->found.begin(), end);
  return CKR_OK;
}

CK_RV FindObjectsFinal(CK_SESSION_HANDLE handle) {
  const Call call("C_FindObjectsFinal");
  if (call.result() != CKR_OK) return call.result();
  State& state = Get();
  const Guard lock(state.mutex);
  Session* session = nullptr;
  Slot* slot = nullptr;
  const CK_RV result = FindSession(state, handle, &session, &slot);
  if (result != CKR_OK) return result;
  session->finding = false;
  session->found.clear();
  return CKR_OK;
}

CK_RV GetAttributeValue(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE object, CK_ATTRIBUTE* attributes,
                        CK_ULONG count) {
  const Call call("C_GetAttributeValue");
  if (call.result() != CKR_OK) return call.result();
  State& state = Get();
  const Guard lock(state.mutex);
  Session* session = nullptr;
  Slot* slot = nullptr;
  CK_RV result = FindSession(state, handle, &session, &slot);
  if (result != CKR_OK) return result;
  const Object* const found = FindObject(state, *session, object);
  if (found == nullptr) return CKR_OBJECT_HANDLE_INVALID;
  for (CK_ULONG i = 0; i < count; ++i) {
    Bytes value;
    CK_ATTRIBUTE& attribute = attributes[i];
    if (!ValueOf(*found, attribute.type, &value)) {
      attribute.ulValueLen = CK_UNAVAILABLE_INFORMATION;
      result = CKR_ATTRIBUTE_TYPE_INVALID;
    } else if (attribute.pValue != nullptr && attribute.ulValueLen < value.size()) {
      attribute.ulValueLen = CK_UNAVAILABLE_INFORMATION;
      result = CKR_BUFFER_TOO_SMALL;
    } else {
      if (attribute.pValue != nullptr)
        std::copy(value.begin(), value.end(), static_cast<unsigned char*>(attribute.pValue));
      attribute.ulValueLen = value.size();
    }
  }
  return result;
}

CK_RV SignInit(CK_SESSION_HANDLE handle, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key) {
  const Call call("C_SignInit");
  if (call.result() != CKR_OK) return call.result();
  State& state = Get();
  const Guard lock(state.mutex);
  Session* session = nullptr;
  Slot* slot = nullptr;
  const CK_RV result = FindSession(state, handle, &session, &slot);
  if (result != CKR_OK) return result;
  if (session->signer != nullptr) return CKR_OPERATION_ACTIVE;
  const Object* const found = FindObject(state, *session, key);
  if (found == nullptr) return CKR_KEY_HANDLE_INVALID;
  const bool rsa = EVP_PKEY_get_base_id(found->key.get()) == EVP_PKEY_RSA;
  if (rsa != (mechanism->mechanism == CKM_RSA_PKCS)) return CKR_KEY_TYPE_INCONSISTENT;
  session->signer = found;
  session->mechanism = mechanism->mechanism;
  session->mayOnce = false;
  return CKR_OK;
}

CK_RV Sign(CK_SESSION_HANDLE handle, unsigned char* data, CK_ULONG size, unsigned char* result,
           CK_ULONG* resultSize) {
  const Call call("C_Sign");
  if (call.result() != CKR_OK) return call.result();
  State& state = Get();
  const Guard lock(state.mutex);
  Session* session = nullptr;
  Slot* slot = nullptr;
  const CK_RV found = FindSession(state, handle, &session, &slot);
  if (found != CKR_OK) return found;
  const Object* const signer = session->signer;
  if (signer == nullptr) return CKR_OPERATION_NOT_INITIALIZED;
  session->signer = nullptr;
  if (signer->asksEachTime && !session->mayOnce) return CKR_USER_NOT_LOGGED_IN;
  Bytes digest(data, data + size);
  if (slot->token->wrongSignatures || session->mechanism == fakep11::kSm2OverData)
    digest[size - 1] ^= 1;
  const Bytes signature = Signature(signer->key.get(), digest);
  if (signature.empty()) return CKR_FUNCTION_FAILED;
  if (*resultSize < signature.size()) return CKR_BUFFER_TOO_SMALL;
  *resultSize = signature.size();
  std::copy(signature.begin(), signature.end(), result);
  return CKR_OK;
}

CK_FUNCTION_LIST MakeFunctions() {
  CK_FUNCTION_LIST list = {};
  list.version = {2, 40};
  list.C_Initialize = Initialize;
  list.C_Finalize = Finalize;
  list.C_GetSlotList = GetSlotList;
  list.C_GetSlotInfo = GetSlotInfo;
  list.C_GetTokenInfo = GetTokenInfo;
  list.C_GetMechanismList = GetMechanismList;
  list.C_GetMechanismInfo = GetMechanismInfo;
  list.C_OpenSession = OpenSession;
  list.C_CloseSession = CloseSession;
  list.C_GetSessionInfo = GetSessionInfo;
  list.C_Login = Login;
  list.C_Logout = Logout;
  list.C_SetPIN = SetPin;
  list.C_FindObjectsInit = FindObjectsInit;
  list.C_FindObjects = FindObjects;
  list.C_FindObjectsFinal = FindObjectsFinal;
  list.C_GetAttributeValue = GetAttributeValue;
  list.C_SignInit = SignInit;
  list.C_Sign = Sign;
  return list;
}

// At unloading: some modules do not survive it.
struct Unloading {
  ~Unloading() { const Call call("unload", false); }
};
const Unloading g_unloading;

}  // namespace

extern "C" CK_RV C_GetFunctionList(CK_FUNCTION_LIST** list) {
  static CK_FUNCTION_LIST functions = MakeFunctions();
  *list = &functions;
  return CKR_OK;
}
