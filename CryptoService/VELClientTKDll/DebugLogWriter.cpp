// The writer's side of the debug log: its thread, and what it does with the file.
#include <errno.h>
#include <locale.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>
#include <wchar.h>

#include <algorithm>
#include <memory>
#include <new>

#include "DebugLogMgr.h"
#include "LogPrefix.h"

namespace {

const DWORD kBomBytes = 2;
const int kPatience = 1000;  // milliseconds

bool IsGone(int thread) {
  return thread != 0 && tgkill(getpid(), thread, 0) != 0 && errno == ESRCH;
}

void SleepMillisecond() {
  const timespec millisecond = {0, 1000000};
  nanosleep(&millisecond, nullptr);
}

void WriteBytes(CVelFile& file, const void* bytes, DWORD count) {
  DWORD length = count;
  file.Write(static_cast<PBYTE>(const_cast<void*>(bytes)), length);
}

}  // namespace

// Tells the manager where its writer is, also when it is cancelled.
class CDebugLogMgr::WriterScope {
 public:
  explicit WriterScope(CDebugLogMgr& log) : m_log(log) {
    const CVELCriticalGuard guard(m_log.m_csWriter);
    m_log.m_writerId = gettid();
  }
  ~WriterScope() {
    const CVELCriticalGuard guard(m_log.m_csWriter);
    m_log.m_writerEnded = true;
  }

 private:
  CDebugLogMgr& m_log;
};

int CDebugLogMgr::CreateWriteLogThread() {
  const CVELCriticalGuard guard(m_csLogCache);
  if (m_thread != 0) return 1;
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) return 0;
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  // The host's signals are for the host's threads.
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  m_writerProcess = getpid();
  m_thread = pthread_create(&m_writer, &attributes, WriteLogThreadProc, this) == 0 ? 1 : 0;
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  pthread_attr_destroy(&attributes);
  return m_thread;
}

bool CDebugLogMgr::Exiting() const {
  return __atomic_load_n(&exit_flag, __ATOMIC_ACQUIRE) != 0;
}

// A detached thread cannot be joined, and its last instructions are in this library, which may be
// unloaded next: only the kernel knows when it has gone.
bool CDebugLogMgr::WriterIsGone() {
  const CVELCriticalGuard guard(m_csWriter);
  return m_writerEnded && IsGone(m_writerId);
}

void CDebugLogMgr::CancelWriter() {
  const CVELCriticalGuard guard(m_csWriter);
  if (!m_writerEnded) pthread_cancel(m_writer);
}

// False when the writer hangs in the system and may still use this object.
bool CDebugLogMgr::EndWriter() {
  __atomic_store_n(&exit_flag, 1, __ATOMIC_RELEASE);
  if (m_thread == 0 || m_writerProcess != getpid()) return true;
  sem_post(&m_sem);
  sleep(1);
  __atomic_store_n(&m_secondIsOver, true, __ATOMIC_RELEASE);
  for (int waited = 0; waited < 2 * kPatience && !WriterIsGone(); ++waited) {
    if (waited == kPatience) CancelWriter();  // it may wait for ever, say for the reader of a pipe
    SleepMillisecond();
  }
  if (!WriterIsGone()) return false;
  m_thread = 0;
  return true;
}

void* CDebugLogMgr::WriteLogThreadProc(LPVOID self) {
  CDebugLogMgr& log = *static_cast<CDebugLogMgr*>(self);
  const WriterScope scope(log);
  do {
    sem_wait(&log.m_sem);
    if (!log.Exiting() && !log.WriteLines()) return nullptr;
  } while (!log.Exiting());
  log.DiscardLines();
  return nullptr;
}

// False when the writer has to end. A writer that is at it when the end comes goes on for the
// second that it is given: the last lines of a host are those that it is asked for.
bool CDebugLogMgr::WriteLines() {
  while (!__atomic_load_n(&m_secondIsOver, __ATOMIC_ACQUIRE)) {
    const std::unique_ptr<LogCacheList> node(TakeLine());
    if (node == nullptr) break;
    if (!WriteLine(node->strLog)) return false;
  }
  return true;
}

