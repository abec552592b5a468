#include "AssuanClient.h"

#include <assuan.h>
#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <new>

#include "LockedMemory.h"

namespace velcrypto {

namespace {

using Io = ChildProgram::Io;

const size_t kMaxData = 4096;
const size_t kMaxHeard = 1 << 20;  // more than any conversation has to say
const std::chrono::seconds kFarewell(10);

// Blocks that know their size, in locked memory: libassuan's line buffers lie in them.
struct Header {
  alignas(16) size_t size;  // with the header
};

Header* HeaderOf(void* content) {
  return static_cast<Header*>(content) - 1;
}

void* Allocate(size_t size) {
  const size_t all = sizeof(Header) + size;
  auto* const header = static_cast<Header*>(AllocateLocked(all));
  if (header == nullptr) {
    errno = ENOMEM;
    return nullptr;
  }
  header->size = all;
  return header + 1;
}

void Free(void* content) {
  if (content != nullptr) FreeLocked(HeaderOf(content), HeaderOf(content)->size);
}

void* Reallocate(void* content, size_t size) {
  void* const fresh = Allocate(size);
  if (fresh == nullptr || content == nullptr) return fresh;
  const size_t before = HeaderOf(content)->size - sizeof(Header);
  memcpy(fresh, content, before < size ? before : size);
  Free(content);
  return fresh;
}

int LogNothing(assuan_context_t, void*, unsigned int, const char*) {
  return 0;
}

}  // namespace

// libassuan speaks; pipes and process are ChildProgram's, so the descriptors that pass through
// libassuan are mere numbers.
struct AssuanHooks {
  static AssuanClient& Of(assuan_context_t context) {
    return *static_cast<AssuanClient*>(assuan_get_pointer(context));
  }

  static ssize_t Failed(int reason) {
    errno = reason;
    return -1;
  }

  // Data in small pieces or none at all are libassuan's business; endless talk is not.
  static ssize_t Read(assuan_context_t context, assuan_fd_t, void* buffer, size_t size) {
    AssuanClient& self = Of(context);
    if (self.m_heard > kMaxHeard) return Failed(EPROTO);
    size_t count = 0;
    const Io io = self.m_program.Read(buffer, size, &count, self.m_deadline);
    self.m_heard += count;
    self.Note(io);
    return io == Io::kTimedOut ? Failed(ETIMEDOUT) : static_cast<ssize_t>(count);
  }

  static ssize_t Write(assuan_context_t context, assuan_fd_t, const void* data, size_t size) {
    AssuanClient& self = Of(context);
    const Io io = self.m_program.Write(data, size, self.m_deadline);
    self.Note(io);
    return io == Io::kDone ? static_cast<ssize_t>(size) : Failed(EPIPE);
  }

  static int Pipe(assuan_context_t, assuan_fd_t ends[2], int) {
    ends[0] = ends[1] = 0;
    return 0;
  }

  static int Spawn(assuan_context_t, pid_t* pid, const char*, const char**, assuan_fd_t,
                   assuan_fd_t, assuan_fd_t*, void (*)(void*, int), void*, unsigned int) {
    *pid = ASSUAN_INVALID_PID;  // it runs already
    return 0;
  }

  static void Sleep(assuan_context_t, unsigned int) {}
  static int Close(assuan_context_t, assuan_fd_t) { return 0; }
  static pid_t Wait(assuan_context_t, pid_t pid, int, int*, int) { return pid; }

