#include "DistinguishedName.h"

#include <iconv.h>

#include <algorithm>

#include "OpenSsl.h"
#include "VELInterface.h"

namespace velcrypto {

namespace {

const int kWideTypes[] = {V_ASN1_BMPSTRING, V_ASN1_UNIVERSALSTRING};

bool IsPlain(const ASN1_STRING* value) {
  const BYTE* const bytes = ASN1_STRING_get0_data(value);
  return std::all_of(bytes, bytes + ASN1_STRING_length(value), [](BYTE b) { return b < 0x80; });
}

bool IsWideType(const ASN1_STRING* value) {
  const int type = ASN1_STRING_type(value);
  return std::find(std::begin(kWideTypes), std::end(kWideTypes), type) != std::end(kWideTypes);
}

bool IsUtf8(const std::string& bytes) {
  return bytes.empty() || MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, bytes.data(),
                                              static_cast<int>(bytes.size()), nullptr, 0) > 0;
}

// Empty when the bytes are not of that character set, or the system lacks it.
std::string Converted(std::string bytes, const char* charset) {
  const iconv_t converter = iconv_open("UTF-8", charset);
  if (converter == reinterpret_cast<iconv_t>(-1)) return {};
  std::string text(bytes.size() * 4, '\0');
  char* source = bytes.data();
  char* target = text.data();
  size_t sourceLeft = bytes.size();
  size_t targetLeft = text.size();
  const bool whole = iconv(converter, &source, &sourceLeft, &target, &targetLeft) == 0;
  iconv_close(converter);
  return whole ? text.substr(0, text.size() - targetLeft) : std::string();
}

std::string Latin1(const std::string& bytes) {
  std::string text;
  for (const char c : bytes) {
    const BYTE b = static_cast<BYTE>(c);
    if (b < 0x80) {
      text += c;
    } else {
      text += static_cast<char>(0xC0 | b >> 6);
      text += static_cast<char>(0x80 | (b & 0x3F));
    }
  }
  return text;
}

std::string BytesOf(const ASN1_STRING* value) {
  return {reinterpret_cast<const char*>(ASN1_STRING_get0_data(value)),
          static_cast<size_t>(ASN1_STRING_length(value))};
}

std::string Decoded(const std::string& bytes) {
  if (IsUtf8(bytes)) return bytes;
  const std::string gbk = Converted(bytes, "GBK");
  return gbk.empty() ? Latin1(bytes) : gbk;
}

// OpenSSL's printer takes the bytes of the old 8-bit types for Latin-1. Certificates with a broken
// UTF8String are not parsed in the first place.
bool NeedsDecoding(const ASN1_STRING* value) {
  return ASN1_STRING_type(value) != V_ASN1_UTF8STRING && !IsWideType(value) && !IsPlain(value);
}

// A copy in which every value is well-formed for OpenSSL's printer; null when the name is so.
NamePtr Repaired(const X509_NAME* name) {
  NamePtr copy;
  for (int i = 0; i < X509_NAME_entry_count(name); ++i) {
    const ASN1_STRING* const value = X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, i));
    if (!NeedsDecoding(value)) continue;
    if (copy == nullptr) copy.reset(X509_NAME_dup(name));
    if (copy == nullptr) return nullptr;
    const std::string text = Decoded(BytesOf(value));
    X509_NAME_ENTRY_set_data(X509_NAME_get_entry(copy.get(), i), V_ASN1_UTF8STRING,
                             reinterpret_cast<const BYTE*>(text.data()),
                             static_cast<int>(text.size()));
  }
  return copy;
}

}  // namespace

std::string NameText(const X509_NAME* name, NameOrder order) {
  const NamePtr repaired = Repaired(name);
  unsigned long flags = XN_FLAG_RFC2253 & ~static_cast<unsigned long>(ASN1_STRFLGS_ESC_MSB);
  if (order == NameOrder::kSpecificLast) flags &= ~static_cast<unsigned long>(XN_FLAG_DN_REV);
  const BioPtr out(BIO_new(BIO_s_mem()));
  if (out == nullptr ||
      X509_NAME_print_ex(out.get(), repaired ? repaired.get() : name, 0, flags) < 0) {
    return {};
  }
  char* text = nullptr;
  const long size = BIO_get_mem_data(out.get(), &text);
  return {text, static_cast<size_t>(size)};
}

std::string LastEntry(const X509_NAME* name, int nid) {
  int found = -1;
  for (int i = -1; (i = X509_NAME_get_index_by_NID(name, nid, i)) >= 0;) found = i;
  if (found < 0) return {};
  const ASN1_STRING* const value = X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, found));
  if (!IsWideType(value)) return Decoded(BytesOf(value));
  BYTE* utf8 = nullptr;
  const int size = ASN1_STRING_to_UTF8(&utf8, value);
  if (size < 0) return {};
  const std::string text(reinterpret_cast<char*>(utf8), static_cast<size_t>(size));
  OPENSSL_free(utf8);
  return text;
}

}  // namespace velcrypto