LogCacheList* CDebugLogMgr::TakeLine() {
  const CVELCriticalGuard guard(m_csLogCache);
  LogCacheList* const node = m_logCacheHead;
  if (node == nullptr) return nullptr;
  m_logCacheHead = node->next;
  if (m_logCacheHead == nullptr) m_logCacheTail = nullptr;
  node->next = nullptr;
  return node;
}

void CDebugLogMgr::DiscardLines() {
  while (LogCacheList* const node = TakeLine()) delete node;
}

CString CDebugLogMgr::LogFileName() {
  const CVELCriticalGuard guard(m_csLogCache);
  return m_strLogFileName;
}

DWORD CDebugLogMgr::OpenLog() {
  return m_logFile.OpenFile(LogFileName(), 1, 1, 0, 1);
}

// The leading blank makes the new name one below the working directory, which is where such logs
// are looked for. False when the time cannot be read.
bool CDebugLogMgr::TakeNewName() {
  timeval now = {};
  tm local = {};
  if (!ReadLogTime(now, local)) return false;
  wchar_t name[1024] = {};
  swprintf(name, 1023, L" %ls.%04d.%02d.%02d.%02d.%02d.%02d.%03d",
           static_cast<const wchar_t*>(LogFileName()), local.tm_year + 1900, local.tm_mon + 1,
           local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, static_cast<int>(now.tv_usec));
  const CVELCriticalGuard guard(m_csLogCache);
  m_strLogFileName = name;
  return true;
}

bool CDebugLogMgr::EnsureOpen() {
  return m_logFile.GetFileID() != 0 || OpenLog() == 0;
}

// False when the writer has to end.
bool CDebugLogMgr::WriteLine(const CString& line) {
  if (EnsureOpen()) {
    AppendLine(line);
  } else {
    // The line that found the file unusable is lost; the next one goes to the new name.
    if (!TakeNewName()) return false;
    MakeFolder();  // for lines that wait: theirs was that of the old name
    OpenLog();
  }
  if (!__atomic_load_n(&m_bGlobalMode, __ATOMIC_RELAXED)) m_logFile.CloseFile();
  return true;
}

void CDebugLogMgr::AppendLine(const CString& line) {
  m_logFile.SeekToEnd();
  const CStringA narrow(static_cast<const wchar_t*>(line));
  WriteBytes(m_logFile, narrow, static_cast<DWORD>(narrow.GetLength()));
  WriteBytes(m_logFile, "\r\n\r\n", 4);
  m_logFile.Flush();
  ULONGLONG size = 0;
  m_logFile.GetFileSize(size);
  const DWORD percent = __atomic_load_n(&m_dwTruncatePercent, __ATOMIC_RELAXED);
  const DWORD limit = __atomic_load_n(&m_dwMaxFileSize, __ATOMIC_RELAXED);
  if (percent != 0 && size > limit && m_logFile.GetFileID() != 0) TruncateLog(size, percent);
}

void CDebugLogMgr::TruncateLog(DWORD size, DWORD percent) {
  if (size < kBomBytes) return;
  const std::unique_ptr<BYTE[]> bytes(new (std::nothrow) BYTE[size]());
  if (bytes == nullptr) return;
  DWORD length = size;
  m_logFile.SeekToBegin();
  if (!m_logFile.Read(bytes.get(), length) || length != size) return;
  m_logFile.SeekToBegin();
  const DWORD count = size - kBomBytes;
  // Single precision decides where old files are cut; at a large size it may exceed the count.
  const float share = static_cast<float>(percent) / 100.0f;
  const float cut = std::min(static_cast<float>(count) * share, static_cast<float>(count));
  const DWORD remaining = count - std::min(static_cast<DWORD>(cut), count);
  const DWORD kept = remaining + remaining % 2;
  // Counted from the beginning of the file, not from behind its mark: the last two bytes go and two
  // older ones stay. Kept on purpose: what is left of a log is a format that its readers know.
  const DWORD start = count > kept ? count - kept : 0;
  WriteBytes(m_logFile, "\xFF\xFE", kBomBytes);
  WriteBytes(m_logFile, bytes.get() + start, kept);
  m_logFile.SetEndOfFile();
}
