#include "Session.h"

#include <stdint.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "Failure.h"
#include "Messages.h"
#include "vctk.h"
#include "Waiting.h"

namespace vctk {
namespace {

const uint32_t kNothingListed = 0xE000000E;
const int kUserPin = 2;
const unsigned long kCertificateFilter = 4;
const char kLooking[] = "Looking for keys";
const char kListing[] = "the certificates cannot be listed";

// Control characters that stand in no name.
const char kBetweenCertificates[] = "\x1E";
const char kBetweenFields[] = "\x1F";

// VCTK_Initialize does not say what failed; a list without keys does, since it is always accepted.
Failure StartFailure(const KeyList& keyList) {
  const HANDLE probe = VCTK_Initialize("<authinfo><liblist></liblist></authinfo>");
  if (probe == nullptr) {
    return Failure(kNoSession, "the device library libVELCrypto64.so cannot be loaded",
                   "Install it, or name its folder in LD_LIBRARY_PATH.");
  }
  VCTK_Finalize(probe);
  return Failure(kNoSession, keyList.origin + " is no key list",
                 "It must be well-formed XML with liblist inside authinfo; --key-list names "
                 "another.");
}

std::vector<Certificate> Split(const std::string& text) {
  std::vector<Certificate> certificates;
  size_t at = 0;
  while (at < text.size()) {
    const size_t end = std::min(text.find(kBetweenCertificates, at), text.size());
    const size_t middle = std::min(text.find(kBetweenFields, at), end);
    const size_t serial = std::min(middle + 1, end);
    certificates.push_back({text.substr(at, middle - at), text.substr(serial, end - serial)});
    at = end + 1;
  }
  return certificates;
}

int GetList(void* handle, char* result, int* length) {
  return VCTK_GetCertList(handle, kBetweenCertificates, kBetweenFields, result, length);
}

}  // namespace

Session::Session(const KeyList& keyList, const std::vector<Filter>& filters)
    : m_handle(VCTK_Initialize(keyList.text.c_str())) {
  if (m_handle == nullptr) throw StartFailure(keyList);
  for (const Filter& filter : filters) {
    const int result = VCTK_AddFilter(m_handle, filter.first, filter.second.c_str());
    if (result == VCTK_OK) continue;
    VCTK_Finalize(m_handle);
    const uint32_t code = static_cast<uint32_t>(result);
    throw CodeFailure("a filter was refused", code, TextOf(code));
  }
}

Session::~Session() {
  VCTK_Finalize(m_handle);
}

void Session::Check(const std::string& doing, int result) const {
  const uint32_t code = static_cast<uint32_t>(result);
  if (code != VCTK_OK) throw CodeFailure(doing, code, TextOf(code));
}

std::string Session::Get(const std::string& doing, Getter getter) {
  int length = 0;
  Check(doing, getter(m_handle, nullptr, &length));
  return Copy(doing, getter, length);
}

std::string Session::Copy(const std::string& doing, Getter getter, int length) {
  std::string text(static_cast<size_t>(length), '\0');
  Check(doing, getter(m_handle, &text[0], &length));
  // The functions differ in whether the length that they report counts the terminator.
  text.resize(text.find('\0') == std::string::npos ? text.size() : text.find('\0'));
  return text;
}

std::vector<Certificate> Session::List() {
  const Waiting waiting(kLooking);
  int length = 0;
  const int result = GetList(m_handle, nullptr, &length);
  if (static_cast<uint32_t>(result) == kNothingListed) return {};
  Check(kListing, result);
  return Split(Copy(kListing, GetList, length));
}

bool Session::Exists(const std::string& serial) {
  const Waiting waiting(kLooking);
  int exists = 0;
  Check(kListing, VCTK_CheckCertIsExist(m_handle, serial.c_str(), &exists));
  return exists != 0;
}

void Session::Choose(const std::string& serial) {
  const Waiting waiting(kLooking);
  const int result = VCTK_SetCert(m_handle, serial.c_str());
  if (result != 1) Check("the certificate cannot be chosen", result);
}

std::string Session::ChosenType() {
  return Get("the key type cannot be read", VCTK_GetSignCertType);
}

std::string Session::ChosenCertificate() {
  return Get("the certificate cannot be read", VCTK_GetSignCert);
}

void Session::SetDigest(const std::string& name) {
  Check("the digest was refused", VCTK_SetDigestAlg(m_handle, name.c_str()));
}

std::string Session::SignPkcs7(const std::string& base64, bool detached, const Pin& pin) {
  const int kept = VCTK_SetPinCode(m_handle, pin.Text());
  if (kept != 1) Check("the PIN was refused", kept);
  const int result = VCTK_P7SignStrEx(m_handle, base64.c_str(), 1, detached ? 1 : 0, 1);
  if (result != VCTK_OK) {
    // The tries left are known to the message of a failed PKCS#7 signature alone.
    throw CodeFailure("signing failed", static_cast<uint32_t>(result), LastMessage());
  }
  return Get("the signature cannot be read", VCTK_GetP7SignResult);
}

std::string Session::SignPkcs1(const std::string& serial, const std::string& base64,
                               const Pin& pin) {
  Check("signing failed",
        VCTK_P1SignWithPin(m_handle, serial.c_str(), pin.Text(), base64.c_str(), 1));
  const std::string text = Get("the signature cannot be read", VCTK_GetP1SignResultWithPin);
  const auto answer = nlohmann::json::parse(text, nullptr, false);
  if (!answer.is_object() || !answer.contains("signdata") || !answer["signdata"].is_string() ||
      answer["signdata"] == "") {
    throw Failure(kFailed, "the device library gave no signature", AdviceFor(0xE0000001));
  }
  return answer["signdata"].get<std::string>();
}

std::string Session::LastMessage() {
  int length = 0;
  if (VCTK_GetLastErrorMessage(m_handle, nullptr, &length) != VCTK_OK) return std::string();
  std::string text(static_cast<size_t>(length), '\0');
  if (VCTK_GetLastErrorMessage(m_handle, &text[0], &length) != VCTK_OK) return std::string();
  text.resize(static_cast<size_t>(length));
  return text;
}

uint32_t Session::SignByDialogs(bool pkcs1, const std::string& base64, bool detached,
                                std::string* signature) {
  VCTK_SetChooseSingleCert(m_handle, 1);
  const int result = pkcs1 ? VCTK_P1Sign(m_handle, base64.c_str(), 1)
                           : VCTK_P7Sign(m_handle, base64.c_str(), 1, detached ? 1 : 0, 1);
  if (result != VCTK_OK) return static_cast<uint32_t>(result);
  *signature =
      Get("the signature cannot be read", pkcs1 ? VCTK_GetP1SignResult : VCTK_GetP7SignResult);
  if (!m_dialogChose) {
    // Nothing else fits from now on, so nothing is left to be asked.
    const std::string chosen = ChosenCertificate();
    Check("a filter was refused", VCTK_AddFilter(m_handle, kCertificateFilter, chosen.c_str()));
    m_dialogChose = true;
  }
  return VCTK_OK;
}

void Session::RecordCalls(bool on) {
  VCTK_CallQueueEnable(m_handle, on ? 1 : 0, 1);
}

// The record may grow between the two calls.
std::string Session::CallRecord() {
  int length = 0;
  if (VCTK_CallQueueGet(m_handle, nullptr, &length) != VCTK_OK) return std::string();
  for (int i = 0; i < 10; ++i) {
    std::string text(static_cast<size_t>(length), '\0');
    if (VCTK_CallQueueGet(m_handle, &text[0], &length) != VCTK_OK) continue;
    text.resize(text.find('\0') == std::string::npos ? text.size() : text.find('\0'));
    return text;
  }
  return std::string();
}

std::string Session::Digest() {
  return Get("the digest cannot be told", VCTK_GetDigestAlg);
}

void Session::ChangePin(const std::string& serial, const Pin& current, const Pin& replacement) {
  Check("the PIN was not changed",
        VCTK_ChangePinCode(m_handle, serial.c_str(), kUserPin, current.Text(), replacement.Text()));
}

}  // namespace vctk
