#include "KeyPatch.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <memory>

#include "WriteLog.h"

namespace {

struct PatchPlace {
  const char* installed;  // the folder whose presence selects the place
  const char* parent;     // where the patch folders lie
  const char* pattern;    // what their names contain
  const char* file;       // the patch file within one of them
};

// The first place that exists is the only one that is read.
const PatchPlace kPlaces[] = {
    {"/opt/apps/" VCTK_PACKAGE_ID "/files/QLM", "/opt/apps/", VCTK_PACKAGE_ID ".patch",
     "/files/QLM/keypatch.xml"},
    {"/usr/local/vel/QLM", "/usr/local/vel/", "QLM.patch", "/keypatch.xml"},
};

bool IsFolder(const char* path) {
  struct stat info;
  return stat(path, &info) == 0 && S_ISDIR(info.st_mode);
}

// The type bits of an entry, links not followed; some file systems leave d_type open.
mode_t TypeOf(DIR* dir, const dirent* entry) {
  if (entry->d_type != DT_UNKNOWN) return DTTOIF(entry->d_type);
  struct stat info;
  if (fstatat(dirfd(dir), entry->d_name, &info, AT_SYMLINK_NOFOLLOW) != 0) return 0;
  return info.st_mode & S_IFMT;
}

std::vector<std::string> ListEntries(const std::string& dir, const std::string& pattern,
                                     mode_t wanted) {
  std::vector<std::string> names;
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(opendir(dir.c_str()), closedir);
  if (stream == nullptr) return names;
  while (const dirent* entry = readdir(stream.get())) {
    const std::string name = entry->d_name;
    if (name == "." || name == "..") continue;
    if (TypeOf(stream.get(), entry) != wanted) continue;
    if (pattern == "*" || name.find(pattern) != std::string::npos) names.push_back(name);
  }
  return names;
}

}  // namespace

std::vector<std::string> GetListFiles(const std::string& dir, const std::string& pattern) {
  return ListEntries(dir, pattern, S_IFREG);
}

std::vector<std::string> GetListFolders(const std::string& dir, const std::string& pattern) {
  return ListEntries(dir, pattern, S_IFDIR);
}

void GetKeyPatchXml(std::string& out) {
  for (const PatchPlace& place : kPlaces) {
    if (!IsFolder(place.installed)) continue;
    for (const std::string& folder : GetListFolders(place.parent, place.pattern)) {
      out += GetFileContent(place.parent + folder + place.file);
    }
    return;
  }
}
