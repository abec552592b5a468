#include "ParsePacket.h"

#include <stdint.h>
#include <string.h>

#include "VELCstring.h"

namespace {
const USHORT kTrustedSource = 2001;
const ULONGLONG kFirstInvalidFlag = 16;
const USHORT kBasePort = 8665;

bool IsWellFormed(const RouteMessageHeader& header) {
  return header.Paramter < kFirstInvalidFlag && header.MessageLen != 0;
}
}  // namespace

bool IsServerObject(USHORT objId) {
  switch (objId) {
    case 2003:
    case 2004:
    case 2005:
    case 2006:
    case 4003:
    case 6115:
    case 6116:
    case 22000:
    case 32001:
    case 42002:
      return true;
    default:
      return false;
  }
}

USHORT EndpointPort(USHORT sessionId, USHORT objId) {
  return static_cast<USHORT>(objId + kBasePort + sessionId);
}

int checkPipeRequestHeader(const RouteMessageHeader& header) {
  // The trusted number is looked for in the source, not in the destination: its holder may ask any
  // object.
  const bool addressed =
      IsServerObject(header.Destination.ObjID) || header.Source.ObjID == kTrustedSource;
  return addressed && IsWellFormed(header) ? 0 : -1;
}

int checkPipeRspHeader(const RouteMessageHeader& request, const RouteMessageHeader& response) {
  const bool answers = IsWellFormed(response) &&
                       response.Source.ObjID == request.Destination.ObjID &&
                       response.Source.SessionID == request.Destination.SessionID &&
                       response.SequenceNum == request.SequenceNum + 1;
  return answers ? 0 : -1;
}

DWORD CCommPacket::WriteBuffer(const void* data, DWORD size) {
  if (size == 0) return 0;
  if (data == nullptr || size > UINT32_MAX - m_Buffer.GetSize()) return PACKET_FAILED;
  const void* const block = m_Buffer.AppendBuffer(data, static_cast<unsigned int>(size));
  return block == nullptr ? PACKET_FAILED : size;
}

DWORD CCommPacket::WriteCString(CString& text) {
  const LONG length = text.GetLength();
  const DWORD written = WriteLONG(length);
  if (written == PACKET_FAILED) return written;
  return WriteBuffer(static_cast<const wchar_t*>(text), length * sizeof(wchar_t));
}

void CCommUnPacket::SetBuffer(const CSmartBuffer& buffer) {
  m_Buffer = buffer;
  m_dwCurrentPos = 0;
}

DWORD CCommUnPacket::ReadBuffer(void* out, DWORD size) {
  if (size > m_Buffer.GetSize() - m_dwCurrentPos) return PACKET_FAILED;
  if (size != 0) memcpy(out, m_Buffer.GetBytes() + m_dwCurrentPos, size);
  m_dwCurrentPos += size;
  return size;
}
