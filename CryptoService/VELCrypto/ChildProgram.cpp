#include "ChildProgram.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

namespace velcrypto {

namespace {

void Close(int& file) {
  if (file >= 0) close(file);
  file = -1;
}

// A pipe whose ends lie above the standard streams, which a host may have closed.
struct Pipe {
  Pipe() {
    int made[2];
    if (pipe2(made, O_CLOEXEC) != 0) return;
    read = Raised(made[0]);
    write = Raised(made[1]);
  }
  ~Pipe() {
    Close(read);
    Close(write);
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  static int Raised(int file) {
    if (file > STDERR_FILENO) return file;
    const int raised = fcntl(file, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const int reason = errno;
    close(file);
    errno = reason;
    return raised;
  }
  bool ok() const { return read >= 0 && write >= 0; }
  static int Taken(int& end) {
    const int file = end;
    end = -1;
    return file;
  }

  int read = -1;
  int write = -1;
};

class Pointers {
 public:
  explicit Pointers(std::vector<std::string> texts) : m_texts(std::move(texts)) {
    for (std::string& text : m_texts) m_pointers.push_back(&text[0]);
    m_pointers.push_back(nullptr);
  }
  char** get() { return m_pointers.data(); }

 private:
  std::vector<std::string> m_texts;
  std::vector<char*> m_pointers;
};

std::string NameOf(const std::string& variable) {
  return variable.substr(0, variable.find('='));
}

std::vector<std::string> Environment(const std::vector<std::string>& variables) {
  std::vector<std::string> result = variables;
  for (char** each = environ; each != nullptr && *each != nullptr; ++each) {
    const std::string name = NameOf(*each);
    const bool replaced =
        std::any_of(variables.begin(), variables.end(),
                    [&name](const std::string& variable) { return NameOf(variable) == name; });
    if (!replaced && name != "LD_PRELOAD") result.emplace_back(*each);
  }
  return result;
}

// How the program is started: its streams, and signals as a program expects them.
class SpawnPlan {
 public:
  SpawnPlan(int input, int output) {
    posix_spawn_file_actions_init(&m_actions);
    posix_spawnattr_init(&m_attributes);
    posix_spawn_file_actions_adddup2(&m_actions, input, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&m_actions, output, STDOUT_FILENO);
    // Window toolkits complain there about their surroundings, in the middle of a terminal dialog.
    posix_spawn_file_actions_addopen(&m_actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addclosefrom_np(&m_actions, STDERR_FILENO + 1);
    sigset_t signals;
    sigfillset(&signals);
    posix_spawnattr_setsigdefault(&m_attributes, &signals);
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&m_attributes, &signals);
    posix_spawnattr_setflags(&m_attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
  }
  ~SpawnPlan() {
    posix_spawn_file_actions_destroy(&m_actions);
    posix_spawnattr_destroy(&m_attributes);
  }
  SpawnPlan(const SpawnPlan&) = delete;
  SpawnPlan& operator=(const SpawnPlan&) = delete;

  // errno of the failure, or 0.
  int Run(const std::string& path, char** arguments, char** environment, pid_t* pid) {
    return posix_spawn(pid, path.c_str(), &m_actions, &m_attributes, arguments, environment);
  }

 private:
  posix_spawn_file_actions_t m_actions;
  posix_spawnattr_t m_attributes;
};

// Keeps a SIGPIPE of this thread's writes from the host, whose disposition stays as it is.
class NoBrokenPipeSignal {
 public:
  NoBrokenPipeSignal() {
    sigemptyset(&m_pipe);
    sigaddset(&m_pipe, SIGPIPE);
    m_wasPending = IsPending();
    pthread_sigmask(SIG_BLOCK, &m_pipe, &m_before);
  }
  ~NoBrokenPipeSignal() {
    const timespec now = {};
    while (!m_wasPending && IsPending()) sigtimedwait(&m_pipe, nullptr, &now);
    pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
  }
  NoBrokenPipeSignal(const NoBrokenPipeSignal&) = delete;
  NoBrokenPipeSignal& operator=(const NoBrokenPipeSignal&) = delete;

 private:
  static bool IsPending() {
    sigset_t pending;
    sigemptyset(&pending);
    sigpending(&pending);
    return sigismember(&pending, SIGPIPE) == 1;
  }

  sigset_t m_pipe;
  sigset_t m_before;
  bool m_wasPending;
};

// True when the file is ready for `events` or in error.
bool IsReady(int file, short events, ChildProgram::Deadline deadline) {
  for (;;) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - ChildProgram::Clock::now());
    pollfd polled = {file, events, 0};
    const long long wait = std::clamp<long long>(left.count(), 0, 1000 * 1000);
    const int ready = poll(&polled, 1, static_cast<int>(wait));
    if (ready > 0) return true;
    if (ready < 0 && errno != EINTR) return true;  // the read or write will tell
    if (ChildProgram::Clock::now() >= deadline) return false;
  }
}

bool IsProgram(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) && access(path.c_str(), X_OK) == 0;
}

}  // namespace

Outcome ChildProgram::Start(const std::string& path, const std::vector<std::string>& arguments,
                            const std::vector<std::string>& variables) {
  if (m_pid >= 0) return kInvalidParameter;
  Pipe input;
  Pipe output;
  if (!input.ok() || !output.ok()) {
    return {kFailed, static_cast<unsigned long>(errno), "no pipe to " + path};
  }
  std::vector<std::string> words = {path};
  words.insert(words.end(), arguments.begin(), arguments.end());
  Pointers argv(std::move(words));
  Pointers envp(Environment(variables));
  SpawnPlan plan(input.read, output.write);
  const int failure = plan.Run(path, argv.get(), envp.get(), &m_pid);
  if (failure != 0) {
    m_pid = -1;
    return {kFailed, static_cast<unsigned long>(failure), "cannot start " + path};
  }
  m_ending = Ending();
  m_input = Pipe::Taken(input.write);
  m_output = Pipe::Taken(output.read);
  // A program that does not read must not hold the writer beyond its deadline.
  fcntl(m_input, F_SETFL, O_NONBLOCK);
  return kOk;
}

ChildProgram::Io ChildProgram::Write(const void* data, size_t size, Deadline deadline) {
  const NoBrokenPipeSignal guard;
  const char* at = static_cast<const char*>(data);
  while (size > 0) {
    if (m_input < 0) return Io::kClosed;
    const ssize_t count = write(m_input, at, size);
    if (count > 0) {
      at += count;
      size -= static_cast<size_t>(count);
    } else if (errno == EAGAIN) {
      if (!IsReady(m_input, POLLOUT, deadline)) return Io::kTimedOut;
    } else if (errno != EINTR) {
      return Io::kClosed;
    }
  }
  return Io::kDone;
}

ChildProgram::Io ChildProgram::Read(void* buffer, size_t size, size_t* count, Deadline deadline) {
  *count = 0;
  for (;;) {
    if (m_output < 0) return Io::kClosed;
    if (!IsReady(m_output, POLLIN, deadline)) return Io::kTimedOut;
    const ssize_t got = read(m_output, buffer, size);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return Io::kClosed;
    *count = static_cast<size_t>(got);
    return Io::kDone;
  }
}

void ChildProgram::CloseInput() {
  Close(m_input);
}

void ChildProgram::NoteStatus(int status) {
  m_ending.known = true;
  m_ending.bySignal = WIFSIGNALED(status);
  m_ending.status = WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status);
}

