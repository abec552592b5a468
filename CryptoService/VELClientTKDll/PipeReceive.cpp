#include <errno.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <memory>

#include "PipeIPC.h"
#include "SocketIo.h"
#include "WriteLog.h"

namespace {

const size_t kFirstRoom = 64 * 1024;

// The body of a message; its room follows the bytes that came, at most doubling them, because the
// announced length is the peer's word alone.
class Body {
 public:
  explicit Body(size_t announced) : m_announced(announced) {}

  // False when there is no memory.
  bool MakeRoom() {
    if (m_filled < m_room) return true;
    const size_t room = std::min(m_announced, std::max(kFirstRoom, 2 * m_room));
    void* const grown = realloc(m_bytes.get(), room);
    if (grown == nullptr) return false;
    m_bytes.release();
    m_bytes.reset(static_cast<unsigned char*>(grown));
    m_room = room;
    return true;
  }

  ssize_t Receive(int socket, const CIoDeadline& deadline) {
    const ssize_t count =
        ReceiveSome(socket, m_bytes.get() + m_filled, m_room - m_filled, deadline);
    if (count > 0) m_filled += static_cast<size_t>(count);
    return count;
  }

  bool Complete() const { return m_filled == m_announced; }
  bool AppendTo(CSmartBuffer& out) const {
    return out.AppendBuffer(m_bytes.get(), static_cast<unsigned>(m_filled)) != nullptr;
  }

 private:
  struct Free {
    void operator()(unsigned char* bytes) const { free(bytes); }
  };
  const size_t m_announced;
  size_t m_filled = 0;
  size_t m_room = 0;
  std::unique_ptr<unsigned char, Free> m_bytes;
};

LONG ReceiveBody(int socket, size_t length, const CIoDeadline& deadline, CSmartBuffer& out) {
  Body body(length);
  while (!body.Complete()) {
    if (!body.MakeRoom()) {
      pv_logEx("RecvDataFunc::malloc error");
      return -1;
    }
    const ssize_t count = body.Receive(socket, deadline);
    if (count < 1) {
      pv_logEx("RecvDataFunc::recv data error ret =%d", static_cast<int>(count));
      return count;
    }
  }
  if (!body.AppendTo(out)) {
    pv_logEx("RecvDataFunc::malloc error");
    return -1;
  }
  return static_cast<LONG>(sizeof(RouteMessageHeader) + length);
}

}  // namespace

LONG RecvDataFunc(int socket, CSmartBuffer& out) {
  const CIoDeadline deadline = CIoDeadline::OfReceiver(socket);
  RouteMessageHeader header = {};
  unsigned char* const bytes = reinterpret_cast<unsigned char*>(&header);
  ssize_t count = 0;
  for (size_t filled = 0; filled < sizeof(header); filled += static_cast<size_t>(count)) {
    count = ReceiveSome(socket, bytes + filled, sizeof(header) - filled, deadline);
    if (count < 1) {
      // The text is that of the result, not of errno; readers of the trace expect it so.
      pv_logEx("RecvDataFunc::recv header error ret =%d result=%s", static_cast<int>(count),
               strerror(static_cast<int>(count)));
      return count;
    }
  }
  out.AppendBuffer(&header, sizeof(header));
  if (header.MessageLen == 0) {
    pv_logEx("RecvDataFunc::msgHeader.MessageLen <= 0");
    return count;
  }
  if (header.MessageLen > UINT32_MAX - out.GetSize()) {  // no buffer holds it
    pv_logEx("RecvDataFunc::malloc error");
    return -1;
  }
  return ReceiveBody(socket, header.MessageLen, deadline, out);
}
