#include "MarkupPath.h"

#include <cwchar>

PathPos::PathPos(const wchar_t* pszPath, bool b)
    : nPathType(PATH_EMPTY),
      bReader(b),
      p(pszPath != nullptr ? pszPath : L""),
      i(0),
      iPathAttribName(0),
      iSave(0),
      nLen(static_cast<int>(wcslen(p))) {}

bool PathPos::ParsePath() {
  i = 0;
  iPathAttribName = 0;
  nPathType = PATH_EMPTY;
  if (nLen == 0) return true;
  const int type = p[0] != L'/' ? PATH_NAME : p[1] == L'/' ? PATH_ANYWHERE : PATH_ABSOLUTE;
  i = iSave = type == PATH_NAME ? 0 : type == PATH_ABSOLUTE ? 1 : 2;
  nPathType = type;
  if (!ParseNames()) nPathType = PATH_INVALID;
  i = iSave;
  return nPathType != PATH_INVALID;
}

bool PathPos::ParseNames() {
  for (;;) {
    if (!ParseName()) return false;
    if (p[i] == 0) return true;
    if (nPathType == PATH_NAME) nPathType = PATH_NAMED;
    if (p[i] == L'[') {
      if (p[i + 1] == 0) return true;  // a bare "[" behind a name asks for nothing
      if (!ParsePredicate()) return false;
      if (p[i] == 0) return true;
    }
    if (p[i] != L'/' || nPathType == PATH_ANYWHERE) return false;
    ++i;
    if (p[i] == 0) return true;  // nor does a bare "/"
    if (p[i] == L'@') {
      iPathAttribName = ++i;
      return ParseName() && p[i] == 0;
    }
  }
}

bool PathPos::ParseName() {
  const int length = static_cast<int>(wcscspn(p + i, L" =/[]@"));
  i += length;
  return length > 0 && p[i] != L'@';
}

bool PathPos::ParsePredicate() {
  ++i;
  if (p[i] >= L'1' && p[i] <= L'9') {
    i += static_cast<int>(wcsspn(p + i, L"0123456789"));
  } else if (p[i] == L'@') {
    ++i;
    if (!ParseName()) return false;
    if (p[i] == L'=' && !ParseValue()) return false;
  } else if (bReader || (p[i] >= L'0' && p[i] <= L'9') || !ParseName()) {
    return false;
  }
  return p[i++] == L']';
}

bool PathPos::ParseValue() {
  ++i;
  if (p[i] == L'"' || p[i] == L'\'') {
    const wchar_t* const end = wcschr(p + i + 1, p[i]);
    if (end == nullptr) return false;
    i = static_cast<int>(end - p) + 1;
    return true;
  }
  const int length = static_cast<int>(wcscspn(p + i, L"]"));
  i += length;
  return length > 0;
}