  static assuan_system_hooks All() {
    assuan_system_hooks hooks = {};
    hooks.version = ASSUAN_SYSTEM_HOOKS_VERSION;
    hooks.usleep = Sleep;
    hooks.pipe = Pipe;
    hooks.close = Close;
    hooks.read = Read;
    hooks.write = Write;
    hooks.spawn = Spawn;
    hooks.waitpid = Wait;
    return hooks;
  }
};

void AssuanClient::Release::operator()(assuan_context_s* context) const {
  assuan_release(context);
}

AssuanClient::AssuanClient() {
  assuan_malloc_hooks memory = {Allocate, Reallocate, Free};
  assuan_context_t context = nullptr;
  if (assuan_new_ext(&context, GPG_ERR_SOURCE_DEFAULT, &memory, LogNothing, nullptr) != 0) {
    throw std::bad_alloc();
  }
  m_context.reset(context);
  assuan_system_hooks hooks = AssuanHooks::All();
  assuan_ctx_set_system_hooks(context, &hooks);
  assuan_set_pointer(context, this);
  assuan_set_flag(context, ASSUAN_NO_WAITPID, 1);
  assuan_set_flag(context, ASSUAN_NO_FIXSIGNALS, 1);  // it would ignore SIGPIPE for the host
  assuan_set_flag(context, ASSUAN_CONFIDENTIAL, 1);
}

AssuanClient::~AssuanClient() {
  m_deadline = ChildProgram::Clock::now() + (m_orderly ? kFarewell : std::chrono::seconds(0));
  m_context.reset();  // says BYE
  m_program.Stop(m_orderly ? kFarewell : std::chrono::seconds(0));
}

Outcome AssuanClient::Start(const std::string& path) {
  return m_program.Start(path, {}, {});
}

AssuanClient::Answer AssuanClient::Greet(std::chrono::milliseconds patience) {
  m_deadline = ChildProgram::Clock::now() + patience;
  const char* arguments[] = {"", nullptr};
  if (assuan_pipe_connect(m_context.get(), "", arguments, nullptr, nullptr, nullptr, 0) != 0) {
    return Lost();
  }
  m_orderly = true;
  return Answer::kOk;
}

AssuanClient::Answer AssuanClient::Transact(const std::string& command,
                                            std::chrono::milliseconds patience, Secret* data,
                                            unsigned long* error) {
  m_deadline = ChildProgram::Clock::now() + patience;
  m_status = " ";
  m_orderly = false;
  const Answer answer =
      assuan_write_line(m_context.get(), command.c_str()) == 0 ? ReadAnswer(data, error) : Lost();
  m_orderly = answer == Answer::kOk || answer == Answer::kError;
  return answer;
}

AssuanClient::Answer AssuanClient::ReadAnswer(Secret* data, unsigned long* error) {
  for (;;) {
    char* line = nullptr;
    int size = 0;
    assuan_response_t kind = ASSUAN_RESPONSE_ERROR;
    int offset = 0;
    if (assuan_client_read_response(m_context.get(), &line, &size) != 0) return Lost();
    if (assuan_client_parse_response(m_context.get(), line, size, &kind, &offset) != 0) {
      return Answer::kNonsense;
    }
    const char* const content = line + offset;
    const size_t length = static_cast<size_t>(size - offset);
    if (kind == ASSUAN_RESPONSE_OK) return Answer::kOk;
    if (kind == ASSUAN_RESPONSE_ERROR) {
      if (error != nullptr) *error = strtoul(content, nullptr, 10);
      return Answer::kError;
    }
    if (kind == ASSUAN_RESPONSE_INQUIRE) assuan_write_line(m_context.get(), "CAN");
    if (kind == ASSUAN_RESPONSE_STATUS) m_status.append(content, strcspn(content, " ")) += ' ';
    if (kind == ASSUAN_RESPONSE_END) return Answer::kNonsense;
    if (kind != ASSUAN_RESPONSE_DATA || data == nullptr) continue;
    const bool fits = data->size() + length <= kMaxData && memchr(content, 0, length) == nullptr;
    if (fits) data->Append(content, length);
    explicit_bzero(line, static_cast<size_t>(size));
    if (!fits) return Answer::kNonsense;
  }
}

bool AssuanClient::SawStatus(const std::string& keyword) const {
  return m_status.find(" " + keyword + " ") != std::string::npos;
}

bool AssuanClient::EndedBy(int signal) {
  const ChildProgram::Ending ending = m_program.Stop(kFarewell);
  return ending.known && ending.bySignal && ending.status == signal;
}

AssuanClient::Answer AssuanClient::Lost() const {
  if (m_io == Io::kDone) return Answer::kNonsense;
  return m_io == Io::kTimedOut ? Answer::kTimedOut : Answer::kClosed;
}

}  // namespace velcrypto
