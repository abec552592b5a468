// The endpoint and its client side; the server object is in PipeServer_test.cpp.
#include "PipeIPC.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <string>
#include <thread>
#include <vector>

#include "FileService.h"
#include "LogHost.h"
#include "Traces.h"

namespace {
std::deque<int> g_draws;  // what rand() gives next, while there is any
}

// An object number is the microseconds of now and a random number; with a script it is the script's
// number alone.
extern "C" int rand() noexcept {
  if (g_draws.empty()) return static_cast<int>(random());
  const int draw = g_draws.front();
  g_draws.pop_front();
  return draw;
}

extern "C" int gettimeofday(timeval* now, void*) noexcept {
  timespec time = {};
  clock_gettime(CLOCK_REALTIME, &time);
  now->tv_sec = time.tv_sec;
  now->tv_usec = g_draws.empty() ? time.tv_nsec / 1000 : 0;
  return 0;
}

namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::EndsWith;
using testing::HasSubstr;
using Fault = FileService::Fault;

const char kMarker[] = "/tmp/testPipe";
const char kTrace[] = "/tmp/pipe.log";
const DWORD kNoRequest = 0xE0010004;
const DWORD kNoResponse = 0xE0010005;
const DWORD kPlenty = 200000;  // milliseconds; a busy machine takes its time
const milliseconds kInTime(60000);

std::vector<std::string> TraceMessages() {
  std::vector<std::string> messages;
  const std::string text = Slurp(kTrace);
  size_t start = 0;
  for (size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
    const std::string line = text.substr(start, end - start);
    messages.push_back(line.substr(line.find("]: ") + 3));
  }
  return messages;
}

std::string TextOf(CSmartBuffer& buffer) {
  return std::string(static_cast<const char*>(buffer.GetAddress()), buffer.GetSize());
}

FileService::Bytes Echo(const FileService::Request& request) {
  const std::string body = "re:" + std::string(request.body.begin(), request.body.end());
  return FileService::Bytes(body.begin(), body.end());
}

class PipeIPC : public testing::Test {
 protected:
  void SetUp() override { Clean(); }
  void TearDown() override {
    Clean();
    g_draws.clear();
  }
  static void Clean() {
    remove(kMarker);
    remove(kTrace);
  }

  DWORD Ask(const std::string& text, DWORD timeout = kPlenty) {
    std::string body = text;
    m_reply.Free();
    const auto start = std::chrono::steady_clock::now();
    const DWORD code = m_endpoint.SendMessageAndWait(0, 101, reinterpret_cast<PBYTE>(body.data()),
                                                     body.size(), m_reply, timeout);
    m_took = std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - start);
    return code;
  }

  CPipeIPC m_endpoint;
  CSmartBuffer m_reply;
  milliseconds m_took{0};
};

TEST_F(PipeIPC, StartsWithTheseValues) {
  const CPipeIPC endpoint;
  EXPECT_EQ(endpoint.m_socket, -1);
  EXPECT_EQ(endpoint.m_StopServer, 0);
  EXPECT_TRUE(endpoint.m_listClientInfo.empty());
  EXPECT_EQ(endpoint.m_pProcessMessageCallback, nullptr);
  EXPECT_EQ(endpoint.m_pProcessStateCallback, nullptr);
  EXPECT_EQ(endpoint.m_pProcessMessageCallbackParamter, nullptr);
  EXPECT_EQ(endpoint.m_socketServer, -1);
  EXPECT_EQ(endpoint.m_OwnerInfo.SessionID, 0);
  EXPECT_EQ(endpoint.m_OwnerInfo.ObjID, 0);
  EXPECT_EQ(endpoint.m_OwnerInfo.WithCallBack, 0);
  EXPECT_EQ(endpoint.m_bClientInit, 0);
  EXPECT_TRUE(endpoint.m_listRecvReponseMsg.empty());
  EXPECT_EQ(endpoint.m_bStopRecv, 0);
  EXPECT_EQ(endpoint.m_bConnectState, 0);
  EXPECT_EQ(endpoint.m_AutoReConnect, 1);
  EXPECT_EQ(endpoint.m_ServerIP, 0u);
  EXPECT_EQ(endpoint.m_ServerPort, 0);
  EXPECT_EQ(endpoint.m_hRecvMsgHandle, nullptr);
  EXPECT_EQ(endpoint.m_timeout, 10000u);
  EXPECT_EQ(endpoint.m_stateContext, nullptr);
}

