// The pages in docs/formats: what the toolkit sends and writes is what their examples show.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <fstream>
#include <future>
#include <map>
#include <regex>
#include <string>

#include "DebugLogMgr.h"
#include "FileService.h"
#include "LogHost.h"
#include "PipeIPC.h"
#include "VelFile.h"
#include "WriteLog.h"

namespace {
suseconds_t g_microseconds = -1;    // of the one moment that there is in the tests of lines
const time_t kMoment = 1773043507;  // 2026-03-09 08:05:07 UTC
}  // namespace

extern "C" int gettimeofday(timeval* now, void*) noexcept {
  timespec time = {};
  clock_gettime(CLOCK_REALTIME, &time);
  const bool fixed = g_microseconds >= 0;
  now->tv_sec = fixed ? kMoment : time.tv_sec;
  now->tv_usec = fixed ? g_microseconds : time.tv_nsec / 1000;
  return 0;
}

extern "C" time_t time(time_t* out) noexcept {
  timeval now = {};
  gettimeofday(&now, nullptr);
  if (out != nullptr) *out = now.tv_sec;
  return now.tv_sec;
}

// The end of a log waits a second; the tests need not.
extern "C" unsigned sleep(unsigned) {
  return 0;
}

namespace {

using Bytes = FileService::Bytes;

// The fenced blocks of a page by the text behind the fence.
std::map<std::string, std::string> Examples(const std::string& page) {
  std::map<std::string, std::string> examples;
  std::ifstream in(std::string(FORMATS) + "/" + page);
  std::string name;
  for (std::string line; std::getline(in, line);) {
    if (line.compare(0, 3, "```") == 0) {
      name = line.substr(3);
    } else if (!name.empty()) {
      examples[name] += line + "\n";
    }
  }
  return examples;
}

// As `hexdump -C` prints them, without the line of the end.
std::string Dump(const Bytes& bytes) {
  std::string dump;
  for (size_t row = 0; row < bytes.size(); row += 16) {
    char piece[32];
    snprintf(piece, sizeof(piece), "%08zx ", row);
    dump += piece;
    std::string text;
    for (size_t at = row; at < row + 16; ++at) {
      if (at % 8 == 0) dump += ' ';
      if (at < bytes.size()) {
        snprintf(piece, sizeof(piece), "%02x ", bytes[at]);
        text += bytes[at] >= 0x20 && bytes[at] < 0x7f ? static_cast<char>(bytes[at]) : '.';
      } else {
        snprintf(piece, sizeof(piece), "   ");
      }
      dump += piece;
    }
    dump += " |" + text + "|\n";
  }
  return dump;
}

Bytes BytesOf(const std::string& text) {
  return Bytes(text.begin(), text.end());
}

// --- route messages ---

int Listen(uint16_t port) {
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  EXPECT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
  EXPECT_EQ(listen(listener, 8), 0);
  return listener;
}

Bytes Receive(int connection, size_t size) {
  Bytes bytes(size);
  EXPECT_EQ(recv(connection, bytes.data(), size, MSG_WAITALL), static_cast<ssize_t>(size));
  return bytes;
}

void Send(int connection, const Bytes& bytes) {
  EXPECT_EQ(send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL),
            static_cast<ssize_t>(bytes.size()));
}

// The session of a client is the number of its socket, which the pages take to be 9.
Bytes WithSocket9(Bytes bytes, size_t at, int socket) {
  EXPECT_EQ(NumberAt(bytes, at, 2), static_cast<uint64_t>(socket));
  bytes[at] = 9;
  bytes[at + 1] = 0;
  return bytes;
}

