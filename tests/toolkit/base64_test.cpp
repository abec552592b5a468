#include "base64.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <random>
#include <string>
#include <vector>

#include "ArrayAllocations.h"

namespace {

typedef std::vector<unsigned char> Bytes;

const std::wstring ALPHABET = L"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
enum : unsigned long { PADDED = 0, NO_PADDING = 1, LINE_BREAKS = 2 };

Bytes BytesOf(const std::string& text) {
  return Bytes(text.begin(), text.end());
}

Bytes RandomBytes(size_t n, std::mt19937& random) {
  Bytes bytes(n);
  for (auto& byte : bytes) byte = static_cast<unsigned char>(random());
  return bytes;
}

std::wstring Encode(const Bytes& bytes, unsigned long flags = PADDED, unsigned long line = 64) {
  CBase64 codec;
  const wchar_t* const text = codec.Encode(bytes.data(), bytes.size(), flags, line);
  return text == nullptr ? L"(null)" : text;
}

Bytes Decode(const std::wstring& text) {
  CBase64 codec;
  unsigned long length = 12345;
  const unsigned char* const bytes = codec.Decode(text.c_str(), &length);
  if (bytes == nullptr) return BytesOf("(null)");
  return Bytes(bytes, bytes + length);
}

// Slow and obvious: bits one by one.
std::wstring SlowEncode(const Bytes& bytes, unsigned long flags, unsigned long line) {
  std::wstring text;
  for (size_t bit = 0; bit < bytes.size() * 8; bit += 6) {
    size_t value = 0;
    for (size_t i = bit; i < bit + 6; ++i)
      value = value * 2 + (i / 8 < bytes.size() ? bytes[i / 8] >> (7 - i % 8) & 1 : 0);
    text += ALPHABET[value];
  }
  while (!(flags & NO_PADDING) && text.size() % 4 != 0) text += L'=';
  std::wstring broken;
  for (size_t i = 0; i < text.size(); ++i) {
    if ((flags & LINE_BREAKS) && line != 0 && i != 0 && i % line == 0) broken += L"\r\n";
    broken += text[i];
  }
  return broken;
}

Bytes SlowDecode(const std::wstring& text) {
  std::vector<bool> bits;
  for (const wchar_t c : text) {
    const size_t value = ALPHABET.find(c);
    if (value == std::wstring::npos) continue;
    for (int i = 5; i >= 0; --i) bits.push_back(value >> i & 1);
  }
  Bytes bytes;
  for (size_t bit = 0; bit + 8 <= bits.size(); bit += 8) {
    int value = 0;
    for (size_t i = bit; i < bit + 8; ++i) value = value * 2 + bits[i];
    bytes.push_back(static_cast<unsigned char>(value));
  }
  return bytes;
}

class Base64 : public testing::Test {
 protected:
  void SetUp() override { ArrayAllocations::Reset(); }
  void TearDown() override { ArrayAllocations::Reset(); }
};

TEST_F(Base64, KnownAnswers) {
  const struct {
    const char* bytes;
    const wchar_t* text;
  } rfc4648[] = {{"f", L"Zg=="},        {"fo", L"Zm8="},        {"foo", L"Zm9v"},
                 {"foob", L"Zm9vYg=="}, {"fooba", L"Zm9vYmE="}, {"foobar", L"Zm9vYmFy"}};
  for (const auto& known : rfc4648) {
    EXPECT_EQ(Encode(BytesOf(known.bytes)), known.text);
    EXPECT_EQ(Decode(known.text), BytesOf(known.bytes));
  }
  EXPECT_EQ(Encode(BytesOf("foob"), NO_PADDING), L"Zm9vYg");
  EXPECT_EQ(Encode({0xfb, 0xff, 0xbf}), L"+/+/");
}

TEST_F(Base64, TableIsTheStandardAlphabet) {
  const std::string table = CBase64::s_chBase64EncodingTable;
  EXPECT_EQ(std::wstring(table.begin(), table.end()), ALPHABET);
}

TEST_F(Base64, LinesBreakBetweenButNotBehind) {
  const Bytes line(48, 'x');
  EXPECT_EQ(Encode(line, LINE_BREAKS, 64), SlowEncode(line, PADDED, 0));
  EXPECT_EQ(Encode(line, LINE_BREAKS, 64).size(), 64u);
  const std::wstring longer = Encode(Bytes(51, 'x'), LINE_BREAKS, 64);
  EXPECT_EQ(longer.size(), 70u);
  EXPECT_EQ(longer.substr(64, 2), L"\r\n");
  EXPECT_EQ(Encode(Bytes(49, 'x'), LINE_BREAKS, 64).substr(64), L"\r\neA==");
  EXPECT_EQ(Encode(Bytes(49, 'x'), LINE_BREAKS | NO_PADDING, 64).substr(64), L"\r\neA");
}

TEST_F(Base64, LineLengthWithoutTheFlagIsIgnored) {
  EXPECT_EQ(Encode(Bytes(300, 'x'), PADDED, 64).size(), 400u);
  EXPECT_EQ(Encode(Bytes(300, 'x'), LINE_BREAKS, 0).size(), 400u);
}

TEST_F(Base64, OddLineLengthsHoldWholeGroups) {
  const Bytes bytes(30, 'x');
  for (unsigned long line = 4; line < 50; ++line)
    EXPECT_EQ(Encode(bytes, LINE_BREAKS, line), SlowEncode(bytes, LINE_BREAKS, line / 4 * 4))
        << line;
  for (unsigned long line = 1; line < 4; ++line)
    EXPECT_EQ(Encode(bytes, LINE_BREAKS, line), SlowEncode(bytes, PADDED, 0)) << line;
  EXPECT_EQ(Encode(bytes, LINE_BREAKS, ~0ul), SlowEncode(bytes, PADDED, 0));
}

TEST_F(Base64, EncodesAllLengthsFlagsAndLinesLikeTheReference) {
  std::mt19937 random(1);
  for (size_t n = 1; n <= 200; ++n) {
    const Bytes bytes = RandomBytes(n, random);
    for (const unsigned long flags : {0, 1, 2, 3, 4, 7})
      for (const unsigned long line : {0, 4, 8, 12, 60, 64, 76, 256})
        ASSERT_EQ(Encode(bytes, flags, line), SlowEncode(bytes, flags, line))
            << n << " bytes, flags " << flags << ", line " << line;
  }
}

TEST_F(Base64, AgreesWithOpenSsl) {
  std::mt19937 random(2);
  for (size_t n : {1, 2, 3, 4, 5, 6, 7, 8, 9, 100, 1000, 4096, 65536, 65537, 1000001}) {
    const Bytes bytes = RandomBytes(n, random);
    std::string narrow((n + 2) / 3 * 4 + 1, 0);
    const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&narrow[0]), bytes.data(),
                                       static_cast<int>(n));
    narrow.resize(static_cast<size_t>(length));
    const std::wstring wide(narrow.begin(), narrow.end());
    EXPECT_TRUE(Encode(bytes) == wide) << n;
    EXPECT_TRUE(Decode(wide) == bytes) << n;
  }
}

