// UTF-8 and UTF-32 with the calling rules of Win32, and the measures of both. Nothing here asks
// the locale: hosts run with and without one, and the texts on the wire are UTF-8 all the same.
#include <limits.h>
#include <locale.h>
#include <stdint.h>
#include <string.h>
#include <wctype.h>

#include "LastError.h"
#include "VELInterface.h"

namespace {

constexpr uint32_t kReplacement = 0xFFFD;
constexpr uint32_t kBad = UINT32_MAX;

// Texts are taken in blocks: one of ASCII at once, another one character by character.
constexpr size_t kBlock = 8;

struct Outcome {
  size_t count;  // units of the target
  DWORD error;
};

size_t EndOfBlock(size_t begin, size_t length) {
  return length - begin < kBlock ? length : begin + kBlock;
}

bool IsScalarValue(uint32_t c) {
  return c < 0xD800 || (c > 0xDFFF && c <= 0x10FFFF);
}

// Decodes one character and returns its length in bytes. A bad sequence gives kBad and the length
// of its maximal part: the bytes that a well-formed sequence could begin with, at least one.
inline size_t DecodeOne(const unsigned char* bytes, size_t left, uint32_t* value) {
  const unsigned char lead = bytes[0];
  *value = lead;
  if (lead < 0x80) return 1;
  if ((lead & 0xF0) == 0xE0 && left >= 3 && (bytes[1] & 0xC0) == 0x80 &&
      (bytes[2] & 0xC0) == 0x80) {  // most of what is not ASCII here is Chinese
    *value = (lead & 0xFu) << 12 | (bytes[1] & 0x3Fu) << 6 | (bytes[2] & 0x3Fu);
    if (*value >= 0x800 && (*value & 0xF800) != 0xD800) return 3;
  }
  *value = kBad;
  if (lead < 0xC2 || lead > 0xF4) return 1;
  const size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  // The second byte decides on overlong forms, surrogates and the end of the code space.
  unsigned char low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
  unsigned char high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
  uint32_t c = lead & (0x7Fu >> length);
  for (size_t i = 1; i < length; ++i) {
    if (i == left || bytes[i] < low || bytes[i] > high) return i;
    c = c << 6 | (bytes[i] & 0x3Fu);
    low = 0x80;
    high = 0xBF;
  }
  *value = c;
  return length;
}

struct Utf8ToWide {
  using Source = char;
  using Target = wchar_t;
  static constexpr DWORD kStrictFlag = MB_ERR_INVALID_CHARS;
  static size_t Length(const char* text) { return strlen(text); }

  static bool IsAsciiBlock(const unsigned char* bytes) {
    uint64_t all;
    static_assert(sizeof(all) == kBlock);
    memcpy(&all, bytes, kBlock);
    return (all & 0x8080808080808080u) == 0;
  }

  template <bool kWrite>
  static Outcome Run(const char* text, size_t length, wchar_t* target, size_t room, bool strict) {
    const unsigned char* const source = reinterpret_cast<const unsigned char*>(text);
    size_t in = 0;
    size_t out = 0;
    while (in < length) {
      if (length - in >= kBlock && room - out >= kBlock && IsAsciiBlock(source + in)) {
        if constexpr (kWrite) {
          for (size_t i = 0; i < kBlock; ++i)
            target[out + i] = static_cast<wchar_t>(source[in + i]);
        }
        in += kBlock;
        out += kBlock;
        continue;
      }
      for (const size_t end = EndOfBlock(in, length); in < end; ++out) {
        uint32_t c;
        in += DecodeOne(source + in, length - in, &c);
        if (c == kBad) {
          if (strict) return {0, ERROR_NO_UNICODE_TRANSLATION};
          c = kReplacement;
        }
        if (out == room) return {0, ERROR_INSUFFICIENT_BUFFER};
        if constexpr (kWrite) target[out] = static_cast<wchar_t>(c);
      }
    }
    return {out, ERROR_SUCCESS};
  }
};

struct WideToUtf8 {
  using Source = wchar_t;
  using Target = char;
  static constexpr DWORD kStrictFlag = WC_ERR_INVALID_CHARS;
  static size_t Length(const wchar_t* text) { return wcslen(text); }

  static bool IsAsciiBlock(const wchar_t* text) {
    uint32_t all = 0;
    for (size_t i = 0; i < kBlock; ++i) all |= static_cast<uint32_t>(text[i]);
    return all < 0x80;
  }

  static size_t SizeOf(uint32_t c) { return c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4; }

  static void EncodeOne(uint32_t c, size_t size, char* target) {
    switch (size) {
      case 1:
        target[0] = static_cast<char>(c);
        break;
      case 2:
        target[0] = static_cast<char>(0xC0 | c >> 6);
        target[1] = static_cast<char>(0x80 | (c & 0x3F));
        break;
      case 3:
        target[0] = static_cast<char>(0xE0 | c >> 12);
        target[1] = static_cast<char>(0x80 | (c >> 6 & 0x3F));
        target[2] = static_cast<char>(0x80 | (c & 0x3F));
        break;
      default:
        target[0] = static_cast<char>(0xF0 | c >> 18);
        target[1] = static_cast<char>(0x80 | (c >> 12 & 0x3F));
        target[2] = static_cast<char>(0x80 | (c >> 6 & 0x3F));
        target[3] = static_cast<char>(0x80 | (c & 0x3F));
    }
  }

