#pragma once
/* The signing toolkit for C++17, in one header over vctk.h: sessions that end themselves, strings
 * instead of buffers, failures as exceptions.
 *
 *   text     UTF-8. The first session of the process sees to a UTF-8 locale: where the environment
 *            has another one it sets LC_ALL to C.UTF-8, because the toolkit reads the environment
 *            again. Make it before other threads run.
 *   content  any bytes, zero bytes included; they go to the toolkit as base64.
 *   results  signatures and certificates are base64 on one line.
 *   threads  one thread at a time for one session.
 */
#include <langinfo.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <clocale>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "vctk.h"

namespace vctk {

class Error : public std::runtime_error {
 public:
  Error(const std::string& function, uint32_t code, const std::string& text)
      : std::runtime_error(function + ": " + Shown(code) + (text.empty() ? "" : " ") + text),
        m_code(code),
        m_text(text) {}

  // A VCTK_ERROR, a device's code such as 0xE0000056, or 0xFFFFFFFF: the session was moved away or
  // never began.
  uint32_t Code() const { return m_code; }

  // The toolkit's Chinese text; empty where it keeps none: for a session that never began and for
  // most failures of ChangePin.
  const std::string& Text() const { return m_text; }

 private:
  static std::string Shown(uint32_t code) {
    char text[16];
    snprintf(text, sizeof(text), code < 0x10000 ? "%u" : "0x%08X", code);
    return text;
  }

