#pragma once
// An XML document as one wide text with an index of its elements, walked element by element and
// edited in place.
//
// The position is a triple: the parent, the current element in it and a child of the current
// element, each perhaps none. Offsets count characters of the document. A text ends at its first
// zero character. Null pointers count as empty texts. One thread at a time.
#include <string>

#include "MarkupEncoding.h"
#include "MarkupFile.h"
#include "MarkupFlags.h"
#include "MarkupPath.h"
#include "MarkupSavedPos.h"
#include "MarkupStack.h"
#include "MarkupText.h"
#include "MarkupToken.h"
#include "MarkupTree.h"

class CMarkup : public MarkupFlags {
 public:
  // An empty document.
  CMarkup() : CMarkup(nullptr) {}
  explicit CMarkup(const wchar_t* doc);
  explicit CMarkup(const std::wstring& doc) : CMarkup(doc.c_str()) {}
  CMarkup(const CMarkup&) = delete;
  CMarkup& operator=(const CMarkup&) = delete;
  ~CMarkup();

  // Replaces the document and parses it; saved positions are lost. True when it is well formed. An
  // ill-formed document stays, indexed as far as it goes.
  bool SetDoc(const wchar_t* doc);
  bool SetDoc(const std::wstring& doc);
  const std::wstring& GetDoc() const { return m_strDoc; }
  // Whether there is exactly one root element and nothing was wrong.
  bool IsWellFormed() const;
  // What the last parse or file operation found, readable; empty when nothing.
  std::wstring GetError() const;

  // Moves to the next sibling of that name, any without a name, behind the current element. Of a
  // path the first name counts; an absolute or invalid path finds nothing. False leaves the
  // position.
  bool FindElem(MarkupCStr name = nullptr);
  // The same among the children of the current element, behind the current child. Without current
  // element the next sibling becomes current first, and stays so whatever is found in it.
  bool FindChildElem(MarkupCStr name = nullptr);
  // The current element becomes the parent, its current child the current element.
  bool IntoElem();
  // The parent becomes the current element, the element current so far its current child.
  bool OutOfElem();
  void ResetPos() { x_SetPos(0, 0, 0); }
  // The unescaped value of the current element's first attribute of that name; empty without.
  std::wstring GetAttrib(MarkupCStr name) const { return x_GetAttrib(m_iPos, name); }

  // The editing operations escape their texts. They return false and change nothing while a file is
  // being read or written, without the element that they need, for names and texts that would not
  // be read back, and for elements with a tag too long to be recorded.

  // A new element becomes the current one: behind the current element or node, or last in the
  // parent. InsertElem: ahead of it, or first. AddChildElem: behind the current child, or last in
  // the current element, and becomes the current child. On a line of its own unless
  // MNF_WITHNOLINES; further flags: MNF_WITHCDATA, MNF_WITHREFS (references in the data stay),
  // MNF_WITHXHTMLSPACE ("<a />"), MNF_WITHNOEND (a start tag alone).
  bool AddElem(MarkupCStr name, MarkupCStr data = nullptr, int flags = 0) {
    return x_AddElem(name, data, flags);
  }
  bool AddElem(MarkupCStr name, int value, int flags = 0) {
    return x_AddElem(name, std::to_wstring(value), flags);
  }
  bool InsertElem(MarkupCStr name, MarkupCStr data = nullptr, int flags = 0) {
    return x_AddElem(name, data, flags | MNF_INSERT);
  }
  bool InsertElem(MarkupCStr name, int value, int flags = 0) {
    return x_AddElem(name, std::to_wstring(value), flags | MNF_INSERT);
  }
  bool AddChildElem(MarkupCStr name, MarkupCStr data = nullptr, int flags = 0) {
    return x_AddElem(name, data, flags | MNF_CHILD);
  }
  bool AddChildElem(MarkupCStr name, int value, int flags = 0) {
    return x_AddElem(name, std::to_wstring(value), flags | MNF_CHILD);
  }
  // The same places for a node without name: MNT_TEXT, MNT_CDATA_SECTION, MNT_COMMENT,
  // MNT_PROCESSING_INSTRUCTION, or MNT_DOCUMENT_TYPE with its whole text.
  bool AddNode(int nNodeType, MarkupCStr text, int flags = 0) {
    return x_AddNode(nNodeType, text, flags);
  }
  bool InsertNode(int nNodeType, MarkupCStr text, int flags = 0) {
    return x_AddNode(nNodeType, text, flags | MNF_INSERT);
  }
  // Sets or adds an attribute of the current element or processing instruction.
  bool SetAttrib(MarkupCStr name, MarkupCStr value, int flags = 0) {
    return x_SetAttrib(name, value, flags);
  }
  bool SetAttrib(MarkupCStr name, int value, int flags = 0) {
    return x_SetAttrib(name, std::to_wstring(value), flags);
  }
  // Takes the element out with all it holds; the sibling ahead of it, if any, becomes current.
  bool RemoveElem();
  bool RemoveChildElem();

