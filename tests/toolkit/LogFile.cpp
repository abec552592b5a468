#include "LogFile.h"

#include <chrono>
#include <fstream>
#include <iterator>
#include <thread>

std::string LogContent() {
  std::ifstream file("/tmp/PILog.txt", std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

std::string LogOnceItHas(const std::string& text, size_t from) {
  using Clock = std::chrono::steady_clock;
  for (const auto end = Clock::now() + std::chrono::seconds(10); Clock::now() < end;) {
    const std::string content = LogContent();
    const size_t start = from < content.size() ? from : content.size();
    const size_t at = content.find(text, start);
    // The line is complete when its end has been written.
    if (at != std::string::npos && content.find("\r\n\r\n", at) != std::string::npos) {
      return content.substr(start);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return "";
}
