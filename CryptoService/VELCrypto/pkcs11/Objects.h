#pragma once
// The objects of a token and their attributes.
#include <map>
#include <utility>
#include <vector>

#include "Module.h"

namespace velcrypto {

using Bytes = std::vector<BYTE>;

// A session of a module; the handles that come out of it.
struct SessionHandle {
  Module* module;
  CK_SESSION_HANDLE handle;
};

// Attributes to search with or to read.
class Template {
 public:
  Template& Add(CK_ATTRIBUTE_TYPE type, CK_ULONG number);
  Template& Add(CK_ATTRIBUTE_TYPE type, const Bytes& bytes);

 private:
  friend CK_RV FindObjects(const SessionHandle&, const Template&, std::vector<CK_OBJECT_HANDLE>*);
  std::vector<std::pair<CK_ATTRIBUTE_TYPE, Bytes>> m_attributes;
};

// All objects that match, in the token's order.
CK_RV FindObjects(const SessionHandle& session, const Template& wanted,
                  std::vector<CK_OBJECT_HANDLE>* found);

// The values of one object; what it lacks or keeps secret is not in it.
using Attributes = std::map<CK_ATTRIBUTE_TYPE, Bytes>;

// Reads all with one call, as a rule: every call to a token may take long. The first type is the
// one that matters and that may be long.
CK_RV ReadAttributes(const SessionHandle& session, CK_OBJECT_HANDLE object,
                     const std::vector<CK_ATTRIBUTE_TYPE>& types, Attributes* values);

// The value, empty when it is missing.
const Bytes& ValueOf(const Attributes& values, CK_ATTRIBUTE_TYPE type);

// The value as a number or a truth, or what is given for a missing one.
CK_ULONG NumberOf(const Attributes& values, CK_ATTRIBUTE_TYPE type, CK_ULONG otherwise);
bool TruthOf(const Attributes& values, CK_ATTRIBUTE_TYPE type);

}  // namespace velcrypto