  // Keeps the position under a name in map number nMap; RestorePos goes there. An element that was
  // removed is no longer known. SetMapSize chooses the number of buckets of a map that is empty.
  bool SavePos(MarkupCStr name = L"", int nMap = 0);
  bool RestorePos(MarkupCStr name = L"", int nMap = 0);
  bool SetMapSize(int nSize, int nMap = 0);

  // Reads and parses a file; its name is UTF-8 when narrow. The encoding is that of a byte-order
  // mark, which sets its document flag, else UTF-16 when it looks so, else the declared one, else
  // UTF-8 when all of it is valid, else the system's. True when the document is well formed; a file
  // that cannot be read leaves the document.
  bool Load(MarkupCStr file);
  bool Load(const std::string& file);
  // Writes the document with the mark and in the encoding of its flags, else in the declared
  // encoding, else in UTF-8. False leaves an old file as it was.
  bool Save(MarkupCStr file);
  bool Save(const std::string& file);
  // The same with the text alone; results are appended, flags are read and set. Null for neither.
  static bool ReadTextFile(const std::string& file, std::wstring& strDoc,
                           std::wstring* pstrResult = nullptr, int* pnDocFlags = nullptr);
  static bool WriteTextFile(const std::string& file, const std::wstring& strDoc,
                            std::wstring* pstrResult = nullptr, int* pnDocFlags = nullptr);

  // A copy of the text in which < > & are references, with MNF_ESCAPEQUOTES also " and '. With
  // MNF_WITHREFS an & that begins a reference stays.
  static std::wstring EscapeText(MarkupCStr text, int flags = 0);
  // The text with references replaced by their characters; of the first length characters, or up
  // to the terminator when length is negative. Unknown references stay as they are.
  static std::wstring UnescapeText(MarkupCStr text, int length = -1);

  // The code page of an encoding name, whatever its case: 0 for the empty name, -1 for an unknown
  // one, 65005 for all that begin with "UTF-32".
  static int GetEncodingCodePage(MarkupCStr name) { return x_GetEncodingCodePage(name); }
  // The encoding that an XML declaration at the start of the text names; empty without.
  static std::wstring GetDeclaredEncoding(MarkupCStr pszDoc);

  // Whether the bytes, up to the first zero, are valid UTF-8. *pnNonASCII: sequences above ASCII
  // met. *pbErrorAtEnd: the first fault is a sequence that the end cuts off. Both may be null.
  static bool DetectUTF8(const char* pText, int nTextLen, int* pnNonASCII = nullptr,
                         bool* pbErrorAtEnd = nullptr);
  // Decode the character at psz and move psz behind it; -1 for an invalid one, psz then stays.
  // Without end the text is zero-terminated. Surrogates and over-long forms are invalid.
  static int DecodeCharUTF8(const char*& psz, const char* pszEnd = nullptr);
  static int DecodeCharUTF16(const unsigned short*& psz, const unsigned short* pszEnd = nullptr);
  // Set the length to the units of the character, at most 4 (2), and write it unless the output is
  // null. A code that is no character becomes a question mark.
  static void EncodeCharUTF8(int nChar, char* pszUTF8, int& nUTF8Len);
  static void EncodeCharUTF16(int nChar, unsigned short* pszUTF16, int& nUTF16Len);
  // Convert a text of so many units, or a zero-terminated one when the length is negative; a zero
  // ends either. Return the units of the result, no terminator among them; with null output only
  // that. Invalid characters become question marks.
  static int UTF16To8(char* pszUTF8, const unsigned short* pszUTF16, int nUTF16Len = -1);
  static int UTF8To16(unsigned short* pszUTF16, const char* pszUTF8, int nUTF8Len = -1);

