#pragma once
/* One endpoint of the message channel: TCP on the loopback address, whatever the name says.
 *
 * Client         construct it, then any number of SendMessageAndWait, each on a connection of its
 *                own; one caller at a time.
 * Server object  SetOwnerID with a server object's number, set the callbacks, ConnectServer. From
 *                then on one thread receives, and each request runs the callback on a thread of
 *                its own; the responses to one connection are serialised.
 * Ending         DisConnect and the destructor shut the connection down and wait for those threads.
 *                Called from a callback they wait for all threads but the caller's own.
 * Process        construction ignores SIGPIPE and seeds the standard random generator.
 * Every step and failure goes to the trace of pv_logEx.
 */
#include <pthread.h>

#include <list>
#include <memory>

#include "ParsePacket.h"
#include "SmartBuffer.h"
#include "VELInterface.h"

class PipeWorkers;

const DWORD PIPE_ERROR_SEND = 0xE0010004;     // the request could not be sent
const DWORD PIPE_ERROR_RECEIVE = 0xE0010005;  // no valid response in time

// Handles one request; `reply` is empty on entry and becomes the body of the response. The result
// is ignored.
typedef DWORD (*PPROCESSMESSAGE)(PBYTE body, DWORD length, CSmartBuffer& reply, PVOID context);

// State 0: the registered connection has ended; `error` is the errno of that moment.
typedef int (*PPROCESSSTATE)(int state, int error, void* context);

class CPipeIPC {
 public:
  CPipeIPC();
  ~CPipeIPC();
  CPipeIPC(const CPipeIPC&) = delete;
  CPipeIPC& operator=(const CPipeIPC&) = delete;

  int InitServer();
  void StopServer();
  void DisConnect();

  // The endpoint's own address: the low 16 bits of `objId` and of GetAccountId.
  void SetOwnerID(DWORD objId);

  // What the shell command "id -u" prints, as a number; 0 when it prints nothing. One that does not
  // end is waited for 10 seconds.
  DWORD GetAccountId();

  USHORT GetOwnerSessionID() const { return m_OwnerInfo.SessionID; }
  USHORT GetOwnerObjID() const { return m_OwnerInfo.ObjID; }
  bool IsOwner(USHORT session, USHORT obj) const {
    return m_OwnerInfo.SessionID == session && m_OwnerInfo.ObjID == obj;
  }
  BOOL IsConnect() const;
  void EnableSmartReconnect(BOOL enable) { m_AutoReConnect = enable; }

  // To be set before ConnectServer.
  void SetProcessMessageCallBack(PPROCESSMESSAGE callback, PVOID context);
  void SetPipeStateCallback(PPROCESSSTATE callback, void* context);

  // 1 when something listens at the address, else 0.
  static BOOL InstanceIsExists(USHORT session, USHORT obj);

  int PipeStateNotify(int state, int error);

  // Connects and registers; `withTimeout` gives each receive on the connection 10 seconds. `ip` is
  // in network byte order, `port` in the host's. The socket, or -1. A client owns its socket, that
  // of a server object belongs to the endpoint.
  SOCKET ConnectServer(bool withTimeout, USHORT port, ULONG ip);

  // Connects to the header's destination and sends the message; sets MessageLen and the source
  // session of the header. The socket, which the caller closes, or -1.
  SOCKET SendMsg(RouteMessageHeader& header, PBYTE body, DWORD length);

  // Receives the response to `request` and closes the socket in every case. The bytes received, or
  // a number below 1.
  LONG RecvMsg(int socket, RouteMessageHeader& request, RouteMessage& out);

  // One request and its response. 0 and the response's body in `reply`, else PIPE_ERROR_SEND or
  // PIPE_ERROR_RECEIVE and `reply` as it was. A time-out of 0 waits for ever.
  DWORD SendMessageAndWait(USHORT session, USHORT obj, PBYTE body, DWORD length,
                           CSmartBuffer& reply, DWORD timeoutMs);

  SOCKET m_socket;
  BOOL m_StopServer;
  std::list<ClientInfo> m_listClientInfo;
  PPROCESSMESSAGE m_pProcessMessageCallback;
  PPROCESSSTATE m_pProcessStateCallback;
  PVOID m_pProcessMessageCallbackParamter;
  SOCKET m_socketServer;
  pthread_mutex_t m_socketServerLock;
  RegClient m_OwnerInfo;
  BOOL m_bClientInit;
  std::list<RouteMessage> m_listRecvReponseMsg;
  BOOL m_bStopRecv;
  BOOL m_bConnectState;
  BOOL m_AutoReConnect;
  ULONG m_ServerIP;
  USHORT m_ServerPort;
  HANDLE m_hRecvMsgHandle;
  DWORD m_timeout;
  pthread_mutex_t m_listRecLock;
  pthread_mutex_t m_ClientInfoLock;
  pthread_mutex_t ClientLock;
  void* m_stateContext;

 private:
  struct ReceiverStart;
  struct RequestStart;

  bool Register(SOCKET socket);
  bool StartReceiver(SOCKET socket);
  SOCKET SendMsgWithin(RouteMessageHeader& header, PBYTE body, DWORD length, DWORD timeoutMs);
  void GiveUp(SOCKET connected);
  void EndConnection();
  void CloseConnection(unsigned long connection);
  void ReceiveRequests(SOCKET socket, unsigned long connection);
  void StartRequest(CSmartBuffer& message, unsigned long connection);
  void Respond(const RouteMessageHeader& request, CSmartBuffer& reply, unsigned long connection);
  static void* ProxyRecvBufferThread(void* start);
  static void* ProcessRequsetThread(void* start);

  std::shared_ptr<PipeWorkers> m_workers;
};

// Appends one route message, header and body, to `out`: the bytes received (a header that announces
// no body counts as received), 0 when the peer has closed, -1 on failure. SO_RCVTIMEO of the socket
// limits the whole. Memory grows with what arrives, not with what the header announces.
LONG RecvDataFunc(int socket, CSmartBuffer& out);
