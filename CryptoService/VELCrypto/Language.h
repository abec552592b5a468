#pragma once
// The language in which people are spoken to, and the locale for programs that do it. By the
// environment: LC_ALL, the category's variable, LANG, the first that is set; for the language
// LANGUAGE goes before, unless the locale is none ("C").
#include <string>

namespace velcrypto {

// The language that `named` asks for ("zh_CN", "en", ...); when it is empty, the environment.
bool SpeaksChinese(const std::string& named = std::string());

// Names of the locale for characters and for messages. Never plain ASCII, for names are not: where
// the environment has nothing better, C.UTF-8.
std::string CharacterLocale();
std::string MessageLocale();

}  // namespace velcrypto
