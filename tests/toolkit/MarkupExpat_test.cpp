// The same elements, depths, names and attribute values as expat finds in the XML files that are
// about on the machine.
#include <expat.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "Markup.h"

namespace {

namespace fs = std::filesystem;

constexpr size_t kMaxFiles = 4000;
constexpr size_t kMaxBytes = 1 << 20;

std::vector<fs::path> FindFiles() {
  std::vector<fs::path> files;
  for (const char* const folder : {"/usr/share", "/usr/lib", "/etc"}) {
    std::error_code error;
    fs::recursive_directory_iterator it(folder, fs::directory_options::skip_permission_denied,
                                        error);
    for (; !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
      const std::string extension = it->path().extension().string();
      std::error_code none;
      if ((extension == ".xml" || extension == ".svg" || extension == ".ui" ||
           extension == ".xsl" || extension == ".conf" || extension == ".policy") &&
          it->is_regular_file(none) && it->file_size(none) < kMaxBytes) {
        files.push_back(it->path());
      }
      if (files.size() == kMaxFiles) return files;
    }
  }
  return files;
}

std::wstring Widen(const char* utf8) {
  std::wstring wide;
  while (*utf8 != 0) wide += static_cast<wchar_t>(CMarkup::DecodeCharUTF8(utf8));
  return wide;
}

// expat reports white space in values as blanks, unless it came by a reference.
std::wstring Blanks(const std::wstring& value) {
  std::wstring text;
  for (size_t i = 0; i < value.length(); ++i) {
    if (value[i] == L'\r' && i + 1 < value.length() && value[i + 1] == L'\n') continue;
    const bool space = value[i] == L'\t' || value[i] == L'\n' || value[i] == L'\r';
    text += space ? L' ' : value[i];
  }
  return text;
}

struct Comparison {
  const CMarkup* doc = nullptr;
  XML_Parser parser = nullptr;
  int pos = 0;
  int depth = 0;
  int attributes = 0;
  std::string fault;
};

int CountAttributes(const CMarkup& doc, int iPos) {
  TokenPos token(doc.GetDoc().c_str(), 0);
  token.m_nNext = doc.x_Elem(iPos).nStart + 1;
  token.ReadTagName();
  int count = 0;
  while (token.NextAttrib()) ++count;
  return count;
}

// Positions are given in the order of the document.
std::string Compare(Comparison& c, const XML_Char* name, const XML_Char** attributes) {
  if (++c.pos >= c.doc->m_iPosFree) return "element missing";
  if (c.doc->x_GetTagName(c.pos) != Widen(name)) return "name";
  if ((c.doc->x_Elem(c.pos).nFlags & ElemPos::LEVEL_MASK) != c.depth++) return "depth";
  const int specified = XML_GetSpecifiedAttributeCount(c.parser);
  if (CountAttributes(*c.doc, c.pos) != specified / 2) return "number of attributes";
  for (int i = 0; i < specified; i += 2, ++c.attributes) {
    const std::wstring value = c.doc->x_GetAttrib(c.pos, Widen(attributes[i]));
    if (Blanks(value) != Blanks(Widen(attributes[i + 1]))) return attributes[i];
  }
  return std::string();
}

void XMLCALL OnStart(void* data, const XML_Char* name, const XML_Char** attributes) {
  Comparison& c = *static_cast<Comparison*>(data);
  if (!c.fault.empty()) return;
  c.fault = Compare(c, name, attributes);
  if (!c.fault.empty()) c.fault += std::string(" at ") + name;
}

void XMLCALL OnEnd(void* data, const XML_Char*) {
  --static_cast<Comparison*>(data)->depth;
}

}  // namespace

TEST(MarkupExpat, FilesOfTheSystemAreReadAlike) {
  int files = 0;
  int elements = 0;
  int attributes = 0;
  for (const fs::path& path : FindFiles()) {
    std::ifstream file(path, std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(file), {});
    // Entities and types of attributes are for those who read document types.
    if (bytes.find("<!ENTITY") != std::string::npos) continue;
    if (bytes.find("<!ATTLIST") != std::string::npos) continue;
    CMarkup doc;
    const bool wellFormed = doc.Load(path.string());
    Comparison c;
    c.doc = &doc;
    c.parser = XML_ParserCreate(nullptr);
    XML_SetUserData(c.parser, &c);
    XML_SetElementHandler(c.parser, OnStart, OnEnd);
    const int length = static_cast<int>(bytes.length());
    const bool parsed = XML_Parse(c.parser, bytes.data(), length, 1) == XML_STATUS_OK;
    XML_ParserFree(c.parser);
    if (!parsed) continue;  // not XML, or an encoding that expat does not know
    ++files;
    elements += c.pos;
    attributes += c.attributes;
    EXPECT_TRUE(wellFormed) << path;
    EXPECT_EQ(c.fault, "") << path;
    EXPECT_EQ(c.pos, doc.m_iPosFree - 1) << path;
  }
  if (files == 0) GTEST_SKIP() << "no XML files on this machine";
  printf("%d files, %d elements, %d attributes\n", files, elements, attributes);
}
