#pragma once
// Conversions between UTF-8 and wide text, by the rules of the string classes.
#include "VELCstring.h"

class CPublicFun {
 public:
  // Null, and what the locale of the process cannot count, gives the empty text. Both return 0.
  static int UTF8ToUnicode(const char* in, CString& out) {
    out = in;
    return 0;
  }
  static int UnicodeToUTF8(const wchar_t* in, CStringA& out) {
    out = in;
    return 0;
  }
};
