#include <sys/stat.h>

#include <algorithm>
#include <set>

#include "Base64.h"
#include "Commands.h"
#include "Files.h"
#include "Progress.h"
#include "Signer.h"
#include "Terminal.h"

namespace vctk {
namespace {

// The toolkit keeps base64 text as 4-byte characters and counts bytes in 32 bits.
const size_t kMaxContent = 384u * 1024 * 1024 - 1024;

std::string ReadContent(const std::string& file) {
  std::string bytes = ReadFile(file, kMaxContent);
  if (bytes.empty()) {
    throw Failure(kFile, (file == "-" ? "standard input" : file) + " is empty",
                  "There is nothing to sign.");
  }
  return EncodeBase64(bytes);
}

std::string Encoded(const std::string& base64, bool binary) {
  if (!binary) return base64 + "\n";
  std::string bytes;
  if (!DecodeBase64(base64, bytes)) {
    throw Failure(kFailed, "the device library gave no signature", "Tell the supplier of the key.");
  }
  return bytes;
}

struct Job {
  std::string file, output;
};

bool IsFolder(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// What can be known to fail is told before anything is asked for or signed.
void CheckReadable(const std::string& file) {
  struct stat info;
  if (stat(file.c_str(), &info) != 0) throw FileFailure("cannot read", file);
  if (S_ISREG(info.st_mode) && info.st_size == 0) {
    throw Failure(kFile, file + " is empty", "There is nothing to sign.");
  }
  if (S_ISDIR(info.st_mode)) throw Failure(kFile, "cannot read: " + file + " is a folder");
}

// Several files: each signature lies beside its file or in the folder that --output names.
std::vector<Job> JobsOf(const SignOptions& options) {
  if (options.files.size() == 1) return {{options.files[0], options.output}};
  if (!options.output.empty() && !IsFolder(options.output)) {
    throw Failure(kUsage, "--output must be a folder for several files: " + options.output);
  }
  const std::string ending = options.pkcs1 ? ".p1" : options.detached ? ".p7s" : ".p7";
  std::vector<Job> jobs;
  std::set<std::string> outputs;
  if (std::count(options.files.begin(), options.files.end(), "-") > 0) {
    throw Failure(kUsage, "standard input cannot be one of several files");
  }
  for (const std::string& file : options.files) {
    CheckReadable(file);
    const std::string name = file.substr(file.rfind('/') + 1);
    const std::string output =
        options.output.empty() ? file + ending : options.output + "/" + name + ending;
    if (!outputs.insert(output).second) {
      throw Failure(kUsage, "two signatures would be written to " + output);
    }
    jobs.push_back({file, output});
  }
  return jobs;
}

ExitCode SignOne(const SignOptions& options, const Job& job) {
  OutputFile output(job.output);
  const std::string content = ReadContent(job.file);
  Signer signer(options, job.file == "-");
  output.Commit(Encoded(signer.Sign(content), options.binary));
  return kDone;
}

// The first failure ends the run: a wrong PIN that is tried for every file locks the key.
ExitCode SignSeveral(const SignOptions& options, const std::vector<Job>& jobs) {
  Signer signer(options, false);
  Progress progress(jobs.size());
  size_t done = 0;
  try {
    for (const Job& job : jobs) {
      if (done > 0) progress.Show(done, job.file);
      OutputFile output(job.output);
      output.Commit(Encoded(signer.Sign(ReadContent(job.file)), options.binary));
      ++done;
    }
  } catch (const Failure& failure) {
    progress.Hide();
    const std::string count =
        std::to_string(done) + " of " + std::to_string(jobs.size()) + " files are signed; ";
    throw Failure(failure.Exit(), count + jobs[done].file + ": " + failure.what(),
                  failure.Advice());
  }
  progress.Hide();
  for (const Job& job : jobs) Print(Printable(job.output) + "\n");
  return kDone;
}

}  // namespace

ExitCode RunSign(const SignOptions& options) {
  if (options.binary && options.output.empty() && options.files.size() == 1 &&
      StandardOutputIsTerminal()) {
    throw Failure(kUsage, "a binary signature does not go to the terminal",
                  "Name a file with --output, or leave --binary out.");
  }
  if (options.dialog && !(options.serial.empty() && options.pinFile.empty())) {
    throw Failure(kUsage, "--dialog asks for certificate and PIN",
                  "Leave --cert and --pin-file out, or --dialog.");
  }
  const std::vector<Job> jobs = JobsOf(options);
  return jobs.size() == 1 ? SignOne(options, jobs[0]) : SignSeveral(options, jobs);
}

}  // namespace vctk
