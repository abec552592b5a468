#pragma once
/* The compatibility layer: Win32 meaning over POSIX, for the toolkit and the device library.
 *
 * Rules for all functions
 *   types      DWORD, ULONG and LONG are 64 bits wide, BOOL and UINT 32, wchar_t 4 bytes (UTF-32).
 *   errors     a failing function leaves a Win32 error number in GetLastError of the calling
 *              thread; unless its text says so, a succeeding one leaves it alone.
 *   text       narrow paths and code pages 0 and 65001 are UTF-8, whatever the locale.
 *   threads    every function may be called from any thread. A block or file handle belongs to
 *              one thread at a time; different ones do not disturb each other.
 *   ownership  what HeapAlloc gave is freed with HeapFree, what VelCreateFile gave is closed
 *              with CloseHandle. Nothing else is allocated for the caller.
 * The functions carry the symbol version VELINTERFACE_1.0, so that another library with
 * Win32-like names in the same process is never taken for this one.
 */
#include <stddef.h>
#include <wchar.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef unsigned long DWORD;
typedef unsigned long ULONG;
typedef long LONG;
typedef unsigned long long ULONGLONG;
typedef int INT;
typedef unsigned int UINT;
typedef int BOOL;
typedef unsigned char BYTE;
typedef BYTE BOOLEAN;
typedef unsigned short USHORT;
typedef unsigned short WORD;
typedef char CHAR;
typedef wchar_t WCHAR;
typedef size_t SIZE_T;
typedef void* PVOID;
typedef void* LPVOID;
typedef const void* LPCVOID;
typedef BYTE* PBYTE;
typedef DWORD* LPDWORD;
typedef BOOL* LPBOOL;
typedef char* LPSTR;
typedef const char* LPCSTR;
typedef wchar_t* LPWSTR;
typedef const wchar_t* LPCWSTR;
typedef const wchar_t* LPCTSTR;
typedef void* HANDLE;
typedef void* HWND;
typedef void* HMODULE;

typedef union _LARGE_INTEGER {
  long long QuadPart;
} LARGE_INTEGER, *PLARGE_INTEGER;

typedef struct _SYSTEMTIME {
  WORD wYear, wMonth, wDayOfWeek, wDay, wHour, wMinute, wSecond, wMilliseconds;
} SYSTEMTIME, *LPSYSTEMTIME;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

#define INVALID_HANDLE_VALUE ((HANDLE)(LONG)-1)
#define HEAP_ZERO_MEMORY 8
#define CP_ACP 0
#define CP_UTF8 65001
#define MB_ERR_INVALID_CHARS 8
#define WC_ERR_INVALID_CHARS 0x80
#define FILE_BEGIN 0
#define FILE_CURRENT 1
#define FILE_END 2

#define ERROR_SUCCESS 0
#define ERROR_FILE_NOT_FOUND 2
#define ERROR_PATH_NOT_FOUND 3
#define ERROR_TOO_MANY_OPEN_FILES 4
#define ERROR_ACCESS_DENIED 5
#define ERROR_INVALID_HANDLE 6
#define ERROR_NOT_ENOUGH_MEMORY 8
#define ERROR_SHARING_VIOLATION 32
#define ERROR_FILE_EXISTS 80
#define ERROR_INVALID_PARAMETER 87
#define ERROR_DISK_FULL 112
#define ERROR_INSUFFICIENT_BUFFER 122
#define ERROR_NEGATIVE_SEEK 131
#define ERROR_ALREADY_EXISTS 183
#define ERROR_FILENAME_EXCED_RANGE 206
#define ERROR_NO_UNICODE_TRANSLATION 1113
#define ERROR_IO_DEVICE 1117

#pragma GCC visibility push(default)

/* The last error of the calling thread; 0 at the start of a thread. */
DWORD GetLastError(void);

/* --- heap (Heap.cpp) --- */

