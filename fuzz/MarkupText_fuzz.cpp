// Escaping and unescaping against what their rules say step by step, and there and back.
#include <cstring>
#include <map>
#include <sstream>

#include "Fuzz.h"

namespace {

constexpr char kEntities[] =
#include "html4_entities.inc"
    ;

std::wstring Lower(std::wstring text) {
  for (wchar_t& c : text) {
    if (c >= L'A' && c <= L'Z') c += L'a' - L'A';
  }
  return text;
}

// Lowercase names; of two that differ in case alone the capital one.
std::map<std::wstring, unsigned long> ReadEntities() {
  std::map<std::wstring, unsigned long> entities;
  std::istringstream list(kEntities);
  std::string name;
  unsigned long code;
  while (list >> name >> code) {
    const std::wstring wide(name.begin(), name.end());
    const bool capital = Lower(wide) != wide;
    if (capital || entities.count(wide) == 0) entities[Lower(wide)] = code;
  }
  return entities;
}

bool AllOf(const std::wstring& text, const wchar_t* characters) {
  return !text.empty() && text.find_first_not_of(characters) == std::wstring::npos;
}

unsigned long SlowDecode(const std::wstring& name) {
  static const std::map<std::wstring, unsigned long> entities = ReadEntities();
  if (name.length() > 9) return 0;
  if (name.substr(0, 1) == L"#") {
    if (AllOf(name.substr(1), L"0123456789")) return std::stoul(name.substr(1), nullptr, 10);
    if (name.substr(1, 1) != L"x") return 0;
    const std::wstring digits = name.substr(2);
    return AllOf(digits, L"0123456789abcdef") ? std::stoul(digits, nullptr, 16) : 0;
  }
  const auto found = entities.find(name);
  return found == entities.end() ? 0 : found->second;
}

std::wstring SlowUnescape(const std::wstring& text) {
  std::wstring result;
  for (size_t i = 0; i < text.length(); ++i) {
    const size_t end = text.find(L';', i);
    unsigned long code = 0;
    if (text[i] == L'&' && end != std::wstring::npos) {
      code = SlowDecode(Lower(text.substr(i + 1, end - i - 1)));
    }
    result += code != 0 ? static_cast<wchar_t>(code) : text[i];
    if (code != 0) i = end;
  }
  return result;
}

bool IsPart(wchar_t c, bool first) {
  const bool letter = (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z');
  if (letter || c == L'_' || c == L':' || c >= 128) return true;
  return first ? c == L'#' : (c >= L'0' && c <= L'9') || c == L'-' || c == L'.';
}

bool BeginsReference(const std::wstring& text, size_t ampersand) {
  size_t i = ampersand + 1;
  if (i >= text.length() || !IsPart(text[i], true)) return false;
  while (++i < text.length() && IsPart(text[i], false)) {
  }
  return i < text.length() && text[i] == L';';
}

std::wstring SlowEscape(const std::wstring& text, bool quotes, bool refs) {
  const std::map<wchar_t, const wchar_t*> plain = {
      {L'<', L"&lt;"}, {L'>', L"&gt;"}, {L'&', L"&amp;"}};
  std::wstring result;
  for (size_t i = 0; i < text.length(); ++i) {
    const wchar_t c = text[i];
    if (quotes && c == L'"') {
      result += L"&quot;";
    } else if (quotes && c == L'\'') {
      result += L"&apos;";
    } else if (plain.count(c) != 0 && !(refs && c == L'&' && BeginsReference(text, i))) {
      result += plain.at(c);
    } else {
      result += c;
    }
  }
  return result;
}

void CheckEscape(const std::wstring& text) {
  for (const bool quotes : {false, true}) {
    for (const bool refs : {false, true}) {
      const int flags = (quotes ? MNF_ESCAPEQUOTES : 0) | (refs ? MNF_WITHREFS : 0);
      const std::wstring escaped = CMarkup::EscapeText(text, flags);
      Require(escaped == SlowEscape(text, quotes, refs), "escaping follows its rules");
      if (refs) continue;
      Require(CMarkup::UnescapeText(escaped) == text, "escaped text unescapes to itself");
    }
  }
}

void CheckAttribute(const std::wstring& text) {
  CMarkup doc(L"<a/>");
  Require(doc.FindElem() && doc.SetAttrib(L"v", text), "an attribute takes any text");
  Require(doc.GetAttrib(L"v") == text, "an attribute keeps its text");
  CMarkup parsed(doc.GetDoc());
  Require(parsed.IsWellFormed() && parsed.FindElem(), "an attribute leaves the document whole");
  Require(parsed.GetAttrib(L"v") == text, "an attribute is read as it was set");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::wstring all = Widen(data, size);
  // A block of just that size, without terminator, so that a character read too many shows.
  const std::vector<wchar_t> block(all.begin(), all.end());
  const int length = static_cast<int>(block.size());
  const wchar_t* const start = block.empty() ? L"" : block.data();
  Require(CMarkup::UnescapeText(start, length) == SlowUnescape(all), "unescaping, within a length");
  const std::wstring text = all.c_str();
  Require(CMarkup::UnescapeText(text) == SlowUnescape(text), "unescaping, up to the terminator");
  CheckEscape(text);
  CheckAttribute(text);
  return 0;
}
