#pragma once
// Names of certificates as readable UTF-8. Characters of BMPString and of the 8-bit string types
// are decoded; bytes that are no UTF-8 are taken for GBK, as older Chinese authorities wrote them,
// and else for Latin-1.
#include <openssl/x509.h>

#include <string>

namespace velcrypto {

enum class NameOrder { kSpecificFirst, kSpecificLast };

// RFC 4514 text: parts separated by ",", special characters escaped by "\".
std::string NameText(const X509_NAME* name, NameOrder order);

// The value of the most specific part of this type; empty without one.
std::string LastEntry(const X509_NAME* name, int nid);

}  // namespace velcrypto
