// Escaping and references.
#include "MarkupText.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "Markup.h"

namespace {

struct Entity {
  std::string name;
  int code;
};

// "name code" a line, as HTML 4 writes the names.
std::vector<Entity> ReadEntities() {
  std::ifstream file(HTML4_ENTITIES);
  std::vector<Entity> entities;
  for (Entity entity; file >> entity.name >> entity.code;) entities.push_back(entity);
  return entities;
}

std::string Lower(std::string name) {
  for (char& c : name) c = static_cast<char>(tolower(c));
  return name;
}

std::wstring Wide(const std::string& text) {
  return std::wstring(text.begin(), text.end());
}

}  // namespace

TEST(MarkupText, ReferencesAreResolved) {
  struct {
    const wchar_t* text;
    const wchar_t* expected;
  } const cases[] = {
      {L"", L""},
      {L"plain", L"plain"},
      {L"&lt;a&gt;", L"<a>"},
      {L"&LT;a&GT;", L"<a>"},
      {L"&amp;&quot;&apos;&AmP;", L"&\"'&"},
      {L"&#65;&#x41;&#X41;&#x4a;&#x4A;", L"AAAJJ"},
      {L"&#0065;&#x00004E;", L"AN"},
      {L"&#00000065;", L"A"},
      {L"&#0;", L"&#0;"},
      {L"&#x0;", L"&#x0;"},
      {L"&#;&#x;&;", L"&#;&#x;&;"},
      {L"&#65x;&#x4g;&#6 5;&#-65;", L"&#65x;&#x4g;&#6 5;&#-65;"},
      {L"&#000000065;", L"&#000000065;"},
      {L"&#128512;&#x4e2d;", L"\U0001f600\x4e2d"},
      {L"&unknown;", L"&unknown;"},
      {L"&abcdefghij;", L"&abcdefghij;"},
      {L"&thetasym;", L"\x03d1"},
      {L"&delta;&Delta;", L"\x0394\x0394"},
      {L"&aelig;&AElig;", L"\x00c6\x00c6"},
      {L"&lt", L"&lt"},
      {L"&lt gt;", L"&lt gt;"},
      {L"&&lt;;&", L"&<;&"},
      {L"&l\x4e2dt;", L"&l\x4e2dt;"},
      {L"&l&lt;", L"&l<"},
      {L"&amp;lt;", L"&lt;"},
      {L"\x4e2d&gt;\U0001f600", L"\x4e2d>\U0001f600"},
  };
  for (const auto& c : cases) EXPECT_EQ(CMarkup::UnescapeText(c.text), c.expected) << c.text;
}

TEST(MarkupText, UnescapeTextStaysWithinTheLength) {
  EXPECT_EQ(CMarkup::UnescapeText(L"&lt;&gt;", 4), L"<");
  EXPECT_EQ(CMarkup::UnescapeText(L"&lt;&gt;", 7), L"<&gt");
  EXPECT_EQ(CMarkup::UnescapeText(L"&lt;", 0), L"");
  EXPECT_EQ(CMarkup::UnescapeText(L"&lt;", -5), L"<");
  EXPECT_EQ(CMarkup::UnescapeText(std::wstring(L"&gt;")), L">");
  EXPECT_EQ(CMarkup::UnescapeText(nullptr), L"");
  const wchar_t open[] = {L'&', L'l', L't'};  // no terminator
  EXPECT_EQ(CMarkup::UnescapeText(open, 3), L"&lt");
}

TEST(MarkupText, EscapingReplacesTheFiveCharacters) {
  EXPECT_EQ(CMarkup::EscapeText(L"a<b&c"), L"a&lt;b&amp;c");
  EXPECT_EQ(CMarkup::EscapeText(L"<>&'\""), L"&lt;&gt;&amp;'\"");
  EXPECT_EQ(CMarkup::EscapeText(L"<>&'\"", MNF_ESCAPEQUOTES), L"&lt;&gt;&amp;&apos;&quot;");
  EXPECT_EQ(CMarkup::EscapeText(L"&amp;"), L"&amp;amp;");
  EXPECT_EQ(CMarkup::EscapeText(L"\x4e2d\t\n"), L"\x4e2d\t\n");
  EXPECT_EQ(CMarkup::EscapeText(L""), L"");
  EXPECT_EQ(CMarkup::EscapeText(nullptr), L"");
}

