#include "SocketIo.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

namespace {

const long long kNanosPerMilli = 1000000;

long long Now() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000 * kNanosPerMilli + now.tv_nsec;
}

// 0 when the socket is ready (or broken, which the next transfer tells), -1 with errno else.
int Await(int socket, short event, const CIoDeadline& deadline) {
  for (;;) {
    pollfd wait = {socket, event, 0};
    const int ready = poll(&wait, 1, deadline.Remaining());
    if (ready > 0) return 0;
    if (ready < 0 && errno != EINTR) return -1;
    if (deadline.Remaining() == 0) {
      errno = EAGAIN;
      return -1;
    }
  }
}

bool WouldBlock() {
  return errno == EAGAIN || errno == EWOULDBLOCK;
}

}  // namespace

CIoDeadline::CIoDeadline(unsigned long milliseconds) : m_end(0) {
  const unsigned long longest = static_cast<unsigned long>(LLONG_MAX / kNanosPerMilli / 2);
  if (milliseconds == 0 || milliseconds > longest) return;
  m_end = Now() + static_cast<long long>(milliseconds) * kNanosPerMilli;
}

CIoDeadline CIoDeadline::OfReceiver(int socket) {
  timeval limit = {};
  socklen_t size = sizeof(limit);
  if (getsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, &size) != 0) return CIoDeadline(0);
  const long milliseconds = limit.tv_sec * 1000 + (limit.tv_usec + 999) / 1000;
  return CIoDeadline(static_cast<unsigned long>(milliseconds));
}

int CIoDeadline::Remaining() const {
  if (m_end == 0) return -1;
  const long long left = m_end - Now();
  if (left <= 0) return 0;
  const long long milliseconds = (left + kNanosPerMilli - 1) / kNanosPerMilli;
  return milliseconds < INT_MAX ? static_cast<int>(milliseconds) : INT_MAX;
}

int OpenStreamSocket() {
  const int opened = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (opened != 0) return opened;
  const int moved = fcntl(opened, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const int error = errno;
  close(opened);
  errno = error;
  return moved;
}

int ConnectStream(int socket, in_addr_t ip, in_port_t port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = ip;
  address.sin_port = port;
  if (connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0) return 0;
  if (errno != EINTR) return -1;
  // The attempt goes on behind the signal's back; a second connect would only report that.
  if (Await(socket, POLLOUT, CIoDeadline(0)) != 0) return -1;
  int error = 0;
  socklen_t size = sizeof(error);
  if (getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size) != 0) return -1;
  errno = error;
  return error == 0 ? 0 : -1;
}

ssize_t ReceiveSome(int socket, void* out, size_t size, const CIoDeadline& deadline) {
  for (;;) {
    const ssize_t count = recv(socket, out, size, MSG_DONTWAIT);
    if (count >= 0) return count;
    if (errno == EINTR) continue;
    if (!WouldBlock() || Await(socket, POLLIN, deadline) != 0) return -1;
  }
}

ssize_t SendAll(int socket, const void* data, size_t size, const CIoDeadline& deadline) {
  const char* const bytes = static_cast<const char*>(data);
  for (size_t sent = 0; sent < size;) {
    const ssize_t count = send(socket, bytes + sent, size - sent, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (count >= 0) {
      sent += static_cast<size_t>(count);
    } else if (errno != EINTR && (!WouldBlock() || Await(socket, POLLOUT, deadline) != 0)) {
      return -1;
    }
  }
  return static_cast<ssize_t>(size);
}
