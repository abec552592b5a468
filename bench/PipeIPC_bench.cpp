// A request and its response through the channel, beside the same exchange by bare sockets; the
// account is asked for on both sides.
#include <arpa/inet.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "FileService.h"
#include "InTurns.h"
#include "PipeIPC.h"

namespace {

const int kExchanges = 20;
const uint16_t kPort = 8766;

// What a read of a log's tail asks and is answered.
const std::string kRequest(40, 'q');
const std::string kResponse(4096, 'r');

bool ByChannel() {
  static CPipeIPC channel;
  CSmartBuffer reply;
  std::string body = kRequest;
  return channel.SendMessageAndWait(0, 101, reinterpret_cast<PBYTE>(body.data()), body.size(),
                                    reply, 10000) == 0 &&
         reply.GetSize() == kResponse.size() &&
         memcmp(reply.GetAddress(), kResponse.data(), kResponse.size()) == 0;
}

void LimitReceiving(int connection) {
  const timeval limit = {10, 0};
  setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
}

uint16_t Account() {
  FILE* const stream = popen("id -u", "r");
  char text[33] = {};
  const size_t length = fread(text, 1, 32, stream);
  pclose(stream);
  return length == 0 ? 0 : static_cast<uint16_t>(atoi(text));
}

bool Exchange(int connection) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(kPort);
  if (connect(connection, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0)
    return false;
  LimitReceiving(connection);
  const RegClient registration = {static_cast<USHORT>(connection), 77, 0};
  char answer = 1;
  if (send(connection, &registration, sizeof(registration), 0) != sizeof(registration) ||
      recv(connection, &answer, 1, 0) != 1 || answer != 0) {
    return false;
  }
  RouteMessageHeader header = {};
  header.Source = registration;
  header.Destination.ObjID = 101;
  header.SequenceNum = GetTickCount();
  header.Paramter = MSG_ISREQUESTPACK;
  header.MessageLen = kRequest.size();
  std::string message(reinterpret_cast<const char*>(&header), sizeof(header));
  message += kRequest;
  if (send(connection, message.data(), message.size(), 0) != static_cast<ssize_t>(message.size())) {
    return false;
  }
  LimitReceiving(connection);
  RouteMessageHeader response;
  if (recv(connection, &response, sizeof(response), MSG_WAITALL) != sizeof(response)) return false;
  std::string body(response.MessageLen, '\0');
  return recv(connection, body.data(), body.size(), MSG_WAITALL) ==
             static_cast<ssize_t>(body.size()) &&
         response.SequenceNum == header.SequenceNum + 1 && body == kResponse;
}

bool ByHand() {
  if (Account() != static_cast<uint16_t>(getuid())) return false;
  const int connection = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const bool done = Exchange(connection);
  close(connection);
  return done;
}

double WallTime() {
  return SecondsOf(CLOCK_MONOTONIC);
}

// Of this process, the service in it, and the programs that were asked for the account.
double ProcessorTime() {
  rusage children = {};
  getrusage(RUSAGE_CHILDREN, &children);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
  };
  return SecondsOf(CLOCK_PROCESS_CPUTIME_ID) + seconds(children.ru_utime) +
         seconds(children.ru_stime);
}

double Round(bool (*exchange)(), double (*now)()) {
  const double start = now();
  for (int count = 0; count < kExchanges; ++count) {
    if (!exchange()) abort();
  }
  return now() - start;
}

template <double (*now)()>
void SendMessageAndWait(benchmark::State& state) {
  FileService service("/tmp");
  service.AnswerWith([](const FileService::Request&) {
    return FileService::Bytes(kResponse.begin(), kResponse.end());
  });
  RunInTurns(
      state, kExchanges, [] { return Round(ByChannel, now); }, [] { return Round(ByHand, now); });
}
BENCHMARK_TEMPLATE(SendMessageAndWait, WallTime)->Iterations(100);
BENCHMARK_TEMPLATE(SendMessageAndWait, ProcessorTime)->Iterations(100);

}  // namespace

BENCHMARK_MAIN();
