#pragma once
// PINs: where they come from, and a place to keep one that is wiped and stays out of core dumps.
#include <stddef.h>

#include <string>

namespace vctk {

// Has no printer and no copy on purpose. The memory is locked and wiped at the end.
class Pin {
 public:
  static constexpr size_t kMaxLength = 1024;

  Pin();
  ~Pin();
  Pin(const Pin&) = delete;
  Pin& operator=(const Pin&) = delete;

  const char* Text() const { return m_text; }
  bool IsEmpty() const { return m_length == 0; }
  bool Equals(const Pin& other) const;
  void Clear();

  // False, and nothing changed, for a zero byte and when the PIN is full.
  bool Append(char c);

 private:
  char m_text[kMaxLength + 1];
  size_t m_length = 0;
};

// One command's source of PINs, asked once for each PIN. A file or standard input gives one PIN a
// line; the terminal is asked without echo.
class PinSource {
 public:
  // file  path of a file, "-" for standard input, or empty: standard input when it is a pipe, a
  //       file or a socket that is not taken, else nobody gave a PIN and the terminal is asked.
  // standardInputTaken  the data to sign come from there.
  // Throws a Failure when the file cannot be opened.
  PinSource(const std::string& file, bool standardInputTaken);
  ~PinSource();
  PinSource(const PinSource&) = delete;
  PinSource& operator=(const PinSource&) = delete;

  // prompt  shown on the terminal, without line end.
  // Throws a Failure when there is no PIN, an empty or an over-long one, or no terminal to ask.
  void Read(const std::string& prompt, Pin& pin);

  // Whether Read would ask: nobody gave a PIN.
  bool IsTerminal() const { return m_isTerminal; }

 private:
  int m_file = -1;
  bool m_isTerminal = false;
  bool m_isOwn = false;
};

}  // namespace vctk
