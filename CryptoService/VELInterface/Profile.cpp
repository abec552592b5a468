// Integers of INI files. Read line by line with a fixed buffer: the file may be of any size and
// hold anything, and nothing here asks the locale.
#include <errno.h>
#include <stdio.h>

#include <string_view>

#include "LastError.h"
#include "VELInterface.h"

namespace {

using std::string_view;

constexpr size_t kLineLimit = 4096;  // what a longer line holds behind it is not looked at

bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\v' || c == '\f';
}

char ToSmall(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

string_view Trim(string_view text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

bool IsSameName(string_view left, string_view right) {
  if (left.size() != right.size()) return false;
  for (size_t i = 0; i < left.size(); ++i) {
    if (ToSmall(left[i]) != ToSmall(right[i])) return false;
  }
  return true;
}

class LineReader {
 public:
  explicit LineReader(const char* path) : m_file(fopen(path, "re")) { SkipByteOrderMark(); }
  ~LineReader() {
    if (m_file != nullptr) fclose(m_file);
  }
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  bool IsOpen() const { return m_file != nullptr; }

  // CR ends a line as LF does: CRLF then gives an empty line more, which means nothing.
  bool Next(string_view* line) {
    size_t length = 0;
    int c;
    while ((c = getc_unlocked(m_file)) != EOF && c != '\n' && c != '\r') {
      if (length < kLineLimit) m_line[length++] = static_cast<char>(c);
    }
    *line = string_view(m_line, length);
    return c != EOF || length != 0;
  }

 private:
  void SkipByteOrderMark() {
    if (m_file == nullptr) return;
    for (int byte : {0xEF, 0xBB, 0xBF}) {
      if (getc_unlocked(m_file) != byte) {
        rewind(m_file);
        return;
      }
    }
  }

  FILE* m_file;
  char m_line[kLineLimit];
};

int DigitOf(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  c = ToSmall(c);
  return c >= 'a' && c <= 'f' ? c - 'a' + 10 : 16;
}

// Counts modulo 2^32, as Win32 does; a negative number comes out as its two's complement.
UINT ParseInteger(string_view text) {
  if (text.size() >= 2 && (text.front() == '"' || text.front() == '\'') &&
      text.back() == text.front()) {
    text = Trim(text.substr(1, text.size() - 2));
  }
  const bool negative = !text.empty() && text.front() == '-';
  if (negative || (!text.empty() && text.front() == '+')) text.remove_prefix(1);
  int base = 10;
  if (text.size() >= 2 && text[0] == '0' && ToSmall(text[1]) == 'x') {
    base = 16;
    text.remove_prefix(2);
  }
  UINT value = 0;
  for (const char c : text) {
    const int digit = DigitOf(c);
    if (digit >= base) break;
    value = value * static_cast<UINT>(base) + static_cast<UINT>(digit);
  }
  return negative ? 0u - value : value;
}

bool FindValue(LineReader& reader, string_view section, string_view key, string_view* value) {
  bool inSection = false;
  string_view line;
  while (reader.Next(&line)) {
    line = Trim(line);
    if (line.empty() || line.front() == ';') continue;
    const size_t bracket = line.front() == '[' ? line.find(']') : string_view::npos;
    if (bracket != string_view::npos) {
      inSection = IsSameName(Trim(line.substr(1, bracket - 1)), section);
      continue;
    }
    const size_t equals = line.find('=');
    if (!inSection || equals == string_view::npos) continue;
    if (!IsSameName(Trim(line.substr(0, equals)), key)) continue;
    *value = Trim(line.substr(equals + 1));
    return true;
  }
  return false;
}

}  // namespace

UINT GetPrivateProfileIntA(LPCSTR section, LPCSTR key, INT defaultValue, LPCSTR file) {
  if (section == nullptr || key == nullptr || file == nullptr) {
    SetThreadError(ERROR_INVALID_PARAMETER);
    return static_cast<UINT>(defaultValue);
  }
  LineReader reader(file);
  string_view value;
  if (!reader.IsOpen()) {
    SetThreadError(ErrorFromErrno(errno));
  } else if (FindValue(reader, Trim(section), Trim(key), &value)) {
    return ParseInteger(value);
  } else {
    SetThreadError(ERROR_FILE_NOT_FOUND);
  }
  return static_cast<UINT>(defaultValue);
}
