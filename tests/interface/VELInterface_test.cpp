// What the library shows to others: its dynamic symbols and their version, and the widths of its
// types.
#include <gtest/gtest.h>
#include <stdio.h>

#include <set>
#include <sstream>
#include <string>

#include "VELInterface.h"

namespace {

static_assert(sizeof(DWORD) == 8 && sizeof(ULONG) == 8 && sizeof(LONG) == 8 && sizeof(SIZE_T) == 8);
static_assert(sizeof(BOOL) == 4 && sizeof(UINT) == 4 && sizeof(INT) == 4 && sizeof(WCHAR) == 4);
static_assert(sizeof(USHORT) == 2 && sizeof(WORD) == 2 && sizeof(BYTE) == 1 &&
              sizeof(BOOLEAN) == 1);
static_assert(sizeof(ULONGLONG) == 8 && sizeof(LARGE_INTEGER) == 8 && sizeof(SYSTEMTIME) == 16);
static_assert(sizeof(HANDLE) == 8);

const std::set<std::string> kFunctions = {
    "CloseHandle",
    "FlushFileBuffers",
    "GetFileSizeEx",
    "GetLastError",
    "GetPrivateProfileIntA",
    "GetProcessHeap",
    "GetTickCount",
    "HeapAlloc",
    "HeapFree",
    "HeapReAlloc",
    "HeapSize",
    "MultiByteToWideChar",
    "PathFileExistsW",
    "PathIsDirectoryW",
    "PathRemoveFileSpecW",
    "ReadFile",
    "SHCreateDirectoryExW",
    "SetEndOfFile",
    "SetFilePointerEx",
    "VelCreateFile",
    "WideCharToMultiByte",
    "WriteFile",
    "_wcsicmp",
    "lstrcmpW",
    "lstrlenA",
    "lstrlenW",
    "memcpy_s",
    "strcpy_s",
    "strncpy_s",
    "wcscpy_s",
};

std::string OutputOf(const std::string& command) {
  std::string text;
  FILE* const pipe = popen(command.c_str(), "r");
  char part[4096];
  for (size_t count; (count = fread(part, 1, sizeof(part), pipe)) > 0;) text.append(part, count);
  EXPECT_EQ(pclose(pipe), 0) << command;
  return text;
}

TEST(VELInterface, ExportsItsFunctionsUnderItsVersionAndNothingElse) {
  std::istringstream lines(OutputOf("nm -D --defined-only --with-symbol-versions " LIBRARY_FILE));
  std::set<std::string> expected, found;
  for (const std::string& name : kFunctions) expected.insert("T " + name + "@@VELINTERFACE_1.0");
  expected.insert("A VELINTERFACE_1.0");  // the version itself
  std::string address, type, name;
  while (lines >> address >> type >> name) {
    if (type == "A") name = name.substr(0, name.find('@'));
    found.insert(type + " " + name);
  }
  EXPECT_EQ(found, expected);
}

TEST(VELInterface, NeedsTheCAndCxxRuntimeAlone) {
  std::istringstream lines(OutputOf("readelf -dW " LIBRARY_FILE));
  for (std::string line; std::getline(lines, line);) {
    if (line.find("(NEEDED)") == std::string::npos) continue;
    const std::string name = line.substr(line.find('[') + 1);
    const bool isRuntime = name.rfind("libc.so", 0) == 0 || name.rfind("libstdc++.so", 0) == 0 ||
                           name.rfind("libm.so", 0) == 0 || name.rfind("libgcc_s.so", 0) == 0 ||
                           name.rfind("ld-linux", 0) == 0;
    const bool isSanitizer = name.find("san.so") != std::string::npos;
    EXPECT_TRUE(isRuntime || isSanitizer) << name;
  }
}

}  // namespace
