#pragma once
// Files of the key store: bounded reading, replacing as a whole, and errno as outcomes. Symbolic
// links are not followed. Folders are given as open descriptors.
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "../Outcome.h"

namespace velcrypto {

class Descriptor {
 public:
  explicit Descriptor(int number = -1) : m_number(number) {}
  Descriptor(Descriptor&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(m_number, other.m_number);
    return *this;
  }
  ~Descriptor() {
    if (m_number >= 0) close(m_number);
  }
  int get() const { return m_number; }
  bool ok() const { return m_number >= 0; }

 private:
  int m_number;
};

// Tells whether a file is still the one that was read, and unchanged.
struct FileStamp {
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  timespec modified = {};
  timespec changed = {};

  FileStamp() = default;
  explicit FileStamp(const struct stat& info);
  bool operator==(const FileStamp& other) const;
  bool operator!=(const FileStamp& other) const { return !(*this == other); }
};

// errno of the call `what`; the one table of the key store from system errors to codes.
Outcome SystemOutcome(Code fallback, const std::string& what);

Descriptor OpenFolder(const std::string& path);

// Reads a regular file of at most `maxSize` bytes.
Outcome ReadFileOf(const Descriptor& folder, const std::string& name, size_t maxSize,
                   std::vector<BYTE>* content, FileStamp* stamp);

// Puts a new file (mode 0600) in the place of `name`. Whatever happens on the way, power failure
// included, the name stands for the whole old or the whole new content.
Outcome ReplaceFile(const Descriptor& folder, const std::string& name,
                    const std::vector<BYTE>& content);

}  // namespace velcrypto
