#pragma once
// Which shared libraries this process has loaded, and why the device library is not one of them.
#include <string>
#include <vector>

namespace vctk {

// Files of the shared libraries that are loaded now, sorted.
std::vector<std::string> LoadedLibraries();

// The one whose file name begins with `stem`; empty when there is none.
std::string FindLibrary(const std::vector<std::string>& libraries, const std::string& stem);

// Those of `after` that `before` lacks.
std::vector<std::string> Added(const std::vector<std::string>& before,
                               const std::vector<std::string>& after);

// In the loader's words; or which entry point the library lacks; empty when nothing is wrong.
std::string WhyDeviceLibraryFails();

}  // namespace vctk