TEST_F(PipeIPC, FieldsStandInThisOrder) {
  const CPipeIPC& e = m_endpoint;
  const std::vector<const void*> fields = {&e.m_socket,
                                           &e.m_StopServer,
                                           &e.m_listClientInfo,
                                           &e.m_pProcessMessageCallback,
                                           &e.m_pProcessStateCallback,
                                           &e.m_pProcessMessageCallbackParamter,
                                           &e.m_socketServer,
                                           &e.m_socketServerLock,
                                           &e.m_OwnerInfo,
                                           &e.m_bClientInit,
                                           &e.m_listRecvReponseMsg,
                                           &e.m_bStopRecv,
                                           &e.m_bConnectState,
                                           &e.m_AutoReConnect,
                                           &e.m_ServerIP,
                                           &e.m_ServerPort,
                                           &e.m_hRecvMsgHandle,
                                           &e.m_timeout,
                                           &e.m_listRecLock,
                                           &e.m_ClientInfoLock,
                                           &e.ClientLock,
                                           &e.m_stateContext};
  EXPECT_EQ(fields[0], &e);
  EXPECT_TRUE(std::is_sorted(fields.begin(), fields.end()));
}

TEST_F(PipeIPC, ConstructionIgnoresBrokenPipes) {
  signal(SIGPIPE, SIG_DFL);
  const CPipeIPC endpoint;
  struct sigaction action = {};
  sigaction(SIGPIPE, nullptr, &action);
  EXPECT_EQ(action.sa_handler, SIG_IGN);
}

TEST_F(PipeIPC, StopServerClosesTheListeningSocket) {
  m_endpoint.m_socket = socket(AF_INET, SOCK_STREAM, 0);
  const int descriptor = m_endpoint.m_socket;
  m_endpoint.StopServer();
  EXPECT_EQ(m_endpoint.m_StopServer, 1);
  EXPECT_EQ(m_endpoint.m_socket, -1);
  EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
  m_endpoint.StopServer();
}

TEST_F(PipeIPC, DisConnectClosesTheServerSocketAndResetsTheState) {
  m_endpoint.m_socketServer = socket(AF_INET, SOCK_STREAM, 0);
  const int descriptor = m_endpoint.m_socketServer;
  m_endpoint.m_bConnectState = m_endpoint.m_bClientInit = 1;
  m_endpoint.DisConnect();
  EXPECT_EQ(m_endpoint.m_socketServer, -1);
  EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
  EXPECT_EQ(m_endpoint.m_bStopRecv, 1);
  EXPECT_EQ(m_endpoint.m_bConnectState, 0);
  EXPECT_EQ(m_endpoint.m_bClientInit, 0);
  m_endpoint.DisConnect();
}

TEST_F(PipeIPC, StateNotifyCallsBackWithItsContext) {
  EXPECT_EQ(m_endpoint.PipeStateNotify(1, 2), 0);
  std::vector<int> calls;
  m_endpoint.SetPipeStateCallback(
      [](int state, int error, void* context) {
        static_cast<std::vector<int>*>(context)->assign({state, error});
        return 5;
      },
      &calls);
  EXPECT_EQ(m_endpoint.PipeStateNotify(7, 8), 0);
  EXPECT_THAT(calls, ElementsAre(7, 8));
}

// --- the account ---

class Account : public PipeIPC {
 protected:
  // Puts a script of this text in the place of id.
  void Install(const std::string& script) {
    mkdir("/tmp/bin", 0755);
    Spill("/tmp/bin/id", "#!/bin/sh\n" + script);
    chmod("/tmp/bin/id", 0755);
    setenv("PATH", ("/tmp/bin:" + m_path).c_str(), 1);
  }
  void TearDown() override {
    setenv("PATH", m_path.c_str(), 1);
    PipeIPC::TearDown();
  }
  const std::string m_path = getenv("PATH");
};

