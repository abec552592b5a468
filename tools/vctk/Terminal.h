#pragma once
// Asking and telling on the terminal.
#include <string>

namespace vctk {

class Pin;

// Shows the prompt on the controlling terminal and reads a line without echo into `pin`. A signal
// that ends the program takes effect after the echo is back. Throws a Failure when there is no
// terminal.
void AskTerminal(const std::string& prompt, Pin& pin);

// The text with control characters replaced by "?": names come from certificates that anyone can
// make, and a terminal would obey the escape sequences in them.
std::string Printable(const std::string& text);

}  // namespace vctk
