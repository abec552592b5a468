// The endpoint as a server object: a router of the test's own, bytes by hand, asks it.
#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "FileService.h"
#include "LogHost.h"
#include "PipeIPC.h"

namespace {
std::atomic<int> g_badCloses(0);  // of descriptors that were not open
}

extern "C" int close(int descriptor) {
  const int result = static_cast<int>(syscall(SYS_close, descriptor));
  if (result != 0 && errno == EBADF) ++g_badCloses;
  return result;
}

namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;
using Bytes = FileService::Bytes;

const uint16_t kPort = 20077;
const USHORT kServerObject = 4003;

// Takes connections and speaks for the clients behind it.
class Router {
 public:
  Router() {
    m_listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(m_listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(kPort);
    EXPECT_EQ(bind(m_listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    EXPECT_EQ(listen(m_listener, 8), 0);
  }
  ~Router() {
    Drop();
    close(m_listener);
  }

  // The registration that the endpoint sends; the connection is the current one from here on.
  Bytes Accept(unsigned char answer = 0) {
    Drop();
    m_connection = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
    const Bytes registration = Read(5);
    send(m_connection, &answer, 1, MSG_NOSIGNAL);
    return registration;
  }

  void Drop() {
    if (m_connection != -1) close(m_connection);
    m_connection = -1;
  }

  void Send(const Bytes& bytes) {
    size_t sent = 0;
    while (sent < bytes.size()) {
      const ssize_t count =
          send(m_connection, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
      if (count <= 0) return;
      sent += static_cast<size_t>(count);
    }
  }

  // Fewer bytes when the endpoint closes or a minute passes.
  Bytes Read(size_t size) {
    const timeval limit = {60, 0};
    setsockopt(m_connection, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    Bytes bytes(size);
    size_t filled = 0;
    while (filled < size) {
      const ssize_t count = recv(m_connection, bytes.data() + filled, size - filled, 0);
      if (count <= 0) break;
      filled += static_cast<size_t>(count);
    }
    bytes.resize(filled);
    return bytes;
  }

  struct Message {
    Bytes header;
    std::string body;
  };
  Message ReadMessage() {
    Message message;
    message.header = Read(34);
    const Bytes body = Read(message.header.size() == 34 ? NumberAt(message.header, 26, 8) : 0);
    message.body.assign(body.begin(), body.end());
    return message;
  }

  bool Silent() {
    std::this_thread::sleep_for(milliseconds(100));
    char byte;
    return recv(m_connection, &byte, 1, MSG_DONTWAIT) == -1 && errno == EAGAIN;
  }

 private:
  int m_listener;
  int m_connection = -1;
};

Bytes Request(const std::string& body, uint64_t sequence = 1000, uint64_t flags = 4,
              uint16_t source = 77, uint16_t destination = kServerObject) {
  Bytes bytes;
  Put(bytes, 11, 2);
  Put(bytes, source, 2);
  Put(bytes, 1, 1);
  Put(bytes, 22, 2);
  Put(bytes, destination, 2);
  Put(bytes, 0, 1);
  Put(bytes, sequence, 8);
  Put(bytes, flags, 8);
  Put(bytes, body.size(), 8);
  bytes.insert(bytes.end(), body.begin(), body.end());
  return bytes;
}

DWORD Echo(PBYTE body, DWORD length, CSmartBuffer& reply, PVOID) {
  reply.SetBuffer("re:", 3);
  reply.AppendBuffer(body, static_cast<unsigned>(length));
  return 0;
}

// Lets callbacks in and holds them until it opens.
class Gate {
 public:
  void Enter() {
    std::unique_lock<std::mutex> hold(m_lock);
    ++m_inside;
    m_changed.notify_all();
    m_changed.wait(hold, [this] { return m_open; });
  }
  void AwaitInside(int count) {
    std::unique_lock<std::mutex> hold(m_lock);
    m_changed.wait(hold, [&] { return m_inside >= count; });
  }
  void Open() {
    const std::lock_guard<std::mutex> hold(m_lock);
    m_open = true;
    m_changed.notify_all();
  }

 private:
  std::mutex m_lock;
  std::condition_variable m_changed;
  int m_inside = 0;
  bool m_open = false;
};

DWORD EnterGate(PBYTE body, DWORD length, CSmartBuffer& reply, PVOID context) {
  static_cast<Gate*>(context)->Enter();
  return Echo(body, length, reply, nullptr);
}

struct States {
  static int Notify(int state, int error, void* context) {
    States& states = *static_cast<States*>(context);
    const std::lock_guard<std::mutex> hold(states.lock);
    states.seen.emplace_back(state, error);
    return 0;
  }
  size_t Count() {
    const std::lock_guard<std::mutex> hold(lock);
    return seen.size();
  }
  std::mutex lock;
  std::vector<std::pair<int, int>> seen;
};

class PipeServer : public testing::Test {
 protected:
  void SetUp() override {
    m_threads = ThreadCount();
    g_badCloses = 0;
  }
  void TearDown() override {
    m_endpoint.reset();
    EXPECT_EQ(g_badCloses, 0);
  }

  // Connects as a server object; what it registered with.
  Bytes Connect(PPROCESSMESSAGE callback = Echo, void* context = nullptr) {
    m_endpoint->SetProcessMessageCallBack(callback, context);
    return ConnectNotifying(States::Notify, &m_states);
  }
  Bytes ConnectNotifying(PPROCESSSTATE callback, void* context) {
    m_endpoint->SetOwnerID(kServerObject);
    m_endpoint->SetPipeStateCallback(callback, context);
    return Reconnect();
  }
  Bytes Reconnect(bool withTimeout = false) {
    std::future<Bytes> registration =
        std::async(std::launch::async, [this] { return m_router.Accept(); });
    EXPECT_GT(m_endpoint->ConnectServer(withTimeout, kPort, htonl(INADDR_LOOPBACK)), 0);
    return registration.get();
  }
  bool ThreadsAreGone() {
    return Eventually([this] { return ThreadCount() <= m_threads; });
  }

  // For callbacks that destroy their own endpoint.
  struct Owner {
    std::unique_ptr<CPipeIPC>& endpoint;
    std::atomic<bool> destroyed{false};
    static void Destroy(void* owner) {
      static_cast<Owner*>(owner)->endpoint.reset();
      static_cast<Owner*>(owner)->destroyed = true;
    }
  };
  void ExpectDestroyed(const Owner& owner) {
    EXPECT_TRUE(Eventually([&] { return owner.destroyed.load(); }));
    EXPECT_TRUE(ThreadsAreGone());
  }

  Router m_router;
  States m_states;
  std::unique_ptr<CPipeIPC> m_endpoint = std::make_unique<CPipeIPC>();
  size_t m_threads = 0;
};

TEST_F(PipeServer, RegistersWithItsAccountAndObject) {
  const Bytes registration = Connect();
  EXPECT_EQ(NumberAt(registration, 0, 2), getuid() & 0xFFFF);
  EXPECT_EQ(NumberAt(registration, 2, 2), kServerObject);
  EXPECT_EQ(registration.at(4), 0);
  EXPECT_GT(m_endpoint->m_socketServer, 0);
  EXPECT_EQ(m_endpoint->m_bConnectState, 1);
  EXPECT_EQ(m_endpoint->m_bStopRecv, 0);
}

TEST_F(PipeServer, ResponseIsTheRequestTurnedRound) {
  Connect();
  m_router.Send(Request("hello", 1000, 6));
  const Router::Message response = m_router.ReadMessage();
  ASSERT_EQ(response.header.size(), 34u);
  EXPECT_THAT(Bytes(response.header.begin(), response.header.begin() + 10),
              ElementsAre(22, 0, kServerObject & 0xFF, kServerObject >> 8, 0, 11, 0, 77, 0, 1));
  EXPECT_EQ(NumberAt(response.header, 10, 8), 1001u);
  EXPECT_EQ(NumberAt(response.header, 18, 8), 2u);
  EXPECT_EQ(response.body, "re:hello");
}

TEST_F(PipeServer, EmptyReplyIsAHeaderAlone) {
  Connect([](PBYTE, DWORD, CSmartBuffer&, PVOID) -> DWORD { return 9; });
  m_router.Send(Request("x"));
  const Router::Message response = m_router.ReadMessage();
  EXPECT_EQ(NumberAt(response.header, 26, 8), 0u);
  EXPECT_TRUE(m_router.Silent());
}

TEST_F(PipeServer, WithoutACallbackTheReplyIsEmpty) {
  Connect(nullptr);
  m_router.Send(Request("x"));
  EXPECT_EQ(NumberAt(m_router.ReadMessage().header, 26, 8), 0u);
}

TEST_F(PipeServer, CallbackGetsBodyLengthAndContext) {
  std::string seen;
  Connect(
      [](PBYTE body, DWORD length, CSmartBuffer& reply, PVOID context) -> DWORD {
        EXPECT_EQ(reply.GetSize(), 0u);
        static_cast<std::string*>(context)->assign(reinterpret_cast<char*>(body), length);
        return 0;
      },
      &seen);
  m_router.Send(Request(std::string("a\0b", 3)));
  m_router.ReadMessage();
  m_endpoint->DisConnect();
  EXPECT_EQ(seen, std::string("a\0b", 3));
}

TEST_F(PipeServer, MessageThatWantsNoResponseGetsNone) {
  std::atomic<int> calls(0);
  Connect(
      [](PBYTE, DWORD, CSmartBuffer&, PVOID context) -> DWORD {
        ++*static_cast<std::atomic<int>*>(context);
        return 0;
      },
      &calls);
  for (const uint64_t flags : {0, 3, 8, 11}) m_router.Send(Request("x", 1, flags));
  EXPECT_TRUE(Eventually([&] { return calls == 4; }));
  EXPECT_TRUE(m_router.Silent());
}

TEST_F(PipeServer, BadHeadersAreSkippedAndTheConnectionGoesOn) {
  Connect();
  m_router.Send(Request("object", 1, 4, 77, 101));
  m_router.Send(Request("flags", 2, 16));
  m_router.Send(Request("", 3));
  m_router.Send(Request("any object", 4, 4, 2001, 101));
  EXPECT_EQ(m_router.ReadMessage().body, "re:any object");
  m_router.Send(Request("good", 5));
  EXPECT_EQ(m_router.ReadMessage().body, "re:good");
}

TEST_F(PipeServer, RequestMayArriveByteByByte) {
  Connect();
  for (const unsigned char byte : Request("slow")) m_router.Send({byte});
  EXPECT_EQ(m_router.ReadMessage().body, "re:slow");
}

TEST_F(PipeServer, ManyRequestsAtOnceAreAllAnswered) {
  Gate gate;
  Connect(EnterGate, &gate);
  for (uint64_t number = 0; number < 64; ++number) {
    m_router.Send(Request(std::string(1000, 'x') + std::to_string(number), number * 10));
  }
  gate.AwaitInside(64);
  gate.Open();
  std::vector<bool> answered(64);
  for (int count = 0; count < 64; ++count) {
    const Router::Message response = m_router.ReadMessage();
    const uint64_t number = NumberAt(response.header, 10, 8) / 10;
    ASSERT_LT(number, 64u);
    EXPECT_EQ(response.body, "re:" + std::string(1000, 'x') + std::to_string(number));
    EXPECT_FALSE(answered[number]);
    answered[number] = true;
  }
}

TEST_F(PipeServer, LargeResponsesDoNotMix) {
  Connect([](PBYTE body, DWORD, CSmartBuffer& reply, PVOID) -> DWORD {
    reply.Alloc(3000000);
    memset(reply.GetAddress(), body[0], 3000000);
    return 0;
  });
  for (const char letter : {'a', 'b', 'c', 'd'}) m_router.Send(Request(std::string(1, letter)));
  for (int count = 0; count < 4; ++count) {
    const std::string body = m_router.ReadMessage().body;
    ASSERT_EQ(body.size(), 3000000u);
    EXPECT_EQ(body, std::string(3000000, body[0]));
  }
}

TEST_F(PipeServer, EndOfThePeerIsNotified) {
  Connect();
  m_router.Drop();
  ASSERT_TRUE(Eventually([this] { return m_states.Count() == 1; }));
  EXPECT_EQ(m_states.seen[0].first, 0);
  EXPECT_TRUE(ThreadsAreGone());
  EXPECT_EQ(m_endpoint->m_socketServer, -1);
  Reconnect();
  m_router.Send(Request("again"));
  EXPECT_EQ(m_router.ReadMessage().body, "re:again");
}

TEST_F(PipeServer, TimeoutOfTheConnectionEndsIt) {
  m_endpoint->SetOwnerID(kServerObject);
  m_endpoint->SetPipeStateCallback(States::Notify, &m_states);
  Reconnect(true);
  const timeval limit = {0, 100000};
  setsockopt(m_endpoint->m_socketServer, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
  // The limit of ten seconds holds for the message that is awaited now, the new one for the next.
  m_router.Send(Request("x"));
  ASSERT_TRUE(Eventually([this] { return m_states.Count() == 1; }));
  EXPECT_EQ(m_states.seen[0], std::make_pair(0, EAGAIN));
}

TEST_F(PipeServer, DisConnectDuringAReceiveEndsIt) {
  Connect();
  m_router.Send({1, 2, 3});  // a header that never becomes whole
  m_endpoint->DisConnect();
  EXPECT_EQ(m_endpoint->m_socketServer, -1);
  EXPECT_EQ(m_states.Count(), 1u);
  EXPECT_TRUE(ThreadsAreGone());
  EXPECT_TRUE(m_router.Read(1).empty());
}

TEST_F(PipeServer, DestructionWaitsForALongCallback) {
  Gate gate;
  Connect(EnterGate, &gate);
  for (int count = 0; count < 8; ++count) m_router.Send(Request("x"));
  gate.AwaitInside(8);
  std::atomic<bool> destroyed(false);
  std::thread destroyer([&] {
    m_endpoint.reset();
    destroyed = true;
  });
  std::this_thread::sleep_for(milliseconds(50));
  EXPECT_FALSE(destroyed);
  gate.Open();
  destroyer.join();
  EXPECT_TRUE(ThreadsAreGone());
}

TEST_F(PipeServer, PeerThatReadsNothingDoesNotHoldUpDisConnect) {
  Connect([](PBYTE, DWORD, CSmartBuffer& reply, PVOID) -> DWORD {
    reply.Alloc(20000000);
    return 0;
  });
  for (int count = 0; count < 4; ++count) m_router.Send(Request("x"));
  std::this_thread::sleep_for(milliseconds(200));
  const auto start = std::chrono::steady_clock::now();
  m_endpoint->DisConnect();
  EXPECT_LT(std::chrono::steady_clock::now() - start, milliseconds(60000));
  EXPECT_TRUE(ThreadsAreGone());
}

TEST_F(PipeServer, CallbackMayDisConnect) {
  Connect(
      [](PBYTE, DWORD, CSmartBuffer& reply, PVOID context) -> DWORD {
        static_cast<CPipeIPC*>(context)->DisConnect();
        reply.SetBuffer("x", 1);
        return 0;
      },
      m_endpoint.get());
  for (int count = 0; count < 4; ++count) m_router.Send(Request("x"));
  EXPECT_TRUE(m_router.Read(1).empty());
  m_endpoint->DisConnect();
  EXPECT_EQ(m_endpoint->m_socketServer, -1);
  EXPECT_TRUE(ThreadsAreGone());
}

TEST_F(PipeServer, CallbackMayDestroyTheEndpoint) {
  Owner owner{m_endpoint};
  Connect(
      [](PBYTE, DWORD, CSmartBuffer& reply, PVOID context) -> DWORD {
        Owner::Destroy(context);
        reply.SetBuffer("x", 1);
        return 0;
      },
      &owner);
  m_router.Send(Request("x"));
  EXPECT_TRUE(m_router.Read(1).empty());
  ExpectDestroyed(owner);
}

TEST_F(PipeServer, StateCallbackMayDestroyTheEndpoint) {
  Owner owner{m_endpoint};
  ConnectNotifying(
      [](int, int, void* context) {
        Owner::Destroy(context);
        return 0;
      },
      &owner);
  m_router.Drop();
  ExpectDestroyed(owner);
}

TEST_F(PipeServer, StateCallbackMayConnectAgain) {
  m_endpoint->SetProcessMessageCallBack(Echo, nullptr);
  ConnectNotifying(
      [](int, int, void* context) {
        CPipeIPC& endpoint = *static_cast<CPipeIPC*>(context);
        endpoint.SetPipeStateCallback(nullptr, nullptr);
        EXPECT_GT(endpoint.ConnectServer(false, kPort, htonl(INADDR_LOOPBACK)), 0);
        return 0;
      },
      m_endpoint.get());
  m_router.Accept();  // drops the first connection
  m_router.Send(Request("again"));
  EXPECT_EQ(m_router.ReadMessage().body, "re:again");
}

TEST_F(PipeServer, LateResponseDoesNotReachTheNextConnection) {
  Gate gate;
  Connect(EnterGate, &gate);
  m_router.Send(Request("old"));
  gate.AwaitInside(1);
  m_router.Drop();
  ASSERT_TRUE(Eventually([this] { return m_states.Count() == 1; }));
  std::thread opener([&] {
    std::this_thread::sleep_for(milliseconds(50));
    gate.Open();
  });
  Reconnect();
  opener.join();
  EXPECT_TRUE(m_router.Silent());
}

TEST_F(PipeServer, SecondRegistrationReplacesTheFirst) {
  Connect();
  Reconnect();
  EXPECT_NE(m_endpoint->m_socketServer, -1);
  m_router.Send(Request("x"));
  EXPECT_EQ(m_router.ReadMessage().body, "re:x");
  EXPECT_EQ(m_states.Count(), 1u);
}

TEST_F(PipeServer, RefusedRegistrationStartsNothing) {
  m_endpoint->SetOwnerID(kServerObject);
  std::future<Bytes> registration =
      std::async(std::launch::async, [this] { return m_router.Accept(1); });
  EXPECT_EQ(m_endpoint->ConnectServer(false, kPort, htonl(INADDR_LOOPBACK)), -1);
  registration.get();
  EXPECT_EQ(m_endpoint->m_socketServer, -1);
  EXPECT_EQ(m_endpoint->m_bConnectState, 0);
  EXPECT_TRUE(ThreadsAreGone());
}

TEST_F(PipeServer, ManyLivesLoseNoDescriptorAndNoThread) {
  const auto descriptors = [] {
    int count = 0;
    for (int descriptor = 0; descriptor < 1024; ++descriptor) {
      count += fcntl(descriptor, F_GETFD) != -1;
    }
    return count;
  };
  Connect();
  m_endpoint->DisConnect();
  const int before = descriptors();
  for (int life = 0; life < 50; ++life) {
    Reconnect();
    for (int count = 0; count < 5; ++count) m_router.Send(Request("x"));
    if (life % 3 == 0) m_router.ReadMessage();
    if (life % 3 == 1) m_router.Drop();
    m_endpoint->DisConnect();
    ASSERT_LE(descriptors(), before);
  }
  EXPECT_TRUE(ThreadsAreGone());
}

// Another thread is given the numbers that the endpoint lets go, and misses none that it closed.
TEST_F(PipeServer, DescriptorsOfOthersStayOpen) {
  std::atomic<bool> done(false);
  std::thread other([&] {
    while (!done) {
      int mine[4];
      for (int& descriptor : mine) descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
      std::this_thread::yield();
      for (const int descriptor : mine) close(descriptor);
    }
  });
  Connect();
  for (int life = 0; life < 50; ++life) {
    for (int count = 0; count < 3; ++count) m_router.Send(Request("x"));
    if (life % 2 == 0) m_router.Drop();
    if (life % 3 == 0) m_endpoint = std::make_unique<CPipeIPC>();
    m_endpoint->DisConnect();
    Connect();
  }
  done = true;
  other.join();
}

TEST_F(PipeServer, StepsAreTraced) {
  Spill("/tmp/testPipe", "");
  remove("/tmp/pipe.log");
  Connect();
  m_router.Send(Request("x"));
  m_router.ReadMessage();
  m_router.Send(Request("x", 1, 0));
  m_router.Drop();
  EXPECT_TRUE(Eventually([this] { return m_states.Count() == 1; }));
  m_endpoint->DisConnect();
  const std::string trace = Slurp("/tmp/pipe.log");
  remove("/tmp/testPipe");
  remove("/tmp/pipe.log");
  for (const char* step :
       {"ProxyRecvBufferThread:: RecvDataFunc data success\n",
        "***********ProxyRecvBufferThread source:session=11 ,obj=77,dst:session=22 "
        ",obj=4003**************\n",
        "pthread_create ProcessRequsetThread \n",
        "******m_pProcessMessageCallback start***************\n\n",
        "******m_pProcessMessageCallback start**end*************\n\n", " ret=38 \n",
        "ProcessRequsetThread::send socket(",
        "ProcessRequsetThread::msg.Paramter & MSG_ISREQUESTPACK\n",
        "ProxyRecvBufferThread:: RecvDataFunc data error ="}) {
    EXPECT_THAT(trace, HasSubstr(step));
  }
}

}  // namespace