TEST_F(Account, IsWhatIdPrints) {
  EXPECT_EQ(m_endpoint.GetAccountId(), getuid());
  Install("[ \"$1\" = -u ] && echo 1000");
  EXPECT_EQ(m_endpoint.GetAccountId(), 1000u);
  m_endpoint.SetOwnerID(77);
  EXPECT_EQ(m_endpoint.m_OwnerInfo.SessionID, 1000);
  EXPECT_EQ(m_endpoint.m_OwnerInfo.ObjID, 77);
  EXPECT_EQ(m_endpoint.GetOwnerSessionID(), 1000);
  EXPECT_EQ(m_endpoint.GetOwnerObjID(), 77);
  EXPECT_TRUE(m_endpoint.IsOwner(1000, 77));
  EXPECT_FALSE(m_endpoint.IsOwner(1000, 78));
}

TEST_F(Account, AndObjectAreCutTo16Bits) {
  Install("echo 70000");
  EXPECT_EQ(m_endpoint.GetAccountId(), 70000u);
  m_endpoint.SetOwnerID(0x12345678);
  EXPECT_EQ(m_endpoint.m_OwnerInfo.SessionID, 70000 - 65536);
  EXPECT_EQ(m_endpoint.m_OwnerInfo.ObjID, 0x5678);
}

TEST_F(Account, OddOutputIsReadAsANumber) {
  const struct {
    const char* script;
    DWORD account;
  } cases[] = {{"printf 42", 42},         {"printf ''", 0},      {"exit 1", 0},
               {"echo; echo 7", 7},       {"echo rubbish", 0},   {"echo 12rubbish", 12},
               {"printf '\\0001000'", 0}, {"echo 5; echo 6", 5}, {"printf '%032d9' 8", 8},
               {"kill -9 $$", 0},         {"exec yes 3", 3},     {"echo 9; echo trouble >&2", 9}};
  for (const auto& c : cases) {
    Install(c.script);
    EXPECT_EQ(m_endpoint.GetAccountId(), c.account) << c.script;
  }
}

TEST_F(Account, OfAMissingCommandIs0) {
  const size_t before = OpenDescriptors();
  setenv("PATH", "/nowhere", 1);
  EXPECT_EQ(m_endpoint.GetAccountId(), 0u);
  EXPECT_TRUE(DescriptorsAreBackTo(before));
}

TEST_F(Account, OfASlowCommandIsAwaited) {
  Install("sleep 0.4; echo 10; sleep 0.1; printf 00");
  EXPECT_EQ(m_endpoint.GetAccountId(), 10u);
}

TEST_F(Account, OfACommandThatNeverEndsIsWhatItPrintedInTenSeconds) {
  Install("echo $$ > /tmp/never; echo 44; while :; do sleep 0.1; done");
  const size_t descriptors = OpenDescriptors();
  const size_t threads = ThreadCount();
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(m_endpoint.GetAccountId(), 44u);
  EXPECT_LT(std::chrono::steady_clock::now() - start, 2 * kInTime);
  EXPECT_EQ(kill(std::stoi(Slurp("/tmp/never")), SIGKILL), 0);
  EXPECT_TRUE(Eventually([&] { return ThreadCount() <= threads; }));
  EXPECT_TRUE(DescriptorsAreBackTo(descriptors));
}

TEST_F(Account, IsReadThroughSignals) {
  Install("sleep 0.2; echo 33");
  struct sigaction action = {};
  action.sa_handler = [](int) {};
  sigaction(SIGALRM, &action, nullptr);
  const itimerval often = {{0, 5000}, {0, 5000}};
  const itimerval never = {};
  setitimer(ITIMER_REAL, &often, nullptr);
  EXPECT_EQ(m_endpoint.GetAccountId(), 33u);
  setitimer(ITIMER_REAL, &never, nullptr);
}

// --- one request ---

TEST_F(PipeIPC, InstanceExistsWhileSomethingListens) {
  EXPECT_EQ(CPipeIPC::InstanceIsExists(0, 101), 0);
  {
    const FileService service("/tmp/service");
    EXPECT_EQ(CPipeIPC::InstanceIsExists(0, 101), 1);
    EXPECT_EQ(CPipeIPC::InstanceIsExists(100, 1), 1);  // the same port
    EXPECT_EQ(CPipeIPC::InstanceIsExists(1, 101), 0);
  }
  EXPECT_EQ(CPipeIPC::InstanceIsExists(0, 101), 0);
}

TEST_F(PipeIPC, RequestAndResponseCarryTheirBodies) {
  FileService service("/tmp/service");
  service.AnswerWith(Echo);
  EXPECT_EQ(Ask("hello"), 0u);
  EXPECT_EQ(TextOf(m_reply), "re:hello");
  EXPECT_EQ(m_endpoint.m_bConnectState, 1);
  EXPECT_EQ(m_endpoint.m_ServerIP, htonl(INADDR_LOOPBACK));
}

