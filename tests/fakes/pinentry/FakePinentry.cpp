// A pinentry that does what its script says, for tests of everything that may go wrong with one.
//
// $FAKE_PINENTRY is a folder. Its file `script` has lines "COMMAND REACTION", taken in turn by the
// commands with that first word; GREETING is what comes first. A command without a line left gets
// OK. Reactions:
//
//   ok                 OK
//   err NUMBER TEXT    ERR NUMBER TEXT
//   pin TEXT           the data TEXT, escaped, then OK
//   raw TEXT           the text, with \n as line ends; nothing more
//   exit NUMBER        the program ends
//   kill NUMBER        a signal ends it
//   hang               it never answers, nor does it end when its pipes are closed
//   deaf               it closes its standard input and hangs
//   flood              it talks for ever
//   remove PATH        the file goes; then the next line of the same command counts at once
//   create PATH        the same, the file comes
//   await PATH         the same once the file is there
//
// What it was told, and how it found its process, goes to the file `log`.
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <deque>
#include <fstream>
#include <iterator>
#include <map>
#include <string>

namespace {

std::string g_folder;

void Log(const std::string& line) {
  const int file =
      open((g_folder + "/log").c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
  const std::string text = line + "\n";
  if (file < 0 || write(file, text.data(), text.size()) < 0) _exit(99);
  close(file);
}

void Say(const std::string& text) {
  size_t at = 0;
  while (at < text.size()) {
    const ssize_t count = write(STDOUT_FILENO, text.data() + at, text.size() - at);
    if (count <= 0) _exit(98);
    at += static_cast<size_t>(count);
  }
}

[[noreturn]] void Hang() {
  for (;;) pause();
}

std::string Escaped(const std::string& text) {
  std::string result;
  for (const char c : text) result += c == '%' ? std::string("%25") : std::string(1, c);
  return result;
}

std::string WithLineEnds(std::string text) {
  for (size_t at = 0; (at = text.find("\\n", at)) != std::string::npos; ++at) {
    text.replace(at, 2, "\n");
  }
  return text;
}

[[noreturn]] void Flood() {
  for (;;) Say("# " + std::string(900, '.') + "\n");
}

// False when another reaction has to follow.
bool React(const std::string& word, const std::string& rest) {
  if (word == "ok") Say("OK\n");
  if (word == "err") Say("ERR " + rest + "\n");
  if (word == "pin") Say("D " + Escaped(rest) + "\nOK\n");
  if (word == "raw") Say(WithLineEnds(rest));
  if (word == "exit") _exit(atoi(rest.c_str()));
  if (word == "kill") {
    kill(getpid(), atoi(rest.c_str()));
    Hang();
  }
  if (word == "hang") Hang();
  if (word == "deaf") {
    close(STDIN_FILENO);
    Say("OK\n");
    Hang();
  }
  if (word == "flood") Flood();
  if (word == "remove") return unlink(rest.c_str()) == 0 ? false : (_exit(97), false);
  if (word == "create") return std::ofstream(rest).put('x').good() ? false : (_exit(96), false);
  if (word == "await") {
    while (access(rest.c_str(), F_OK) != 0) usleep(2000);
    return false;
  }
  return true;
}

class Script {
 public:
  Script() {
    std::ifstream file(g_folder + "/script");
    std::string command;
    std::string reaction;
    while (file >> command && std::getline(file >> std::ws, reaction)) {
      m_reactions[command].push_back(reaction);
    }
  }

  void Answer(const std::string& command, const std::string& otherwise) {
    std::deque<std::string>& left = m_reactions[command];
    for (;;) {
      if (left.empty()) return Say(otherwise);
      const std::string reaction = left.front();
      left.pop_front();
      const size_t end = reaction.find(' ');
      if (React(reaction.substr(0, end),
                end == std::string::npos ? std::string() : reaction.substr(end + 1))) {
        return;
      }
    }
  }

 private:
  std::map<std::string, std::deque<std::string>> m_reactions;
};

void LogProcess(int argc, char** argv) {
  std::string line = "ARGUMENTS";
  for (int i = 1; i < argc; ++i) line += std::string(" ") + argv[i];
  Log(line);
  line = "DESCRIPTORS";
  DIR* const folder = opendir("/proc/self/fd");
  for (const dirent* each = readdir(folder); each != nullptr; each = readdir(folder)) {
    const int file = atoi(each->d_name);
    if (each->d_name[0] != '.' && file != dirfd(folder)) line += " " + std::to_string(file);
  }
  closedir(folder);
  Log(line);
  Log("PID " + std::to_string(getpid()));
}

}  // namespace

int main(int argc, char** argv) {
  const char* const folder = getenv("FAKE_PINENTRY");
  if (folder == nullptr) return 95;
  g_folder = folder;
  Script script;
  LogProcess(argc, argv);
  script.Answer("GREETING", "OK Pleased to meet you\n");
  std::string line;
  char c = '\0';
  while (read(STDIN_FILENO, &c, 1) == 1) {
    if (c != '\n') {
      line += c;
      continue;
    }
    Log(line);
    const std::string command = line.substr(0, line.find(' '));
    line.clear();
    script.Answer(command, "OK\n");
    if (command == "BYE") return 0;
  }
  Log("END");
  return 0;
}
