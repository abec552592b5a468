#pragma once
// The element index of a markup document as its rules say it, one character and one step at a time:
// slow, and of another making than the one that it is compared with.
#include <string>
#include <utility>
#include <vector>

struct MarkupReference {
  struct Elem {
    int start = 0, length = 0, startTag = 0, endTag = 0, level = 0, parent = 0;
    bool nonEnded = false, illData = false;
    std::vector<int> children;
  };

  // The text has no zeros.
  MarkupReference(const std::wstring& document, bool ignoresCase)
      : text(document), ignoreCase(ignoresCase), elems(1) {
    while (known && Node()) {
    }
    while (!open.empty()) CloseUnended();
  }

  std::wstring text;
  bool ignoreCase;
  bool known = true;  // false for a document type, on which this has no opinion
  bool illFormed = false;
  std::vector<Elem> elems;  // in the order of the document; 0 is the document

 private:
  enum : size_t { NONE = std::wstring::npos };

  bool Has(const wchar_t* what, size_t position) const {
    return text.compare(position, std::wstring(what).length(), what) == 0;
  }
  static bool IsSpace(wchar_t c) { return c == L' ' || c == L'\t' || c == L'\n' || c == L'\r'; }
  wchar_t Char(size_t position) const { return position < text.length() ? text[position] : 0; }
  int Current() const { return open.empty() ? 0 : open.back(); }

  bool Error(size_t next) {
    illFormed = elems[Current()].illData = true;
    at = next;
    return true;
  }
  bool Unterminated() { return Error(at) && false; }

  // False at the end.
  bool Node() {
    if (at == text.length()) return false;
    if (text[at] != L'<') {
      at = text.find(L'<', at);
      if (at == NONE) at = text.length();
      return true;
    }
    const wchar_t c = Char(at + 1);
    if (c == 0) return Unterminated();
    if (IsSpace(c) || c == L'>') return Error(at + 1);
    if (c == L'/') return EndTag();
    if (c == L'?') return Until(at + 2, L"?>");
    return c == L'!' ? Exclamation() : StartTag();
  }

  bool Until(size_t from, const wchar_t* end) {
    const size_t found = text.find(end, from);
    if (found == NONE) return Unterminated();
    at = found + std::wstring(end).length();
    return true;
  }

  bool Exclamation() {
    const wchar_t c = Char(at + 2);
    if (c == 0) return Unterminated();
    for (const wchar_t* const begin : {L"<!--", L"<![CDATA["}) {
      if (c != begin[2]) continue;
      for (size_t i = 3; begin[i] != 0; ++i) {
        if (Char(at + i) == 0) return Unterminated();
        if (Char(at + i) != begin[i]) return Error(at + i);
      }
      return Until(at + std::wstring(begin).length(), c == L'-' ? L"-->" : L"]]>");
    }
    if ((c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z')) {
      known = false;
      return false;
    }
    return Error(at + 2);
  }

  std::wstring Name(size_t from) const {
    const size_t end = text.find_first_of(L" \t\n\r<>=\\/?!\"';", from);
    return text.substr(from, end == NONE ? NONE : end - from);
  }

  bool EndTag() {
    const std::wstring name = Name(at + 2);
    const size_t end = text.find(L'>', at + 2 + name.length());
    if (end == NONE) return Unterminated();
    size_t match = open.size();
    while (match > 0 && !Matches(name, Name(elems[open[match - 1]].start + 1))) --match;
    if (match == 0) return Error(end + 1);
    while (open.size() > match) CloseUnended();
    Elem& elem = elems[open.back()];
    elem.endTag = static_cast<int>(end + 1 - at);
    elem.length = static_cast<int>(end + 1) - elem.start;
    open.pop_back();
    at = end + 1;
    return true;
  }

  bool Matches(const std::wstring& name, const std::wstring& opened) const {
    if (Folded(opened.substr(0, name.length())) != Folded(name)) return false;
    const wchar_t next = opened.length() > name.length() ? opened[name.length()] : L' ';
    return next == L' ' || next == L'[' || next == L']';
  }
  std::wstring Folded(std::wstring name) const {
    for (wchar_t& c : name) {
      if (ignoreCase && c >= L'A' && c <= L'Z') c += L'a' - L'A';
    }
    return name;
  }

  // The place behind the value that begins behind a "=".
  size_t SkipValue(size_t from) const {
    while (IsSpace(Char(from))) ++from;
    const wchar_t quote = Char(from);
    if (quote == L'"' || quote == L'\'') {
      const size_t end = text.find(quote, from + 1);
      return end == NONE ? text.length() : end + 1;
    }
    while (from < text.length() && !IsSpace(text[from]) && text[from] != L'>' &&
           !Has(L"/>", from)) {
      ++from;
    }
    return from;
  }

  bool StartTag() {
    size_t end = at + 1 + Name(at + 1).length();
    while (Char(end) != L'>') {
      if (end >= text.length()) return Unterminated();
      end = text[end] == L'=' ? SkipValue(end + 1) : end + 1;
    }
    Elem elem;
    elem.start = static_cast<int>(at);
    elem.length = elem.startTag = static_cast<int>(end + 1 - at);
    elem.level = static_cast<int>(open.size());
    elem.parent = Current();
    const int index = static_cast<int>(elems.size());
    elems[elem.parent].children.push_back(index);
    elems.push_back(elem);
    if (text[end - 1] != L'/') open.push_back(index);
    at = end + 1;
    return true;
  }

  // The innermost open element becomes a leaf; what it held follows it.
  void CloseUnended() {
    const int index = open.back();
    open.pop_back();
    Elem& elem = elems[index];
    Elem& parent = elems[elem.parent];
    illFormed = elem.nonEnded = true;
    if (elem.illData) parent.illData = true;
    elem.illData = false;
    for (const int child : elem.children) {
      elems[child].parent = elem.parent;
      parent.children.push_back(child);
    }
    elem.children.clear();
  }

  size_t at = 0;
  std::vector<int> open;
};
