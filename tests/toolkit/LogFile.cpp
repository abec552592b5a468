#include "LogFile.h"

#include <regex.h>

#include <fstream>
#include <iterator>

#include "Eventually.h"

std::string LogContent() {
  std::ifstream file("/tmp/PILog.txt", std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

std::string LogOnceItHas(const std::string& text, size_t from) {
  std::string found;
  Eventually([&] {
    const std::string content = LogContent();
    const size_t start = from < content.size() ? from : content.size();
    const size_t at = content.find(text, start);
    // The line is complete when its end has been written.
    if (at == std::string::npos || content.find("\r\n\r\n", at) == std::string::npos) return false;
    found = content.substr(start);
    return true;
  });
  return found;
}

bool HasLogLine(const std::string& log, const std::string& level, const std::string& place,
                const std::string& message) {
  const std::string pattern =
      "^\\[" + level + "\\] \\[P[0-9]{4,}\\] \\[T-?[0-9]{3,}\\] " +
      "\\[[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}:[0-9]{3,6}\\] " + "\\[" + place +
      "\\([0-9]+\\)\\]: $";
  regex_t prefix;
  if (regcomp(&prefix, pattern.c_str(), REG_EXTENDED | REG_NOSUB) != 0) return false;
  bool found = false;
  const std::string end = "\r\n\r\n";
  size_t start = log.compare(0, 2, "\xFF\xFE") == 0 ? 2 : 0;
  for (size_t stop; (stop = log.find(end, start)) != std::string::npos; start = stop + end.size()) {
    const std::string line = log.substr(start, stop - start);
    if (line.size() < message.size()) continue;
    const size_t split = line.size() - message.size();
    found = found || (line.substr(split) == message &&
                      regexec(&prefix, line.substr(0, split).c_str(), 0, nullptr, 0) == 0);
  }
  regfree(&prefix);
  return found;
}
