#include "MemoryScan.h"

#include <errno.h>
#include <fcntl.h>
#include <inttypes.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <stdexcept>

namespace {

struct Region {
  uint64_t begin, end;
};

// Without the shadow that sanitizers keep, which is larger than any disk.
std::vector<Region> RegionsOf(pid_t process) {
  std::ifstream maps("/proc/" + std::to_string(process) + "/maps");
  std::vector<Region> regions;
  for (std::string line; std::getline(maps, line);) {
    Region region = {};
    char rights[5] = {};
    if (sscanf(line.c_str(), "%" SCNx64 "-%" SCNx64 " %4s", &region.begin, &region.end, rights) !=
        3) {
      throw std::runtime_error("strange line: " + line);
    }
    const bool special = line.find("[v") != std::string::npos;
    const bool huge = region.end - region.begin > uint64_t{1} << 28;
    if (rights[0] == 'r' && !special && !huge) regions.push_back(region);
  }
  return regions;
}

class Search {
 public:
  explicit Search(const std::vector<std::string>& wanted)
      : m_wanted(wanted), m_found(wanted.size(), false) {
    for (const std::string& bytes : wanted) m_overlap = std::max(m_overlap, bytes.size() - 1);
  }

  // Blocks overlap, so that nothing is cut in two.
  void LookInto(int memory, const Region& region) {
    const size_t kBlock = 1 << 20;
    std::string block;
    for (uint64_t at = region.begin; at < region.end;) {
      block.erase(0, block.size() - std::min(block.size(), m_overlap));
      const size_t kept = block.size();
      block.resize(kept + std::min<uint64_t>(kBlock, region.end - at));
      const ssize_t got = pread(memory, &block[kept], block.size() - kept, static_cast<off_t>(at));
      if (got <= 0) return;  // a file that is shorter than its mapping
      block.resize(kept + static_cast<size_t>(got));
      at += static_cast<uint64_t>(got);
      for (size_t i = 0; i < m_wanted.size(); ++i) {
        if (!m_found[i]) m_found[i] = block.find(m_wanted[i]) != std::string::npos;
      }
    }
  }

  std::vector<std::string> Found() const {
    std::vector<std::string> found;
    for (size_t i = 0; i < m_wanted.size(); ++i) {
      if (m_found[i]) found.push_back(m_wanted[i]);
    }
    return found;
  }

 private:
  const std::vector<std::string> m_wanted;
  std::vector<bool> m_found;
  size_t m_overlap = 0;
};

std::string Spread(const std::string& text, size_t zeros) {
  std::string result;
  for (const char c : text) {
    if (!result.empty()) result.append(zeros, '\0');
    result += c;
  }
  return result;
}

}  // namespace

std::vector<std::string> FormsOf(const std::string& text) {
  return {text, Spread(text, 1), Spread(text, 3)};
}

std::vector<std::string> FoundInMemory(pid_t process, const std::vector<std::string>& wanted) {
  const std::string path = "/proc/" + std::to_string(process) + "/mem";
  const int memory = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (memory < 0) throw std::runtime_error(path + ": " + strerror(errno));
  Search search(wanted);
  for (const Region& region : RegionsOf(process)) search.LookInto(memory, region);
  close(memory);
  return search.Found();
}
