#pragma once
// Running a program as its users do: arguments, environment, standard input, a terminal.
#include <map>
#include <string>
#include <vector>

struct Outcome {
  int exitCode = -1;  // 128 + the signal's number when a signal ended it
  std::string out;
  std::string err;
};

struct Invocation {
  std::vector<std::string> command;  // the program's path or a name in PATH, and its arguments
  // All of it, but for PATH, LD_LIBRARY_PATH and the options of sanitizers.
  std::map<std::string, std::string> environment;
  std::string input;       // standard input, a pipe
  std::string outPath;     // a file that takes standard output, else caught
  bool outBroken = false;  // standard output is a pipe that nobody reads
  std::string folder;      // to run in; empty: this one
};

// Throws std::runtime_error when the program cannot be started or runs for minutes.
Outcome RunProgram(const Invocation& invocation);

// The standard output of a command that must succeed; throws with its standard error otherwise.
std::string OutputOf(const std::vector<std::string>& command, const std::string& input = "");

// A folder of its own below the temporary folder, gone with the object.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::string& Path() const { return m_path; }
  std::string File(const std::string& name) const { return m_path + "/" + name; }

 private:
  std::string m_path;
};

void WriteText(const std::string& path, const std::string& bytes);
std::string ReadText(const std::string& path);