TEST_F(PipeIPC, RequestIsLaidOutAsTold) {
  FileService service("/tmp/service");
  service.AnswerWith(Echo);
  const DWORD before = GetTickCount();
  ASSERT_EQ(Ask("hello"), 0u);
  const DWORD after = GetTickCount();
  const FileService::Request request = service.Requests().at(0);
  ASSERT_EQ(request.header.size(), 34u);
  const FileService::Bytes& header = request.header;
  const uint64_t socket = NumberAt(header, 0, 2);
  EXPECT_GT(socket, 2u);
  EXPECT_LT(socket, 1000u);
  EXPECT_EQ(NumberAt(header, 2, 2), m_endpoint.m_OwnerInfo.ObjID);
  EXPECT_EQ(header[4], 0);
  EXPECT_EQ(NumberAt(header, 5, 2), 0u);
  EXPECT_EQ(NumberAt(header, 7, 2), 101u);
  EXPECT_EQ(header[9], 0);
  EXPECT_GE(NumberAt(header, 10, 8), before);
  EXPECT_LE(NumberAt(header, 10, 8), after);
  EXPECT_EQ(NumberAt(header, 18, 8), 4u);
  EXPECT_EQ(NumberAt(header, 26, 8), 5u);
  EXPECT_THAT(request.body, ElementsAre('h', 'e', 'l', 'l', 'o'));
  // A plain client registers with its socket in the place of its account.
  EXPECT_THAT(request.registration, ElementsAreArray(header.begin(), header.begin() + 5));
}

TEST_F(PipeIPC, EachRequestHasAFreshObjectNumberThatIsNoServerObject) {
  FileService service("/tmp/service");
  service.AnswerWith(Echo);
  std::vector<int> numbers;
  for (int call = 0; call < 20; ++call) {
    ASSERT_EQ(Ask("x"), 0u);
    numbers.push_back(m_endpoint.m_OwnerInfo.ObjID);
    EXPECT_FALSE(IsServerObject(m_endpoint.m_OwnerInfo.ObjID));
  }
  std::sort(numbers.begin(), numbers.end());
  EXPECT_GT(std::unique(numbers.begin(), numbers.end()) - numbers.begin(), 15);
}

TEST_F(PipeIPC, SuccessIsTracedStepByStep) {
  FileService service("/tmp/service");
  service.AnswerWith(Echo);
  Spill(kMarker, "");
  ASSERT_EQ(Ask("x"), 0u);
  EXPECT_THAT(
      TraceMessages(),
      ElementsAre("******************SendMessageAndWait send start****************client******",
                  "SendMsg::ConnectServer", "ConnectServer::send regClient start",
                  "ConnectServer::send regClient end", "ConnectServer::recv regClient start",
                  "ConnectServer::recv regClient end", "************SendMsg::send start",
                  "****************SendMsg::send end**************", "SendMessageAndWait send end",
                  "SendMessageAndWait recv start",
                  "*************SendMessageAndWait recv end********* client******"));
}

TEST_F(PipeIPC, WithoutAServiceTheRequestFailsAndIsTraced) {
  Spill(kMarker, "");
  EXPECT_EQ(Ask("x"), kNoRequest);
  EXPECT_THAT(
      TraceMessages(),
      ElementsAre("******************SendMessageAndWait send start****************client******",
                  "SendMsg::ConnectServer",
                  "ConnectServer::connect  failed errno=111,result=Connection refused",
                  "ConnectServer failed port =8766",
                  "SendMessageAndWait ::SendMsg  failed ret=-1,result=Unknown error -1"));
}

TEST_F(PipeIPC, LargeBodiesPassBothWays) {
  FileService service("/tmp/service");
  service.AnswerWith(Echo);
  std::string body(8000000, 'x');
  for (size_t i = 0; i < body.size(); ++i) body[i] = static_cast<char>(i * 31 >> 3);
  ASSERT_EQ(Ask(body), 0u);
  EXPECT_TRUE(TextOf(m_reply) == "re:" + body);
}

