#pragma once
/* The debug log. A statement is
 *
 *   CDebugLogMgr::MacroHelper(L"[ERROR] ", 3, L"File.cpp", L"Function", __LINE__)(L"%d", code);
 *
 * Levels   1 with "[INFO] ", 3 with "[ERROR] ". Lines of logLevel and above are logged; it is read
 *          once, from section "loginfo" of "/var/log.ini", and is 1 without that file.
 * Line     the tag, "[P process] [T thread] [date time:microseconds] [file-function(line)]: ", the
 *          message (at most 8191 characters), then "\r\n\r\n".
 * File     "/tmp/PILog.txt": FF FE, then narrow text in the locale of the process. Past 2 MiB its
 *          oldest fifth is cut away. When it cannot be opened, a line is lost and a new name,
 *          relative to the working directory, is used from then on.
 * Threads  any thread may log, and pays for formatting and for making the file's folder, which
 *          every line does; one detached thread writes. Nothing is reported to callers.
 * Ending   the manager is destroyed at process exit or when the library is unloaded. It gives the
 *          writer a second, which a writer that is just writing uses and a waiting one does not,
 *          drops the lines that are not written by then, and returns when the writer has ended.
 *          Later statements do nothing.
 * Process  the first statement takes the locale from the environment (setlocale(LC_ALL, "")). A
 *          forked child drops the lines that its parent will write and has a writer of its own
 *          from its first line on.
 */
#include <pthread.h>
#include <semaphore.h>

#include <cstdarg>

#include "CVELCritical.h"
#include "VELCstring.h"
#include "VelFile.h"

struct LogCacheList {
  CString strLog;
  LogCacheList* next;
};

class CDebugLogMgr {
 public:
  // One log statement; lives on the caller's stack.
  class MacroHelper {
   public:
    // Null texts count as empty.
    MacroHelper(LPCTSTR type, int level, LPCTSTR srcFile, LPCTSTR function, DWORD line);

    // wprintf, but a plain "%s" takes a wide text. Null logs nothing.
    void operator()(LPCTSTR format, ...);

    CString m_strLogType;
    CString m_strSrcFileName;
    CString m_strSrcFunctionName;
    DWORD m_dwSrcLineNumber;
    int m_curLogLevel;
  };

  // Never null. After its destruction only MacroHelper may still be used.
  static CDebugLogMgr* GetInstance();

  CDebugLogMgr();
  virtual ~CDebugLogMgr();
  CDebugLogMgr(const CDebugLogMgr&) = delete;
  CDebugLogMgr& operator=(const CDebugLogMgr&) = delete;

  // Formats and queues one line; nothing without `srcFile` or `format`. An empty `function` is left
  // out of the line. The format is wprintf's own.
  void OutputArgs(LPCTSTR type, int level, LPCTSTR srcFile, LPCTSTR function, DWORD line,
                  LPCTSTR format, va_list args);

  // Reads the level again. 0.
  int GetLogLevel();

  // 1 when the writer runs, 0 when it could not be started.
  int CreateWriteLogThread();

  // The writer; ends with 0.
  static void* WriteLogThreadProc(LPVOID self);

  // They take effect with the next line that is logged or written.
  void SetLogFileName(LPCTSTR name);
  void SetLogHeader(LPCTSTR header);
  void SetTruncate(DWORD maxSize, DWORD percent);  // 0 percent: never
  void EnableOutput(BOOL enable);                  // kept, but not consulted
  void WithFunctionName(BOOL with);                // every line sets it anew
  void EnableGlobalMode(BOOL enable);              // the file stays open between lines

  CString m_strLogFileName;
  CString m_strLogHeader;
  BOOL m_bOutputLogToFile;
  BOOL m_bWithFunctionName;
  DWORD m_dwMaxFileSize;
  DWORD m_dwTruncatePercent;
  CVelFile m_logFile;
  HANDLE m_hEvent;
  BOOL m_bGlobalMode;
  LogCacheList* m_logCacheHead;
  LogCacheList* m_logCacheTail;
  int m_logLevel;
  int m_thread;
  sem_t m_sem;
  int exit_flag;
  CVELCritical m_csLogCache;  // also for the file name and the header

 private:
  class Session;
  class WriterScope;

  static void BeforeFork();
  static void AfterForkInParent();
  static void AfterForkInChild();

  void MakeFolder();
  CString Header();
  void Queue(LogCacheList* node);
  LogCacheList* TakeLine();
  void DiscardLines();
  bool Exiting() const;
  bool WriterIsGone();
  void CancelWriter();
  bool EndWriter();
  CString LogFileName();
  DWORD OpenLog();
  bool EnsureOpen();
  bool TakeNewName();
  bool WriteLines();
  bool WriteLine(const CString& line);
  void AppendLine(const CString& line);
  void TruncateLog(DWORD size, DWORD percent);

  CVELCritical m_csWriter;  // guards the two below
  int m_writerId;           // the kernel's number of the writer, 0 until it runs
  bool m_writerEnded;       // the writer is on its last instructions
  pthread_t m_writer;       // may be used while the writer has not ended
  int m_writerProcess;      // a forked child has no writer
  bool m_secondIsOver;      // of the end; the writer writes no further line
};
