#include "CallRecord.h"

#include <errno.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "Process.h"

namespace velcrypto {

namespace {

using Json = nlohmann::ordered_json;

std::string LineOf(const Json& object) {
  // File names need not be UTF-8.
  return object.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string UtcNow() {
  timeval now = {};
  gettimeofday(&now, nullptr);
  tm parts = {};
  gmtime_r(&now.tv_sec, &parts);
  char text[64];
  const size_t size = strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%S", &parts);
  snprintf(text + size, sizeof(text) - size, ".%03dZ", static_cast<int>(now.tv_usec / 1000));
  return text;
}

std::string HexCode(unsigned long code) {
  char text[32];
  snprintf(text, sizeof(text), "0x%08lX", code);
  return text;
}

std::string HeadLine() {
  char host[256] = {};
  gethostname(host, sizeof(host) - 1);
  return LineOf({{"library", "VELCrypto " VELCRYPTO_VERSION},
                 {"process", program_invocation_short_name},
                 {"pid", getpid()},
                 {"host", host}});
}

}  // namespace

void CallRecord::Enable(bool on, bool withHead) {
  const std::string head = on && withHead ? HeadLine() : std::string();
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_on = on;
  m_head = head;
}

bool CallRecord::IsOn() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  return m_on;
}

void CallRecord::Clear() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_lines.clear();
  m_size = 0;
}

std::string CallRecord::Text() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  std::string text;
  if (m_lines.empty()) return text;
  text.reserve(m_head.size() + m_size);
  text = m_head;
  for (const std::string& line : m_lines) text += line;
  return text;
}

void CallRecord::Add(const std::string& operation, const std::string& device, double milliseconds,
                     const Outcome& outcome) {
  if (!IsOn()) return;
  Json object = {{"time", UtcNow()},
                 {"operation", operation},
                 {"device", device},
                 {"ms", std::round(milliseconds * 1000) / 1000},
                 {"result", HexCode(outcome.code)}};
  if (outcome.native != 0) object["native"] = HexCode(outcome.native);
  if (!outcome.remark.empty()) object["remark"] = outcome.remark;
  Append(LineOf(object));
}

void CallRecord::Note(const std::string& operation, const std::string& device, const Texts& texts) {
  if (!IsOn()) return;
  Json object = {{"time", UtcNow()},
                 {"operation", operation},
                 {"device", device},
                 {"ms", 0.0},
                 {"result", HexCode(kOk)}};
  for (const auto& [name, text] : texts) object[name] = text;
  Append(LineOf(object));
}

void CallRecord::Append(std::string line) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_size += line.size();
  m_lines.push_back(std::move(line));
  while (!m_lines.empty() && m_head.size() + m_size > kMaxBytes) {
    m_size -= m_lines.front().size();
    m_lines.pop_front();
  }
}

void CallTimer::Finish(const Outcome& outcome) noexcept {
  const std::chrono::duration<double, std::milli> elapsed =
      std::chrono::steady_clock::now() - m_start;
  try {
    Process::Current().calls.Add(m_operation, device, elapsed.count(), outcome);
  } catch (...) {
    // The operation stands, recorded or not.
  }
}

}  // namespace velcrypto
