#include "WriteLog.h"

#include <errno.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdlib.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <memory>
#include <new>

namespace {

const char kLogFile[] = "/tmp/PILog.txt";
const char kTraceMarker[] = "/tmp/testPipe";
const char kTraceFile[] = "/tmp/pipe.log";
const size_t kLogCharacters = 4096;
const size_t kTraceBytes = 1024;

// In the zone of now: hosts run for weeks, and localtime_r alone never looks again.
bool LocalTime(time_t now, tm& local) {
  tzset();
  return localtime_r(&now, &local) != nullptr;
}

class ErrnoKeeper {
 public:
  ErrnoKeeper() : m_errno(errno) {}
  ~ErrnoKeeper() { errno = m_errno; }

 private:
  int m_errno;
};

const char* LevelName(int level) {
  static const char* const names[] = {"INFO", "DEBU", "WARN", "ERRO"};
  return names[level >= 0 && level < 4 ? level : 0];
}

void WriteDateAndProcess(FILE* file) {
  const time_t now = time(nullptr);
  tm local = {};
  char date[128] = {};
  if (LocalTime(now, local)) strftime(date, sizeof(date), "%d/%b/%Y:%H:%M:%S %Z", &local);
  // The d behind the thread number is no conversion; those who read these files know it there.
  fprintf(file, "[%s] [%d %ud]", date, getpid(), static_cast<unsigned>(pthread_self()));
}

void WriteMessage(FILE* file, int level, const wchar_t* message) {
  const size_t length = wcstombs(nullptr, message, 0);
  if (length == static_cast<size_t>(-1)) return;
  const std::unique_ptr<char[]> text(new (std::nothrow) char[length + 1]());
  if (text == nullptr) return;
  wcstombs(text.get(), message, length);
  fprintf(file, "[%s]%s\n", LevelName(level), text.get());
}

}  // namespace

FILE* pv_init_log() {
  FILE* const file = fopen(kLogFile, "a+");
  if (file == nullptr) {
    printf("system error: error to open log file[%s].\n", kLogFile);
    return nullptr;
  }
  fflush(file);
  return file;
}

void pv_uninit(FILE* file) {
  if (file != nullptr) fclose(file);
}

extern "C" void pv_log(int level, const wchar_t* format, ...) {
  const ErrnoKeeper keeper;
  FILE* const file = pv_init_log();
  if (file == nullptr) return;
  WriteDateAndProcess(file);
  const std::unique_ptr<wchar_t[]> message(new (std::nothrow) wchar_t[kLogCharacters]());
  if (message != nullptr && format != nullptr) {
    va_list args;
    va_start(args, format);
    // A message that is too long fails here; what fits is in the buffer all the same.
    vswprintf(message.get(), kLogCharacters, format, args);
    va_end(args);
    WriteMessage(file, level, message.get());
  }
  fflush(file);
  pv_uninit(file);
}

void pv_logEx(const char* format, ...) {
  const ErrnoKeeper keeper;
  if (access(kTraceMarker, F_OK) != 0) return;
  FILE* const file = fopen(kTraceFile, "a+");
  if (file == nullptr) return;
  timeval now = {};
  tm local = {};
  if (gettimeofday(&now, nullptr) != 0 || !LocalTime(now.tv_sec, local)) {
    fclose(file);
    return;
  }
  // The field behind the seconds shows the microseconds as they are: three to six digits.
  fprintf(file, "[P%04d] [T%04d] [%04d-%02d-%02d %02d:%02d:%02d:%03d]: ", getpid(),
          static_cast<int>(pthread_self()), local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
          local.tm_hour, local.tm_min, local.tm_sec, static_cast<int>(now.tv_usec));
  char message[kTraceBytes] = {};
  va_list args;
  va_start(args, format);
  vsnprintf(message, sizeof(message), format, args);
  va_end(args);
  fprintf(file, "%s\n", message);
  fclose(file);
}

std::string GetFileContent(const std::string& path) {
  FILE* const file = fopen(path.c_str(), "re");
  if (file == nullptr) return std::string();
  std::string content;
  char chunk[4096];
  size_t count;
  while ((count = fread(chunk, 1, sizeof(chunk), file)) > 0) content.append(chunk, count);
  const bool complete = ferror(file) == 0;
  fclose(file);
  if (!complete) return std::string();
  if (!content.empty() && content.back() == '\n') content.pop_back();
  return content;
}