TEST(RouteMessagePage, ShowsWhatEndpointsSend) {
  const auto page = Examples("route_message.md");
  const int listener = Listen(EndpointPort(0, 4003));
  int connection = -1;
  const auto accept = [&] {
    connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    Bytes registration = Receive(connection, 5);
    Send(connection, {0});
    return registration;
  };

  CPipeIPC server;
  server.m_OwnerInfo = {1000, 4003, 0};
  server.SetProcessMessageCallBack(
      [](PBYTE body, DWORD length, CSmartBuffer& reply, PVOID) -> DWORD {
        reply.SetBuffer("re:", 3);
        reply.AppendBuffer(body, static_cast<unsigned>(length));
        return 0;
      },
      nullptr);
  std::future<Bytes> registration = std::async(std::launch::async, accept);
  ASSERT_GT(server.ConnectServer(false, EndpointPort(0, 4003), htonl(INADDR_LOOPBACK)), 0);
  EXPECT_EQ(Dump(registration.get()), page.at("hex server registration"));
  const int toServer = connection;

  CPipeIPC client;
  client.m_OwnerInfo = {1000, 77, 0};
  RouteMessageHeader header = {};
  header.Source = client.m_OwnerInfo;
  header.Destination.ObjID = 4003;
  header.SequenceNum = 1000;
  header.Paramter = MSG_ISREQUESTPACK;
  BYTE body[] = {'p', 'i', 'n', 'g'};
  registration = std::async(std::launch::async, accept);
  const int socket = client.SendMsg(header, body, sizeof(body));
  ASSERT_GT(socket, 0);
  EXPECT_EQ(Dump(WithSocket9(registration.get(), 0, socket)), page.at("hex client registration"));
  const Bytes request = Receive(connection, sizeof(header) + sizeof(body));
  EXPECT_EQ(Dump(WithSocket9(request, 0, socket)), page.at("hex request"));

  Send(toServer, request);
  const Bytes response = Receive(toServer, sizeof(header) + 7);
  EXPECT_EQ(Dump(WithSocket9(response, 5, socket)), page.at("hex response"));
  Send(connection, response);
  RouteMessage received = {};
  EXPECT_EQ(client.RecvMsg(socket, header, received), static_cast<LONG>(response.size()));
  close(connection);
  close(toServer);
  close(listener);
}

// --- the file service ---

TEST(FileServicePage, ShowsWhatAFileAsksAndIsAnswered) {
  const auto page = Examples("file_service.md");
  FileService service("/tmp/service");
  CVelFile file;
  file.m_bEnable = 1;
  BYTE bytes[8] = {'h', 'e', 'l', 'l', 'o'};
  DWORD length = 5;
  ULONGLONG size = 5;
  EXPECT_EQ(file.OpenFile(L"/a", 1, 1, 0, 1), 0u);
  EXPECT_TRUE(file.Write(bytes, length));
  EXPECT_EQ(file.Flush(), 0u);
  EXPECT_TRUE(file.GetFileSize(size));
  EXPECT_EQ(file.SeekTo(4), 0u);
  EXPECT_TRUE(file.Read(bytes, length = 2));
  EXPECT_EQ(file.SetEndOfFile(), 0u);
  EXPECT_EQ(file.SeekToEnd(), 0u);
  EXPECT_EQ(file.SeekToBegin(), 0u);
  EXPECT_EQ(file.CloseFile(), 0u);
  const auto requests = service.Requests();
  const char* const names[] = {"open", "write",           "flush",       "get size",      "seek to",
                               "read", "set end of file", "seek to end", "seek to begin", "close"};
  ASSERT_EQ(requests.size(), std::size(names));
  for (size_t i = 0; i < requests.size(); ++i) {
    const std::string name = std::string("hex ") + names[i];
    EXPECT_EQ(Dump(requests[i].body), page.at(name)) << name;
    EXPECT_EQ(Dump(service.Answers().at(i)), page.at(name + " answered")) << name;
  }
}

// --- the log ---

void Say(CDebugLogMgr& log, LPCTSTR type, int level, LPCTSTR function, DWORD line, LPCTSTR format,
         ...) {
  va_list args;
  va_start(args, format);
  log.OutputArgs(type, level, L"VELClientTKImp.cpp", function, line, format, args);
  va_end(args);
}

std::string PaddedPlace() {
  char place[64];
  snprintf(place, sizeof(place), "[P%04d] [T%04d]", static_cast<int>(getpid()),
           static_cast<int>(pthread_self()));
  return place;
}