/* The one heap of the process; the handle is passed to the functions below. */
HANDLE GetProcessHeap(void);

/* A block of exactly `size` bytes, zeroed with HEAP_ZERO_MEMORY (8) in `flags`. `size` may be 0:
 * a block without bytes, to be freed as well. Null and error 8 when memory is exhausted; null and
 * error 6 for another heap's handle. */
LPVOID HeapAlloc(HANDLE heap, DWORD flags, SIZE_T size);

/* Resizes a block, keeping its bytes up to the smaller size; the added bytes are zero with
 * HEAP_ZERO_MEMORY. On failure null and error 8, and the old block stays valid. */
LPVOID HeapReAlloc(HANDLE heap, DWORD flags, LPVOID block, SIZE_T size);

/* Frees a block; null is accepted. */
BOOL HeapFree(HANDLE heap, DWORD flags, LPVOID block);

/* The size that the block was asked for with, to the byte; (SIZE_T)-1 for null. */
SIZE_T HeapSize(HANDLE heap, DWORD flags, LPCVOID block);

/* --- text (Text.cpp) --- */

/* UTF-8 to UTF-32. Code pages 0 and 65001; any other 0 and error 87.
 * source    bytes; `sourceLength` of them, or -1: up to and with the terminator.
 * target    room for `targetLength` characters; a `targetLength` of 0 asks for the count.
 * A bad sequence becomes U+FFFD, one for each maximal part of a sequence; with flag 8
 * (MB_ERR_INVALID_CHARS) it is 0 and error 1113 instead.
 * Returns the characters written or needed, the terminator counted when it was part of the
 * source; 0 and error 122 when `targetLength` is too small (the target may hold a part then), 0
 * and error 87 for a null source, a null target with a length, a negative target length, a source
 * length of 0 or below -1, an unknown flag, or a count that no int holds.
 * Room for the text without its terminator is enough with a source length of -1: then the
 * text alone is converted and counted. Source and target must not overlap. */
int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR source, int sourceLength, LPWSTR target,
                        int targetLength);

/* UTF-32 to UTF-8; the mirror of MultiByteToWideChar in every rule. A surrogate or a value above
 * U+10FFFF becomes U+FFFD, with WC_ERR_INVALID_CHARS (0x80) 0 and error 1113. `defaultChar` and
 * `usedDefault` must be null for UTF-8 (error 87). */
int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR source, int sourceLength, LPSTR target,
                        int targetLength, LPCSTR defaultChar, LPBOOL usedDefault);

/* Length in units up to the terminator, at most INT_MAX; 0 for null. */
int lstrlenA(LPCSTR text);
int lstrlenW(LPCWSTR text);

/* Order of two texts by code point: negative, zero, positive. Null sorts before every text. */
int lstrcmpW(LPCWSTR left, LPCWSTR right);

/* The same with letters folded to small ones, one character for one, alike in every locale. */
int _wcsicmp(LPCWSTR left, LPCWSTR right);

/* --- bounded copies (BoundedCopy.cpp): 0, or 22 (EINVAL) for a null argument or a size of 0, or
 * 34 (ERANGE) when it does not fit. Sizes count units (bytes, wide characters) with the
 * terminator. After a failure a usable target holds the empty text (memcpy_s: zeros). --- */

int strcpy_s(LPSTR target, SIZE_T targetSize, LPCSTR source);
int wcscpy_s(LPWSTR target, SIZE_T targetSize, LPCWSTR source);

/* Copies at most `count` characters, stops at a terminator, and terminates. */
int strncpy_s(LPSTR target, SIZE_T targetSize, LPCSTR source, SIZE_T count);

/* Copies exactly `count` bytes; the ranges may overlap. A count of 0 is success whatever the other
 * arguments are; a target size of 0 is else too small (34). */
int memcpy_s(void* target, SIZE_T targetSize, const void* source, SIZE_T count);

