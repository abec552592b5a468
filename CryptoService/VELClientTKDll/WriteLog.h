#pragma once
/* Two loggers without a lock, a thread or a queue, and the reader of small text files.
 *
 * Each call opens, writes and closes the file by itself, so lines of concurrent calls may
 * interleave at the granularity of the single writes. No failure reaches the caller, and errno is
 * left as it was.
 */
#include <stdio.h>
#include <wchar.h>

#include <string>

// "/tmp/PILog.txt", opened for appending; null when it cannot be opened, which is said on standard
// output. The caller closes it with pv_uninit.
FILE* pv_init_log();

// Closes a stream of pv_init_log; null is accepted.
void pv_uninit(FILE* file);

// One line in "/tmp/PILog.txt". Level 0 INFO, 1 DEBU, 2 WARN, 3 ERRO, any other INFO. The format is
// that of wprintf ("%s" takes a narrow string); of the message at most 4095 characters are kept. A
// message that the locale cannot express leaves the line without level, text and newline.
extern "C" __attribute__((visibility("default"))) void pv_log(int level, const wchar_t* format,
                                                              ...);

// One line in "/tmp/pipe.log", only while "/tmp/testPipe" exists; of the message at most 1023 bytes
// are kept.
void pv_logEx(const char* format, ...) __attribute__((format(printf, 1, 2)));

// The whole file without its last line feed, if it ends with one; empty when it cannot be opened or
// read to the end.
std::string GetFileContent(const std::string& path);
