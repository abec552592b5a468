#pragma once
// The tokenizer of the markup document: nodes, tag names and attributes over one zero-terminated
// wide text, which it never copies and never reads behind the terminator.
#include <climits>
#include <string>

#include "MarkupFlags.h"

struct FilePos;

// One node as ParseNode found it.
struct NodePos {
  NodePos() : nNodeType(0), nStart(0), nLength(0), nNodeFlags(0) {}
  explicit NodePos(int nFlags) : nNodeType(0), nStart(0), nLength(0), nNodeFlags(nFlags) {}

  int nNodeType;         // MarkupNodeType, or one of NODE_* below
  int nStart;            // offset of the first character
  int nLength;           // characters
  int nNodeFlags;        // MNF_EMPTY: a start tag that ends itself; MNF_ILLDATA: a syntax error
  std::wstring strMeta;  // the result element of a syntax error; the text of a node to be made
};

struct TokenPos {
  enum : size_t { BLOCK = 8 };  // characters looked at in one go
  enum : int { NODE_END_TAG = 0, NODE_ERROR = -1, NODE_END_OF_DOCUMENT = -2 };

  // The text has nDocLength characters ahead of its terminator when that is not 0; long runs are
  // then scanned in blocks.
  explicit TokenPos(const wchar_t* pDocText, int nTokenFlags, FilePos* pReaderFilePos = nullptr,
                    size_t nDocLength = 0)
      : m_nL(0),
        m_nR(-1),
        m_nNext(0),
        m_pDocText(pDocText),
        m_nTokenFlags(nTokenFlags),
        m_nPreSpaceStart(0),
        m_nPreSpaceLength(0),
        m_pReaderFilePos(pReaderFilePos),
        m_nDocLength(static_cast<int>(nDocLength)),
        m_pCopy(nullptr),
        m_nCopyNext(INT_MAX),
        m_pBlocksEnd(pDocText + (nDocLength < BLOCK ? 0 : nDocLength + 2 - BLOCK)),
        m_bResults(true),
        m_bInstruction(false) {}

  // Parses the node at m_nNext and moves behind it; the token is the name of a start or end tag.
  // Returns the node's type; NODE_ERROR for a syntax error, NODE_END_OF_DOCUMENT at the end and
  // for a node that never ends, both with a result element in strMeta when there is one to tell.
  int ParseNode(NodePos& node);

  // The token becomes the name, perhaps empty, that begins at m_nNext.
  void ReadTagName();

  // The token becomes the value, without its quotes, of the next attribute of the tag; attribute,
  // when given, its name (an empty one for stray characters before a "="). False at the tag's end,
  // m_nNext then its ">", "/>" or "?>".
  bool NextAttrib(TokenPos* attribute = nullptr);

  // The token becomes the value of the attribute that Match finds equal to name. False when there
  // is none: the token is then empty and stands at the end of the tag.
  bool FindAttrib(const wchar_t* name);

  // The name begins with the token and ends there or goes on with one of " =/[]".
  bool Match(const wchar_t* name) const;
  // The same for the name that begins at a place in a document and ends with its name characters.
  // MarkupScan.h has the body: it is called for each end tag.
  inline bool MatchTag(const wchar_t* name) const;

  // From now on faults come without a result element, whose making takes longer than the parsing.
  void OmitResults() { m_bResults = false; }

  // Has the text copied to target, which is empty and has room for all of it, piece by piece behind
  // the scanning: what was just looked at need not be fetched again. EndCopy copies the rest.
  void BeginCopy(std::wstring* target) {
    m_pCopy = target;
    m_nCopyNext = COPY_PIECE;
  }
  void CopyScanned() {
    if (m_nNext >= m_nCopyNext) CopyPiece();
  }
  void EndCopy() {
    m_pCopy->append(m_pDocText + m_pCopy->length(), m_nDocLength - m_pCopy->length());
  }

  // The characters of the whole text; 0 when that was not said.
  int DocLength() const { return m_nDocLength; }

  int Length() const { return m_nR - m_nL + 1; }
  const wchar_t* GetTokenPtr() const { return m_pDocText + m_nL; }
  std::wstring GetTokenText() const { return std::wstring(GetTokenPtr(), Length()); }

  // As wcsncmp, but ASCII letters are equal whatever their case.
  static int StrNIACmp(const wchar_t* p1, const wchar_t* p2, int nLen);
  // Whether c ends a name: white space, one of <>=\/?!"'; or the terminator.
  static bool EndsName(wchar_t c);

  int m_nL;                   // first offset of the token
  int m_nR;                   // last offset of the token
  int m_nNext;                // where scanning goes on
  const wchar_t* m_pDocText;  // not owned
  int m_nTokenFlags;          // the document's flags, for MDF_IGNORECASE
  int m_nPreSpaceStart;       // white space ahead of the last attribute
  int m_nPreSpaceLength;
  FilePos* m_pReaderFilePos;

 private:
  enum : int { COPY_PIECE = 1 << 20 };

  void CopyPiece();
  inline bool BeginsName(const wchar_t* name) const;
  void ReadName();
  int EndNode(NodePos& node, int nNodeType, const wchar_t* end);
  int Unterminated(NodePos& node, const wchar_t* kind);
  int SyntaxError(NodePos& node, const wchar_t* result, const wchar_t* at);
  int ParseText(NodePos& node);
  int ParseStartTag(NodePos& node);
  int ParseEndTag(NodePos& node);
  int ParseExclamation(NodePos& node);
  int ParseCDataSection(NodePos& node);
  int ParseDocumentType(NodePos& node);
  int ParseUntil(NodePos& node, int nNodeType, const wchar_t* from, const wchar_t* end);

  int m_nDocLength;
  std::wstring* m_pCopy;        // not owned
  int m_nCopyNext;              // the offset from which on there is something to copy
  const wchar_t* m_pBlocksEnd;  // a block may begin ahead of it
  bool m_bResults;
  bool m_bInstruction;  // the name read last is that of a processing instruction
};