/* --- files (File.cpp) ---
 * Error 6 for a handle that VelCreateFile did not give or that was closed, error 87 for a null
 * pointer that may not be null. */

/* Opens for reading and writing, and creates when missing (mode 0600, less the umask). The last
 * component is not followed when it is a symbolic link, and the descriptor is closed on exec.
 * Returns a handle, never null. GetLastError after success: 183 when the file existed, 0 when it
 * was created; exactly one of several creators sees 0.
 * Returns INVALID_HANDLE_VALUE with error 3 when the folder is missing, 5 for a folder, a symbolic
 * link or a lack of rights, 4 when too many files are open, 87 for null, or another error. */
HANDLE VelCreateFile(LPCSTR path);

/* Reads or writes `wanted` bytes at the file position; `*done` receives the bytes moved, with
 * ReadFile fewer than wanted at the end of the file. FALSE with the error when reading failed or
 * not all could be written (112 on a full disk); `*done` counts what was moved before.
 * `overlapped` must be null (error 87). */
BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD wanted, LPDWORD done, LPVOID overlapped);
BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD wanted, LPDWORD done, LPVOID overlapped);

/* Moves the file position by `distance` from `method` (FILE_BEGIN, FILE_CURRENT, FILE_END), also
 * beyond the end; `newPosition` may be null. A position before the beginning is FALSE and error
 * 131, another method error 87. */
BOOL SetFilePointerEx(HANDLE file, LARGE_INTEGER distance, PLARGE_INTEGER newPosition,
                      DWORD method);
BOOL GetFileSizeEx(HANDLE file, PLARGE_INTEGER size);

/* Returns when the bytes written are on the disk. */
BOOL FlushFileBuffers(HANDLE file);

/* Cuts or extends the file to the file position. */
BOOL SetEndOfFile(HANDLE file);

/* Closes what VelCreateFile gave. */
BOOL CloseHandle(HANDLE handle);

/* --- paths (Path.cpp) ---
 * Error 206 for a path of 4096 bytes or more, 1113 for one that is no Unicode. */

/* TRUE when the path names anything (PathFileExistsW) or a folder (PathIsDirectoryW), symbolic
 * links followed; FALSE with error 2 when there is nothing, 3 when a file stands where a folder is
 * meant, 5 for a lack of rights, 87 for null. */
BOOL PathFileExistsW(LPCWSTR path);
BOOL PathIsDirectoryW(LPCWSTR path);

/* Cuts the part from the last "/" on in place ("/a/b" and "/a//b" become "/a", "/a/" too, "/a"
 * becomes "/", "a" the empty text); FALSE when nothing was cut ("/" and the empty text). */
BOOL PathRemoveFileSpecW(LPWSTR path);

/* Creates the folder and the missing ones above it (mode 0700); relative paths start at the
 * working directory, slashes at the end do not count. Returns 0, 183 when it exists already, 80
 * when something else stands in its place, 3 when something else stands above, or another error;
 * GetLastError says the same. `window` and `security` are ignored. */
int SHCreateDirectoryExW(HWND window, LPCWSTR path, LPCVOID security);

/* --- profile files and time (Profile.cpp, Time.cpp) --- */

/* The integer of `key` in section `section` of an INI file: names ignore case (ASCII); blanks
 * around names and values, matching quotes around the value, lines that start with ";" and a UTF-8
 * byte-order mark do not count; decimal, or hexadecimal with a 0x prefix, with a sign or none; the
 * digits up to the first other character count, none is 0, and a number is taken modulo 2^32. The
 * first such key counts; of a line the first 4096 bytes are looked at.
 * `defaultValue` when the file, the section or the key is missing (error 2, 3 or 5) or a name is
 * null (error 87). */
UINT GetPrivateProfileIntA(LPCSTR section, LPCSTR key, INT defaultValue, LPCSTR file);

/* Milliseconds since the system was started; never goes back. */
DWORD GetTickCount(void);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif
