// A session that cannot start. The folder in the search path names the fault, and ctest runs this
// program with each of them.
#include <cstdio>
#include <cstdlib>

#include "Host.h"

namespace {

struct Fault {
  const char* variant;
  int tries;          // initialisers of the library that ran
  int printedErrors;  // "err " on standard output
};

const Fault kFaults[] = {
    {"cannot_be_loaded", 0, 2},
    {"lacks_container_factory", 2, 0},
    {"lacks_device_set_factory", 2, 0},
    {"gives_no_call_queue", 1, 0},
};

const Fault* FaultInSearchPath() {
  const std::string path = getenv("LD_LIBRARY_PATH");
  for (const Fault& fault : kFaults) {
    if (path.find(std::string("/") + fault.variant) != std::string::npos) return &fault;
  }
  return nullptr;
}

TEST(SessionFault, GivesNoHandleAndLeavesNothingBehind) {
  const Fault* const fault = FaultInSearchPath();
  ASSERT_NE(fault, nullptr);
  Fake() = FakeDevice();
  testing::internal::CaptureStdout();
  EXPECT_EQ(VCTK_Initialize(kHostKeyList), nullptr);
  fflush(stdout);
  const std::string printed = testing::internal::GetCapturedStdout();
  EXPECT_EQ(Fake().loads, fault->tries);
  EXPECT_EQ(Fake().unloads, fault->tries);
  EXPECT_EQ(Fake().liveObjects, 0);
  int errors = 0;
  for (size_t at = printed.find("err "); at != std::string::npos;
       at = printed.find("err ", at + 1)) {
    ++errors;
  }
  EXPECT_EQ(errors, fault->printedErrors) << printed;
}

}  // namespace
