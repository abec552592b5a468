#include <errno.h>
#include <stdlib.h>

#include "Commands.h"
#include "Files.h"
#include "Messages.h"
#include "Terminal.h"

namespace vctk {
namespace {

// As the functions return codes, as logs print them, or as hexadecimal: -536870826, 3758096470,
// 0xE0000056.
uint32_t ParseCode(const std::string& text) {
  char* end = nullptr;
  errno = 0;
  const long long value = strtoll(text.c_str(), &end, 0);
  if (text.empty() || *end != '\0' || errno != 0 || value < INT32_MIN || value > UINT32_MAX) {
    throw Failure(kUsage, Printable(text) + " is no code",
                  "Write it as 0xE0000056, 3758096470 or -536870826.");
  }
  return static_cast<uint32_t>(value);
}

}  // namespace

ExitCode RunMessage(const std::string& code) {
  const uint32_t value = ParseCode(code);
  Print(Hex(value) + " " + TextOf(value) + "\n" + AdviceFor(value) + "\n");
  return IsKnown(value) ? kDone : kFailed;
}

}  // namespace vctk
