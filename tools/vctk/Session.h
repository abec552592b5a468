#pragma once
// One session of the toolkit. Every operation throws a Failure that tells code, text and advice.
#include <stdint.h>

#include <string>
#include <utility>
#include <vector>

#include "KeyList.h"
#include "Pin.h"

namespace vctk {

struct Certificate {
  std::string subject;
  std::string serial;  // as the toolkit spells it
};

// Filter type of VCTK_AddFilter and value.
using Filter = std::pair<unsigned long, std::string>;

class Session {
 public:
  Session(const KeyList& keyList, const std::vector<Filter>& filters);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // The certificates that can sign now and pass the filters; empty when there are none.
  std::vector<Certificate> List();

  // Whether any certificate, able to sign or not, has the serial number.
  bool Exists(const std::string& serial);

  // Chooses the certificate that signs; once for each session.
  void Choose(const std::string& serial);
  std::string ChosenType();         // "RSA", "SM2"
  std::string ChosenCertificate();  // base64 of the DER form

  void SetDigest(const std::string& name);

  // base64  the content. Returns the signature as base64 on one line.
  std::string SignPkcs7(const std::string& base64, bool detached, const Pin& pin);
  std::string SignPkcs1(const std::string& serial, const std::string& base64, const Pin& pin);

  // Signs with the certificate that the user chooses in the device library's dialog (a single one
  // is taken), and the PIN that its PIN dialog asks for. Later calls sign with the same
  // certificate. Fills `signature`, base64 on one line, and returns 0; or the code.
  uint32_t SignByDialogs(bool pkcs1, const std::string& base64, bool detached,
                         std::string* signature);

  // Whether the device library's operations are recorded from now on; shared by all sessions.
  void RecordCalls(bool on);
  std::string LastMessage();  // of the last failure, with the tries left
  std::string CallRecord();   // empty when there is none

  // The digest that a signature with the chosen certificate takes.
  std::string Digest();

  void ChangePin(const std::string& serial, const Pin& current, const Pin& replacement);

 private:
  using Getter = int (*)(void* handle, char* result, int* length);

  std::string Get(const std::string& doing, Getter getter);
  std::string Copy(const std::string& doing, Getter getter, int length);
  void Check(const std::string& doing, int result) const;

  void* m_handle;
  bool m_dialogChose = false;
};

}  // namespace vctk
