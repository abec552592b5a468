#pragma once
// What an operation may leave behind in its process: children and descriptors.
#include <errno.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <filesystem>

inline size_t OpenDescriptors() {
  size_t count = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    static_cast<void>(entry);
    ++count;
  }
  return count;
}

// Expects at its end the descriptors of its beginning, and no child, ended or not.
class NoTraces {
 public:
  NoTraces() : m_descriptors(OpenDescriptors()) {}
  ~NoTraces() {
    EXPECT_EQ(OpenDescriptors(), m_descriptors);
    EXPECT_TRUE(waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD) << "a child is left";
  }
  NoTraces(const NoTraces&) = delete;
  NoTraces& operator=(const NoTraces&) = delete;

 private:
  const size_t m_descriptors;
};
