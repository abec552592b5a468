#pragma once
// The loops over characters that the tokenizer is made of. None goes behind a terminator.
#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <cstdint>
#include <cstring>
#include <cwchar>

#include "MarkupToken.h"

namespace markup_scan {

constexpr uint64_t Bit(unsigned c) {
  return uint64_t{1} << c;
}
constexpr uint64_t kSpace = Bit(' ') | Bit('\t') | Bit('\n') | Bit('\r');
// All below 64 that end a name; the backslash is the one above.
constexpr uint64_t kNameEnd = kSpace | Bit(0) | Bit('<') | Bit('>') | Bit('=') | Bit('/') |
                              Bit('?') | Bit('!') | Bit('"') | Bit('\'') | Bit(';');

inline bool InSet(uint64_t set, wchar_t c) {
  const uint32_t code = static_cast<uint32_t>(c);
  return code < 64 && (set >> code & 1) != 0;
}

inline bool IsSpace(wchar_t c) {
  return InSet(kSpace, c);
}
inline bool IsNameEnd(wchar_t c) {
  // Small letters, of which most names are made, all stand behind the last one.
  if (static_cast<uint32_t>(c) > L'\\') return false;
  return InSet(kNameEnd, c) || c == L'\\';
}
inline bool IsLetter(wchar_t c) {
  return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z');
}
inline wchar_t Fold(wchar_t c) {
  return c >= L'A' && c <= L'Z' ? c + (L'a' - L'A') : c;
}

// The first character at or behind p that stops, as the terminator must. Lengths are alike in many
// documents: branches that are guessed right are faster than arithmetic that has to be waited for.
template <typename Stops>
inline const wchar_t* SkipTo(const wchar_t* p, Stops stops) {
  for (;; p += 4) {
    if (stops(p[0])) return p;
    if (stops(p[1])) return p + 1;
    if (stops(p[2])) return p + 2;
    if (stops(p[3])) return p + 3;
  }
}

// What a name that is looked for may go on with.
inline bool MayFollowName(wchar_t c) {
  if (c == 0) return true;
  return c == L' ' || c == L'/' || c == L'=' || c == L'[' || c == L']';
}

inline const wchar_t* SkipSpace(const wchar_t* p) {
  while (IsSpace(*p)) ++p;
  return p;
}

inline const wchar_t* SkipName(const wchar_t* p) {
  return SkipTo(p, IsNameEnd);
}

typedef int Lanes __attribute__((vector_size(16)));
typedef long long Halves __attribute__((vector_size(16)));
static_assert(sizeof(wchar_t) * TokenPos::BLOCK == 2 * sizeof(Lanes), "a block is two vectors");

inline bool AnyLane(Lanes hits) {
#ifdef __SSE2__
  return _mm_movemask_epi8((__m128i)hits) != 0;  // NOLINT: same bits
#else
  const Halves halves = (Halves)hits;  // NOLINT: same bits
  return (halves[0] | halves[1]) != 0;
#endif
}

inline Lanes LoadLanes(const wchar_t* p) {
  Lanes lanes;
  memcpy(&lanes, p, sizeof(lanes));
  return lanes;
}

// The first "&" in [p, end), null without one. Most texts are short: no call is made for them.
inline const wchar_t* FindAmpersand(const wchar_t* p, const wchar_t* end) {
  if (end - p > 16) return wmemchr(p, L'&', end - p);
  for (; end - p >= 4; p += 4) {
    if (AnyLane(LoadLanes(p) == int{L'&'})) break;
  }
  while (p != end && *p != L'&') ++p;
  return p != end ? p : nullptr;
}

// The first c at or behind p, or the terminator. Blocks may begin ahead of blocksEnd.
inline const wchar_t* ScanTo(const wchar_t* p, wchar_t c, const wchar_t* blocksEnd) {
  const int code = static_cast<int>(c);
  for (; p < blocksEnd; p += TokenPos::BLOCK) {
    const Lanes low = LoadLanes(p);
    const Lanes high = LoadLanes(p + TokenPos::BLOCK / 2);
    if (AnyLane((low == code) | (low == 0) | (high == code) | (high == 0))) break;
  }
  return SkipTo(p, [c](wchar_t x) { return x == c || x == 0; });
}

// A ">" alone does not end an instruction, nor a "?" an element's tag.
inline bool IsTagEnd(const wchar_t* p, bool instruction) {
  if (*p == 0) return true;
  if (instruction) return *p == L'?' && p[1] == L'>';
  return *p == L'>' || (*p == L'/' && p[1] == L'>');
}

// The value behind a "=": its first character, its end and where scanning goes on. ParseNode and
// ScanAttrib share it, so that they agree on where a tag ends.
struct Value {
  const wchar_t* first;
  const wchar_t* end;
  const wchar_t* next;
};

inline Value ScanValue(const wchar_t* p, const wchar_t* blocksEnd, bool instruction) {
  if (*p != L'"') p = SkipSpace(p);
  if (*p == L'"' || *p == L'\'') {
    const wchar_t* const end = ScanTo(p + 1, *p, blocksEnd);
    return {p + 1, end, *end == 0 ? end : end + 1};
  }
  const wchar_t* end = p;
  while (!IsSpace(*end) && !IsTagEnd(end, instruction)) ++end;
  return {p, end, end};
}

}  // namespace markup_scan

inline bool TokenPos::BeginsName(const wchar_t* name) const {
  if ((m_nTokenFlags & MarkupFlags::MDF_IGNORECASE) != 0) {
    return StrNIACmp(GetTokenPtr(), name, Length()) == 0;
  }
  const wchar_t* const end = GetTokenPtr() + Length();
  for (const wchar_t* p = GetTokenPtr(); p != end; ++p, ++name) {  // a few: a call takes longer
    if (*p != *name) return false;
  }
  return true;
}

// No character of the token ends a name, so this goes nowhere behind the name's end.
inline bool TokenPos::MatchTag(const wchar_t* name) const {
  if (!BeginsName(name)) return false;
  const wchar_t next = name[Length()];
  return markup_scan::IsNameEnd(next) || next == L'[' || next == L']';
}
