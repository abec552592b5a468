#pragma once
// The terminal of the user who runs this process.
#include <termios.h>

#include <string>

namespace velcrypto {

// Its device file; empty when there is none, or when the process is in the background of it, where
// it must not be read.
std::string UserTerminal();

// The settings of a terminal, kept for a dialog that may die and leave it without echo.
class TerminalSettings {
 public:
  explicit TerminalSettings(const std::string& terminal);
  ~TerminalSettings();
  TerminalSettings(const TerminalSettings&) = delete;
  TerminalSettings& operator=(const TerminalSettings&) = delete;

  void PutBack() const;

 private:
  int m_file = -1;
  termios m_settings = {};
};

}  // namespace velcrypto
