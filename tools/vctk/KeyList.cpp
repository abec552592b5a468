#include "KeyList.h"

#include <errno.h>
#include <stdlib.h>
#include <sys/stat.h>

#include "Failure.h"
#include "Files.h"

namespace vctk {
namespace {

// The key store, and every token that the system knows.
const char kBuiltIn[] =
    "<authinfo><liblist>"
    "<lib type=\"CSP\" version=\"1\" dllname=\"\"><algid val=\"SHA256\" sm2_hashalg=\"SM3\"/></lib>"
    "<lib type=\"P11\" version=\"1\" dllname=\"\"><algid val=\"SHA256\" sm2_hashalg=\"SM3\"/></lib>"
    "</liblist></authinfo>";

// A key list is a page of text; more is a mistake in the name of the file.
const size_t kMaxSize = 16 * 1024 * 1024;

std::string Environment(const char* name) {
  const char* const value = getenv(name);
  return value == nullptr ? std::string() : value;
}

// A relative $XDG_CONFIG_HOME does not count, as the base directory rules of desktops have it.
std::string UserFile() {
  const std::string folder = Environment("XDG_CONFIG_HOME");
  if (!folder.empty() && folder[0] == '/') return folder + "/vel/keylist.xml";
  const std::string home = Environment("HOME");
  return home.empty() ? std::string() : home + "/.config/vel/keylist.xml";
}

bool IsMissing(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

KeyList Load(const std::string& path) {
  std::string text = ReadFile(path, kMaxSize);
  if (text.find('\0') != std::string::npos) {
    throw Failure(kFile, path + " is no key list: it holds zero bytes");
  }
  return {text, path};
}

}  // namespace

KeyList FindKeyList(const std::string& path) {
  if (!path.empty()) return Load(path);
  const std::string named = Environment("VCTK_KEY_LIST");
  if (!named.empty()) return Load(named);
  for (const std::string& candidate : {UserFile(), std::string("/etc/vel/keylist.xml")}) {
    if (!candidate.empty() && !IsMissing(candidate)) return Load(candidate);
  }
  return {kBuiltIn, "the built-in key list"};
}

}  // namespace vctk
