#pragma once
// A program on a pseudo-terminal: typed to, and read as a user would.
#include <sys/types.h>

#include <string>

#include "Program.h"

class Terminal {
 public:
  // Starts the program with the terminal as its controlling one and as all three standard streams;
  // the invocation's input and outPath do not count.
  explicit Terminal(const Invocation& invocation);
  ~Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  // All that was shown until the text appears; throws when the program ends or shows
  // nothing for minutes without it.
  std::string WaitFor(const std::string& text);

  void Type(const std::string& keys);

  // Whether typed characters are echoed now.
  bool Echoes() const;

  pid_t Child() const { return m_child; }

  // What was shown behind the last WaitFor, until the end of the program, and its exit code.
  Outcome Finish();

 private:
  bool TakeMore();

  pid_t m_child = -1;
  int m_file = -1;
  std::string m_shown;
};
