#pragma once
// A bar on the terminal for work of several steps; nothing elsewhere.
#include <stddef.h>

#include <string>

namespace vctk {

class Progress {
 public:
  // Shown on standard error when that is a terminal and there is more than one step.
  explicit Progress(size_t steps);
  ~Progress();  // wipes the bar away
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // `done` steps are done, and `name` is at work.
  void Show(size_t done, const std::string& name);

  // Wipes the bar away while others use the terminal.
  void Hide();

 private:
  const size_t m_steps;
  const bool m_isShown;
};

}  // namespace vctk
