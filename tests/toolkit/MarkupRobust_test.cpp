// Large, deep, broken and hostile documents.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <vector>

#include "Markup.h"
#include "MarkupOutline.h"

static long g_allocations = 0;

void* operator new(size_t size) {
  ++g_allocations;
  void* const block = malloc(size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
void operator delete(void* block) noexcept {
  free(block);
}
void operator delete(void* block, size_t) noexcept {
  free(block);
}

namespace {

std::wstring Repeat(const std::wstring& text, int count) {
  std::wstring all;
  all.reserve(text.length() * count);
  for (int i = 0; i < count; ++i) all += text;
  return all;
}

// prefix 0 suffix prefix 1 suffix ...
std::wstring Numbered(const wchar_t* prefix, const wchar_t* suffix, int count) {
  std::wstring all;
  for (int i = 0; i < count; ++i) all += prefix + std::to_wstring(i) + suffix;
  return all;
}

// The tree as the rules say it, step by step: every element above an end tag's match, the innermost
// first, becomes a leaf and its children move behind it.
struct SlowTree {
  struct Node {
    std::wstring name;
    std::vector<std::unique_ptr<Node>> children;
  };

  SlowTree() { open.push_back(&root); }

  void Start(const std::wstring& name, bool empty) {
    open.back()->children.push_back(std::make_unique<Node>());
    Node* const node = open.back()->children.back().get();
    node->name = name;
    if (!empty) open.push_back(node);
  }
  void End(const std::wstring& name) {
    size_t match = open.size() - 1;
    while (match > 0 && open[match]->name != name) --match;
    if (match == 0) return;
    while (open.size() - 1 > match) CloseUnended();
    open.pop_back();
  }
  void CloseUnended() {
    Node* const node = open.back();
    open.pop_back();
    for (auto& child : node->children) open.back()->children.push_back(std::move(child));
    node->children.clear();
  }
  static std::wstring Outline(const Node& node) {
    std::wstring text;
    for (const auto& child : node.children) {
      if (!text.empty()) text += L' ';
      text += child->name;
      if (!child->children.empty()) text += L"(" + Outline(*child) + L")";
    }
    return text;
  }
  std::wstring Finish() {
    while (open.size() > 1) CloseUnended();
    return Outline(root);
  }

  Node root;
  std::vector<Node*> open;
};

constexpr wchar_t kEverything[] =
    L"<?xml version='1.0'?><!DOCTYPE r [<!ENTITY e '>'><!-- ] -->]><r a='1' b=\"&lt;>\" c=d>t<k/>"
    L"<![CDATA[ <x> ]]><!-- <y> --><?p q='r'?><m n = 'o'><p>u</p ></m></r>\n";

void WalkEverything(CMarkup& doc) {
  for (int i = 1; i < doc.m_iPosFree; ++i) {
    doc.x_GetTagName(i);
    doc.x_GetAttrib(i, L"b");
  }
  while (doc.FindChildElem() && doc.IntoElem()) doc.GetAttrib(L"a");
  doc.GetError();
}

// Of the processor, so that other work on the machine counts little.
double Seconds(const std::function<void()>& work) {
  const clock_t start = clock();
  work();
  return std::max(static_cast<double>(clock() - start) / CLOCKS_PER_SEC, 1e-6);
}

// How many times longer a sixteenfold task takes than the task: a square would take 256 times as
// long. Larger tasks leave the caches, which costs a few times more.
constexpr int kFactor = 16;
constexpr double kMaxRatio = 100;

double GrowthOf(const std::function<void()>& small, const std::function<void()>& large) {
  double smallTime = 1e9, largeTime = 1e9;
  // Whatever else slows the large task down does not do so each time.
  for (int i = 0; i < 3 || (i < 30 && largeTime >= kMaxRatio * smallTime); ++i) {
    smallTime = std::min(smallTime, Seconds(small));
    largeTime = std::min(largeTime, Seconds(large));
  }
  return largeTime / smallTime;
}

}  // namespace

TEST(MarkupRobust, AMillionLevelsDeep) {
  constexpr int kDepth = 1000000;
  CMarkup doc(Repeat(L"<a>", kDepth) + Repeat(L"</a>", kDepth));
  ASSERT_TRUE(doc.IsWellFormed());
  int depth = 0;
  for (doc.FindElem(); doc.m_iPos != 0; ++depth) {
    ASSERT_EQ(doc.x_Elem(doc.m_iPos).nFlags, MNF_FIRST | (depth & 0xffff));
    doc.IntoElem();
    doc.FindElem();
  }
  EXPECT_EQ(depth, kDepth);
  while (doc.OutOfElem()) --depth;
  EXPECT_EQ(depth, 0);
}

TEST(MarkupRobust, AMillionLevelsWithoutEnd) {
  constexpr int kDepth = 1000000;
  CMarkup doc(Repeat(L"<a>", kDepth));
  EXPECT_FALSE(doc.IsWellFormed());
  EXPECT_LT(doc.m_strResult.length(), 1100u);
  int count = 0;
  int last = 0;
  for (int i = doc.x_Elem(0).iElemChild; i != 0; last = i, i = doc.x_Elem(i).iElemNext) {
    ASSERT_EQ(doc.x_Elem(i).iElemParent, 0);
    ASSERT_EQ(doc.x_Elem(i).iElemChild, 0);
    ++count;
  }
  EXPECT_EQ(count, kDepth);
  EXPECT_EQ(doc.x_Elem(1).iElemPrev, last);
}

TEST(MarkupRobust, AMillionElementsKeepTheirPlaces) {
  constexpr int kCount = 1000000;
  CMarkup doc(L"<r>" + Numbered(L"<e i='", L"'/>", kCount) + L"</r>");
  ASSERT_TRUE(doc.IsWellFormed());
  ASSERT_TRUE(doc.FindElem() && doc.IntoElem());
  for (int i = 0; i < kCount; ++i) {
    ASSERT_TRUE(doc.FindElem(L"e"));
    if (i % 1000 != 0) continue;
    ASSERT_EQ(doc.GetAttrib(L"i"), std::to_wstring(i));
  }
  EXPECT_FALSE(doc.FindElem());
}

TEST(MarkupRobust, AnAttributeOfTenMegabytes) {
  std::wstring value(10000000, L'v');
  for (size_t i = 0; i < value.length(); i += 1001) value[i] = L'>';
  CMarkup doc(L"<r a='" + value + L"' b='x'/>");
  EXPECT_FALSE(doc.IsWellFormed());  // the start tag is too long to be recorded
  ASSERT_TRUE(doc.FindElem());
  EXPECT_EQ(doc.GetAttrib(L"a"), value);
  EXPECT_EQ(doc.GetAttrib(L"b"), L"x");
}

// Texts that are copied in pieces while they are parsed.
TEST(MarkupRobust, ALongTextIsKeptWhateverItHolds) {
  constexpr size_t kPiece = 1 << 20;
  const std::wstring element = L"<e i='1'>text</e>";
  const std::wstring many = Repeat(element, 3 * kPiece / static_cast<int>(element.length()));
  const std::wstring texts[] = {
      std::wstring(kPiece - 1, L'x'),
      std::wstring(kPiece, L'x'),
      std::wstring(kPiece + 1, L'x'),
      L"<r>" + many + L"</r>",
      L"<r a='" + std::wstring(2 * kPiece, L'v') + L"'>" + many + L"</r>",
      many,
      L"<r><unended>" + many,
      L"<r>" + many + L"</lone><!-- " + many,
      L"<r>" + many + std::wstring(1, 0) + many + L"</r>",
  };
  for (const std::wstring& text : texts) {
    CMarkup doc;
    doc.SetDoc(text);
    EXPECT_TRUE(doc.GetDoc() == text);
    const std::wstring upToZero = text.c_str();
    CMarkup pieces, whole;
    pieces.SetDoc(upToZero.c_str());
    EXPECT_TRUE(pieces.GetDoc() == upToZero);
    whole.m_strDoc = upToZero;
    whole.x_ParseDoc();
    EXPECT_EQ(pieces.m_strResult, whole.m_strResult);
    EXPECT_EQ(pieces.m_iPosFree, whole.m_iPosFree);
    EXPECT_EQ(doc.m_iPosFree, whole.m_iPosFree);
    EXPECT_TRUE(ElementTexts(pieces) == ElementTexts(whole));
  }
}

TEST(MarkupRobust, ATextMayBeAPartOfTheDocumentThatItReplaces) {
  const std::wstring inner = L"<r>" + Repeat(L"<e/>", 400000) + L"</r>";
  CMarkup doc(L"<x>" + inner + L"</x>");
  const std::wstring text = doc.GetDoc();
  EXPECT_TRUE(doc.SetDoc(doc.GetDoc()));
  EXPECT_TRUE(doc.GetDoc() == text);
  EXPECT_FALSE(doc.SetDoc(doc.GetDoc().c_str() + 3));
  EXPECT_TRUE(doc.GetDoc() == inner + L"</x>");
}

// Allocations by new are counted; the tree's own are its segments.
TEST(MarkupRobust, NothingIsAllocatedForASingleElement) {
  constexpr int kCount = 1000000;
  const std::wstring text = L"<r>" + Repeat(L"<e a='1'>text</e>", kCount) + L"</r>";
  CMarkup doc;
  const long before = g_allocations;
  ASSERT_TRUE(doc.SetDoc(text));
  EXPECT_LE(g_allocations - before, 20);
  ASSERT_TRUE(doc.FindElem() && doc.IntoElem());
  const long walking = g_allocations;
  while (doc.FindElem(L"e")) EXPECT_EQ(doc.GetAttrib(L"a").length(), 1u);
  EXPECT_EQ(g_allocations, walking);
  // Beside the text: 32 bytes an element and at most one segment.
  const int size = doc.m_pElemPosTree->m_nSize;
  EXPECT_LE(size - doc.m_iPosFree, ElemPosTree::SEG_SIZE);
  int segments = 0;
  for (int i = 0; i < doc.m_pElemPosTree->m_nSegs; ++i)
    segments += doc.m_pElemPosTree->m_pSegs[i] != nullptr;
  EXPECT_EQ(segments, (size + ElemPosTree::SEG_SIZE - 1) / ElemPosTree::SEG_SIZE);
}

TEST(MarkupRobust, DocumentsCutAnywhere) {
  const std::wstring text = kEverything;
  ASSERT_TRUE(CMarkup(text).IsWellFormed());
  for (size_t length = 0; length < text.length() - 1; ++length) {
    // A block of just that size, so that a sanitizer sees a character read too many.
    const std::unique_ptr<wchar_t[]> cut(new wchar_t[length + 1]);
    std::copy_n(text.data(), length, cut.get());
    cut[length] = 0;
    CMarkup doc;
    EXPECT_FALSE(doc.SetDoc(cut.get())) << length;
    ASSERT_NO_FATAL_FAILURE(ExpectSoundIndex(doc)) << length;
    WalkEverything(doc);
  }
}

TEST(MarkupRobust, TheTokenizerStaysWithinTheText) {
  const std::wstring text = kEverything;
  for (size_t start = 0; start < text.length(); ++start) {
    for (size_t length = 0; length < 24 && start + length <= text.length(); ++length) {
      const std::unique_ptr<wchar_t[]> cut(new wchar_t[length + 1]);
      std::copy_n(text.data() + start, length, cut.get());
      cut[length] = 0;
      for (const size_t known : {size_t{0}, length}) {
        TokenPos token(cut.get(), 0, nullptr, known);
        NodePos node;
        for (int before = -1; token.ParseNode(node) != TokenPos::NODE_END_OF_DOCUMENT;) {
          ASSERT_GT(token.m_nNext, before);
          ASSERT_LE(token.m_nNext, static_cast<int>(length));
          before = token.m_nNext;
        }
      }
    }
  }
}

TEST(MarkupRobust, MutatedDocuments) {
  std::mt19937 random(1);
  const std::wstring pieces = L"<>/!?-[]='\"& \nabx\x4e2d";
  for (int round = 0; round < 20000; ++round) {
    std::wstring text = kEverything;
    for (unsigned i = 0, n = 1 + random() % 8; i < n; ++i) {
      const size_t at = random() % text.length();
      const wchar_t c = pieces[random() % pieces.length()];
      const unsigned kind = random() % 4;
      if (kind == 0) text.erase(at, 1 + random() % 5);
      if (kind == 1) text.insert(at, 1, c);
      if (kind == 2) text[at] = c;
      if (kind == 3) text.insert(at, text.substr(random() % text.length(), random() % 20));
    }
    CMarkup doc(text);
    ASSERT_NO_FATAL_FAILURE(ExpectSoundIndex(doc)) << text.c_str();
    if (round % 10 == 0) WalkEverything(doc);
  }
}

TEST(MarkupRobust, BrokenNestingIsIndexedAsTheRulesSay) {
  std::mt19937 random(2);
  for (int round = 0; round < 5000; ++round) {
    SlowTree slow;
    std::wstring text;
    for (unsigned i = 0, n = random() % 40; i < n; ++i) {
      const std::wstring name(1, static_cast<wchar_t>(L'a' + random() % 5));
      switch (random() % 5) {
        case 0:
          text += L"<" + name + L"/>";
          slow.Start(name, true);
          break;
        case 1:
        case 2:
          text += L"<" + name + L">";
          slow.Start(name, false);
          break;
        default:
          text += L"</" + name + L">";
          slow.End(name);
          break;
      }
    }
    CMarkup doc(text);
    ASSERT_EQ(Outline(doc), slow.Finish()) << text.c_str();
    ASSERT_NO_FATAL_FAILURE(ExpectSoundIndex(doc)) << text.c_str();
  }
}

TEST(MarkupRobust, TheTimeIsLinearInTheLength) {
  struct {
    const char* subject;
    std::function<std::wstring(int)> text;
  } const cases[] = {
      {"deep", [](int n) { return Repeat(L"<a>", n) + Repeat(L"</a>", n); }},
      {"deep without end", [](int n) { return Repeat(L"<a>", n); }},
      {"unended in one", [](int n) { return L"<r>" + Repeat(L"<a>", n) + L"</r>"; }},
      {"unended by two", [](int n) { return L"<r>" + Repeat(L"<a><b></a>", n) + L"</r>"; }},
      {"many names, lone ends",
       [](int n) { return Numbered(L"<n", L">", n) + Numbered(L"</x", L">", n); }},
      {"many names, ends in order",
       [](int n) { return Numbered(L"<n", L">", n) + Numbered(L"</n", L">", n); }},
      {"one name, lone ends", [](int n) { return Repeat(L"<a>", n) + Repeat(L"</b>", n); }},
      {"lone ends between opens", [](int n) { return Numbered(L"<n", L"></x>", n); }},
      {"names with brackets",
       [](int n) { return Numbered(L"<a[", L"]>", n) + Numbered(L"</a[x", L"]>", n); }},
      {"one name of brackets", [](int n) { return L"<a" + Repeat(L"[", n) + L"></b></c>"; }},
      {"syntax errors", [](int n) { return L"<r>" + Repeat(L"< ", n) + L"</r>"; }},
      {"broken comments", [](int n) { return L"<r>" + Repeat(L"<!-x", n) + L"</r>"; }},
      {"broken document types", [](int n) { return Repeat(L"<!D [<x ", n); }},
      {"comment that never ends", [](int n) { return L"<!--" + Repeat(L"-", n); }},
      {"quotes", [](int n) { return L"<a b='" + Repeat(L"\"' c='", n) + L"'/>"; }},
      {"ampersands", [](int n) { return L"<a b='" + Repeat(L"&", n) + L"'/>"; }},
  };
  for (const auto& c : cases) {
    const std::wstring small = c.text(10000);
    const std::wstring large = c.text(10000 * kFactor);
    const auto parse = [](const std::wstring& text) {
      CMarkup doc(text);
      if (doc.FindElem()) doc.GetAttrib(L"b");
    };
    EXPECT_LE(GrowthOf([&] { parse(small); }, [&] { parse(large); }), kMaxRatio) << c.subject;
  }
}

TEST(MarkupRobust, BuildingADocumentElementByElementIsLinear) {
  const auto build = [](int count) {
    CMarkup doc;
    doc.AddElem(L"r");
    doc.IntoElem();
    for (int i = 0; i < count; ++i) doc.AddElem(L"e", i);
  };
  EXPECT_LE(GrowthOf([&] { build(2000); }, [&] { build(2000 * kFactor); }), kMaxRatio);
}
