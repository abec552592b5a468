#include "Screen.h"

#include <stdlib.h>
#include <unistd.h>

#include <sstream>
#include <stdexcept>
#include <vector>

#include "Program.h"

using velcrypto::ChildProgram;

namespace {

ChildProgram::Deadline Soon() {
  return ChildProgram::Clock::now() + std::chrono::minutes(3);
}

// Programs that end with this one, however it ends.
void StartTied(ChildProgram& program, std::vector<std::string> command,
               const std::vector<std::string>& variables) {
  command.insert(command.begin(), {"--pdeathsig", "KILL"});
  if (!program.Start(velcrypto::FindProgram("setpriv", {}), command, variables).ok()) {
    throw std::runtime_error("cannot start " + command[2]);
  }
}

}  // namespace

bool Eventually(const std::function<bool()>& condition) {
  const ChildProgram::Deadline deadline = Soon();
  while (!condition()) {
    if (ChildProgram::Clock::now() > deadline) return false;
    usleep(20 * 1000);
  }
  return true;
}

Screen::Screen() {
  // Without -noreset it begins anew when its last client leaves, and takes a window manager that
  // comes just then with it.
  StartTied(
      m_server,
      {"Xvfb", "-displayfd", "1", "-noreset", "-screen", "0", "800x600x24", "-nolisten", "tcp"},
      {});
  while (m_name.empty() || m_name.back() != '\n') {
    char block[16];
    size_t count = 0;
    if (m_server.Read(block, sizeof(block), &count, Soon()) != ChildProgram::Io::kDone) {
      throw std::runtime_error("Xvfb does not start");
    }
    m_name.append(block, count);
  }
  m_name = ":" + m_name.substr(0, m_name.size() - 1);
  StartTied(m_manager, {"openbox"}, {"DISPLAY=" + m_name, "LC_ALL=C.UTF-8"});
  // A window that is there before its manager never gets the keyboard.
  if (!Eventually([this] { return !Do("get_num_desktops").empty(); })) {
    throw std::runtime_error("openbox does not start");
  }
}

void Screen::Break() {
  m_server.Stop(std::chrono::milliseconds(0));
}

// Empty when xdotool fails, as it does when a window has just gone.
std::string Screen::Do(const std::string& arguments) const {
  Invocation invocation;
  invocation.command = {"xdotool"};
  std::istringstream words(arguments);
  for (std::string word; words >> word;) invocation.command.push_back(word);
  invocation.environment = {{"DISPLAY", m_name}, {"LC_ALL", "C.UTF-8"}};
  return RunProgram(invocation).out;
}

bool Screen::HasWindow(const std::string& title) const {
  return !Do("search --onlyvisible --name ^" + title + "$").empty();
}

Screen::Window Screen::WaitForWindow(const std::string& title) const {
  // A dot stands for a blank in the pattern, whose words are split.
  Window window;
  std::string pattern = title;
  for (char& c : pattern) c = c == ' ' ? '.' : c;
  int looks = 0;
  const bool found = Eventually([&] {
    std::istringstream(Do("search --onlyvisible --name ^" + pattern + "$")) >> window.id;
    if (window.id.empty()) {
      // openbox may read a request to map ahead while it starts, and handles it with the next
      // event.
      Do("set_desktop 0");
      return false;
    }
    std::string active, focused;
    std::istringstream(Do("getactivewindow")) >> active;
    std::istringstream(Do("getwindowfocus -f")) >> focused;
    if (active != window.id) Do("windowactivate " + window.id);
    // Twice, for a manager may still be placing it; keys would be lost meanwhile.
    const bool settled = active == window.id && focused == window.id;
    looks = settled ? looks + 1 : 0;
    return looks == 2;
  });
  if (!found) throw std::runtime_error("there is no window " + title);
  std::istringstream lines(Do("getwindowgeometry --shell " + window.id));
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("WIDTH=", 0) == 0) window.width = std::stoi(line.substr(6));
    if (line.rfind("HEIGHT=", 0) == 0) window.height = std::stoi(line.substr(7));
  }
  return window;
}

void Screen::Press(const std::string& keys) const {
  Do("key --delay 20 " + keys);
}

void Screen::Click(const Window& window, int x, int y, int times) const {
  Do("mousemove --window " + window.id + " " + std::to_string(x) + " " + std::to_string(y) +
     " click --repeat " + std::to_string(times) + " --delay 30 1");
}

int Screen::ProcessOf(const Window& window) const {
  return atoi(Do("getwindowpid " + window.id).c_str());
}

void Screen::CutConnection(const Window& window) const {
  Do("windowkill " + window.id);
}