std::string BarePlace() {
  return "[" + std::to_string(getpid()) + " " +
         std::to_string(static_cast<unsigned>(pthread_self())) + "d]";
}

// The line is the one shown but for process and thread, which are those of the test.
void ExpectLine(const std::string& line, const std::string& shown, const std::string& place) {
  const std::regex placeOfAny("\\[P?[0-9]+\\]? \\[?T?-?[0-9]+d?\\]");
  std::smatch found;
  ASSERT_TRUE(std::regex_search(line, found, placeOfAny)) << line;
  EXPECT_EQ(found.str(), place);
  EXPECT_EQ(std::regex_replace(line, placeOfAny, "[here]"),
            std::regex_replace(shown, placeOfAny, "[here]"));
}

class LogPage : public testing::Test {
 protected:
  void SetUp() override { Clean(); }
  void TearDown() override {
    g_microseconds = -1;
    Clean();
  }
  static void Clean() {
    for (const char* path : {"/tmp/PILog.txt", "/tmp/pipe.log", "/tmp/testPipe"}) remove(path);
  }
};

TEST_F(LogPage, ShowsTheLinesOfStatements) {
  const auto page = Examples("log_line.md");
  {
    CDebugLogMgr log;
    g_microseconds = 483920;
    Say(log, L"[ERROR] ", 3, L"P1SignEx", 120, L"Leave,Errorcode:%d", 11);
    g_microseconds = 5;
    log.SetLogHeader(L"<h>");
    Say(log, L"[INFO] ", 1, nullptr, 7, L"%ls 中国", L"证书");
    AwaitLines("/tmp/PILog.txt", 2);
  }
  const auto lines = LogLines("/tmp/PILog.txt");
  ASSERT_EQ(lines.size(), 2u);
  ExpectLine(lines[0] + "\n", page.at("text error"), PaddedPlace());
  ExpectLine(lines[1] + "\n", page.at("text info"), PaddedPlace());
}

TEST_F(LogPage, ShowsTheTraceAndTheProcessLog) {
  const auto page = Examples("log_line.md");
  g_microseconds = 483920;
  Spill("/tmp/testPipe", "");
  pv_logEx("SendMsg::ConnectServer");
  ExpectLine(Slurp("/tmp/pipe.log"), page.at("text trace"), PaddedPlace());
  pv_log(2, L"key removed");
  ExpectLine(Slurp("/tmp/PILog.txt"), page.at("text pv_log"), BarePlace());
}

// Queues a finished line, as statements do.
void Queue(CDebugLogMgr& log, LPCTSTR line) {
  LogCacheList* const node = new LogCacheList();
  node->strLog = line;
  {
    const CVELCriticalGuard guard(log.m_csLogCache);
    (log.m_logCacheTail != nullptr ? log.m_logCacheTail->next : log.m_logCacheHead) = node;
    log.m_logCacheTail = node;
  }
  sem_post(&log.m_sem);
}

TEST_F(LogPage, ShowsTheFileAndItsTruncation) {
  const auto page = Examples("log_file.md");
  const char* const kFile = "/tmp/PILog.txt";
  CDebugLogMgr log;
  Queue(log, L"one");
  Queue(log, L"\u4e8c");
  AwaitLines(kFile, 2);
  EXPECT_EQ(Dump(BytesOf(Slurp(kFile))), page.at("hex new file"));

  const std::string before = "\xFF\xFEthe first line\r\n\r\nthe second line\r\n\r\n";
  const std::string last = "the last";
  Spill(kFile, before);
  EXPECT_EQ(Dump(BytesOf(before + last + "\r\n\r\n")), page.at("hex before"));
  log.SetTruncate(50, 20);
  Queue(log, L"the last");
  EXPECT_TRUE(Eventually([&] { return Slurp(kFile).size() == 42; })) << Slurp(kFile).size();
  EXPECT_EQ(Dump(BytesOf(Slurp(kFile))), page.at("hex after"));
}

}  // namespace
