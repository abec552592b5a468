// The service route: every operation is one request to the file service and its response.
#include <stddef.h>
#include <string.h>

#include "ParsePacket.h"
#include "VelFile.h"

namespace {

const DWORD kOpenTimeout = 20000;
const DWORD kTimeout = 10000;

// How a channel error comes out of an operation that returns BOOL: as it is, which reads as TRUE.
BOOL AsBool(DWORD error) {
  return static_cast<BOOL>(error);
}

}  // namespace

class CVelFile::Request {
 public:
  // The size in the header is set when the fields are written.
  explicit Request(Command command) {
    const _tagVEL_COMM_PROTOCOL header = {command, 0, 0};
    fields.WriteBuffer(&header, sizeof(header));
  }

  // 0 and the response, to be read from its first field on; else the error of the channel.
  DWORD Send(CPipeIPC& channel, CCommUnPacket& response, DWORD timeout = kTimeout) {
    if (fields.GetSize() < sizeof(_tagVEL_COMM_PROTOCOL)) return PIPE_ERROR_SEND;  // no memory
    const DWORD extra = fields.GetSize() - sizeof(_tagVEL_COMM_PROTOCOL);
    memcpy(fields.GetBytes() + offsetof(_tagVEL_COMM_PROTOCOL, dwExtendSize), &extra,
           sizeof(extra));
    CSmartBuffer reply;
    const DWORD error = channel.SendMessageAndWait(
        kServiceSession, kServiceObject, fields.GetBytes(), fields.GetSize(), reply, timeout);
    if (error == 0) response.SetBuffer(reply);
    return error;
  }

  CCommPacket fields;
};

DWORD CVelFile::ServerResult(Request& request) {
  CCommUnPacket response;
  const DWORD error = request.Send(m_pipcClient, response);
  if (error != 0) return error;
  DWORD result = 0;
  response.ReadDWORD(result);
  return result;
}

DWORD CVelFile::ServerOpenFile(LPCWSTR path, int bWrite, int bOpenAlways, int bCreateAlways,
                               int bWriteBom) {
  Request request(kOpen);
  CString text(path);
  request.fields.WriteCString(text);
  for (const BOOL flag : {bWrite, bOpenAlways, bCreateAlways, bWriteBom}) {
    request.fields.WriteBOOL(flag);
  }
  CCommUnPacket response;
  const DWORD error = request.Send(m_pipcClient, response, kOpenTimeout);
  if (error != 0) return error;
  DWORD result = 0;
  response.ReadDWORD(result);
  m_dwFileID = 0;
  if (result == 0) response.ReadDWORD(m_dwFileID);
  return result;
}

DWORD CVelFile::ServerCommand(Command command) {
  Request request(command);
  request.fields.WriteDWORD(m_dwFileID);
  return ServerResult(request);
}

DWORD CVelFile::ServerSeekTo(ULONGLONG pos) {
  Request request(kSeekTo);
  request.fields.WriteDWORD(m_dwFileID);
  request.fields.WriteULONGLONG(pos);
  return ServerResult(request);
}

DWORD CVelFile::ServerCloseFile() {
  Request request(kClose);
  request.fields.WriteDWORD(m_dwFileID);
  CCommUnPacket response;
  const DWORD error = request.Send(m_pipcClient, response);
  if (error != 0) return error;
  DWORD result = 0;
  response.ReadDWORD(result);
  m_dwFileID = 0;
  return result;
}

BOOL CVelFile::ServerGetFileSize(ULONGLONG& size) {
  Request request(kGetSize);
  request.fields.WriteDWORD(m_dwFileID);
  request.fields.WriteULONGLONG(size);
  CCommUnPacket response;
  const DWORD error = request.Send(m_pipcClient, response);
  if (error != 0) return AsBool(error);
  BOOL result = 0;
  size = 0;
  response.ReadBOOL(result);
  response.ReadULONGLONG(size);
  return result;
}

BOOL CVelFile::ServerRead(PBYTE buf, DWORD& len) {
  Request request(kRead);
  request.fields.WriteDWORD(m_dwFileID);
  request.fields.WriteDWORD(len);
  CCommUnPacket response;
  const DWORD error = request.Send(m_pipcClient, response);
  if (error != 0) return AsBool(error);
  BOOL result = 0;
  DWORD length = 0;
  response.ReadBOOL(result);
  response.ReadDWORD(length);
  if (len >= length) response.ReadBuffer(buf, length);
  len = length;
  return result;
}

BOOL CVelFile::ServerWrite(PBYTE buf, DWORD& len) {
  Request request(kWrite);
  request.fields.WriteDWORD(m_dwFileID);
  request.fields.WriteDWORD(len);
  request.fields.WriteBuffer(buf, len);
  CCommUnPacket response;
  const DWORD error = request.Send(m_pipcClient, response);
  if (error != 0) return AsBool(error);
  BOOL result = 0;
  DWORD written = 0;
  response.ReadBOOL(result);
  response.ReadDWORD(written);
  len = written;
  return result;
}
