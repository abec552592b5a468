#include "Libraries.h"

#include <dlfcn.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

namespace vctk {
namespace {

const char* const kFactories[] = {"DeviceSet",     "Certificate", "AuxClass",   "CertUI",
                                  "DeviceManager", "CallQueue",   "SessionKey", "TokenPrivileges",
                                  "Device",        "Application", "HashKey",    "Container"};

std::string FileName(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

bool IsLibrary(const std::string& path) {
  const std::string name = FileName(path);
  const size_t at = name.find(".so");
  return !path.empty() && path[0] == '/' && at != std::string::npos &&
         (at + 3 == name.size() || name[at + 3] == '.');
}

}  // namespace

std::vector<std::string> LoadedLibraries() {
  std::set<std::string> libraries;
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    const size_t at = line.find('/');
    if (at != std::string::npos && IsLibrary(line.substr(at))) libraries.insert(line.substr(at));
  }
  return {libraries.begin(), libraries.end()};
}

std::string FindLibrary(const std::vector<std::string>& libraries, const std::string& stem) {
  for (const std::string& path : libraries) {
    if (FileName(path).compare(0, stem.size(), stem) == 0) return path;
  }
  return std::string();
}

std::vector<std::string> Added(const std::vector<std::string>& before,
                               const std::vector<std::string>& after) {
  std::vector<std::string> added;
  std::set_difference(after.begin(), after.end(), before.begin(), before.end(),
                      std::back_inserter(added));
  return added;
}

std::string WhyDeviceLibraryFails() {
  void* const library = dlopen("libVELCrypto64.so", RTLD_LAZY | RTLD_LOCAL);
  if (library == nullptr) return dlerror();
  std::string lacking;
  for (const char* const name : kFactories) {
    const std::string symbol = std::string("CreateUsbKeyInstance_") + name;
    if (dlsym(library, symbol.c_str()) == nullptr) {
      lacking += (lacking.empty() ? "lacks " : ", ") + symbol;
    }
  }
  dlclose(library);
  return lacking;
}

}  // namespace vctk