TEST_F(Base64, EncodeOfNothingIsNullAndKeepsTheLastResult) {
  CBase64 codec;
  EXPECT_EQ(codec.Encode("", 0, 0, 64), nullptr);
  const std::wstring last = L"Zm9v";
  const wchar_t* const text = codec.Encode("foo", 3, 0, 64);
  EXPECT_EQ(codec.Encode(nullptr, 3, 0, 64), nullptr);
  EXPECT_EQ(codec.Encode("foo", 0, 0, 64), nullptr);
  EXPECT_EQ(text, last);
}

TEST_F(Base64, EachCallMakesOneAllocationOfTheToldSize) {
  for (size_t n = 1; n < 300; ++n) {
    const Bytes bytes(n, 'x');
    for (const unsigned long flags : {0, 1, 2, 3}) {
      CBase64 codec;
      ArrayAllocations::Reset();
      const std::wstring text = codec.Encode(bytes.data(), n, flags, 64);
      EXPECT_EQ(ArrayAllocations::made, 1u);
      size_t bound = 4 * n / 3 + (flags & NO_PADDING ? 0 : n % 3);
      const size_t lines = bound / 64 + 1;
      bound = (bound + 3) / 4 * 4 + (flags & LINE_BREAKS ? 2 * lines + 2 : 0) + 1;
      EXPECT_EQ(ArrayAllocations::lastSize, bound * sizeof(wchar_t));
      ASSERT_LT(text.size(), bound);

      ArrayAllocations::Reset();
      unsigned long length;
      codec.Decode(text.c_str(), &length);
      EXPECT_EQ(ArrayAllocations::made, 1u);
      EXPECT_EQ(ArrayAllocations::lastSize, text.size());
    }
  }
}

