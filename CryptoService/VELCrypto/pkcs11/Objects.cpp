#include "Objects.h"

#include <string.h>

#include <algorithm>

namespace velcrypto {

namespace {

// Enough for nearly all that is read; a certificate that is longer takes two calls more.
const size_t kRoom = 4096;

// No certificate, name or key is as long as this.
const size_t kTooLong = 1 << 20;

const size_t kFindAtOnce = 256;

bool IsPresent(const CK_ATTRIBUTE& attribute) {
  return attribute.ulValueLen != CK_UNAVAILABLE_INFORMATION && attribute.ulValueLen < kTooLong;
}

// These leave the values that could be read.
bool IsPartial(CK_RV result) {
  return result == CKR_ATTRIBUTE_TYPE_INVALID || result == CKR_ATTRIBUTE_SENSITIVE ||
         result == CKR_BUFFER_TOO_SMALL;
}

std::vector<CK_ATTRIBUTE> Ask(const std::vector<CK_ATTRIBUTE_TYPE>& types) {
  std::vector<CK_ATTRIBUTE> asked;
  for (const CK_ATTRIBUTE_TYPE type : types) asked.push_back({type, nullptr, 0});
  return asked;
}

// `room` holds the values; each attribute has the length that it asks for.
void GiveRoom(std::vector<CK_ATTRIBUTE>* attributes, Bytes* room) {
  size_t size = 0;
  for (CK_ATTRIBUTE& attribute : *attributes) {
    if (!IsPresent(attribute)) attribute.ulValueLen = 0;
    size += attribute.ulValueLen;
  }
  room->assign(size, 0);
  BYTE* at = room->data();
  for (CK_ATTRIBUTE& attribute : *attributes) {
    attribute.pValue = at;
    at += attribute.ulValueLen;
  }
}

}  // namespace

Template& Template::Add(CK_ATTRIBUTE_TYPE type, CK_ULONG number) {
  Bytes bytes(sizeof(number));
  memcpy(bytes.data(), &number, sizeof(number));
  return Add(type, bytes);
}

Template& Template::Add(CK_ATTRIBUTE_TYPE type, const Bytes& bytes) {
  m_attributes.emplace_back(type, bytes);
  return *this;
}

CK_RV FindObjects(const SessionHandle& session, const Template& wanted,
                  std::vector<CK_OBJECT_HANDLE>* found) {
  std::vector<CK_ATTRIBUTE> attributes;
  for (const auto& [type, bytes] : wanted.m_attributes) {
    attributes.push_back({type, const_cast<BYTE*>(bytes.data()), bytes.size()});
  }
  Module& module = *session.module;
  CK_RV result = module.Call(&CK_FUNCTION_LIST::C_FindObjectsInit, session.handle,
                             attributes.data(), attributes.size());
  if (result != CKR_OK) return result;
  CK_ULONG count = kFindAtOnce;
  while (result == CKR_OK && count > 0) {
    const size_t before = found->size();
    found->resize(before + kFindAtOnce);
    count = 0;
    result = module.Call(&CK_FUNCTION_LIST::C_FindObjects, session.handle, found->data() + before,
                         kFindAtOnce, &count);
    found->resize(before + std::min<size_t>(count, kFindAtOnce));
  }
  const CK_RV ended = module.Call(&CK_FUNCTION_LIST::C_FindObjectsFinal, session.handle);
  return result == CKR_OK ? ended : result;
}

CK_RV ReadAttributes(const SessionHandle& session, CK_OBJECT_HANDLE object,
                     const std::vector<CK_ATTRIBUTE_TYPE>& types, Attributes* values) {
  const auto read = [&](std::vector<CK_ATTRIBUTE>* attributes) {
    return session.module->Call(&CK_FUNCTION_LIST::C_GetAttributeValue, session.handle, object,
                                attributes->data(), attributes->size());
  };
  std::vector<CK_ATTRIBUTE> attributes = Ask(types);
  for (CK_ATTRIBUTE& attribute : attributes) attribute.ulValueLen = kRoom;
  Bytes room;
  GiveRoom(&attributes, &room);
  CK_RV result = read(&attributes);
  // Of several things that are wrong a module tells one.
  if (result == CKR_BUFFER_TOO_SMALL || (IsPartial(result) && !IsPresent(attributes[0]))) {
    attributes = Ask(types);
    result = read(&attributes);  // tells the lengths
    if (result != CKR_OK && !IsPartial(result)) return result;
    GiveRoom(&attributes, &room);
    result = read(&attributes);
  }
  if (result != CKR_OK && !IsPartial(result)) return result;
  for (const CK_ATTRIBUTE& attribute : attributes) {
    const BYTE* const at = static_cast<const BYTE*>(attribute.pValue);
    if (at == nullptr || !IsPresent(attribute) || attribute.ulValueLen == 0 ||
        at + attribute.ulValueLen > room.data() + room.size()) {
      continue;
    }
    (*values)[attribute.type].assign(at, at + attribute.ulValueLen);
  }
  return CKR_OK;
}

const Bytes& ValueOf(const Attributes& values, CK_ATTRIBUTE_TYPE type) {
  static const Bytes* const none = new Bytes;
  const auto found = values.find(type);
  return found == values.end() ? *none : found->second;
}

CK_ULONG NumberOf(const Attributes& values, CK_ATTRIBUTE_TYPE type, CK_ULONG otherwise) {
  const Bytes& bytes = ValueOf(values, type);
  CK_ULONG number = otherwise;
  if (bytes.size() == sizeof(number)) memcpy(&number, bytes.data(), sizeof(number));
  return number;
}

bool TruthOf(const Attributes& values, CK_ATTRIBUTE_TYPE type) {
  const Bytes& bytes = ValueOf(values, type);
  return !bytes.empty() && bytes[0] != CK_FALSE;
}

}  // namespace velcrypto
