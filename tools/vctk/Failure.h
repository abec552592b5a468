#pragma once
// How a command ends: the exit codes, and the exception that carries one with its words.
#include <stdint.h>

#include <stdexcept>
#include <string>

namespace vctk {

// Stable: scripts depend on the numbers, and vctk --help lists them.
enum ExitCode {
  kDone = 0,
  kFailed = 1,         // the toolkit or the device library reported another code
  kUsage = 2,          // the command line makes no sense
  kFile = 3,           // a file cannot be read or written
  kNoSession = 4,      // the key list was rejected or libVELCrypto64.so cannot be loaded
  kNoCertificate = 5,  // no certificate, or several and none was named
  kPin = 6,            // PIN missing, wrong, locked or of a length that the key does not take
  kCancelled = 7       // the user cancelled
};

// what() is one line without a final stop; Advice() says what to do next, may be empty.
class Failure : public std::runtime_error {
 public:
  Failure(ExitCode exitCode, const std::string& what, std::string advice = std::string(),
          uint32_t code = 0);

  ExitCode Exit() const { return m_exitCode; }
  const std::string& Advice() const { return m_advice; }
  uint32_t Code() const { return m_code; }  // of the toolkit or the device library; 0 for none

 private:
  ExitCode m_exitCode;
  std::string m_advice;
  uint32_t m_code;
};

// "DOING: 0xE0000056 TEXT", with the exit code and the advice that belong to the code.
Failure CodeFailure(const std::string& doing, uint32_t code, const std::string& text);

// "DOING: PATH: reason of errno"; exit code kFile.
Failure FileFailure(const std::string& doing, const std::string& path);

}  // namespace vctk
