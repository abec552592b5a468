#pragma once
// What an operation may leave behind in its process: children and descriptors.
#include <errno.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <filesystem>
#include <iterator>

#include "Eventually.h"

inline size_t OpenDescriptors() {
  const std::filesystem::directory_iterator entries("/proc/self/fd");
  return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

// Whether no more are open than before; another thread (the log's) may have one for a moment.
inline bool DescriptorsAreBackTo(size_t before) {
  return Eventually([before] { return OpenDescriptors() <= before; });
}

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
