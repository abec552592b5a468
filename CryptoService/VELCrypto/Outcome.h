#pragma once
// What an operation came to: the code for the caller, and for support the code of the interface
// underneath and a remark. The remark never holds a PIN or signed data.
#include <string>
#include <utility>

#include "VELInterface.h"

namespace velcrypto {

enum Code : ULONG {
  kOk = 0,
  kFailed = 0xE0000001,
  kCancelled = 0xE0000002,
  kInvalidParameter = 0xE0000003,
  kBufferTooSmall = 0xE0000004,
  kOutOfMemory = 0xE0000005,
  kNotInitialized = 0xE0000006,
  kNotSupported = 0xE0000008,
  kAccessDenied = 0xE000000A,
  kFileReadFailed = 0xE0000012,
  kFileWriteFailed = 0xE0000013,
  kLibraryNotLoaded = 0xE0000014,
  kTimeout = 0xE0000016,
  kInvalidMechanism = 0xE0000029,
  kKeyTypeWrong = 0xE000002B,
  kKeyNotFound = 0xE000002C,
  kInputLengthWrong = 0xE000003A,
  kDeviceRemoved = 0xE0000042,
  kDeviceNotPresent = 0xE0000043,
  kPinWrong = 0xE0000056,
  kPinLocked = 0xE0000057,
  kPinLengthWrong = 0xE0000059,
  kNotLoggedIn = 0xE000005A,
  kUserTypeInvalid = 0xE000005F,
  kCertificateNotFound = 0xE0000061,
  kSignatureInvalid = 0xE0000070,
  kFileContentWrong = 0xE0000089,
  kFamilyNotSupported = 0xE0020005,
};

struct Outcome {
  ULONG code = kOk;
  unsigned long native = 0;  // errno, OpenSSL error, CKR_*, SAR_* ...; 0 when there is none
  std::string remark;

  Outcome() = default;
  Outcome(Code result) : code(result) {}  // NOLINT: a bare code is an outcome
  Outcome(Code result, unsigned long nativeCode, std::string text)
      : code(result), native(nativeCode), remark(std::move(text)) {}

  bool ok() const { return code == kOk; }
};

}  // namespace velcrypto
