// Parsing, walking, editing and saving a document. The input is a document, a zero byte, and a
// script: a byte of options, then two bytes for each step.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "Fuzz.h"
#include "MarkupReference.h"

namespace {

struct Place {
  int start, length, startTag, endTag, level;
};
bool operator==(const Place& a, const Place& b) {
  return a.start == b.start && a.length == b.length && a.startTag == b.startTag &&
         a.endTag == b.endTag && a.level == b.level;
}

// All elements in the order of the document, by the links of the index, which are checked.
std::vector<Place> Places(const CMarkup& doc) {
  std::vector<Place> places;
  const int count = doc.m_iPosFree;
  for (int i = doc.x_Elem(0).iElemChild, parent = 0, previous = 0; i != 0 || parent != 0;) {
    if (i == 0) {  // all children of the parent were seen
      Require(doc.x_Elem(doc.x_Elem(parent).iElemChild).iElemPrev == previous, "first knows last");
      previous = parent;
      i = doc.x_Elem(parent).iElemNext;
      parent = doc.x_Elem(parent).iElemParent;
      continue;
    }
    const ElemPos& elem = doc.x_Elem(i);
    Require(i < count && places.size() < static_cast<size_t>(count), "links end");
    Require(elem.iElemParent == parent, "children know their parent");
    Require(((elem.nFlags & MNF_FIRST) != 0) == (previous == 0), "the first is marked");
    Require(previous == 0 || elem.iElemPrev == previous, "siblings know each other");
    places.push_back({elem.nStart, elem.nLength, static_cast<int>(elem.nStartTagLen),
                      static_cast<int>(elem.nEndTagLen), elem.nFlags & ElemPos::LEVEL_MASK});
    if (elem.iElemChild != 0) {
      parent = i;
      previous = 0;
      i = elem.iElemChild;
    } else {
      previous = i;
      i = elem.iElemNext;
    }
  }
  return places;
}

std::vector<Place> Places(const MarkupReference& reference, int from = 0) {
  std::vector<Place> places;
  std::vector<int> left(reference.elems[from].children.rbegin(),
                        reference.elems[from].children.rend());
  while (!left.empty()) {
    const MarkupReference::Elem& elem = reference.elems[left.back()];
    left.pop_back();
    places.push_back({elem.start, elem.length, elem.startTag,
                      std::min(elem.endTag, int{ElemPos::END_TAG_MAX}), elem.level});
    left.insert(left.end(), elem.children.rbegin(), elem.children.rend());
  }
  return places;
}

void CompareFlags(const CMarkup& doc, const MarkupReference& reference) {
  for (size_t i = 1; i < reference.elems.size(); ++i) {
    const MarkupReference::Elem& elem = reference.elems[i];
    const int flags = doc.x_Elem(static_cast<int>(i)).nFlags;
    Require(((flags & MNF_NONENDED) != 0) == elem.nonEnded, "unended elements are marked");
    if (elem.endTag > int{ElemPos::END_TAG_MAX}) continue;
    Require(((flags & MNF_ILLDATA) != 0) == elem.illData, "faults are marked where they are");
  }
}

void ComparePlaces(const CMarkup& doc) {
  const bool ignoresCase = (doc.m_nDocFlags & MDF_IGNORECASE) != 0;
  const MarkupReference reference(doc.GetDoc(), ignoresCase);
  const std::vector<Place> places = Places(doc);
  Require(doc.x_Elem(0).nLength == static_cast<int>(doc.GetDoc().length()),
          "length of the document");
  if (!reference.known) return;
  Require(places == Places(reference), "elements lie where the rules say");
}

void CheckParse(CMarkup& doc, const std::wstring& text) {
  const bool wellFormed = doc.SetDoc(text);
  Require(wellFormed == doc.IsWellFormed() && doc.GetDoc() == text, "the text is kept");
  Require(!wellFormed || doc.GetError().empty(), "nothing is told where nothing is wrong");
  ComparePlaces(doc);
  const MarkupReference reference(text, (doc.m_nDocFlags & MDF_IGNORECASE) != 0);
  CMarkup again;
  again.m_nDocFlags = doc.m_nDocFlags;
  Require(again.SetDoc(text.c_str()) == wellFormed && again.m_strResult == doc.m_strResult,
          "a pointer does as a string");
  if (!reference.known) return;
  Require(doc.m_iPosFree == static_cast<int>(reference.elems.size()), "number of elements");
  CompareFlags(doc, reference);
  bool recorded = true;
  for (const auto& elem : reference.elems) recorded &= elem.endTag <= int{ElemPos::END_TAG_MAX};
  const bool good = !reference.illFormed && reference.elems[0].children.size() == 1;
  Require(wellFormed == (good && recorded), "well-formedness");
  Require(good || text.empty() || !doc.GetError().empty(), "a fault has a text");
}

// All elements can be walked to, and every attribute that a tag has is found by its name.
void CheckWalk(CMarkup& doc) {
  const size_t count = Places(doc).size();
  size_t seen = 0;
  doc.ResetPos();
  for (;;) {
    if (doc.FindElem()) {
      ++seen;
      TokenPos token(doc.GetDoc().c_str(), doc.m_nDocFlags);
      token.m_nNext = doc.x_Elem(doc.m_iPos).nStart + 1;
      token.ReadTagName();
      TokenPos attribute(token);
      for (int i = 0; i < 8 && token.NextAttrib(&attribute); ++i) {
        const std::wstring value = doc.GetAttrib(attribute.GetTokenText());
        Require(i > 0 || value == CMarkup::UnescapeText(token.GetTokenPtr(), token.Length()) ||
                    attribute.Length() == 0,
                "the first attribute is found by its name");
      }
      doc.FindChildElem(doc.x_GetTagName(doc.m_iPos));
      doc.x_SetPos(doc.m_iPosParent, doc.m_iPos, 0);
      doc.IntoElem();
    } else if (!doc.OutOfElem()) {
      break;
    } else {
      doc.x_SetPos(doc.m_iPosParent, doc.m_iPos, 0);
    }
  }
  Require(seen == count, "every element is walked to");
  doc.ResetPos();
}

void Edit(CMarkup& doc, uint8_t step, uint8_t argument) {
  const int flags = (argument & 1) != 0 ? MNF_WITHNOLINES : 0;
  const std::wstring name(1 + argument % 3, static_cast<wchar_t>(L'a' + argument / 16));
  const wchar_t* const texts[] = {L"", L"t", L"a<b&c>", L"]]>\"'", L"&amp; \x4e2d"};
  const wchar_t* const data = texts[argument / 2 % std::size(texts)];
  const int nodes[] = {MNT_TEXT, MNT_CDATA_SECTION, MNT_COMMENT, MNT_PROCESSING_INSTRUCTION};
  const int node = nodes[argument / 4 % std::size(nodes)];
  // clang-format off
  switch (step % 18) {
    case 0: doc.FindElem(); break;
    case 1: doc.FindElem(name); break;
    case 2: doc.FindChildElem(); break;
    case 3: doc.FindChildElem(name + L"/x"); break;
    case 4: doc.IntoElem(); break;
    case 5: doc.OutOfElem(); break;
    case 6: doc.ResetPos(); break;
    case 7: doc.SavePos(name, argument % 4); break;
    case 8: doc.RestorePos(name, argument % 4); break;
    case 9: doc.AddElem(name, data, flags); break;
    case 10: doc.InsertElem(name, data, flags | MNF_WITHCDATA); break;
    case 11: doc.AddChildElem(name, data, flags | (argument & 2 ? MNF_WITHXHTMLSPACE : 0)); break;
    case 12: doc.AddChildElem(name, argument, flags | MNF_INSERT); break;
    case 13: doc.SetAttrib(name, data, argument & 2 ? MNF_WITHREFS : 0); break;
    case 14: doc.AddNode(node, data, flags); break;
    case 15: doc.InsertNode(node, data, flags); break;
    case 16: doc.RemoveElem(); break;
    default: doc.RemoveChildElem(); break;
  }
  // clang-format on
}

void CheckEdits(CMarkup& doc, const uint8_t* script, size_t size) {
  const bool wellFormed = doc.IsWellFormed();
  for (size_t i = 0; i + 1 < size && i < 64; i += 2) {
    Edit(doc, script[i], script[i + 1]);
    Places(doc);
    // In what is broken an edit may mend or break something else.
    if (wellFormed) ComparePlaces(doc);
  }
}

// Through a pipe, which has room for all of it.
void CheckSaved(CMarkup& doc) {
  const bool marked = (doc.m_nDocFlags & ~MDF_IGNORECASE) != 0;
  const std::wstring text = doc.GetDoc();
  if (text.length() > 15000 || text.compare(0, 1, L"\xfeff") == 0) return;
  int ends[2];
  Require(pipe2(ends, O_CLOEXEC) == 0, "a pipe");
  const std::string folder = "/proc/self/fd/";
  const bool saved = doc.Save(folder + std::to_string(ends[1]));
  close(ends[1]);
  CMarkup loaded;
  loaded.Load(folder + std::to_string(ends[0]));
  close(ends[0]);
  Require(saved, "a document is saved");
  // Not all encodings can express everything.
  if (!marked && !CMarkup::GetDeclaredEncoding(text).empty()) return;
  Require(loaded.GetDoc() == text, "a document is loaded as it was saved");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 1 << 16) return 0;
  const uint8_t* const zero = std::find(data, data + size, 0);
  const size_t length = zero - data;
  const size_t scriptSize = length < size ? size - length - 1 : 0;
  const uint8_t options = scriptSize > 0 ? zero[1] : 0;
  const int marks[] = {0, MDF_UTF8PREAMBLE, MDF_UTF16LEFILE, MDF_UTF16BEFILE};
  CMarkup doc;
  doc.m_nDocFlags = ((options & 4) != 0 ? MDF_IGNORECASE : 0) | marks[options & 3];
  CheckParse(doc, Widen(data, length));
  CheckWalk(doc);
  if (scriptSize > 1) CheckEdits(doc, zero + 2, scriptSize - 1);
  CheckSaved(doc);
  return 0;
}