TEST(MarkupText, EscapedTextsHaveRoomForATenthMore) {
  for (const size_t length : {10, 100, 1005}) {
    const std::wstring escaped = CMarkup::EscapeText(std::wstring(length, L'a'));
    EXPECT_GE(escaped.capacity(), length + length / 10 + 7);
  }
}

TEST(MarkupText, ReferencesStayWhenAskedFor) {
  struct {
    const wchar_t* text;
    const wchar_t* expected;
  } const cases[] = {
      {L"&amp;", L"&amp;"},
      {L"&#65;", L"&#65;"},
      {L"&_a;&:b;", L"&_a;&:b;"},
      {L"&\x4e2d;", L"&\x4e2d;"},
      {L"&a-b.c:d_1;", L"&a-b.c:d_1;"},
      {L"&;", L"&amp;;"},
      {L"&1;", L"&amp;1;"},
      {L"& a;", L"&amp; a;"},
      {L"&a", L"&amp;a"},
      {L"&a b;", L"&amp;a b;"},
      {L"&a&b;", L"&amp;a&b;"},
      {L"&##;", L"&amp;##;"},
      {L"a&<", L"a&amp;&lt;"},
      {L"&", L"&amp;"},
      {L"&unknownbutlong;", L"&unknownbutlong;"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(CMarkup::EscapeText(c.text, MNF_WITHREFS), c.expected) << c.text;
  }
}

TEST(MarkupText, EscapedTextUnescapesToItself) {
  std::wstring text;
  for (wchar_t c = 1; c < 0x300; ++c) text += c;
  text += L"&lt;&#65;&amp;";
  for (const int flags : {0, int{MNF_ESCAPEQUOTES}}) {
    EXPECT_EQ(CMarkup::UnescapeText(CMarkup::EscapeText(text, flags)), text);
  }
}

TEST(MarkupText, TheTableHoldsAllReferencesOfHtml4) {
  const std::vector<Entity> entities = ReadEntities();
  ASSERT_EQ(entities.size(), 253u);
  // Within a bucket the names stand in their ASCII order, so a capital comes first.
  std::map<std::string, int> sorted;
  for (const Entity& entity : entities) sorted[entity.name] = entity.code;
  std::vector<std::wstring> buckets(130);
  for (const auto& [name, code] : sorted) {
    const std::string lower = Lower(name);
    ASSERT_LE(lower.length(), 9u);
    int sum = 0;
    for (const char c : lower) sum += c;
    char record[32];
    snprintf(record, sizeof(record), "%zu%04d%s", lower.length(), code, lower.c_str());
    buckets[sum % 130] += Wide(record);
  }
  ASSERT_EQ(std::size(PredefEntityTable), buckets.size());
  for (int i = 0; i < 130; ++i) {
    EXPECT_EQ(PredefEntityTable[i] == nullptr, buckets[i].empty()) << i;
    if (PredefEntityTable[i] != nullptr) {
      EXPECT_EQ(PredefEntityTable[i], buckets[i]) << i;
    }
  }
}

TEST(MarkupText, EveryNamedReferenceGivesItsCharacter) {
  std::map<std::string, int> expected;
  for (const Entity& entity : ReadEntities()) {
    const bool capital = Lower(entity.name) != entity.name;
    if (capital || expected.count(entity.name) == 0) expected[Lower(entity.name)] = entity.code;
  }
  for (const Entity& entity : ReadEntities()) {
    const std::wstring character(1, static_cast<wchar_t>(expected[Lower(entity.name)]));
    EXPECT_EQ(CMarkup::UnescapeText(L"&" + Wide(entity.name) + L";"), character) << entity.name;
  }
}