  template <bool kWrite>
  static Outcome Run(const wchar_t* source, size_t length, char* target, size_t room, bool strict) {
    size_t in = 0;
    size_t out = 0;
    while (in < length) {
      if (length - in >= kBlock && room - out >= kBlock && IsAsciiBlock(source + in)) {
        if constexpr (kWrite) {
          for (size_t i = 0; i < kBlock; ++i) target[out + i] = static_cast<char>(source[in + i]);
        }
        in += kBlock;
        out += kBlock;
        continue;
      }
      for (const size_t end = EndOfBlock(in, length); in < end; ++in) {
        uint32_t c = static_cast<uint32_t>(source[in]);
        if (!IsScalarValue(c)) {
          if (strict) return {0, ERROR_NO_UNICODE_TRANSLATION};
          c = kReplacement;
        }
        const size_t size = SizeOf(c);
        if (room - out < size) return {0, ERROR_INSUFFICIENT_BUFFER};
        if constexpr (kWrite) EncodeOne(c, size, target + out);
        out += size;
      }
    }
    return {out, ERROR_SUCCESS};
  }
};

// A source length of -1 stands for the text and a terminator, which is left out when exactly the
// text fits: the string classes size their blocks so.
template <typename Codec>
Outcome Convert(bool strict, const typename Codec::Source* source, int sourceLength,
                typename Codec::Target* target, size_t room) {
  const bool terminated = sourceLength == -1;
  const size_t length = terminated ? Codec::Length(source) : static_cast<size_t>(sourceLength);
  if (room == 0) {
    Outcome outcome = Codec::template Run<false>(source, length, nullptr, SIZE_MAX, strict);
    if (terminated) ++outcome.count;
    return outcome;
  }
  Outcome outcome = Codec::template Run<true>(source, length, target, room, strict);
  if (terminated && outcome.error == ERROR_SUCCESS && outcome.count < room) {
    target[outcome.count++] = 0;
  }
  return outcome;
}

template <typename Codec>
int CheckedConvert(UINT codePage, DWORD flags, const typename Codec::Source* source,
                   int sourceLength, typename Codec::Target* target, int targetLength) {
  const bool valid = (codePage == CP_ACP || codePage == CP_UTF8) &&
                     (flags & ~Codec::kStrictFlag) == 0 && source != nullptr && sourceLength != 0 &&
                     sourceLength >= -1 && targetLength >= 0 &&
                     (target != nullptr || targetLength == 0);
  Outcome outcome = {0, ERROR_INVALID_PARAMETER};
  if (valid) {
    outcome =
        Convert<Codec>(flags != 0, source, sourceLength, target, static_cast<size_t>(targetLength));
    if (outcome.count > INT_MAX) outcome.error = ERROR_INVALID_PARAMETER;
  }
  if (outcome.error == ERROR_SUCCESS) return static_cast<int>(outcome.count);
  SetThreadError(outcome.error);
  return 0;
}

int Clamp(size_t length) {
  return length < INT_MAX ? static_cast<int>(length) : INT_MAX;
}

// One fixed locale folds alike in every process; the Turkish one would part "ID" from "id".
wchar_t ToSmall(wchar_t c) {
  if (static_cast<uint32_t>(c) < 0x80) return c >= L'A' && c <= L'Z' ? c + (L'a' - L'A') : c;
  static const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  if (locale == nullptr) return c;
  return static_cast<wchar_t>(towlower_l(static_cast<wint_t>(c), locale));
}

template <typename Fold>
int CompareText(LPCWSTR left, LPCWSTR right, Fold fold) {
  if (left == right) return 0;
  if (left == nullptr) return -1;
  if (right == nullptr) return 1;
  for (;; ++left, ++right) {
    const uint32_t a = static_cast<uint32_t>(fold(*left));
    const uint32_t b = static_cast<uint32_t>(fold(*right));
    if (a != b) return a < b ? -1 : 1;
    if (a == 0) return 0;
  }
}

}  // namespace

int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR source, int sourceLength, LPWSTR target,
                        int targetLength) {
  return CheckedConvert<Utf8ToWide>(codePage, flags, source, sourceLength, target, targetLength);
}

int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR source, int sourceLength, LPSTR target,
                        int targetLength, LPCSTR defaultChar, LPBOOL usedDefault) {
  if (defaultChar != nullptr || usedDefault != nullptr) {
    SetThreadError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  return CheckedConvert<WideToUtf8>(codePage, flags, source, sourceLength, target, targetLength);
}

int lstrlenA(LPCSTR text) {
  return text == nullptr ? 0 : Clamp(strlen(text));
}

int lstrlenW(LPCWSTR text) {
  return text == nullptr ? 0 : Clamp(wcslen(text));
}

int lstrcmpW(LPCWSTR left, LPCWSTR right) {
  return CompareText(left, right, [](wchar_t c) { return c; });
}

int _wcsicmp(LPCWSTR left, LPCWSTR right) {
  return CompareText(left, right, ToSmall);
}
