#include "Failure.h"

#include <errno.h>
#include <string.h>

#include <utility>

#include "Messages.h"

namespace vctk {

Failure::Failure(ExitCode exitCode, const std::string& what, std::string advice, uint32_t code)
    : std::runtime_error(what), m_exitCode(exitCode), m_advice(std::move(advice)), m_code(code) {}

Failure CodeFailure(const std::string& doing, uint32_t code, const std::string& text) {
  return Failure(ExitOf(code), doing + ": " + Hex(code) + " " + text, AdviceFor(code), code);
}

Failure FileFailure(const std::string& doing, const std::string& path) {
  const int reason = errno;
  return Failure(kFile, doing + ": " + path + ": " + strerror(reason));
}

}  // namespace vctk
