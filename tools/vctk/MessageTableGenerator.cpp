// Writes MessageTable.cpp to the file that is named: every code that CVELErrorMessage knows.
#include <locale.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "VelUsbKeyErrorMessage.h"

namespace {

const int kTriesMark = 987654;  // stands where the text says how many tries are left

std::string Utf8Of(const wchar_t* text) {
  const size_t length = wcstombs(nullptr, text, 0);
  if (length == static_cast<size_t>(-1)) {
    fprintf(stderr, "a message cannot be written as UTF-8\n");
    exit(1);
  }
  std::string result(length, '\0');
  wcstombs(&result[0], text, length + 1);
  return result;
}

std::string WithoutTries(std::string text) {
  const std::string mark = std::to_string(kTriesMark);
  const size_t at = text.find(mark);
  return at == std::string::npos ? text : text.replace(at, mark.size(), "?");
}

std::string Quoted(const std::string& text) {
  std::string result = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') result += '\\';
    result += c;
  }
  return result + "\"";
}

// All codes from `first` to `last`: the families lie in these ranges, and codes that are added to
// one later are found without a change here.
void WriteRange(FILE* out, unsigned long first, unsigned long last) {
  for (unsigned long code = first; code <= last; ++code) {
    CString message;
    if (CVELErrorMessage::GetErrorcodeMessage(code, message) != 0) continue;
    const std::string text = WithoutTries(Utf8Of(message));
    fprintf(out, "    {0x%08lXu, %s},\n", code, Quoted(text).c_str());
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2 || setlocale(LC_ALL, "C.UTF-8") == nullptr) return 1;
  FILE* const out = fopen(argv[1], "w");
  if (out == nullptr) {
    perror(argv[1]);
    return 1;
  }
  CVELErrorMessage::retrytimes = kTriesMark;
  fputs("#include \"MessageTable.h\"\n\nnamespace vctk {\n\n", out);
  fputs("const MessageEntry kMessageTable[] = {\n", out);
  WriteRange(out, 0x00000000, 0x0000FFFF);
  WriteRange(out, 0xA00F0000, 0xA00FFFFF);
  WriteRange(out, 0xE0000000, 0xE00FFFFF);
  fputs("};\n", out);
  fputs("const size_t kMessageTableSize = sizeof(kMessageTable) / sizeof(kMessageTable[0]);\n",
        out);
  fputs("\n}  // namespace vctk\n", out);
  return fclose(out) == 0 ? 0 : 1;
}
