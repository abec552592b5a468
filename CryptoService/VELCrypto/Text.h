#pragma once
// Text between UTF-8, which OpenSSL and files speak, and the wide text of the records.
#include <string>
#include <vector>

#include "VELInterface.h"

namespace velcrypto {

std::wstring Wide(const std::string& utf8);
std::string Narrow(LPCWSTR text);  // null is empty

// Small letters, whatever the locale of the process.
std::wstring Folded(LPCWSTR text);

// Upper-case hexadecimal, two digits a byte.
std::string Hex(const BYTE* data, size_t size);

// Base64 on one padded line.
std::string Base64(const BYTE* data, size_t size);

// Decodes base64, line ends and blanks allowed; false when the text is none.
bool DecodeBase64(const std::string& text, std::vector<BYTE>* bytes);

}  // namespace velcrypto
