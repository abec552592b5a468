#pragma once
// Reading a file whole, and writing a result so that it is there whole or not at all.
#include <stddef.h>

#include <string>

namespace vctk {

// Gives the program's real standard output a descriptor of its own and sends what libraries print
// there to standard error, so that a chatty driver spoils no output. Once, before any library
// call.
void ClaimStandardOutput();

// Writes all of `text` to the real standard output, or throws a Failure (also on a closed pipe).
void Print(const std::string& text);

bool StandardOutputIsTerminal();

// The bytes of the file, of standard input for "-". A Failure when it cannot be read or has more
// than maxSize bytes.
std::string ReadFile(const std::string& path, size_t maxSize);

// A file to be made. The constructor finds out that it cannot be written, before any PIN is asked
// for: it makes a file beside the target, which Commit renames to it; without Commit nothing
// remains. A target that is no ordinary file (a pipe, a device) is written directly. An empty path
// is standard output.
class OutputFile {
 public:
  explicit OutputFile(const std::string& path);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // Throws a Failure; the target is then as it was.
  void Commit(const std::string& bytes);

 private:
  std::string m_path;
  std::string m_temporary;  // empty when written directly or already renamed
  int m_file = -1;
};

}  // namespace vctk
