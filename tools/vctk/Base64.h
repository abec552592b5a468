#pragma once
// Base64 with padding on one line: the form in which bytes go into the toolkit and come out of it.
#include <string>

namespace vctk {

std::string EncodeBase64(const std::string& bytes);

// False, and `bytes` undefined, when the text is not complete base64 on one line.
bool DecodeBase64(const std::string& text, std::string& bytes);

}  // namespace vctk
