// The endpoint itself and its client side; the server object's threads are in PipeServer.cpp.
#include "PipeIPC.h"

#include <arpa/inet.h>
#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include "PipeWorkers.h"
#include "SocketIo.h"
#include "WriteLog.h"

namespace {

const DWORD kConnectTimeout = 10000;
const DWORD kAccountTimeout = 10000;
const size_t kAccountBytes = 32;

void SetReceiveTimeout(int socket, DWORD milliseconds) {
  timeval limit = {};
  limit.tv_sec = static_cast<time_t>(milliseconds / 1000);
  limit.tv_usec = static_cast<suseconds_t>(milliseconds % 1000 * 1000);
  setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
}

// True when the command has ended its output; false when it has more to say or takes too long.
bool ReadToTheEnd(int command, char* out, size_t size, const CIoDeadline& deadline) {
  for (size_t count = 0; count < size;) {
    pollfd wait = {command, POLLIN, 0};
    const int ready = poll(&wait, 1, deadline.Remaining());
    if (ready == 0) return false;
    const ssize_t moved = ready > 0 ? read(command, out + count, size - count) : -1;
    if (moved == 0) return true;
    if (moved > 0) {
      count += static_cast<size_t>(moved);
    } else if (errno != EINTR) {  // most hosts have handlers, for SIGCHLD above all
      return true;
    }
  }
  return false;
}

// For a command that has not ended, which pclose awaits. The thread runs nothing of this library,
// which may be unloaded before the command ends; without a thread the stream is left open.
void CloseElsewhere(FILE* stream) {
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  const auto close = reinterpret_cast<void* (*)(void*)>(reinterpret_cast<void (*)()>(pclose));
  pthread_t thread;
  if (pthread_create(&thread, nullptr, close, stream) == 0) pthread_detach(thread);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

// A number that is a server object's would start a receiving thread for a mere request.
DWORD DrawObjectNumber() {
  for (;;) {
    timeval now = {};
    gettimeofday(&now, nullptr);
    const DWORD number = static_cast<DWORD>(now.tv_usec + rand() % 65535);
    if (!IsServerObject(static_cast<USHORT>(number))) return number;
  }
}

}  // namespace

CPipeIPC::CPipeIPC()
    : m_socket(-1),
      m_StopServer(0),
      m_pProcessMessageCallback(nullptr),
      m_pProcessStateCallback(nullptr),
      m_pProcessMessageCallbackParamter(nullptr),
      m_socketServer(-1),
      m_OwnerInfo(),
      m_bClientInit(0),
      m_bStopRecv(0),
      m_bConnectState(0),
      m_AutoReConnect(1),
      m_ServerIP(0),
      m_ServerPort(0),
      m_hRecvMsgHandle(nullptr),
      m_timeout(kConnectTimeout),
      m_stateContext(nullptr),
      m_workers(std::make_shared<PipeWorkers>()) {
  srand(static_cast<unsigned>(time(nullptr)));
  InitServer();
}

int CPipeIPC::InitServer() {
  signal(SIGPIPE, SIG_IGN);
  pthread_mutex_init(&m_socketServerLock, nullptr);
  pthread_mutex_init(&m_listRecLock, nullptr);
  pthread_mutex_init(&m_ClientInfoLock, nullptr);
  pthread_mutex_init(&ClientLock, nullptr);
  return 0;
}

CPipeIPC::~CPipeIPC() {
  StopServer();
  DisConnect();
  m_workers->Abandon();
  pthread_mutex_destroy(&m_socketServerLock);
  pthread_mutex_destroy(&m_listRecLock);
  pthread_mutex_destroy(&m_ClientInfoLock);
  pthread_mutex_destroy(&ClientLock);
}

void CPipeIPC::StopServer() {
  m_StopServer = 1;
  if (m_socket == -1) return;
  close(m_socket);
  m_socket = -1;
}

BOOL CPipeIPC::IsConnect() const {
  return __atomic_load_n(&m_bConnectState, __ATOMIC_RELAXED);
}

void CPipeIPC::SetProcessMessageCallBack(PPROCESSMESSAGE callback, PVOID context) {
  m_pProcessMessageCallback = callback;
  m_pProcessMessageCallbackParamter = context;
}

void CPipeIPC::SetPipeStateCallback(PPROCESSSTATE callback, void* context) {
  m_pProcessStateCallback = callback;
  m_stateContext = context;
}

int CPipeIPC::PipeStateNotify(int state, int error) {
  if (m_pProcessStateCallback != nullptr) m_pProcessStateCallback(state, error, m_stateContext);
  return 0;
}

void CPipeIPC::SetOwnerID(DWORD objId) {
  m_OwnerInfo.ObjID = static_cast<USHORT>(objId);
  m_OwnerInfo.SessionID = static_cast<USHORT>(GetAccountId());
}

DWORD CPipeIPC::GetAccountId() {
  FILE* const stream = popen("id -u", "r");
  if (stream == nullptr) return 0;
  char text[kAccountBytes + 1] = {};
  if (ReadToTheEnd(fileno(stream), text, kAccountBytes, CIoDeadline(kAccountTimeout))) {
    pclose(stream);
  } else {
    CloseElsewhere(stream);
  }
  const size_t length = strlen(text);
  if (length > 0 && text[length - 1] == '\n') text[length - 1] = '\0';
  return static_cast<DWORD>(atoi(text));
}

BOOL CPipeIPC::InstanceIsExists(USHORT session, USHORT obj) {
  const int probe = OpenStreamSocket();
  if (probe == -1) return 0;
  const bool connected = ConnectStream(probe, INADDR_ANY, htons(EndpointPort(session, obj))) == 0;
  close(probe);
  return connected ? 1 : 0;
}

SOCKET CPipeIPC::ConnectServer(bool withTimeout, USHORT port, ULONG ip) {
  m_ServerIP = ip;
  __atomic_store_n(&m_bStopRecv, 0, __ATOMIC_RELAXED);
  const int connected = OpenStreamSocket();
  if (connected == -1) {
    pv_logEx("ConnectServer::socket failed errno=%d,result=%s", errno, strerror(errno));
    return -1;
  }
  if (ConnectStream(connected, static_cast<in_addr_t>(ip), htons(port)) != 0) {
    pv_logEx("ConnectServer::connect  failed errno=%d,result=%s", errno, strerror(errno));
    close(connected);
    return -1;
  }
  if (withTimeout) SetReceiveTimeout(connected, kConnectTimeout);
  if (!Register(connected)) {
    close(connected);
    return -1;
  }
  // Before the receiver starts: its callbacks may disconnect, or destroy the endpoint.
  const BOOL before = __atomic_exchange_n(&m_bConnectState, 1, __ATOMIC_RELAXED);
  if (IsServerObject(m_OwnerInfo.ObjID) && !StartReceiver(connected)) {
    __atomic_store_n(&m_bConnectState, before, __ATOMIC_RELAXED);
    return -1;
  }
  return connected;
}

bool CPipeIPC::Register(SOCKET socket) {
  RegClient record = m_OwnerInfo;
  // Plain clients are told apart by their socket, not by their account.
  if (!IsServerObject(record.ObjID)) record.SessionID = static_cast<USHORT>(socket);
  pv_logEx("ConnectServer::send regClient start");
  if (SendAll(socket, &record, sizeof(record), CIoDeadline(kConnectTimeout)) < 0) {
    pv_logEx("ConnectNamedPipe::send failed error=%d,result=%s", errno, strerror(errno));
    return false;
  }
  pv_logEx("ConnectServer::send regClient end");
  pv_logEx("ConnectServer::recv regClient start");
  BYTE answer = 0;
  const ssize_t count = ReceiveSome(socket, &answer, 1, CIoDeadline::OfReceiver(socket));
  if (count < 0) {
    pv_logEx("ConnectNamedPipe::recv  failed error=%d,result=%s", errno, strerror(errno));
    return false;
  }
  pv_logEx("ConnectServer::recv regClient end");
  return count == 1 && answer == 0;
}

SOCKET CPipeIPC::SendMsg(RouteMessageHeader& header, PBYTE body, DWORD length) {
  return SendMsgWithin(header, body, length, m_timeout);
}

SOCKET CPipeIPC::SendMsgWithin(RouteMessageHeader& header, PBYTE body, DWORD length,
                               DWORD timeoutMs) {
  const USHORT port = EndpointPort(header.Destination.SessionID, header.Destination.ObjID);
  pv_logEx("SendMsg::ConnectServer");
  const SOCKET connected = ConnectServer(true, port, htonl(INADDR_LOOPBACK));
  if (connected == -1) {
    pv_logEx("ConnectServer failed port =%d", port);
    return -1;
  }
  header.MessageLen = length;
  header.Source.SessionID = static_cast<USHORT>(connected);
  CSmartBuffer message;
  message.SetBuffer(&header, sizeof(header));
  const bool complete = length <= UINT32_MAX - sizeof(header) &&
                        message.AppendBuffer(body, static_cast<unsigned int>(length)) != nullptr &&
                        message.GetSize() == sizeof(header) + length;
  pv_logEx("************SendMsg::send start");
  if (!complete ||
      SendAll(connected, message.GetAddress(), message.GetSize(), CIoDeadline(timeoutMs)) < 0) {
    pv_logEx("************SendMsg::send data error");
    GiveUp(connected);
    return -1;
  }
  pv_logEx("****************SendMsg::send end**************");
  return connected;
}

// A server object's socket has a thread that receives from it.
void CPipeIPC::GiveUp(SOCKET connected) {
  if (IsServerObject(m_OwnerInfo.ObjID)) {
    EndConnection();
  } else {
    close(connected);
  }
}

LONG CPipeIPC::RecvMsg(int socket, RouteMessageHeader& request, RouteMessage& out) {
  CSmartBuffer message;
  LONG result = RecvDataFunc(socket, message);
  if (result > 0) {
    memcpy(&out.Header, message.GetAddress(), sizeof(out.Header));
    if (checkPipeRspHeader(request, out.Header) == 0) {
      out.Buffer.AppendBuffer(message.GetBytes() + sizeof(out.Header),
                              message.GetSize() - static_cast<unsigned>(sizeof(out.Header)));
    } else {
      result = -1;
    }
  }
  close(socket);
  return result;
}

DWORD CPipeIPC::SendMessageAndWait(USHORT session, USHORT obj, PBYTE body, DWORD length,
                                   CSmartBuffer& reply, DWORD timeoutMs) {
  SetOwnerID(DrawObjectNumber());
  RouteMessageHeader header = {};
  header.Source = m_OwnerInfo;
  header.Destination.SessionID = session;
  header.Destination.ObjID = obj;
  header.SequenceNum = GetTickCount();
  header.Paramter = MSG_ISREQUESTPACK;
  pv_logEx("******************SendMessageAndWait send start****************client******");
  const SOCKET connected = SendMsgWithin(header, body, length, timeoutMs);
  if (connected <= 0) {
    // The text is that of the returned value, not of errno; readers of the trace expect it so.
    pv_logEx("SendMessageAndWait ::SendMsg  failed ret=%d,result=%s", connected,
             strerror(connected));
    return PIPE_ERROR_SEND;
  }
  pv_logEx("SendMessageAndWait send end");
  SetReceiveTimeout(connected, timeoutMs);
  pv_logEx("SendMessageAndWait recv start");
  RouteMessage response = {};
  const LONG result = RecvMsg(connected, header, response);
  if (result <= 0) {
    pv_logEx("SendMessageAndWait ::RecvMsg  failed result=%s", strerror(static_cast<int>(result)));
    return PIPE_ERROR_RECEIVE;
  }
  pv_logEx("*************SendMessageAndWait recv end********* client******");
  reply = response.Buffer;
  return 0;
}
