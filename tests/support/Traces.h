#pragma once
// What an operation may leave behind in its process: children, descriptors and threads.
#include <errno.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

#include "Eventually.h"

inline size_t OpenDescriptors() {
  const std::filesystem::directory_iterator entries("/proc/self/fd");
  return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

// Whether no more are open than before; another thread (the log's) may have one for a moment.
inline bool DescriptorsAreBackTo(size_t before) {
  return Eventually([before] { return OpenDescriptors() <= before; });
}

// The numbers of the process's threads. One that was joined may be among them for a moment.
inline std::set<std::string> Threads() {
  std::set<std::string> numbers;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    numbers.insert(task.path().filename());
  }
  return numbers;
}

inline size_t ThreadCount() {
  return Threads().size();
}

// Whether all threads but this one wait for something. One that works may hold locks of the address
// sanitizer's allocator, which a forked child would wait for in vain.
inline bool OtherThreadsWait() {
  for (const std::string& thread : Threads()) {
    std::ifstream file("/proc/self/task/" + thread + "/stat");
    const std::string stat(std::istreambuf_iterator<char>(file), {});
    const size_t end = stat.rfind(')');  // of the name, which the state follows
    const bool waits = end == std::string::npos || stat.compare(end, 3, ") S") == 0;
    if (!waits && thread != std::to_string(gettid())) return false;
  }
  return true;
}

// The threads that have begun since it was made and have not ended.
class NewThreads {
 public:
  size_t Count() const {
    size_t count = 0;
    for (const std::string& thread : Threads()) count += 1 - m_before.count(thread);
    return count;
  }

 private:
  const std::set<std::string> m_before = Threads();
};

// Expects at its end no more descriptors than at its beginning, and no child, ended or not.
class NoTraces {
 public:
  NoTraces() : m_descriptors(OpenDescriptors()) {}
  ~NoTraces() {
    EXPECT_TRUE(DescriptorsAreBackTo(m_descriptors));
    EXPECT_TRUE(waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD) << "a child is left";
  }
  NoTraces(const NoTraces&) = delete;
  NoTraces& operator=(const NoTraces&) = delete;

 private:
  const size_t m_descriptors;
};
