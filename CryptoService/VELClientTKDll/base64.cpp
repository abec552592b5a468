#include "base64.h"

#include <endian.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <new>
#include <utility>

namespace {

constexpr const char* kAlphabet = CBase64::s_chBase64EncodingTable;

// Two characters for each 12 bits, as they lie in the text: half the lookups of single ones.
struct Pair {
  wchar_t first, second;
};

constexpr std::array<Pair, 4096> MakePairs() {
  std::array<Pair, 4096> pairs{};
  for (size_t i = 0; i < pairs.size(); ++i) pairs[i] = {kAlphabet[i >> 6], kAlphabet[i & 63]};
  return pairs;
}
constexpr std::array<Pair, 4096> kPairs = MakePairs();

constexpr uint32_t kInvalid = 1u << 24;  // beside the 24 bits of a group

// The bits of each character at one place of a group, kInvalid for what is not of the alphabet.
typedef std::array<uint32_t, 256> Place;
constexpr Place MakePlace(int shift) {
  Place place{};
  for (uint32_t& bits : place) bits = kInvalid;
  for (uint32_t i = 0; i < 64; ++i) place[static_cast<unsigned char>(kAlphabet[i])] = i << shift;
  return place;
}
constexpr Place kPlace0 = MakePlace(18), kPlace1 = MakePlace(12), kPlace2 = MakePlace(6),
                kPlace3 = MakePlace(0);

// An upper bound of the text's length, with the terminator.
size_t EncodedBound(size_t bytes, bool padded, bool broken, size_t line) {
  const size_t length = bytes * 4 / 3 + (padded ? bytes % 3 : 0);
  const size_t breaks = broken ? 2 * (length / line + 1) + 2 : 0;
  return (length + 3) / 4 * 4 + breaks + 1;
}

wchar_t* EncodeGroup(uint64_t bits, wchar_t* out) {
  memcpy(out, &kPairs[bits >> 12 & 0xfff], sizeof(Pair));
  memcpy(out + 2, &kPairs[bits & 0xfff], sizeof(Pair));
  return out + 4;
}

// Two groups a step from one load of eight bytes; the two over are those of the next group.
wchar_t* EncodeGroups(const unsigned char* in, size_t groups, wchar_t* out) {
  for (; groups > 2; groups -= 2, in += 6) {
    uint64_t bytes;
    memcpy(&bytes, in, sizeof(bytes));
    bytes = be64toh(bytes);
    out = EncodeGroup(bytes >> 40, out);
    out = EncodeGroup(bytes >> 16, out);
  }
  for (; groups > 0; --groups, in += 3)
    out = EncodeGroup(uint32_t(in[0]) << 16 | uint32_t(in[1]) << 8 | in[2], out);
  return out;
}

wchar_t* EncodeTail(const unsigned char* in, size_t bytes, bool padded, wchar_t* out) {
  const uint32_t bits = uint32_t(in[0]) << 16 | (bytes > 1 ? uint32_t(in[1]) << 8 : 0);
  *out++ = kAlphabet[bits >> 18];
  *out++ = kAlphabet[bits >> 12 & 63];
  if (bytes > 1) *out++ = kAlphabet[bits >> 6 & 63];
  for (size_t i = bytes; padded && i < 3; ++i) *out++ = '=';
  return out;
}

// The whole text, `perLine` groups a line; a break stands only where something follows.
wchar_t* EncodeLines(const unsigned char* in, size_t bytes, size_t perLine, bool padded,
                     wchar_t* out) {
  size_t groups = bytes / 3;
  const size_t tail = bytes % 3;
  while (groups > perLine || (groups == perLine && tail != 0)) {
    out = EncodeGroups(in, perLine, out);
    in += perLine * 3;
    groups -= perLine;
    *out++ = '\r';
    *out++ = '\n';
  }
  out = EncodeGroups(in, groups, out);
  return tail == 0 ? out : EncodeTail(in + groups * 3, tail, padded, out);
}

// Four characters in a row to 24 bits; kInvalid is set when one is not of the alphabet.
inline uint32_t GroupBits(const wchar_t* in) {
  static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ && sizeof(wchar_t) == 4,
                "two characters are taken from one load");
  uint64_t front, back;
  memcpy(&front, in, sizeof(front));
  memcpy(&back, in + 2, sizeof(back));
  if ((front | back) & 0xffffff00ffffff00) return kInvalid;
  return kPlace0[front & 255] | kPlace1[front >> 32] | kPlace2[back & 255] | kPlace3[back >> 32];
}

inline uint32_t GroupBits(const char* in) {
  unsigned char at[4];
  memcpy(at, in, sizeof(at));
  return kPlace0[at[0]] | kPlace1[at[1]] | kPlace2[at[2]] | kPlace3[at[3]];
}

