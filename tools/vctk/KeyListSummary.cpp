#include "KeyListSummary.h"

#include <algorithm>
#include <map>

#include "Base64.h"

namespace vctk {
namespace {

using Attributes = std::map<std::string, std::string>;

bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

// The attributes of the tag's inside, `lib type="CSP" version="1"`.
Attributes AttributesOf(const std::string& tag) {
  Attributes attributes;
  for (size_t equals = tag.find('='); equals != std::string::npos;) {
    size_t end = equals;
    while (end > 0 && IsBlank(tag[end - 1])) --end;
    size_t begin = end;
    while (begin > 0 && !IsBlank(tag[begin - 1])) --begin;
    const size_t open = tag.find_first_of("\"'", equals);
    const size_t close = open == std::string::npos ? open : tag.find(tag[open], open + 1);
    if (close == std::string::npos) break;
    attributes[tag.substr(begin, end - begin)] = tag.substr(open + 1, close - open - 1);
    equals = tag.find('=', close);
  }
  return attributes;
}

// The end of the tag that begins at `at`; ">" may stand in a quoted value.
size_t EndOfTag(const std::string& text, size_t at) {
  char quote = '\0';
  for (; at < text.size(); ++at) {
    const char c = text[at];
    if (quote != '\0') {
      if (c == quote) quote = '\0';
    } else if (c == '"' || c == '\'') {
      quote = c;
    } else if (c == '>') {
      break;
    }
  }
  return at;
}

void Take(const std::string& tag, std::vector<KeyFamily>& families) {
  const std::string name = tag.substr(0, tag.find_first_of(" \t\r\n/"));
  Attributes attributes = AttributesOf(tag);
  if (name == "lib") {
    KeyFamily family;
    family.type = attributes["type"];
    std::string library;
    if (DecodeBase64(attributes["dllname"], library)) family.library = library.c_str();
    families.push_back(family);
  } else if (name == "algid" && !families.empty()) {
    families.back().digest = attributes["val"];
    families.back().sm2Digest = attributes["sm2_hashalg"];
  }
}

}  // namespace

std::vector<KeyFamily> FamiliesOf(const std::string& keyList) {
  std::vector<KeyFamily> families;
  for (size_t at = keyList.find('<'); at != std::string::npos; at = keyList.find('<', at)) {
    if (keyList.compare(at, 4, "<!--") == 0) {
      at = std::min(keyList.find("-->", at), keyList.size());
      continue;
    }
    const size_t end = EndOfTag(keyList, at);
    Take(keyList.substr(at + 1, end - at - 1), families);
    at = end;
  }
  return families;
}

}  // namespace vctk
