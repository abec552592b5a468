// The manager's life and the side of those who log; the writer's side is in DebugLogWriter.cpp.
#include "DebugLogMgr.h"

#include <locale.h>
#include <time.h>
#include <unistd.h>
#include <wchar.h>

#include <algorithm>
#include <atomic>
#include <initializer_list>
#include <memory>
#include <new>

#include "LogMessage.h"
#include "LogPrefix.h"

namespace {

const wchar_t kDefaultName[] = L"/tmp/PILog.txt";
const size_t kPathCharacters = 260;

// Statements under way in other threads, or run by destructors later than the manager's, meet a
// destroyed manager when a process ends. These outlive it and need no construction.
std::atomic<bool> g_closed(false);
std::atomic<int> g_underWay(0);

class UnderWay {
 public:
  UnderWay() { g_underWay.fetch_add(1); }
  ~UnderWay() { g_underWay.fetch_sub(1); }
  bool Allowed() const { return !g_closed.load(); }
};

void SleepMillisecond() {
  const timespec millisecond = {0, 1000000};
  nanosleep(&millisecond, nullptr);
}

// Bounded, for a handler that ends the process may have interrupted a statement of its own thread.
void CloseToStatements() {
  g_closed.store(true);
  for (int waited = 0; g_underWay.load() != 0 && waited < 1000; ++waited) SleepMillisecond();
}

// Fills an empty line; without memory it stays empty.
void Join(CString& line, std::initializer_list<const wchar_t*> pieces) {
  size_t length = 0;
  for (const wchar_t* piece : pieces) length += wcslen(piece);
  if (length == 0 || !line.AllocText(static_cast<int>(length))) return;
  wchar_t* at = line.GetBuffer();
  for (const wchar_t* piece : pieces) at = wcpcpy(at, piece);
}

// The manager that forked children have to put in order; null before and after its life.
CDebugLogMgr* g_manager = nullptr;

}  // namespace

// Holds the one manager. It is left standing when a writer that hangs in the system may still use
// it.
class CDebugLogMgr::Session {
 public:
  Session() : m_manager(new (m_room) CDebugLogMgr) {
    g_manager = m_manager;
    pthread_atfork(BeforeFork, AfterForkInParent, AfterForkInChild);
  }
  ~Session() {
    CloseToStatements();
    g_manager = nullptr;
    if (m_manager->EndWriter()) m_manager->~CDebugLogMgr();
  }
  CDebugLogMgr* Manager() const { return m_manager; }

 private:
  alignas(CDebugLogMgr) unsigned char m_room[sizeof(CDebugLogMgr)];
  CDebugLogMgr* const m_manager;
};

CDebugLogMgr* CDebugLogMgr::GetInstance() {
  static const Session session;
  return session.Manager();
}

CDebugLogMgr::CDebugLogMgr()
    : m_bOutputLogToFile(1),
      m_bWithFunctionName(1),
      m_dwMaxFileSize(0x200000),
      m_dwTruncatePercent(20),
      m_hEvent(nullptr),
      m_bGlobalMode(0),
      m_logCacheHead(nullptr),
      m_logCacheTail(nullptr),
      m_logLevel(1),
      m_thread(0),
      exit_flag(0),
      m_writerId(0),
      m_writerEnded(false),
      m_writer(),
      m_writerProcess(0),
      m_secondIsOver(false) {
  setlocale(LC_ALL, "");
  sem_init(&m_sem, 0, 0);
  m_strLogFileName = kDefaultName;
  GetLogLevel();
  CreateWriteLogThread();
}

CDebugLogMgr::~CDebugLogMgr() {
  if (m_hEvent != nullptr && m_hEvent != INVALID_HANDLE_VALUE) {
    CloseHandle(m_hEvent);
    m_hEvent = nullptr;
  }
  EndWriter();
  DiscardLines();
  sem_destroy(&m_sem);
  if (m_bGlobalMode) m_logFile.CloseFile();
}

// A child must not find the queue half changed or its lock held by a thread that it does not have.
void CDebugLogMgr::BeforeFork() {
  if (g_manager == nullptr) return;
  g_manager->m_csWriter.EnterVELCritical();
  g_manager->m_csLogCache.EnterVELCritical();
  HoldLogTime();
}

void CDebugLogMgr::AfterForkInParent() {
  if (g_manager == nullptr) return;
  ReleaseLogTime();
  g_manager->m_csLogCache.LeaveVELCritical();
  g_manager->m_csWriter.LeaveVELCritical();
}

// The parent's writer may have been anywhere in the file object. What it held for the line that it
// wrote, a name and a descriptor, is let go, not freed.
void CDebugLogMgr::AfterForkInChild() {
  if (g_manager == nullptr) return;
  CDebugLogMgr& log = *g_manager;
  g_underWay.store(0);
  ReleaseLogTime();
  log.m_csLogCache.LeaveVELCritical();
  log.m_csWriter.LeaveVELCritical();
  log.DiscardLines();
  log.m_logFile.m_hFile = nullptr;
  new (&log.m_logFile.m_strFileName) CString;
  sem_init(&log.m_sem, 0, 0);
  log.m_thread = 0;
  log.m_writerId = 0;
  log.m_writerEnded = false;
}