  // The functions below serve those above; the indices they take must be of this document.
  bool x_ParseDoc();
  // Indexes the nodes from the token's place on as children of iPosParent. The first one, or 0.
  int x_ParseElem(int iPosParent, TokenPos& token);
  void x_AllocElemPos(int nNewSize = 0);
  int x_GetFreePos();
  void x_SetPos(int iPosParent, int iPos, int iPosChild);
  // The first match of a path behind iPos, or from the first child of iPosParent on; 0 = none.
  int x_FindElem(int iPosParent, int iPos, PathPos path) const;
  std::wstring x_GetAttrib(int iPos, MarkupCStr name) const;
  std::wstring x_GetTagName(int iPos) const;
  // Makes iPos the child of iPosParent behind iPosBefore, 0 = the first.
  void x_LinkElem(int iPosParent, int iPosBefore, int iPos);
  // Appends a result element: flags (MarkupResultCode) tell what the value and the number are, -1
  // is no number. A text of 1,000 characters or more takes no further result.
  static void x_AddResult(std::wstring& strResult, MarkupCStr name, MarkupCStr value = nullptr,
                          int flags = 0, int number = -1, int number2 = -1);
  void x_AddResult(MarkupCStr name, MarkupCStr value = nullptr, int flags = 0, int number = -1,
                   int number2 = -1) {
    x_AddResult(m_strResult, name, value, flags, number, number2);
  }
  // The markup of a new node goes to node.strMeta, the lengths of an element's tags to elem. False
  // for what would not be read back.
  bool x_CreateNode(NodePos& node, ElemPos& elem, MarkupCStr name, MarkupCStr text) const;
  // Splices node.strMeta in beside iPosRel (0 = none) in iPosParent and sets node.nStart. iPosRel
  // comes back as the sibling that is then ahead of the place.
  bool x_InsertNew(int iPosParent, int& iPosRel, NodePos& node);
  void x_DocChange(int nLeft, int nReplace, const std::wstring& strInsert);
  // After nShift characters came in in iPosParent: lengthens it and all around it, and moves
  // iPosAfter and all elements that begin behind.
  void x_Adjust(int iPosParent, int iPosAfter, int nShift);
  static int x_GetEncodingCodePage(MarkupCStr pszEncoding);
  static void x_EndianSwapUTF16(unsigned short* pBuffer, int nCharCount);
  ElemPos& x_Elem(int iPos) const { return m_pElemPosTree->GetAt(iPos); }

  std::wstring m_strDoc;
  std::wstring m_strResult;
  int m_iPosParent;
  int m_iPos;
  int m_iPosChild;
  int m_iPosFree;
  int m_iPosDeleted;
  int m_nNodeType;
  int m_nNodeOffset;
  int m_nNodeLength;
  int m_nDocFlags;
  FilePos* m_pFilePos;
  SavedPosMapArray* m_pSavedPosMaps;
  ElemPosTree* m_pElemPosTree;

 private:
  enum : size_t { RESULT_LIMIT = 1000, LATE_COPY = 1 << 20 };

  bool x_SetText(const wchar_t* pText, size_t nLength);
  bool x_ParseText(const wchar_t* pText, size_t nLength, std::wstring* pstrCopy);
  int x_OpenElem(int iPosParent, int iLast, int nStart, int nLength, int nLevel);
  void x_CloseElem(int iPos, int iLast, const NodePos& node);
  int x_CloseUnended(const TokenPos& token, int iPos, int& iLast, int nCount, int nExpected);
  void x_ReportUnended(TokenPos token, int iPos, int nExpected);
  void x_ReportLoneEndTag(int iPosParent, const TokenPos& token, const NodePos& node);
  void x_ReportFault(int iPosParent, TokenPos& token, NodePos& node);
  void x_SetIllFormed(int iPos, int nFlags);
  int x_NextElem(int iPosParent, int iPos) const {
    return iPos != 0 ? x_Elem(iPos).iElemNext : x_Elem(iPosParent).iElemChild;
  }

  static bool BeginsCharUTF8(const char* p, const char* end);
  bool x_AddElem(MarkupCStr name, MarkupCStr data, int flags);
  bool x_AddNode(int nNodeType, MarkupCStr text, int flags);
  bool x_SetAttrib(MarkupCStr name, MarkupCStr value, int flags);
  bool x_CreateElem(NodePos& node, ElemPos& elem, MarkupCStr name, MarkupCStr data) const;
  bool x_CanEdit(int iPos) const;
  bool x_OpenEmptyElem(int iPos);
  int x_InsertOffset(int iPosParent, int& iPosRel, int nFlags) const;
  int x_LineOffset(int nAt) const;
  bool x_FindAttribValue(MarkupCStr name, int& nLeft, int& nRight) const;
  void x_GrowTag(int nShift);
  // The element behind iPos in document order, 0 behind the last one inside iPosTop.
  int x_NextInside(int iPos, int iPosTop) const;
  int x_TakePos();
  int x_RemoveElem(int iPos);
  void x_UnlinkElem(int iPos);
  void x_ReleaseElems(int iPos);
};
