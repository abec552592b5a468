#include "Text.h"

#include <locale.h>
#include <openssl/evp.h>
#include <wctype.h>

#include <climits>
#include <memory>

namespace velcrypto {

std::wstring Wide(const std::string& utf8) {
  if (utf8.empty() || utf8.size() > INT_MAX) return {};
  std::wstring wide(utf8.size(), L'\0');
  const int size = static_cast<int>(utf8.size());
  const int count = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), size, wide.data(), size);
  wide.resize(static_cast<size_t>(count));
  return wide;
}

std::string Narrow(LPCWSTR text) {
  const size_t length = text == nullptr ? 0 : wcslen(text);
  if (length == 0 || length > INT_MAX / 4) return {};
  std::string utf8(length * 4, '\0');
  const int size = WideCharToMultiByte(CP_UTF8, 0, text, static_cast<int>(length), utf8.data(),
                                       static_cast<int>(utf8.size()), nullptr, nullptr);
  utf8.resize(static_cast<size_t>(size));
  return utf8;
}

std::wstring Folded(LPCWSTR text) {
  // Kept for the life of the process: threads may be inside when it ends.
  static const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  std::wstring folded(text == nullptr ? L"" : text);
  for (wchar_t& letter : folded) {
    const wint_t value = static_cast<wint_t>(letter);
    letter = static_cast<wchar_t>(utf8 == nullptr ? towlower(value) : towlower_l(value, utf8));
  }
  return folded;
}

std::string Hex(const BYTE* data, size_t size) {
  static const char digits[] = "0123456789ABCDEF";
  std::string text(size * 2, '0');
  for (size_t i = 0; i < size; ++i) {
    text[2 * i] = digits[data[i] >> 4];
    text[2 * i + 1] = digits[data[i] & 15];
  }
  return text;
}

std::string Base64(const BYTE* data, size_t size) {
  std::string text((size + 2) / 3 * 4 + 1, '\0');  // the encoder writes a terminator
  const int length =
      EVP_EncodeBlock(reinterpret_cast<BYTE*>(text.data()), data, static_cast<int>(size));
  text.resize(static_cast<size_t>(length));
  return text;
}

bool DecodeBase64(const std::string& text, std::vector<BYTE>* bytes) {
  if (text.size() > INT_MAX / 2) return false;
  const std::unique_ptr<EVP_ENCODE_CTX, void (*)(EVP_ENCODE_CTX*)> decoder(EVP_ENCODE_CTX_new(),
                                                                           EVP_ENCODE_CTX_free);
  bytes->assign(text.size() + 3, 0);
  int size = 0;
  int rest = 0;
  EVP_DecodeInit(decoder.get());
  const BYTE* const source = reinterpret_cast<const BYTE*>(text.data());
  if (EVP_DecodeUpdate(decoder.get(), bytes->data(), &size, source, static_cast<int>(text.size())) <
          0 ||
      EVP_DecodeFinal(decoder.get(), bytes->data() + size, &rest) < 0) {
    return false;
  }
  bytes->resize(static_cast<size_t>(size + rest));
  return !bytes->empty();
}

}  // namespace velcrypto
