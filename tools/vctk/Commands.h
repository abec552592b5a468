#pragma once
// The commands: each takes its options as the command line gave them and does the whole job.
// They return the exit code, or throw a Failure.
#include <string>
#include <vector>

#include "Failure.h"

namespace vctk {

struct CommonOptions {
  std::string keyList;               // file, may be empty
  std::vector<std::string> filters;  // NAME=VALUE
};

struct CertsOptions : CommonOptions {
  bool json = false;
  bool all = false;
};

struct SignOptions : CommonOptions {
  std::vector<std::string> files;  // "-": standard input
  bool pkcs1 = false;
  bool detached = false;
  bool binary = false;
  bool dialog = false;
  std::string serial;
  std::string digest;
  std::string output;  // empty: standard output, or beside each of several files
  std::string pinFile;
};

struct DoctorOptions : CommonOptions {
  bool json = false;
};

struct PinChangeOptions : CommonOptions {
  std::string serial;
  std::string pinFile;
};

ExitCode RunCerts(const CertsOptions& options);
ExitCode RunSign(const SignOptions& options);
ExitCode RunPinChange(const PinChangeOptions& options);
ExitCode RunDoctor(const DoctorOptions& options);
ExitCode RunCalls(const CommonOptions& options);
ExitCode RunMessage(const std::string& code);

}  // namespace vctk
