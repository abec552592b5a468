#pragma once
// A screen of the test's own (Xvfb) with a window manager (openbox), and the keyboard and mouse of
// its user (xdotool).
#include <functional>
#include <string>

#include "ChildProgram.h"

// Polls until the condition holds; false after a minute, for a busy machine may take its time.
bool Eventually(const std::function<bool()>& condition);

class Screen {
 public:
  Screen();
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;

  const std::string& Name() const { return m_name; }  // for $DISPLAY

  // Ends the server, as a crash of the desktop does.
  void Break();

  struct Window {
    std::string id;
    int width = 0, height = 0;  // without the window manager's frame
  };

  // The window with exactly this title, once it is there and has the keyboard.
  Window WaitForWindow(const std::string& title) const;
  bool HasWindow(const std::string& title) const;

  void Press(const std::string& keys) const;  // names of keys, blanks between
  void Click(const Window& window, int x, int y, int times = 1) const;
  int ProcessOf(const Window& window) const;
  void CutConnection(const Window& window) const;

 private:
  std::string Do(const std::string& arguments) const;

  velcrypto::ChildProgram m_server;
  velcrypto::ChildProgram m_manager;
  std::string m_name;
};
