#pragma once
// The threads of a server object, counted by a record that outlives whichever ends last: they or
// their endpoint.
#include <condition_variable>
#include <mutex>

#include "ParsePacket.h"

class PipeWorkers {
 public:
  // Around each thread: Enlist by the one who starts it (Retire when that fails), Attend on it.
  void Enlist();
  void Retire();
  class Attend;

  // True on one of these threads.
  bool IsOwnThread() const;

  // Until all threads have ended; on one of them, until all the others have or wait here as well.
  void AwaitEnd();

  // Makes the socket the current connection and names it by a number; 0 is none.
  unsigned long Open(SOCKET opened);

  // Ends transfers on the connection but keeps its descriptor; 0 means the current one, whichever.
  void ShutDown(unsigned long wanted);

  // Closes it, once; false when it is not the current one any more. No transfer may be under way.
  bool Close(unsigned long wanted);

  // The socket of the connection, -1 when it is not the current one any more.
  SOCKET SocketOf(unsigned long wanted);

  // The endpoint is gone; threads that return from a callback let go without touching it.
  void Abandon();
  bool Abandoned();

 private:
  bool Means(unsigned long wanted) const {
    return m_socket != -1 && (wanted == 0 || wanted == m_connection);
  }

  std::mutex m_lock;
  std::condition_variable m_changed;
  SOCKET m_socket = -1;
  unsigned long m_connection = 0;
  int m_running = 0;
  int m_waitingInside = 0;
  bool m_abandoned = false;
};

class PipeWorkers::Attend {
 public:
  explicit Attend(PipeWorkers& workers);
  ~Attend();

 private:
  PipeWorkers& m_workers;
};