uint32_t CodeOf(wchar_t c) {
  return static_cast<uint32_t>(c);
}
uint32_t CodeOf(char c) {
  return static_cast<unsigned char>(c);
}

// Pairs of whole groups up to the first that is interrupted; returns the groups. Each store has
// two bytes more than its groups.
template <typename C>
size_t DecodeGroups(const C* in, size_t groups, unsigned char* out) {
  size_t done = 0;
  for (; done + 2 <= groups; done += 2, in += 8, out += 6) {
    const uint32_t first = GroupBits(in), second = GroupBits(in + 4);
    if ((first | second) & kInvalid) break;
    const uint64_t bytes = htobe64(uint64_t(first) << 40 | uint64_t(second) << 16);
    memcpy(out, &bytes, sizeof(bytes));
  }
  return done;
}

template <typename C>
bool DecodeText(const C* pText, size_t nLength, unsigned char* pResult, size_t nRoom,
                unsigned long* pnResultLen) {
  const C* const end = pText + nLength;
  size_t count = 0, written = 0;
  bool fits = true;
  uint32_t bits = 0;
  unsigned collected = 0;
  const auto emit = [&](unsigned bytes) {
    fits = fits && bytes <= nRoom - written;
    for (unsigned i = 0; fits && i < bytes; ++i)
      pResult[written++] = static_cast<unsigned char>(bits >> (16 - 8 * i));
    count += bytes;
  };
  for (const C* at = pText; at != end; ++at) {
    if (collected == 0 && fits) {
      // One group stays behind, for the bytes that the last store has too many.
      const size_t whole = std::min(static_cast<size_t>(end - at) / 4, (nRoom - written) / 3);
      const size_t done = whole == 0 ? 0 : DecodeGroups(at, whole - 1, pResult + written);
      at += done * 4;
      written += done * 3;
      count = written;
    }
    const uint32_t c = CodeOf(*at);
    if (c > 255 || kPlace3[c] == kInvalid) continue;
    bits |= kPlace3[c] << (18 - 6 * collected);
    if (++collected < 4) continue;
    emit(3);
    bits = collected = 0;
  }
  if (collected > 1) emit(collected - 1);
  memset(pResult + written, 0, nRoom - written);
  *pnResultLen = count;
  return fits;
}

}  // namespace

const wchar_t* CBase64::Encode(const void* pBuffer, unsigned long nBufferSize,
                               unsigned long dwFlags, unsigned long dwLineLenFlags) {
  if (pBuffer == nullptr || nBufferSize == 0 || nBufferSize > LONG_MAX / 32) return nullptr;
  const bool padded = !(dwFlags & NO_PADDING);
  const bool broken = (dwFlags & LINE_BREAKS) && dwLineLenFlags >= 4;
  const size_t perLine = broken ? dwLineLenFlags / 4 : nBufferSize;
  const size_t bound =
      EncodedBound(nBufferSize, padded, dwFlags & LINE_BREAKS, broken ? perLine * 4 : SIZE_MAX);
  std::unique_ptr<wchar_t[]> text(new (std::nothrow) wchar_t[bound]);
  if (text == nullptr) return nullptr;
  const wchar_t* const end = EncodeLines(static_cast<const unsigned char*>(pBuffer), nBufferSize,
                                         perLine, padded, text.get());
  const size_t length = static_cast<size_t>(end - text.get());
  wmemset(text.get() + length, 0, bound - length);
  m_encoded = std::move(text);
  return m_encoded.get();
}

void CBase64::EncodeInto(const void* pBuffer, size_t nBufferSize, wchar_t* pResult) {
  if (nBufferSize == 0) return;
  EncodeLines(static_cast<const unsigned char*>(pBuffer), nBufferSize, nBufferSize, true, pResult);
}

bool CBase64::DecodeInto(const wchar_t* pText, size_t nLength, unsigned char* pResult, size_t nRoom,
                         unsigned long* pnResultLen) {
  return DecodeText(pText, nLength, pResult, nRoom, pnResultLen);
}

bool CBase64::DecodeInto(const char* pText, size_t nLength, unsigned char* pResult, size_t nRoom,
                         unsigned long* pnResultLen) {
  return DecodeText(pText, nLength, pResult, nRoom, pnResultLen);
}

unsigned char* CBase64::Decode(const wchar_t* lpszSource, unsigned long* pnResultLen) {
  if (lpszSource == nullptr || pnResultLen == nullptr || *lpszSource == 0) return nullptr;
  const size_t length = wcslen(lpszSource);
  std::unique_ptr<unsigned char[]> bytes(new (std::nothrow) unsigned char[length]);
  if (bytes == nullptr) return nullptr;
  const bool fits = DecodeInto(lpszSource, length, bytes.get(), length, pnResultLen);
  m_decoded = std::move(bytes);
  return fits ? m_decoded.get() : nullptr;
}
