#pragma once
// The record of device operations: one JSON object a line, the oldest lines go when it grows over
// 1 MiB. Shared by all managers of the process; off until enabled. Any thread.
//
//   {"time":"2024-05-01T08:00:00.123Z","operation":"P1Sign","device":"张三.p12","ms":3.2,
//    "result":"0x00000000"}
// A failure adds "native" (the code of the interface underneath) and "remark". With the head
// information a line {"library":...,"process":...,"host":...} comes first.
#include <chrono>
#include <deque>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "Outcome.h"

namespace velcrypto {

class CallRecord {
 public:
  static constexpr size_t kMaxBytes = 1 << 20;

  void Enable(bool on, bool withHead);
  bool IsOn();
  void Clear();
  std::string Text();  // empty without a line

  void Add(const std::string& operation, const std::string& device, double milliseconds,
           const Outcome& outcome);

  // A line about something that took no time and did not fail, with texts of its own.
  using Texts = std::vector<std::pair<std::string, std::string>>;
  void Note(const std::string& operation, const std::string& device, const Texts& texts);

 private:
  void Append(std::string line);

  std::mutex m_mutex;
  bool m_on = false;
  std::string m_head;
  std::deque<std::string> m_lines;
  size_t m_size = 0;
};

// Times one operation. `device` may be set while it runs.
class CallTimer {
 public:
  explicit CallTimer(const char* operation)
      : m_operation(operation), m_start(std::chrono::steady_clock::now()) {}
  void Finish(const Outcome& outcome) noexcept;

  std::string device;

 private:
  const char* const m_operation;
  const std::chrono::steady_clock::time_point m_start;
};

}  // namespace velcrypto
