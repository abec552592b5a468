#include "Program.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace {

const auto kPatience = std::chrono::seconds(200);

[[noreturn]] void Fail(const std::string& what) {
  throw std::runtime_error(what + ": " + strerror(errno));
}

struct Pipe {
  Pipe() {
    if (pipe2(ends, O_CLOEXEC) != 0) Fail("pipe2");
  }
  ~Pipe() {
    CloseRead();
    CloseWrite();
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  void CloseRead() { Close(ends[0]); }
  void CloseWrite() { Close(ends[1]); }
  static void Close(int& end) {
    if (end >= 0) close(end);
    end = -1;
  }

  int ends[2] = {-1, -1};
};

class Strings {
 public:
  explicit Strings(std::vector<std::string> texts) : m_texts(std::move(texts)) {
    for (std::string& text : m_texts) m_pointers.push_back(&text[0]);
    m_pointers.push_back(nullptr);
  }
  char** Get() { return m_pointers.data(); }

 private:
  std::vector<std::string> m_texts;
  std::vector<char*> m_pointers;
};

std::vector<std::string> EnvironmentOf(const Invocation& invocation) {
  std::map<std::string, std::string> all;
  for (const char* name :
       {"PATH", "LD_LIBRARY_PATH", "ASAN_OPTIONS", "LSAN_OPTIONS", "UBSAN_OPTIONS"}) {
    if (const char* value = getenv(name)) all[name] = value;
  }
  for (const auto& [name, value] : invocation.environment) all[name] = value;
  std::vector<std::string> texts;
  for (const auto& [name, value] : all) texts.push_back(name + "=" + value);
  return texts;
}

// Not by fork: a test may have threads, and handlers of forks that cannot work among them.
pid_t Spawn(const Invocation& invocation, int in, int out, int err) {
  Strings arguments(invocation.command);
  Strings environment(EnvironmentOf(invocation));
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, err, STDERR_FILENO);
  if (!invocation.folder.empty()) {
    posix_spawn_file_actions_addchdir_np(&actions, invocation.folder.c_str());
  }
  sigset_t pipe;
  sigemptyset(&pipe);
  sigaddset(&pipe, SIGPIPE);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setsigdefault(&attributes, &pipe);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  pid_t child = -1;
  errno = posix_spawnp(&child, arguments.Get()[0], &actions, &attributes, arguments.Get(),
                       environment.Get());
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  if (errno != 0) Fail(invocation.command[0]);
  return child;
}

// Appends what is there; false at the end of the stream.
bool Take(int end, std::string& text) {
  char block[16384];
  const ssize_t count = read(end, block, sizeof(block));
  if (count < 0 && (errno == EINTR || errno == EAGAIN)) return true;
  if (count > 0) text.append(block, static_cast<size_t>(count));
  return count > 0;
}

// Feeds and drains all three pipes at once, so that none of them can fill up and block.
void Talk(Pipe& in, Pipe& out, Pipe& err, const std::string& input, Outcome& outcome) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  size_t fed = 0;
  if (input.empty()) in.CloseWrite();
  while (out.ends[0] >= 0 || err.ends[0] >= 0) {
    pollfd polled[] = {
        {in.ends[1], POLLOUT, 0}, {out.ends[0], POLLIN, 0}, {err.ends[0], POLLIN, 0}};
    if (std::chrono::steady_clock::now() > deadline) throw std::runtime_error("the program hangs");
    if (poll(polled, 3, 1000) < 0 && errno != EINTR) Fail("poll");
    if (polled[0].revents != 0) {
      const ssize_t count = write(in.ends[1], input.data() + fed, input.size() - fed);
      if (count > 0) fed += static_cast<size_t>(count);
      if ((count < 0 && errno != EAGAIN) || fed == input.size()) in.CloseWrite();
    }
    if (polled[1].revents != 0 && !Take(out.ends[0], outcome.out)) out.CloseRead();
    if (polled[2].revents != 0 && !Take(err.ends[0], outcome.err)) err.CloseRead();
  }
}

int Wait(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) Fail("waitpid");
  }
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace

Outcome RunProgram(const Invocation& invocation) {
  signal(SIGPIPE, SIG_IGN);
  Pipe in, out, err;
  fcntl(in.ends[1], F_SETFL, O_NONBLOCK);
  int outFile = -1;
  if (!invocation.outPath.empty()) {
    outFile = open(invocation.outPath.c_str(), O_WRONLY | O_CLOEXEC);
    if (outFile < 0) Fail(invocation.outPath);
  }
  if (invocation.outBroken) out.CloseRead();
  const pid_t child =
      Spawn(invocation, in.ends[0], outFile >= 0 ? outFile : out.ends[1], err.ends[1]);
  if (outFile >= 0) close(outFile);
  in.CloseRead();
  out.CloseWrite();
  err.CloseWrite();
  Outcome outcome;
  try {
    Talk(in, out, err, invocation.input, outcome);
  } catch (...) {
    kill(child, SIGKILL);
    Wait(child);
    throw;
  }
  outcome.exitCode = Wait(child);
  return outcome;
}

std::string OutputOf(const std::vector<std::string>& command, const std::string& input) {
  Invocation invocation;
  invocation.command = command;
  invocation.environment["LC_ALL"] = "C.UTF-8";
  invocation.input = input;
  const Outcome outcome = RunProgram(invocation);
  if (outcome.exitCode == 0) return outcome.out;
  std::string line;
  for (const std::string& word : command) line += word + " ";
  throw std::runtime_error(line + "gave " + std::to_string(outcome.exitCode) + ": " + outcome.err);
}

TemporaryFolder::TemporaryFolder() {
  std::string name = (std::filesystem::temp_directory_path() / "vctk-test.XXXXXX").string();
  if (mkdtemp(&name[0]) == nullptr) Fail(name);
  m_path = name;
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(m_path, ignored);
}

void WriteText(const std::string& path, const std::string& bytes) {
  std::ofstream file(path, std::ios::binary);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  file.close();
  if (!file) throw std::runtime_error("cannot write " + path);
}

std::string ReadText(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path);
  return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}
