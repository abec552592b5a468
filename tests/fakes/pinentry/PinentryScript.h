#pragma once
// The fake pinentry as this process's PIN program: its script, and what it was told. In the
// environment while it lives; one at a time.
#include <stdlib.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

class PinentryScript {
 public:
  // `folder` takes the script and the log.
  explicit PinentryScript(const std::string& folder) : m_folder(folder) {
    setenv("FAKE_PINENTRY", m_folder.c_str(), 1);
    setenv("VEL_PINENTRY", FAKE_PINENTRY_PATH, 1);
  }
  ~PinentryScript() {
    unsetenv("FAKE_PINENTRY");
    setenv("VEL_PINENTRY", "/nonexistent/pinentry", 1);
  }
  PinentryScript(const PinentryScript&) = delete;
  PinentryScript& operator=(const PinentryScript&) = delete;

  // Lines as FakePinentry.cpp has them. For programs that start from now on.
  void Play(const std::vector<std::string>& lines) const {
    std::ofstream file(m_folder + "/script", std::ios::trunc);
    for (const std::string& line : lines) file << line << "\n";
  }

  // Everything that all its programs were told.
  std::vector<std::string> Log() const {
    std::ifstream file(m_folder + "/log");
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    return lines;
  }

  // What follows the keyword, of each line that begins with it.
  std::vector<std::string> Told(const std::string& keyword) const {
    std::vector<std::string> found;
    for (const std::string& line : Log()) {
      if (line == keyword) found.push_back("");
      if (line.rfind(keyword + " ", 0) == 0) found.push_back(line.substr(keyword.size() + 1));
    }
    return found;
  }

  // A file for the reactions that wait for one or make one.
  std::string File(const std::string& name) const { return m_folder + "/" + name; }

 private:
  const std::string m_folder;
};
