// A certificate dialog without a window: does what the words in $FAKE_DIALOG say, in their order.
//   read            takes the next list; it is added to the file $FAKE_DIALOG_LISTS as it came
//   ready           says that it shows the list
//   choose=N[,N]    chooses from the last list, by number from 0
//   choose-first=N  the same from the first list
//   cancel, say=TEXT (a line as it is), begin=TEXT (without a line end), flood (2 MiB of lines)
//   touch=FILE, await=FILE (until it is there)
//   close-input, close-output, hang, stubborn (ignores SIGTERM from now on)
//   kill=N (ends itself by the signal), exit=N
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <vector>

namespace {

using Json = nlohmann::json;

std::string Environment(const char* name) {
  const char* const value = getenv(name);
  return value == nullptr ? "" : value;
}

class Dialog {
 public:
  void Do(const std::string& word, const std::string& value) {
    if (word == "read") Read();
    if (word == "ready") Say("{\"ready\":1}\n");
    if (word == "choose") Choose(m_last, value);
    if (word == "choose-first") Choose(m_first, value);
    if (word == "cancel") Say("{\"cancelled\":true}\n");
    if (word == "say") Say(value + "\n");
    if (word == "begin") Say(value);
    if (word == "flood") Flood();
    if (word == "touch") std::ofstream(value, std::ios::app) << "";
    if (word == "await") Await(value);
    if (word == "close-input") close(STDIN_FILENO);
    if (word == "close-output") close(STDOUT_FILENO);
    if (word == "hang") Hang();
    if (word == "stubborn") signal(SIGTERM, SIG_IGN);
    if (word == "kill") Kill(atoi(value.c_str()));
    if (word == "exit") _exit(atoi(value.c_str()));
  }

 private:
  static void Say(const std::string& text) {
    size_t done = 0;
    while (done < text.size()) {
      const ssize_t count = write(STDOUT_FILENO, text.data() + done, text.size() - done);
      if (count <= 0) return;
      done += static_cast<size_t>(count);
    }
  }

  void Read() {
    std::string line;
    if (!std::getline(std::cin, line)) _exit(1);
    std::ofstream(Environment("FAKE_DIALOG_LISTS"), std::ios::app) << line << "\n";
    m_last = Json::parse(line);
    if (m_first.is_null()) m_first = m_last;
  }

  static void Choose(const Json& list, const std::string& numbers) {
    Json chosen = Json::array();
    std::istringstream text(numbers);
    for (std::string number; std::getline(text, number, ',');) {
      chosen.push_back(list["certificates"][static_cast<size_t>(std::stoi(number))]["id"]);
    }
    Say(Json({{"chosen", chosen}}).dump() + "\n");
  }

  static void Kill(int number) {
    signal(number, SIG_DFL);  // sanitizers handle some themselves
    kill(getpid(), number);
  }

  static void Flood() {
    const std::string line(1023, 'x');
    for (int i = 0; i < 2048; ++i) Say(line + "\n");
  }

  static void Await(const std::string& path) {
    while (access(path.c_str(), F_OK) != 0) usleep(2000);
  }

  [[noreturn]] static void Hang() {
    for (;;) pause();
  }

  Json m_first, m_last;
};

}  // namespace

int main() {
  Dialog dialog;
  std::istringstream words(Environment("FAKE_DIALOG"));
  for (std::string word; words >> word;) {
    const size_t middle = word.find('=');
    dialog.Do(word.substr(0, middle),
              middle == std::string::npos ? std::string() : word.substr(middle + 1));
  }
  _exit(0);
}