TEST_F(Base64, WhatIsBehindTheResultIsZero) {
  CBase64 codec;
  const wchar_t* const text = codec.Encode("foo", 3, LINE_BREAKS, 64);
  for (size_t i = 4; i < 4 + 4 + 1; ++i) EXPECT_EQ(text[i], 0);
  unsigned long length;
  const unsigned char* const bytes = codec.Decode(L"Zm9v    Zm9v", &length);
  for (size_t i = 6; i < 12; ++i) EXPECT_EQ(bytes[i], 0);
}

TEST_F(Base64, DecodeSkipsWhatIsNotOfTheAlphabet) {
  EXPECT_EQ(Decode(L"Zm9v\r\nYmFy"), BytesOf("foobar"));
  EXPECT_EQ(Decode(L"Zm9vYg"), BytesOf("foob"));
  EXPECT_EQ(Decode(L" Z-m_9*vY\tg\u4e2d\U0001F600="), BytesOf("foob"));
  EXPECT_EQ(Decode(L"Z=m=9=v=Y=g"), BytesOf("foob"));
  EXPECT_EQ(Decode(L"-_-_"), Bytes());  // the URL-safe alphabet is another one
  // Characters whose low bytes are letters.
  EXPECT_EQ(Decode(L"\x15a\x15a\x15a\x15aZm9v\x100005a"), BytesOf("foo"));
}

TEST_F(Base64, DecodeDropsALastGroupThatIsTooShort) {
  EXPECT_EQ(Decode(L"Zm9vY"), BytesOf("foo"));
  EXPECT_EQ(Decode(L"Zm9vYm"), BytesOf("foob"));
  EXPECT_EQ(Decode(L"Zm9vYmF"), BytesOf("fooba"));
  EXPECT_EQ(Decode(L"Z"), Bytes());
  EXPECT_EQ(Decode(L"Zm9vYn"), BytesOf("foob"));  // bits over count for nothing
}

TEST_F(Base64, DecodeOfPaddingAloneIsEmptyButNotNull) {
  CBase64 codec;
  unsigned long length = 5;
  EXPECT_NE(codec.Decode(L"====", &length), nullptr);
  EXPECT_EQ(length, 0u);
}

TEST_F(Base64, DecodeOfNothingIsNullAndLeavesTheLength) {
  CBase64 codec;
  unsigned long length = 5;
  const unsigned char* const last = codec.Decode(L"Zm9v", &length);
  length = 5;
  EXPECT_EQ(codec.Decode(L"", &length), nullptr);
  EXPECT_EQ(codec.Decode(nullptr, &length), nullptr);
  EXPECT_EQ(codec.Decode(L"Zm9v", nullptr), nullptr);
  EXPECT_EQ(length, 5u);
  EXPECT_EQ(last[0], 'f');
}