  uint32_t m_code;
  std::string m_text;
};

struct Certificate {
  std::string subject;
  std::string serial;
};

// Types of filters, by the numbers of VCTK_AddFilter.
enum class Filter : unsigned long {
  kIssuer = 0,
  kSerial = 1,
  kSubject = 2,
  kEmail = 3,
  kCertificate = 4,
  kKeySpec = 5,
  kKeyStatus = 6,
  kLibrary = 7,
  kValidity = 8,
  kKeyUsage = 9,
  kInterface = 10,
  kCommonName = 11,
  kSigningAndEncryption = 12
};

enum class PinOf { kAdministrator = 1, kUser = 2 };

enum class Content { kAttached, kDetached };

class Session {
 public:
  // Throws Error when the key list is none or the device library cannot be loaded.
  explicit Session(const std::string& keyList) : m_handle(Begin(keyList)) {
    if (m_handle == nullptr) throw Error("VCTK_Initialize", kNoSession, std::string());
  }
  ~Session() { VCTK_Finalize(m_handle); }
  Session(Session&& other) noexcept
      : m_handle(std::exchange(other.m_handle, nullptr)), m_chosen(std::move(other.m_chosen)) {}
  Session& operator=(Session&& other) noexcept {
    Session taken(std::move(other));
    std::swap(m_handle, taken.m_handle);
    std::swap(m_chosen, taken.m_chosen);
    return *this;
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // For what this header does not wrap; null in a session that was moved away. Still the session's.
  HANDLE Handle() const { return m_handle; }

  // The certificates that can sign now and pass the filters; empty when there are none.
  std::vector<Certificate> Certificates() {
    int length = 0;
    const int result = GetList(m_handle, nullptr, &length);
    if (static_cast<uint32_t>(result) == kNothingListed) return {};
    Check("VCTK_GetCertList", result);
    return Parted(Copied("VCTK_GetCertList", GetList, length));
  }

  // Whether any certificate has the number, able to sign or not; the filters do not count.
  bool Exists(const std::string& serial) {
    int exists = 0;
    Check("VCTK_CheckCertIsExist", VCTK_CheckCertIsExist(m_handle, Plain(serial), &exists));
    return exists != 0;
  }

  // Issuers are alternatives; other filters must all be passed.
  void AddFilter(Filter type, const std::string& value) {
    Check("VCTK_AddFilter",
          VCTK_AddFilter(m_handle, static_cast<unsigned long>(type), Plain(value)));
  }
  void ClearFilters() { Check("VCTK_ClearFilter", VCTK_ClearFilter(m_handle)); }

  // Chooses the certificate for SignPkcs7, Base64Certificate and KeyType. The toolkit signs with
  // the first one that was chosen, whatever is chosen later, so another one is a std::logic_error.
  void Choose(const std::string& serial) {
    if (!m_chosen.empty() && m_chosen != serial) {
      throw std::logic_error("the session signs with " + m_chosen + ", not with " + serial);
    }
    CheckOne("VCTK_SetCert", VCTK_SetCert(m_handle, Plain(serial)));
    m_chosen = serial;
  }
  std::string Base64Certificate() { return Got("VCTK_GetSignCert", VCTK_GetSignCert); }
  std::string KeyType() { return Got("VCTK_GetSignCertType", VCTK_GetSignCertType); }  // "RSA"

  // For all signatures but SignPkcs1's: MD2, MD5, SHA1, SHA256, SHA512 or SM3.
  void SetDigest(const std::string& name) {
    Check("VCTK_SetDigestAlg", VCTK_SetDigestAlg(m_handle, Plain(name)));
  }
  std::string Digest() { return Got("VCTK_GetDigestAlg", VCTK_GetDigestAlg); }

  // PKCS#7 with the chosen certificate, which is put into the structure.
  std::string SignPkcs7(std::string_view content, const std::string& pin,
                        Content where = Content::kAttached) {
    CheckOne("VCTK_SetPinCode", VCTK_SetPinCode(m_handle, Plain(pin)));
    Check("VCTK_P7SignStrEx", VCTK_P7SignStrEx(m_handle, Base64(content).c_str(), 1,
                                               where == Content::kDetached ? 1 : 0, 1));
    return Got("VCTK_GetP7SignResult", VCTK_GetP7SignResult);
  }

  // The user chooses in the device library's dialog, which asks for the PIN, too.
  std::string SignPkcs7ByDialog(std::string_view content, Content where = Content::kAttached) {
    Check("VCTK_P7Sign", VCTK_P7Sign(m_handle, Base64(content).c_str(), 1,
                                     where == Content::kDetached ? 1 : 0, 1));
    ChosenByDialog();
    return Got("VCTK_GetP7SignResult", VCTK_GetP7SignResult);
  }
  std::string SignPkcs1ByDialog(std::string_view content) {
    Check("VCTK_P1Sign", VCTK_P1Sign(m_handle, Base64(content).c_str(), 1));
    ChosenByDialog();
    return Got("VCTK_GetP1SignResult", VCTK_GetP1SignResult);
  }

  // A bare signature with any certificate: SHA1 for an RSA key, SM3 for any other.
  std::string SignPkcs1(std::string_view content, const std::string& serial,
                        const std::string& pin) {
    Check("VCTK_P1SignWithPin",
          VCTK_P1SignWithPin(m_handle, Plain(serial), Plain(pin), Base64(content).c_str(), 1));
    // Base64 has no letters that JSON would escape.
    const std::string answer = Got("VCTK_GetP1SignResultWithPin", VCTK_GetP1SignResultWithPin);
    const size_t start = answer.find(kSignData);
    if (start == std::string::npos) return std::string();
    const size_t from = start + strlen(kSignData);
    return answer.substr(from, answer.find('"', from) - from);
  }

  // An empty serial number means the chosen certificate's key.
  void ChangePin(const std::string& serial, const std::string& current,
                 const std::string& replacement, PinOf whose = PinOf::kUser) {
    const int result = VCTK_ChangePinCode(m_handle, Plain(serial), static_cast<int>(whose),
                                          Plain(current), Plain(replacement));
    // This code is not kept by the toolkit: it would answer with the text of an earlier one.
    if (result != VCTK_OK) {
      throw Error("VCTK_ChangePinCode", static_cast<uint32_t>(result), std::string());
    }
  }

 private:
  using Getter = int (*)(HANDLE, char*, int*);

  static constexpr uint32_t kNoSession = 0xFFFFFFFF;
  static constexpr uint32_t kNothingListed = 0xE000000E;
  static constexpr char kSignData[] = "\"signdata\":\"";
  // Control characters that stand in no name.
  static constexpr char kBetweenCertificates[] = "\x1E";
  static constexpr char kBetweenFields[] = "\x1F";

  static HANDLE Begin(const std::string& keyList) {
    static const bool utf8 = EnsureUtf8();
    static_cast<void>(utf8);
    return VCTK_Initialize(Plain(keyList));
  }

  static bool EnsureUtf8() {
    const auto holds = [] {
      return setlocale(LC_ALL, "") != nullptr && strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
    };
    return holds() || (setenv("LC_ALL", "C.UTF-8", 1) == 0 && holds());
  }

  // A text that ends earlier than its string would be another text: half a PIN costs a try.
  static const char* Plain(const std::string& text) {
    if (text.find('\0') != std::string::npos) throw std::invalid_argument("a zero byte in a text");
    return text.c_str();
  }

  void ChosenByDialog() {
    if (m_chosen.empty()) m_chosen = "the certificate of the dialog";
  }

  static int GetList(HANDLE handle, char* result, int* length) {
    return VCTK_GetCertList(handle, kBetweenCertificates, kBetweenFields, result, length);
  }

  static std::vector<Certificate> Parted(const std::string& list) {
    std::vector<Certificate> certificates;
    for (size_t at = 0, end = 0; at < list.size(); at = end + 1) {
      end = std::min(list.find(kBetweenCertificates, at), list.size());
      const size_t middle = list.find(kBetweenFields, at);
      if (middle >= end) continue;
      certificates.push_back(
          {list.substr(at, middle - at), list.substr(middle + 1, end - middle - 1)});
    }
    return certificates;
  }

  static std::string Base64(std::string_view bytes) {
    static const char letters[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (size_t at = 0; at < bytes.size(); at += 3) {
      const size_t count = std::min<size_t>(3, bytes.size() - at);
      uint32_t group = 0;
      for (size_t i = 0; i < 3; ++i) {
        group = group << 8 | (i < count ? static_cast<unsigned char>(bytes[at + i]) : 0u);
      }
      for (size_t i = 0; i < 4; ++i) {
        text += i <= count ? letters[group >> (18 - 6 * i) & 63] : '=';
      }
    }
    return text;
  }

  std::string Got(const char* function, Getter getter) {
    int length = 0;
    Check(function, getter(m_handle, nullptr, &length));
    return Copied(function, getter, length);
  }

  // The functions differ in what they leave in the length: the text ends at the first zero byte.
  std::string Copied(const char* function, Getter getter, int length) {
    std::string text(static_cast<size_t>(length), '\0');
    if (length > 0) Check(function, getter(m_handle, text.data(), &length));
    text.resize(strnlen(text.data(), text.size()));
    return text;
  }

  void Check(const char* function, int result) {
    if (result == VCTK_OK) return;
    // A null handle gives another code to one function.
    const uint32_t code = m_handle == nullptr ? kNoSession : static_cast<uint32_t>(result);
    throw Error(function, code, TextOf(result));
  }

  // Two functions give 1 on success.
  void CheckOne(const char* function, int result) {
    if (result != 1) Check(function, result);
  }

  // The toolkit tells the text of its last failure only, and copies it without a terminator.
  std::string TextOf(int code) {
    int length = 0;
    if (VCTK_GetLastError(m_handle) != code ||
        VCTK_GetLastErrorMessage(m_handle, nullptr, &length) != VCTK_OK) {
      return std::string();
    }
    std::string text(static_cast<size_t>(length), '\0');
    if (VCTK_GetLastErrorMessage(m_handle, text.data(), &length) != VCTK_OK) return std::string();
    text.resize(static_cast<size_t>(length));
    return text;
  }

  HANDLE m_handle;
  std::string m_chosen;
};

}  // namespace vctk