// Only this child is waited for. With SIGCHLD ignored, or a handler that waits for all children,
// it is gone without a status.
bool ChildProgram::HasEnded() {
  if (m_pid < 0) return true;
  int status = 0;
  const pid_t waited = waitpid(m_pid, &status, WNOHANG);
  if (waited == 0 || (waited < 0 && errno == EINTR)) return false;
  if (waited == m_pid) NoteStatus(status);
  m_pid = -1;
  return true;
}

bool ChildProgram::EndsBefore(Deadline deadline) {
  timespec pause = {0, 200 * 1000};
  while (!HasEnded()) {
    if (Clock::now() >= deadline) return false;
    nanosleep(&pause, nullptr);
    pause.tv_nsec = std::min(pause.tv_nsec * 2, 20L * 1000 * 1000);
  }
  return true;
}

ChildProgram::Ending ChildProgram::Stop(std::chrono::milliseconds grace) {
  Close(m_input);
  Close(m_output);
  if (EndsBefore(Clock::now() + grace)) return m_ending;
  kill(m_pid, SIGTERM);
  kill(m_pid, SIGCONT);
  if (EndsBefore(Clock::now() + std::chrono::seconds(1))) return m_ending;
  kill(m_pid, SIGKILL);
  EndsBefore(Clock::now() + std::chrono::seconds(10));  // one that the kernel holds is left to it
  return m_ending;
}

std::string FindProgram(const std::string& name, const std::vector<std::string>& folders) {
  if (name.empty()) return std::string();
  if (name.find('/') != std::string::npos) return IsProgram(name) ? name : std::string();
  for (const std::string& folder : folders) {
    if (!folder.empty() && IsProgram(folder + "/" + name)) return folder + "/" + name;
  }
  const std::string path = EnvironmentText("PATH");
  for (size_t at = 0; at < path.size();) {
    const size_t end = std::min(path.find(':', at), path.size());
    const std::string folder = path.substr(at, end - at);
    // Relative folders would take programs from wherever the user happens to be.
    if (!folder.empty() && folder[0] == '/' && IsProgram(folder + "/" + name)) {
      return folder + "/" + name;
    }
    at = end + 1;
  }
  return std::string();
}

std::string EnvironmentText(const char* name) {
  const char* const value = secure_getenv(name);
  return value == nullptr ? std::string() : value;
}

}  // namespace velcrypto
