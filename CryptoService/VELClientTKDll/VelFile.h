#pragma once
/* A file that is either local or, when the service route is enabled and the file service listens,
 * that of the service (session 0, object 101).
 *
 * Route      chosen by OpenFile; from then on m_dwFileID, non-zero for a service file, decides.
 * Errors     DWORD results are 0 or an error: 87 no path, 2 no such file or no handle, 4 the path
 * is a folder, what GetLastError gives, what the service answers, or PIPE_ERROR_SEND and
 *            PIPE_ERROR_RECEIVE. The BOOL operations of a service file return these two as they
 *            are, so that a failing channel reads as TRUE; callers look at the length or the size.
 * Threads    one object, one thread at a time. The destructor closes.
 */
#include "PipeIPC.h"
#include "VELCstring.h"
#include "VELInterface.h"

class CVelFile {
 public:
  CVelFile();
  ~CVelFile();

  // Opens for reading and writing, whatever `bWrite` says, and creates a missing file; without
  // `bWrite` a missing one is error 2. An open file is closed first. `bWriteBom` puts FF FE at the
  // beginning of a file that counts as new: one that `bOpenAlways` created, or any with
  // `bCreateAlways`. Nothing is truncated.
  DWORD OpenFile(LPCWSTR path, int bWrite, int bOpenAlways, int bCreateAlways, int bWriteBom);

  DWORD SeekTo(ULONGLONG pos);
  DWORD SeekToBegin();
  DWORD SeekToEnd();
  BOOL GetFileSize(ULONGLONG& size);

  // `len` in: bytes at `buf`. Out: bytes read. A service that answers with more than `len` leaves
  // `buf` alone and reports the longer length.
  BOOL Read(PBYTE buf, DWORD& len);

  // `len` in: bytes to write. Out: bytes written.
  BOOL Write(PBYTE buf, DWORD& len);

  DWORD Flush();
  DWORD SetEndOfFile();  // cuts or extends to the position

  // 0 for a closed object as well.
  DWORD CloseFile();

  // The local handle as a number; 0 when there is none, for a service file too.
  DWORD GetFileID();

  // TRUE when the file service listens.
  BOOL ServerIsExists();

  HANDLE m_hFile;
  CString m_strFileName;
  DWORD m_dwFileID;
  CPipeIPC m_pipcClient;
  BOOL m_bEnable;

 private:
  enum Command : DWORD {
    kOpen = 1,
    kSeekTo = 4,
    kSeekToBegin = 5,
    kSeekToEnd = 6,
    kGetSize = 7,
    kClose = 8,
    kRead = 9,
    kWrite = 10,
    kFlush = 11,
    kSetEndOfFile = 12,
  };
  class Request;
  static const USHORT kServiceSession = 0;
  static const USHORT kServiceObject = 101;

  DWORD OpenLocal(LPCWSTR path, int bWrite, int bOpenAlways, int bCreateAlways, int bWriteBom);
  DWORD ServerOpenFile(LPCWSTR path, int bWrite, int bOpenAlways, int bCreateAlways, int bWriteBom);
  DWORD ServerSeekTo(ULONGLONG pos);
  DWORD ServerCloseFile();
  BOOL ServerGetFileSize(ULONGLONG& size);
  BOOL ServerRead(PBYTE buf, DWORD& len);
  BOOL ServerWrite(PBYTE buf, DWORD& len);
  DWORD ServerCommand(Command command);
  DWORD ServerResult(Request& request);
};