TEST_F(PipeIPC, RequestWithoutABodyIsSent) {
  FileService service("/tmp/service");
  service.AnswerWith(Echo);
  EXPECT_EQ(m_endpoint.SendMessageAndWait(0, 101, nullptr, 0, m_reply, kPlenty), 0u);
  EXPECT_EQ(TextOf(m_reply), "re:");
}

TEST_F(PipeIPC, BodyThatIsMissingOrTooLongIsNotSent) {
  FileService service("/tmp/service");
  service.AnswerWith(Echo);
  BYTE byte = 0;
  EXPECT_EQ(m_endpoint.SendMessageAndWait(0, 101, nullptr, 5, m_reply, kPlenty), kNoRequest);
  EXPECT_EQ(m_endpoint.SendMessageAndWait(0, 101, &byte, ~0UL, m_reply, kPlenty), kNoRequest);
  EXPECT_EQ(Ask("x"), 0u);
}

// --- peers that misbehave ---

struct FaultCase {
  Fault fault;
  DWORD code;
  DWORD timeout;
  const char* trace;
  int delay = 100;  // milliseconds
};

class Hostile : public PipeIPC, public testing::WithParamInterface<FaultCase> {};

TEST_P(Hostile, GivesTheCodeInTimeLosesNoDescriptorAndTheNextCallWorks) {
  FileService service("/tmp/service");
  service.AnswerWith(Echo);
  const FaultCase& c = GetParam();
  ASSERT_EQ(Ask("before"), 0u);
  Spill(kMarker, "");
  service.Misbehave(c.fault, milliseconds(c.delay));
  BYTE body[] = {'x'};
  const size_t before = OpenDescriptors();
  CSmartBuffer reply;
  reply.SetBuffer("kept", 4);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(m_endpoint.SendMessageAndWait(0, 101, body, 1, reply, c.timeout), c.code);
  const auto took = std::chrono::steady_clock::now() - start;
  EXPECT_LT(took, kInTime);
  EXPECT_EQ(TextOf(reply), c.code == 0 ? "re:x" : "kept");
  EXPECT_THAT(Slurp(kTrace), HasSubstr(c.trace));
  service.Misbehave(Fault::kNone);
  EXPECT_TRUE(DescriptorsAreBackTo(before));
  EXPECT_EQ(Ask("after"), 0u);
  EXPECT_EQ(TextOf(m_reply), "re:after");
}

const char kHeaderError[] = "RecvDataFunc::recv header error ret =-1 result=Unknown error -1\n";
const char kHeaderEnd[] = "RecvDataFunc::recv header error ret =0 result=Success\n";
const char kDataError[] = "RecvDataFunc::recv data error ret =-1\n";
const char kDataEnd[] = "RecvDataFunc::recv data error ret =0\n";
const char kNoMemory[] = "RecvDataFunc::malloc error\n";
const char kNotSent[] = "SendMessageAndWait ::SendMsg  failed ret=-1,result=Unknown error -1\n";
const char kBadAnswer[] = "SendMessageAndWait ::RecvMsg  failed result=Unknown error -1\n";
const char kClosed[] = "SendMessageAndWait ::RecvMsg  failed result=Success\n";

INSTANTIATE_TEST_SUITE_P(
    Peers, Hostile,
    testing::Values(FaultCase{Fault::kRefuseRegistration, kNoRequest, kPlenty, kNotSent},
                    FaultCase{Fault::kCloseAtRegistration, kNoRequest, kPlenty, kNotSent},
                    FaultCase{Fault::kCloseAtRequest, kNoResponse, kPlenty, kHeaderEnd},
                    FaultCase{Fault::kCloseAtRequest, kNoResponse, kPlenty, kClosed},
                    FaultCase{Fault::kNoAnswer, kNoResponse, 300, kHeaderError},
                    FaultCase{Fault::kAnswerLate, 0, kPlenty, "recv end"},
                    FaultCase{Fault::kAnswerLate, kNoResponse, 30, kHeaderError, 10000},
                    FaultCase{Fault::kOldSequence, kNoResponse, kPlenty, kBadAnswer},
                    FaultCase{Fault::kFarSequence, kNoResponse, kPlenty, kBadAnswer},
                    FaultCase{Fault::kWrongObject, kNoResponse, kPlenty, kBadAnswer},
                    FaultCase{Fault::kWrongSession, kNoResponse, kPlenty, kBadAnswer},
                    FaultCase{Fault::kFlagsOf16, kNoResponse, kPlenty, kBadAnswer},
                    FaultCase{Fault::kLengthOf0, kNoResponse, kPlenty,
                              "RecvDataFunc::msgHeader.MessageLen <= 0\n"},
                    FaultCase{Fault::kLengthOf2To40, kNoResponse, kPlenty, kNoMemory},
                    FaultCase{Fault::kLengthOfEverything, kNoResponse, kPlenty, kNoMemory},
                    FaultCase{Fault::kLengthOf3GiB, kNoResponse, 1500, kDataError},
                    FaultCase{Fault::kOneByteAtATime, 0, kPlenty, "recv end"},
                    FaultCase{Fault::kDrip, kNoResponse, 350, kHeaderError, 200},
                    FaultCase{Fault::kHalfHeader, kNoResponse, kPlenty, kHeaderEnd},
                    FaultCase{Fault::kHalfBody, kNoResponse, kPlenty, kDataEnd},
                    FaultCase{Fault::kMoreData, 0, kPlenty, "recv end"}));

