#pragma once
// A helper program with pipes at its standard input and output, as a dialog is run. For hosts of
// every kind: with threads, with SIGCHLD or SIGPIPE ignored or handled, with standard streams
// closed; nothing of the host's process is changed. The program gets no descriptor of the host,
// /dev/null as standard error, the usual signal actions, and the host's environment without
// LD_PRELOAD. Nothing of it remains, neither zombie nor descriptor, when the object is gone. Nothing
// goes through a buffer of the object's own, so secrets stay where the caller reads or keeps them.
// One thread at a time.
#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

#include "Outcome.h"

namespace velcrypto {

class ChildProgram {
 public:
  using Clock = std::chrono::steady_clock;
  using Deadline = Clock::time_point;

  enum class Io {
    kDone,
    kClosed,  // the program closed its end, as a rule because it ended
    kTimedOut
  };

  // How the program ended. `status` is its exit code, or the signal's number when `bySignal`;
  // without `known` the host took the status first, or asked the system to drop it.
  struct Ending {
    bool known = false;
    bool bySignal = false;
    int status = 0;
  };

  ChildProgram() = default;
  ~ChildProgram() { Stop(std::chrono::milliseconds(0)); }
  ChildProgram(const ChildProgram&) = delete;
  ChildProgram& operator=(const ChildProgram&) = delete;

  // Starts the program once. `path` needs a slash (FindProgram); `arguments` without the program's
  // name; `variables` are NAME=VALUE and replace those of the environment. kFailed with errno when
  // there are no descriptors or processes left or the file is no program.
  Outcome Start(const std::string& path, const std::vector<std::string>& arguments,
                const std::vector<std::string>& variables);

  // Writes all of it, or says why not; part of it may have been written then.
  Io Write(const void* data, size_t size, Deadline deadline);

  // Reads what is there, at least one byte.
  Io Read(void* buffer, size_t size, size_t* count, Deadline deadline);

  // The end that Read reads from, for a poll with others; -1 when not running.
  int Output() const { return m_output; }

  // The program sees the end of its input.
  void CloseInput();

  // Closes both pipes and waits for the program to end; one that has not ended after `grace` gets
  // SIGTERM, and a second later SIGKILL. Later calls repeat the answer.
  Ending Stop(std::chrono::milliseconds grace);

 private:
  bool HasEnded();
  bool EndsBefore(Deadline deadline);
  void NoteStatus(int status);

  pid_t m_pid = -1;  // -1: not started, or waited for
  int m_input = -1;  // to the program
  int m_output = -1;
  Ending m_ending;
};

// The path of an executable file: `name` as it is when it has a slash, else in the first of
// `folders` and then of $PATH that has one; empty when none has.
std::string FindProgram(const std::string& name, const std::vector<std::string>& folders);

// The variable, empty when it is not set, and in a program that runs with more rights than its
// user has.
std::string EnvironmentText(const char* name);

}  // namespace velcrypto
