// Results of parsing and of file operations: the result document and its texts.
#include <iterator>

#include "Markup.h"

void CMarkup::x_AddResult(std::wstring& strResult, MarkupCStr name, MarkupCStr value, int flags,
                          int number, int number2) {
  // The report stays short however broken a document is.
  if (strResult.length() >= RESULT_LIMIT) return;
  CMarkup result;
  result.x_AddElem(name, nullptr, MNF_WITHNOLINES);
  if (!value.IsEmpty()) {
    const wchar_t* const kind = (flags & MRC_TYPE) != 0       ? L"type"
                                : (flags & MRC_ENCODING) != 0 ? L"encoding"
                                : (flags & MRC_MSG) != 0      ? L"msg"
                                                              : L"tagname";
    result.SetAttrib(kind, value);
  }
  if (number != -1) {
    const wchar_t* const kind = (flags & MRC_COUNT) != 0    ? L"count"
                                : (flags & MRC_LENGTH) != 0 ? L"length"
                                : (flags & MRC_NUMBER) != 0 ? L"n"
                                                            : L"offset";
    result.SetAttrib(kind, number);
  }
  if (number2 != -1) result.SetAttrib(L"offset2", number2);
  strResult += result.m_strDoc;
}

namespace {

struct SyntaxText {
  const wchar_t* result;
  const wchar_t* expecting;
};

constexpr SyntaxText kSyntaxTexts[] = {
    {L"first_tag_syntax", L"tag name / ! or ?"},
    {L"exclamation_tag_syntax", L"'DOCTYPE' [ or -"},
    {L"doctype_tag_syntax", L"markup declaration"},
    {L"comment_tag_syntax", L"- to begin comment"},
    {L"cdata_section_syntax", L"'CDATA'"},
};

// The text of a finding about the markup; empty for any other result.
std::wstring SyntaxResultText(const CMarkup& result, const std::wstring& name) {
  const std::wstring offset = L"offset " + result.GetAttrib(L"offset");
  const std::wstring tag = L"tag '" + result.GetAttrib(L"tagname") + L"' at ";
  if (name == L"root_has_sibling") return L"root element has sibling";
  if (name == L"no_root_element") return L"no root element";
  if (name == L"lone_end_tag") return L"lone end " + tag + offset;
  if (name == L"unended_start_tag") {
    return L"start " + tag + offset + L" expecting end tag at offset " +
           result.GetAttrib(L"offset2");
  }
  if (name == L"file_error") return result.GetAttrib(L"msg");
  if (name == L"unterminated_tag_syntax") return L"unterminated tag at " + offset;
  for (const SyntaxText& text : kSyntaxTexts) {
    if (name == text.result)
      return L"tag syntax error at " + offset + L" expecting " + text.expecting;
  }
  return std::wstring();
}

// The text of a finding about a file; these are read one behind the other as one sentence.
std::wstring FileResultText(const CMarkup& result, const std::wstring& name) {
  const std::wstring encoding = result.GetAttrib(L"encoding");
  const std::wstring length = encoding + L" length " + result.GetAttrib(L"length");
  if (name == L"bom") return L"BOM +";
  if (name == L"read" || name == L"write") return length;
  if (name == L"converted_to") return L"to " + length;
  if (name == L"converted_from") return length + L" to";
  if (name == L"nulls_removed") return L"removed " + result.GetAttrib(L"count") + L" nulls";
  if (name == L"conversion_loss") return L"(chars lost in conversion!)";
  if (name == L"utf8_detection") return L"(used UTF-8 detection)";
  if (name == L"endian_swap") return L"endian swap";
  if (name == L"truncation_error") return L"encoding " + encoding + L" adjustment error";
  return std::wstring();
}

}  // namespace

std::wstring CMarkup::GetError() const {
  CMarkup results(m_strResult);
  std::wstring error;
  bool file = false;
  while (results.FindElem()) {
    const std::wstring name = results.x_GetTagName(results.m_iPos);
    std::wstring text = SyntaxResultText(results, name);
    const bool fileText = text.empty();
    if (fileText) text = FileResultText(results, name);
    if (text.empty()) continue;
    if (!error.empty()) error += file && fileText ? L" " : L", ";
    error += text;
    file = fileText;
  }
  return error;
}