TEST_F(PipeIPC, PeerThatNeverReadsIsGivenUpInTime) {
  FileService service("/tmp/service");
  service.Misbehave(Fault::kNeverRead);
  Spill(kMarker, "");
  EXPECT_EQ(Ask(std::string(30000000, 'x'), 300), kNoRequest);
  EXPECT_LT(m_took, kInTime);
  EXPECT_THAT(Slurp(kTrace), HasSubstr("************SendMsg::send data error\n"));
}

TEST_F(PipeIPC, PeerThatIgnoresTheRegistrationIsGivenUpAfterTenSeconds) {
  FileService service("/tmp/service");
  service.Misbehave(Fault::kIgnoreRegistration);
  Spill(kMarker, "");
  EXPECT_EQ(Ask("x", 100), kNoRequest);
  EXPECT_GT(m_took, milliseconds(9900));
  EXPECT_LT(m_took, 2 * kInTime);
  EXPECT_THAT(Slurp(kTrace), HasSubstr("ConnectNamedPipe::recv  failed error=11,result="));
}

TEST_F(PipeIPC, AnnouncedLengthTakesNoMemory) {
  FileService service("/tmp/service");
  service.AnswerWith(Echo);
  ASSERT_EQ(Ask("x"), 0u);
  const auto peak = [] {
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;  // KiB
  };
  const long before = peak();
  service.Misbehave(Fault::kLengthOf3GiB);
  EXPECT_EQ(Ask("x", 200), kNoResponse);
  EXPECT_LT(peak() - before, 10000);
}

TEST_F(PipeIPC, SignalsDoNotDisturb) {
  FileService service("/tmp/service");
  service.AnswerWith(Echo);
  service.Misbehave(Fault::kAnswerLate, milliseconds(200));
  struct sigaction action = {};
  action.sa_handler = [](int) {};
  sigaction(SIGALRM, &action, nullptr);
  const itimerval often = {{0, 2000}, {0, 2000}};
  const itimerval never = {};
  setitimer(ITIMER_REAL, &often, nullptr);
  EXPECT_EQ(Ask(std::string(5000000, 'x')), 0u);
  service.Misbehave(Fault::kNoAnswer);
  EXPECT_EQ(Ask("x", 200), kNoResponse);
  setitimer(ITIMER_REAL, &never, nullptr);
  EXPECT_LT(m_took, kInTime);
}

TEST_F(PipeIPC, ManyCallsLoseNoDescriptor) {
  FileService service("/tmp/service");
  service.AnswerWith(Echo);
  ASSERT_EQ(Ask("x"), 0u);
  const size_t before = OpenDescriptors();
  const Fault faults[] = {Fault::kNone, Fault::kRefuseRegistration, Fault::kCloseAtRequest,
                          Fault::kHalfBody, Fault::kOldSequence};
  for (int call = 0; call < 250; ++call) {
    service.Misbehave(faults[call % 5]);
    EXPECT_EQ(Ask("x") == 0, call % 5 == 0);
  }
  EXPECT_TRUE(DescriptorsAreBackTo(before));
}

