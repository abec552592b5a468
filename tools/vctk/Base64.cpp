#include "Base64.h"

#include <stdint.h>

#include <array>

namespace vctk {
namespace {

const char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

uint32_t Byte(const std::string& bytes, size_t at) {
  return at < bytes.size() ? static_cast<unsigned char>(bytes[at]) : 0;
}

const unsigned char kNoDigit = 64;

// The values 0 to 63 of the digits, by character.
std::array<unsigned char, 256> DigitValues() {
  std::array<unsigned char, 256> values;
  values.fill(kNoDigit);
  for (unsigned char value = 0; value < 64; ++value) {
    values[static_cast<unsigned char>(kDigits[value])] = value;
  }
  return values;
}

size_t PaddingOf(const std::string& text) {
  const size_t size = text.size();
  if (size < 2 || text[size - 1] != '=') return 0;
  return text[size - 2] == '=' ? 2 : 1;
}

}  // namespace

std::string EncodeBase64(const std::string& bytes) {
  std::string text((bytes.size() + 2) / 3 * 4, '=');
  char* out = &text[0];
  for (size_t at = 0; at < bytes.size(); at += 3) {
    const uint32_t group = Byte(bytes, at) << 16 | Byte(bytes, at + 1) << 8 | Byte(bytes, at + 2);
    const size_t left = bytes.size() - at;
    out[0] = kDigits[group >> 18];
    out[1] = kDigits[group >> 12 & 63];
    if (left > 1) out[2] = kDigits[group >> 6 & 63];
    if (left > 2) out[3] = kDigits[group & 63];
    out += 4;
  }
  return text;
}

bool DecodeBase64(const std::string& text, std::string& bytes) {
  bytes.clear();
  if (text.size() % 4 != 0) return false;
  const size_t padding = PaddingOf(text);
  const size_t digits = text.size() - padding;
  const std::array<unsigned char, 256> values = DigitValues();
  bytes.reserve(text.size() / 4 * 3);
  uint32_t group = 0;
  for (size_t at = 0; at < digits; ++at) {
    const uint32_t value = values[static_cast<unsigned char>(text[at])];
    if (value == kNoDigit) return false;
    group = group << 6 | value;
    if (at % 4 != 0) bytes += static_cast<char>(group >> (6 - at % 4 * 2) & 255);
  }
  return true;
}

}  // namespace vctk
