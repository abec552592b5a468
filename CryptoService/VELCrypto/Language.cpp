#include "Language.h"

#include "ChildProgram.h"

namespace velcrypto {

namespace {

std::string LocaleOf(const char* category) {
  std::string name;
  for (const char* const variable : {"LC_ALL", category, "LANG"}) {
    if (name.empty()) name = EnvironmentText(variable);
  }
  return name;
}

bool IsNone(const std::string& name) {
  return name.empty() || name == "C" || name == "POSIX";
}

std::string NeverPlain(const std::string& name) {
  return IsNone(name) ? "C.UTF-8" : name;
}

}  // namespace

bool SpeaksChinese(const std::string& named) {
  std::string language = named.empty() ? LocaleOf("LC_MESSAGES") : named;
  const std::string first = EnvironmentText("LANGUAGE");
  if (named.empty() && !first.empty() && !IsNone(language)) language = first;
  return language.compare(0, 2, "zh") == 0;
}

std::string CharacterLocale() {
  return NeverPlain(LocaleOf("LC_CTYPE"));
}

std::string MessageLocale() {
  return NeverPlain(LocaleOf("LC_MESSAGES"));
}

}  // namespace velcrypto
