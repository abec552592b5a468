// The server object's threads: one receives, one for each request runs the callback.
#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <new>

#include "PipeIPC.h"
#include "PipeWorkers.h"
#include "SocketIo.h"
#include "WriteLog.h"

namespace {

class MutexHold {
 public:
  explicit MutexHold(pthread_mutex_t& mutex) : m_mutex(mutex) { pthread_mutex_lock(&m_mutex); }
  ~MutexHold() { pthread_mutex_unlock(&m_mutex); }

 private:
  pthread_mutex_t& m_mutex;
};

bool StartDetached(void* (*body)(void*), void* start) {
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) return false;
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_t thread;
  const bool started = pthread_create(&thread, &attributes, body, start) == 0;
  pthread_attr_destroy(&attributes);
  return started;
}

}  // namespace

struct CPipeIPC::ReceiverStart : ClientRecvParamter {
  std::shared_ptr<PipeWorkers> workers;
  unsigned long connection;
};

struct CPipeIPC::RequestStart : RequestParamter {
  std::shared_ptr<PipeWorkers> workers;
  unsigned long connection;
};

bool CPipeIPC::StartReceiver(SOCKET socket) {
  EndConnection();  // of an earlier registration
  std::unique_ptr<ReceiverStart> start(new (std::nothrow) ReceiverStart());
  unsigned long connection;
  {
    const MutexHold hold(m_socketServerLock);
    m_socketServer = socket;
    connection = m_workers->Open(socket);
  }
  if (start != nullptr) {
    start->RemoteSocket = socket;
    start->pThis = this;
    start->workers = m_workers;
    start->connection = connection;
    m_workers->Enlist();
    if (StartDetached(ProxyRecvBufferThread, start.get())) {
      start.release();  // the thread's from here on
      return true;
    }
    m_workers->Retire();
  }
  CloseConnection(connection);
  return false;
}

void CPipeIPC::EndConnection() {
  m_workers->ShutDown(0);
  m_workers->AwaitEnd();
  CloseConnection(0);
}

// The shutdown comes first: it releases a response that a peer does not read, and with it the lock.
void CPipeIPC::CloseConnection(unsigned long connection) {
  m_workers->ShutDown(connection);
  const MutexHold hold(m_socketServerLock);
  if (m_workers->Close(connection)) m_socketServer = -1;
}

void CPipeIPC::DisConnect() {
  __atomic_store_n(&m_bStopRecv, 1, __ATOMIC_RELAXED);
  __atomic_store_n(&m_bConnectState, 0, __ATOMIC_RELAXED);
  __atomic_store_n(&m_bClientInit, 0, __ATOMIC_RELAXED);
  EndConnection();
  const MutexHold hold(m_socketServerLock);
  if (m_socketServer == -1) return;  // unless it was set from outside
  close(m_socketServer);
  m_socketServer = -1;
}

void* CPipeIPC::ProxyRecvBufferThread(void* start) {
  const std::unique_ptr<ReceiverStart> own(static_cast<ReceiverStart*>(start));
  const PipeWorkers::Attend attend(*own->workers);
  own->pThis->ReceiveRequests(own->RemoteSocket, own->connection);
  return nullptr;
}

void CPipeIPC::ReceiveRequests(SOCKET socket, unsigned long connection) {
  int error = 0;
  while (__atomic_load_n(&m_bStopRecv, __ATOMIC_RELAXED) == 0) {
    CSmartBuffer message;
    const LONG result = RecvDataFunc(socket, message);
    if (result < 1) {
      error = errno;
      pv_logEx("ProxyRecvBufferThread:: RecvDataFunc data error =%d", static_cast<int>(result));
      break;
    }
    pv_logEx("ProxyRecvBufferThread:: RecvDataFunc data success");
    StartRequest(message, connection);
  }
  CloseConnection(connection);
  // The callback may destroy the endpoint: nothing of it is used from here on.
  PipeStateNotify(0, error);
}

void CPipeIPC::StartRequest(CSmartBuffer& message, unsigned long connection) {
  RouteMessageHeader header;
  memcpy(&header, message.GetAddress(), sizeof(header));
  if (checkPipeRequestHeader(header) != 0) return;
  pv_logEx(
      "***********ProxyRecvBufferThread source:session=%d ,obj=%d,dst:session=%d "
      ",obj=%d**************",
      header.Source.SessionID, header.Source.ObjID, header.Destination.SessionID,
      header.Destination.ObjID);
  RequestStart* const start = new (std::nothrow) RequestStart();
  if (start == nullptr) return;
  start->pThis = this;
  start->Buffer = message;
  start->workers = m_workers;
  start->connection = connection;
  m_workers->Enlist();
  pv_logEx("pthread_create ProcessRequsetThread ");
  if (StartDetached(ProcessRequsetThread, start)) return;
  pv_logEx("pthread_create ProcessRequsetThread error ");
  m_workers->Retire();
  delete start;
}

void* CPipeIPC::ProcessRequsetThread(void* start) {
  const std::unique_ptr<RequestStart> own(static_cast<RequestStart*>(start));
  const PipeWorkers::Attend attend(*own->workers);
  CPipeIPC& endpoint = *own->pThis;
  RouteMessageHeader header;
  memcpy(&header, own->Buffer.GetAddress(), sizeof(header));
  CSmartBuffer reply;
  pv_logEx("******m_pProcessMessageCallback start***************\n");
  if (endpoint.m_pProcessMessageCallback != nullptr) {
    endpoint.m_pProcessMessageCallback(own->Buffer.GetBytes() + sizeof(header), header.MessageLen,
                                       reply, endpoint.m_pProcessMessageCallbackParamter);
  }
  pv_logEx("******m_pProcessMessageCallback start**end*************\n");
  if (own->workers->Abandoned()) return nullptr;  // the callback destroyed the endpoint
  if ((header.Paramter & MSG_ISREQUESTPACK) != 0) {
    endpoint.Respond(header, reply, own->connection);
  } else {
    pv_logEx("ProcessRequsetThread::msg.Paramter & MSG_ISREQUESTPACK");
  }
  return nullptr;
}

void CPipeIPC::Respond(const RouteMessageHeader& request, CSmartBuffer& reply,
                       unsigned long connection) {
  RouteMessageHeader header = request;
  header.Source = request.Destination;
  header.Destination = request.Source;
  header.SequenceNum = request.SequenceNum + 1;
  header.Paramter = request.Paramter & ~MSG_ISREQUESTPACK;
  header.MessageLen = reply.GetSize();
  CSmartBuffer message;
  message.SetBuffer(&header, sizeof(header));
  message.AppendBuffer(reply.GetAddress(), reply.GetSize());
  const MutexHold hold(m_socketServerLock);
  const SOCKET socket = m_workers->SocketOf(connection);
  if (socket == -1) return;
  const ssize_t sent = SendAll(socket, message.GetAddress(), message.GetSize(), CIoDeadline(0));
  pv_logEx("ProcessRequsetThread::send socket(%d) ret=%d ", socket, static_cast<int>(sent));
}
