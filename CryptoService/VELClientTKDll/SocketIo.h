#pragma once
/* Stream sockets for the message channel: what the bare calls leave to their caller, namely calls
 * that a signal interrupts, transfers that move a part, and a limit on the whole of a transfer
 * where SO_RCVTIMEO limits each part of it. Failures are -1 with errno.
 */
#include <netinet/in.h>
#include <stddef.h>
#include <sys/types.h>

// The moment at which a transfer must be over.
class CIoDeadline {
 public:
  // 0 never ends.
  explicit CIoDeadline(unsigned long milliseconds);

  // The limit that SO_RCVTIMEO of the socket asks for, counted from now.
  static CIoDeadline OfReceiver(int socket);

  // For poll: -1 without an end, 0 when it is over.
  int Remaining() const;

 private:
  long long m_end;  // nanoseconds of the monotonic clock, 0 for none
};

// A TCP socket that is closed on exec and is never descriptor 0, which callers take for a failure.
int OpenStreamSocket();

// Both in network byte order.
int ConnectStream(int socket, in_addr_t ip, in_port_t port);

// Waits for bytes and takes what is there, at most `size`: the count, 0 when the peer has closed,
// -1 (EAGAIN when the time is over).
ssize_t ReceiveSome(int socket, void* out, size_t size, const CIoDeadline& deadline);

// Sends all bytes; `size`, or -1 (EAGAIN when the time is over). Never raises SIGPIPE.
ssize_t SendAll(int socket, const void* data, size_t size, const CIoDeadline& deadline);
