#include "LogHost.h"

#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

std::string Slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

void Spill(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

bool Exists(const std::string& path) {
  return access(path.c_str(), F_OK) == 0;
}

std::vector<std::string> LogLines(const std::string& path) {
  std::string text = Slurp(path);
  if (text.compare(0, 2, "\xFF\xFE") == 0) text.erase(0, 2);
  std::vector<std::string> lines;
  size_t start = 0;
  for (size_t end; (end = text.find("\r\n\r\n", start)) != std::string::npos; start = end + 4) {
    lines.push_back(text.substr(start, end - start));
  }
  if (start < text.size()) lines.push_back(text.substr(start));
  return lines;
}

std::vector<std::string> AwaitLines(const std::string& path, size_t count) {
  Eventually([&] {
    const std::string text = Slurp(path);
    size_t ends = 0;
    for (size_t at = 0; (at = text.find("\r\n\r\n", at)) != std::string::npos; at += 4) ++ends;
    return ends >= count;
  });
  return LogLines(path);
}

int RunHost(const std::function<void()>& body) {
  const pid_t child = fork();
  if (child == 0) {
    setpgid(0, 0);  // its children end with it
    body();
    exit(0);
  }
  int status = 0;
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(240);
  while (waitpid(child, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > end) kill(-child, SIGKILL);
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}
