// The main of a fuzz target where no fuzzer drives it: runs the target on every file named, and on
// every file of the folders named.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "Fuzz.h"

namespace fs = std::filesystem;

int main(int argc, char** argv) {
  std::vector<fs::path> files;
  for (int i = 1; i < argc; ++i) {
    if (!fs::is_directory(argv[i])) {
      files.push_back(argv[i]);
      continue;
    }
    for (const auto& entry : fs::directory_iterator(argv[i])) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  for (const fs::path& path : files) {
    std::ifstream file(path, std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(file), {});
    printf("%s: %zu bytes\n", path.c_str(), bytes.length());
    fflush(stdout);
    if (!file) return 1;
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.length());
  }
  return files.empty() ? 1 : 0;
}
