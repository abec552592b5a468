#pragma once
// The path that FindElem takes: names separated by "/", each with at most one predicate in
// brackets, perhaps "/@attribute" at the end.

struct PathPos {
  enum : int {
    PATH_INVALID = -1,
    PATH_EMPTY = 0,
    PATH_NAME = 1,      // one plain name
    PATH_NAMED = 2,     // names, predicates, an attribute
    PATH_ANYWHERE = 3,  // begins with "//"
    PATH_ABSOLUTE = 4,  // begins with "/"
  };

  // The text is not owned; null is the empty path.
  PathPos(const wchar_t* pszPath, bool b = false);  // NOLINT: converts

  // Sets nPathType and iPathAttribName; false for an invalid path. A null or empty path is valid.
  bool ParsePath();
  bool IsPath() const { return nPathType > PATH_EMPTY; }
  // A path that is looked for among siblings by its first name.
  bool IsRelative() const { return nPathType == PATH_NAME || nPathType == PATH_NAMED; }
  const wchar_t* GetPtr() const { return p + i; }

  int nPathType;
  bool bReader;         // reading a file: no predicate may be a name
  const wchar_t* p;     // the path text
  int i;                // scan index; after ParsePath that of the first name
  int iPathAttribName;  // index of the attribute name behind the last "/@", 0 = none
  int iSave;            // scan index put by
  int nLen;             // length of the path text

 private:
  bool ParseNames();
  bool ParseName();
  bool ParsePredicate();
  bool ParseValue();
};
