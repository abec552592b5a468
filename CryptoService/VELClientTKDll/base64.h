#pragma once
// Standard base64 (RFC 4648 section 4) between bytes and wide text.
#include <cstddef>
#include <memory>

// Owns the last result of each operation. A result is valid until the next call of the same
// operation on the same object, or the object's end; so the result of one operation may be the
// input of the other, or of itself. One thread at a time.
class CBase64 {
 public:
  enum : unsigned long {
    NO_PADDING = 1,   // the last group is left short
    LINE_BREAKS = 2,  // CR LF between the lines, none behind the last
  };

  // nBufferSize bytes to text. dwLineLenFlags is the length of a line in characters, a multiple of
  // 4 (what is over is dropped), and counts only with LINE_BREAKS; 0 is one line.
  // Null for no bytes and without memory; the previous result is kept then.
  const wchar_t* Encode(const void* pBuffer, unsigned long nBufferSize, unsigned long dwFlags,
                        unsigned long dwLineLenFlags);

  // Text to *pnResultLen bytes. Characters outside the alphabet, padding among them, are skipped
  // wherever they stand; a last group that is too short for a byte is dropped. A text without any
  // of the alphabet gives a length of 0 and a result that is not null.
  // Null for a null argument, an empty text (*pnResultLen is left alone) and without memory.
  unsigned char* Decode(const wchar_t* lpszSource, unsigned long* pnResultLen);

  // The decoder itself, over nLength characters into nRoom bytes, zero behind the last that is
  // written. *pnResultLen receives the bytes that the text stands for. False when they have no
  // room: then only the groups before the first without room are written.
  static bool DecodeInto(const wchar_t* pText, size_t nLength, unsigned char* pResult, size_t nRoom,
                         unsigned long* pnResultLen);
  static bool DecodeInto(const char* pText, size_t nLength, unsigned char* pResult, size_t nRoom,
                         unsigned long* pnResultLen);

  // The encoder itself: one padded line of EncodedLength(nBufferSize) characters, no terminator.
  static void EncodeInto(const void* pBuffer, size_t nBufferSize, wchar_t* pResult);
  static constexpr size_t EncodedLength(size_t nBufferSize) { return (nBufferSize + 2) / 3 * 4; }

  static constexpr char s_chBase64EncodingTable[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

 private:
  std::unique_ptr<wchar_t[]> m_encoded;
  std::unique_ptr<unsigned char[]> m_decoded;
};