int CDebugLogMgr::GetLogLevel() {
  const int level =
      static_cast<int>(GetPrivateProfileIntA("loginfo", "logLevel", 1, "/var/log.ini"));
  __atomic_store_n(&m_logLevel, level, __ATOMIC_RELAXED);
  return 0;
}

void CDebugLogMgr::SetLogFileName(LPCTSTR name) {
  const CVELCriticalGuard guard(m_csLogCache);
  m_strLogFileName = name;
}

void CDebugLogMgr::SetLogHeader(LPCTSTR header) {
  const CVELCriticalGuard guard(m_csLogCache);
  m_strLogHeader = header;
}

void CDebugLogMgr::SetTruncate(DWORD maxSize, DWORD percent) {
  __atomic_store_n(&m_dwMaxFileSize, maxSize, __ATOMIC_RELAXED);
  __atomic_store_n(&m_dwTruncatePercent, percent, __ATOMIC_RELAXED);
}

void CDebugLogMgr::EnableOutput(BOOL enable) {
  __atomic_store_n(&m_bOutputLogToFile, enable, __ATOMIC_RELAXED);
}

void CDebugLogMgr::WithFunctionName(BOOL with) {
  __atomic_store_n(&m_bWithFunctionName, with, __ATOMIC_RELAXED);
}

void CDebugLogMgr::EnableGlobalMode(BOOL enable) {
  __atomic_store_n(&m_bGlobalMode, enable, __ATOMIC_RELAXED);
}

// Each line asks for its folder, which may have been removed since the line before. A failure shows
// when the file is opened.
void CDebugLogMgr::MakeFolder() {
  wchar_t folder[kPathCharacters];
  {
    const CVELCriticalGuard guard(m_csLogCache);
    if (m_strLogFileName.IsEmpty()) {
      m_strLogFileName = kDefaultName;
      return;
    }
    const size_t length = std::min<size_t>(m_strLogFileName.GetLength(), kPathCharacters - 1);
    wmemcpy(folder, m_strLogFileName, length);
    folder[length] = L'\0';
  }
  PathRemoveFileSpecW(folder);
  SHCreateDirectoryExW(nullptr, folder, nullptr);
}

CString CDebugLogMgr::Header() {
  const CVELCriticalGuard guard(m_csLogCache);
  return m_strLogHeader;
}

void CDebugLogMgr::OutputArgs(LPCTSTR type, int level, LPCTSTR srcFile, LPCTSTR function,
                              DWORD line, LPCTSTR format, va_list args) {
  if (__atomic_load_n(&m_logLevel, __ATOMIC_RELAXED) > level) return;
  WithFunctionName(function != nullptr && *function != L'\0');
  if (srcFile == nullptr || format == nullptr) return;
  MakeFolder();
  LogPrefix prefix;
  LogMessage message;
  if (!FormatLogPrefix(prefix, srcFile, function, line) || !message.Format(format, args)) return;
  std::unique_ptr<LogCacheList> node(new (std::nothrow) LogCacheList());
  if (node == nullptr) return;
  Join(node->strLog, {type == nullptr ? L"" : type, prefix, Header(), message.Text()});
  Queue(node.release());
}

void CDebugLogMgr::Queue(LogCacheList* node) {
  int running;
  {
    const CVELCriticalGuard guard(m_csLogCache);
    (m_logCacheTail != nullptr ? m_logCacheTail->next : m_logCacheHead) = node;
    m_logCacheTail = node;
    running = m_thread;
  }
  if (running == 0) CreateWriteLogThread();
  sem_post(&m_sem);
}

CDebugLogMgr::MacroHelper::MacroHelper(LPCTSTR type, int level, LPCTSTR srcFile, LPCTSTR function,
                                       DWORD line)
    : m_strLogType(type),
      m_strSrcFileName(srcFile),
      m_strSrcFunctionName(function),
      m_dwSrcLineNumber(line),
      m_curLogLevel(level) {}

void CDebugLogMgr::MacroHelper::operator()(LPCTSTR format, ...) try {
  const UnderWay underWay;
  if (format == nullptr || !underWay.Allowed()) return;
  const WideTextFormat wideFormat(format);
  va_list args;
  va_start(args, format);
  GetInstance()->OutputArgs(m_strLogType, m_curLogLevel, m_strSrcFileName, m_strSrcFunctionName,
                            m_dwSrcLineNumber, wideFormat.Text(), args);
  va_end(args);
} catch (const std::bad_alloc&) {  // the line is lost; logging never fails visibly
}
