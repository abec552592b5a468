#pragma once
// The Chinese message texts of all error codes.
#include "VELCstring.h"

class CVELErrorMessage {
 public:
  // Sets `message` to the text of `code` and returns 0. A code without a text of its own, the
  // toolkit's 1 to 11 among them, gives a text with its low 32 bits in hexadecimal, and the code
  // is returned. 0xE0000056 (wrong PIN) shows `retrytimes`.
  static ULONG GetErrorcodeMessage(ULONG code, CString& message);

  // PIN tries left, set just before a message is asked for; one number for the whole process.
  static int retrytimes;
};