TEST_F(PipeIPC, EndpointsWorkSideBySide) {
  FileService service("/tmp/service");
  service.AnswerWith(Echo);
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 8; ++thread) {
    threads.emplace_back([thread] {
      CPipeIPC endpoint;
      for (int call = 0; call < 20; ++call) {
        std::string body = std::to_string(thread) + ":" + std::to_string(call);
        CSmartBuffer reply;
        EXPECT_EQ(endpoint.SendMessageAndWait(0, 101, reinterpret_cast<PBYTE>(body.data()),
                                              body.size(), reply, kPlenty),
                  0u);
        EXPECT_EQ(TextOf(reply), "re:" + body);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST_F(PipeIPC, DrawnServerObjectIsDrawnAgain) {
  FileService service("/tmp/service");
  service.AnswerWith(Echo);
  g_draws = {4003, 22000, 42002, 777};
  EXPECT_EQ(Ask("x"), 0u);
  EXPECT_EQ(m_endpoint.m_OwnerInfo.ObjID, 777);
  EXPECT_EQ(m_endpoint.m_socketServer, -1);
}

TEST_F(PipeIPC, DescriptorZeroIsMovedUp) {
  const int input = dup(0);
  uint64_t socket = 0;
  {  // the service's end of a connection may be number 0, until the service has ended
    FileService service("/tmp/service");
    service.AnswerWith(Echo);
    close(0);
    EXPECT_EQ(Ask("x"), 0u);
    EXPECT_EQ(CPipeIPC::InstanceIsExists(0, 101), 1);
    socket = NumberAt(service.Requests().at(0).header, 0, 2);
  }
  dup2(input, 0);
  close(input);
  EXPECT_GT(socket, 2u);
}

// --- the pieces ---

class Piece : public PipeIPC {
 protected:
  void SetUp() override {
    PipeIPC::SetUp();
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, m_pair), 0);
  }
  void TearDown() override {
    for (const int end : m_pair) close(end);
    PipeIPC::TearDown();
  }
  void Send(const void* bytes, size_t size) {
    ASSERT_EQ(::send(m_pair[1], bytes, size, 0), static_cast<ssize_t>(size));
  }
  static RouteMessageHeader Header(ULONGLONG length) {
    RouteMessageHeader header = {};
    header.Source.ObjID = 101;
    header.SequenceNum = 6;
    header.MessageLen = length;
    return header;
  }
  int m_pair[2];
};

TEST_F(Piece, MessageIsReceivedWhole) {
  const RouteMessageHeader header = Header(5);
  Send(&header, sizeof(header));
  Send("hello, next", 11);
  CSmartBuffer out;
  out.SetBuffer("old", 3);
  EXPECT_EQ(RecvDataFunc(m_pair[0], out), 39);
  const std::string text = TextOf(out);
  EXPECT_EQ(text.size(), 42u);
  EXPECT_EQ(text.substr(0, 3), "old");
  EXPECT_EQ(memcmp(text.data() + 3, &header, sizeof(header)), 0);
  EXPECT_THAT(text, EndsWith("hello"));
  char next[6];
  EXPECT_EQ(recv(m_pair[0], next, 6, 0), 6);
}

TEST_F(Piece, HeaderWithoutABodyCountsAsReceived) {
  Spill(kMarker, "");
  const RouteMessageHeader header = Header(0);
  Send(&header, sizeof(header));
  CSmartBuffer out;
  EXPECT_EQ(RecvDataFunc(m_pair[0], out), 34);
  EXPECT_EQ(out.GetSize(), 34u);
  EXPECT_THAT(TraceMessages(), ElementsAre("RecvDataFunc::msgHeader.MessageLen <= 0"));
}

TEST_F(Piece, LastReceiptOfAnEmptyMessageIsItsCount) {
  const RouteMessageHeader header = Header(0);
  Send(&header, 30);
  std::thread rest([&] {
    int waiting = 0;
    EXPECT_TRUE(Eventually([&] {
      return ioctl(m_pair[0], FIONREAD, &waiting) == 0 && waiting == 0;
    })) << "the first receipt";
    ::send(m_pair[1], reinterpret_cast<const char*>(&header) + 30, 4, 0);
  });
  CSmartBuffer out;
  EXPECT_EQ(RecvDataFunc(m_pair[0], out), 4);
  rest.join();
}

TEST_F(Piece, AbsurdLengthFailsAtOnceAndWithoutATimeout) {
  for (const ULONGLONG length : {1ULL << 32, 1ULL << 40, 1ULL << 63, ~0ULL, ~0ULL - 33}) {
    Spill(kMarker, "");
    const RouteMessageHeader header = Header(length);
    Send(&header, sizeof(header));
    CSmartBuffer out;
    EXPECT_EQ(RecvDataFunc(m_pair[0], out), -1) << length;
    EXPECT_THAT(TraceMessages(), ElementsAre("RecvDataFunc::malloc error"));
    EXPECT_EQ(out.GetSize(), 34u);
    Clean();
  }
}

TEST_F(Piece, PeerThatEndsGives0) {
  const RouteMessageHeader header = Header(5);
  Send(&header, sizeof(header));
  Send("hell", 4);
  shutdown(m_pair[1], SHUT_WR);
  CSmartBuffer out;
  EXPECT_EQ(RecvDataFunc(m_pair[0], out), 0);
  EXPECT_EQ(RecvDataFunc(m_pair[0], out), 0);
}

TEST_F(Piece, BrokenSocketGivesMinus1) {
  CSmartBuffer out;
  EXPECT_EQ(RecvDataFunc(-1, out), -1);
  EXPECT_EQ(out.GetSize(), 0u);
}

TEST_F(Piece, ResponseIsTakenApartAndTheSocketClosed) {
  const RouteMessageHeader header = Header(5);
  RouteMessageHeader request = {};
  request.Destination.ObjID = 101;
  request.SequenceNum = 5;
  Send(&header, sizeof(header));
  Send("hello", 5);
  const int socket = dup(m_pair[0]);
  RouteMessage out = {};
  EXPECT_EQ(m_endpoint.RecvMsg(socket, request, out), 39);
  EXPECT_EQ(memcmp(&out.Header, &header, sizeof(header)), 0);
  EXPECT_EQ(TextOf(out.Buffer), "hello");
  EXPECT_EQ(fcntl(socket, F_GETFD), -1);
}

TEST_F(Piece, SocketIsClosedAfterABadResponseToo) {
  RouteMessageHeader request = {};
  const RouteMessageHeader header = Header(5);
  Send(&header, sizeof(header));
  Send("hello", 5);
  for (const LONG expected : {-1, 0}) {
    const int socket = dup(m_pair[0]);
    RouteMessage out = {};
    EXPECT_EQ(m_endpoint.RecvMsg(socket, request, out), expected);
    EXPECT_EQ(out.Buffer.GetSize(), 0u);
    EXPECT_EQ(fcntl(socket, F_GETFD), -1);
    shutdown(m_pair[1], SHUT_WR);
  }
}

TEST_F(PipeIPC, SendMsgSetsLengthAndSourceSessionAndLeavesTheSocketOpen) {
  FileService service("/tmp/service");
  service.AnswerWith(Echo);
  RouteMessageHeader header = {};
  header.Source = {99, 88, 1};
  header.Destination.ObjID = 101;
  header.Paramter = 4;
  BYTE body[] = {'x', 'y'};
  const SOCKET socket = m_endpoint.SendMsg(header, body, 2);
  ASSERT_GT(socket, 0);
  EXPECT_EQ(+header.MessageLen, 2u);  // a value: the field is not aligned
  EXPECT_EQ(header.Source.SessionID, socket);
  EXPECT_EQ(header.Source.ObjID, 88);
  RouteMessage response = {};
  EXPECT_EQ(m_endpoint.RecvMsg(socket, header, response), 34 + 5);
  EXPECT_EQ(TextOf(response.Buffer), "re:xy");
}

TEST_F(PipeIPC, ConnectServerGivesTheSocketALimitOnlyWhenAsked) {
  FileService service("/tmp/service");
  for (const bool limited : {false, true}) {
    const SOCKET socket = m_endpoint.ConnectServer(limited, 8766, htonl(INADDR_LOOPBACK));
    ASSERT_GT(socket, 0);
    timeval limit = {};
    socklen_t size = sizeof(limit);
    getsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, &size);
    EXPECT_EQ(limit.tv_sec, limited ? 10 : 0);
    EXPECT_EQ(limit.tv_usec, 0);
    EXPECT_EQ(m_endpoint.m_socketServer, -1);
    EXPECT_EQ(m_endpoint.IsConnect(), 1);
    close(socket);
  }
  EXPECT_EQ(m_endpoint.ConnectServer(true, 8765, htonl(INADDR_LOOPBACK)), -1);
}

}  // namespace