TEST_F(Base64, DecodesRandomTextsWithRubbishLikeTheReference) {
  std::mt19937 random(3);
  const std::wstring rubbish = L"= \r\n\t-_.\u00ff\u0141\u4e2d\U0010ffff\x7fffffff\x80000041";
  for (int round = 0; round < 3000; ++round) {
    const unsigned noise = random() % 3 == 0 ? 0 : random() % 100;
    std::wstring text;
    for (size_t n = 1 + random() % 150; n > 0; --n)
      text += random() % 100 < noise ? rubbish[random() % rubbish.size()]
                                     : ALPHABET[random() % ALPHABET.size()];
    ASSERT_EQ(Decode(text), SlowDecode(text)) << testing::PrintToString(text);
  }
}

TEST_F(Base64, WithoutRoomBytesAreCountedButNotWritten) {
  const std::wstring text = L"Zm9vYmFyZm9v\r\nYmFyZg==";
  const Bytes whole = SlowDecode(text);
  for (size_t room = 0; room <= whole.size() + 8; ++room) {
    Bytes out(room + 8, 0xEE);
    unsigned long length = 0;
    const bool fits = CBase64::DecodeInto(text.c_str(), text.size(), out.data(), room, &length);
    EXPECT_EQ(fits, room >= whole.size()) << room;
    EXPECT_EQ(length, whole.size()) << room;
    const size_t kept = fits ? whole.size() : room / 3 * 3;
    Bytes expected(whole.begin(), whole.begin() + static_cast<long>(kept));
    expected.resize(room, 0);
    expected.resize(room + 8, 0xEE);
    EXPECT_EQ(out, expected) << room;
  }
}

TEST_F(Base64, ASecondCallEndsTheFirstResult) {
  CBase64 codec;
  unsigned long length;
  codec.Encode("foo", 3, 0, 64);
  codec.Decode(L"Zm9v", &length);
  ArrayAllocations::Reset();
  codec.Encode("bar", 3, 0, 64);
  EXPECT_EQ(ArrayAllocations::freed, 1u);
  codec.Decode(L"YmFy", &length);
  EXPECT_EQ(ArrayAllocations::freed, 2u);
}

TEST_F(Base64, OneResultMayBeTheNextInput) {
  CBase64 codec;
  const wchar_t* text = codec.Encode("foobar", 6, 0, 64);
  unsigned long length = 0;
  const unsigned char* const bytes = codec.Decode(text, &length);
  EXPECT_EQ(Bytes(bytes, bytes + length), BytesOf("foobar"));
  text = codec.Encode(bytes, length, 0, 64);
  EXPECT_EQ(std::wstring(text), L"Zm9vYmFy");
  text = codec.Encode(text, 4, 0, 64);
  EXPECT_EQ(std::wstring(text), L"WgAAAA==");
}

TEST_F(Base64, WithoutMemoryNullAndTheLastResultsStay) {
  CBase64 codec;
  const std::wstring longText(1000, L'A');
  unsigned long length = 0;
  const wchar_t* const text = codec.Encode("foo", 3, 0, 64);
  const unsigned char* const bytes = codec.Decode(L"Zm9v", &length);
  ArrayAllocations::failFrom = 900;
  EXPECT_EQ(codec.Encode(longText.data(), 1000, 0, 64), nullptr);
  EXPECT_EQ(codec.Decode(longText.c_str(), &length), nullptr);
  EXPECT_EQ(length, 3u);
  EXPECT_EQ(std::wstring(text), L"Zm9v");
  EXPECT_EQ(Bytes(bytes, bytes + 3), BytesOf("foo"));
  EXPECT_EQ(codec.Encode("x", ~0ul, 0, 64), nullptr);
  EXPECT_EQ(codec.Encode("x", 1ul << 61, 0, 64), nullptr);
}

}  // namespace
