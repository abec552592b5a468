#pragma once
// The key list: which kinds of keys are looked for, and where.
#include <string>

namespace vctk {

struct KeyList {
  std::string text;
  std::string origin;  // its file, or "the built-in key list"
};

// The list in `path`; when that is empty in $VCTK_KEY_LIST, in vel/keylist.xml of the user's
// configuration folder ($XDG_CONFIG_HOME, else ~/.config), in /etc/vel/keylist.xml, or the
// built-in one with the key store alone. The first that exists counts: one that exists and cannot
// be read is a Failure, as is a named one that does not exist.
KeyList FindKeyList(const std::string& path);

}  // namespace vctk
