#pragma once
// Asking and telling on the terminal.
#include <signal.h>

#include <string>

namespace vctk {

class Pin;

// Shows the prompt on the controlling terminal and reads a line without echo into `pin`. A signal
// that ends the program takes effect after the echo is back. Throws a Failure when there is no
// terminal.
void AskTerminal(const std::string& prompt, Pin& pin);

// While it lives, the keys that interrupt a program do not end this one: a dialog on the terminal
// gets them too, and has to put the terminal right first. What was pressed counts afterwards.
class KeyboardSignals {
 public:
  KeyboardSignals();
  ~KeyboardSignals();
  KeyboardSignals(const KeyboardSignals&) = delete;
  KeyboardSignals& operator=(const KeyboardSignals&) = delete;

 private:
  struct sigaction m_interrupt = {};
  struct sigaction m_quit = {};
};

// The text with control characters replaced by "?": names come from certificates that anyone can
// make, and a terminal would obey the escape sequences in them.
std::string Printable(const std::string& text);

}  // namespace vctk
