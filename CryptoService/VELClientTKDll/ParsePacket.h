#pragma once
/* The records of the message channel and the fields of its message bodies.
 *
 * Wire       little-endian, packed. DWORD, LONG and ULONGLONG take 8 bytes, BOOL 4, USHORT 2,
 *            BOOLEAN 1.
 * Message    a RouteMessageHeader, then exactly MessageLen bytes of body.
 * Address    session S, object O listens on 127.0.0.1, TCP port O + 8665 + S (modulo 65536).
 * Threads    one object, one thread at a time.
 */
#include "SmartBuffer.h"
#include "VELCstring.h"
#include "VELInterface.h"

class CPipeIPC;

typedef int SOCKET;

// Flag of RouteMessageHeader::Paramter: the message is a request and wants a response.
const ULONGLONG MSG_ISREQUESTPACK = 4;

#pragma pack(push, 1)

// The address of an endpoint; also the record that a connecting endpoint registers with.
struct RegClient {
  USHORT SessionID;
  USHORT ObjID;
  BOOLEAN WithCallBack;  // 0 or 1
};

struct RouteMessageHeader {
  RegClient Source;
  RegClient Destination;
  ULONGLONG SequenceNum;  // of a response: that of its request + 1
  ULONGLONG Paramter;     // flags; 16 and above are invalid
  ULONGLONG MessageLen;   // bytes of body; 0 is invalid
};

#pragma pack(pop)

struct RouteMessage {
  RouteMessageHeader Header;
  CSmartBuffer Buffer;  // the body alone
};

// A peer that registered with a listening endpoint.
struct ClientInfo {
  RegClient RegInfo;
  SOCKET ClientSocket;
  INT ClientTimeOut;
};

// What a receiving thread is started with.
struct ClientRecvParamter {
  SOCKET RemoteSocket;
  CPipeIPC* pThis;
};

// What a request-processing thread is started with; Buffer holds header and body.
struct RequestParamter {
  CPipeIPC* pThis;
  CSmartBuffer Buffer;
};

// The first bytes of every request body of the file service; responses do not carry it.
struct _tagVEL_COMM_PROTOCOL {
  DWORD dwCmd;
  DWORD dwResult;      // 0 in requests
  DWORD dwExtendSize;  // bytes that follow this record
};

// For nested packets; no message in use is built from it.
struct tag_VEL_Packet_TLV {
  USHORT usType;
  USHORT usChildCount;
  DWORD dwDataLen;
};

static_assert(sizeof(RegClient) == 5, "wire layout");
static_assert(sizeof(RouteMessageHeader) == 34, "wire layout");
static_assert(sizeof(_tagVEL_COMM_PROTOCOL) == 24, "wire layout");
static_assert(sizeof(tag_VEL_Packet_TLV) == 16, "wire layout");
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "records go to the wire as they are");

// True for the object numbers that register as server objects and may be asked.
bool IsServerObject(USHORT objId);

// The port on which the endpoint listens.
USHORT EndpointPort(USHORT sessionId, USHORT objId);

// 0 when the message may be handed to the request handler, else -1.
int checkPipeRequestHeader(const RouteMessageHeader& header);

// 0 when `response` answers `request`, else -1.
int checkPipeRspHeader(const RouteMessageHeader& request, const RouteMessageHeader& response);

// What the readers and writers below return on failure; nothing was read or written then.
const DWORD PACKET_FAILED = 0xFFFFFFFF;

// Writes the fields of a message body, one behind the other.
class CCommPacket {
 public:
  // Each returns the bytes written, or PACKET_FAILED: null data, or no memory.
  DWORD WriteBuffer(const void* data, DWORD size);
  DWORD WriteDWORD(DWORD value) { return WriteBuffer(&value, sizeof(value)); }
  DWORD WriteULONGLONG(ULONGLONG value) { return WriteBuffer(&value, sizeof(value)); }
  DWORD WriteLONG(LONG value) { return WriteBuffer(&value, sizeof(value)); }
  DWORD WriteBOOL(BOOL value) { return WriteBuffer(&value, sizeof(value)); }

  // The count of characters as a LONG, then the characters as UTF-32, no terminator. Returns the
  // bytes of the characters alone.
  DWORD WriteCString(CString& text);

  // The bytes written so far; null when there are none. Valid until the next write.
  void* GetAddress() { return m_Buffer.GetAddress(); }
  BYTE* GetBytes() { return m_Buffer.GetBytes(); }
  DWORD GetSize() { return m_Buffer.GetSize(); }

  CSmartBuffer m_Buffer;
  LONG m_lCurrentTLVlen = 0;
  tag_VEL_Packet_TLV* m_CurrentPackTLV = nullptr;
};

// Reads the fields of a message body from a copy of it.
class CCommUnPacket {
 public:
  CCommUnPacket() = default;
  explicit CCommUnPacket(const CSmartBuffer& buffer) { SetBuffer(buffer); }

  // Takes a copy of the bytes and starts at the first of them.
  void SetBuffer(const CSmartBuffer& buffer);

  // Copies the next `size` bytes out and returns `size`; with fewer left PACKET_FAILED, and neither
  // the output nor the position changes.
  DWORD ReadBuffer(void* out, DWORD size);
  DWORD ReadDWORD(DWORD& value) { return ReadBuffer(&value, sizeof(value)); }
  DWORD ReadULONGLONG(ULONGLONG& value) { return ReadBuffer(&value, sizeof(value)); }
  DWORD ReadBOOL(BOOL& value) { return ReadBuffer(&value, sizeof(value)); }

  CSmartBuffer m_Buffer;
  DWORD m_dwCurrentPos = 0;
  DWORD m_dwTlvStartPos = 0;
  tag_VEL_Packet_TLV m_stCurrentTLV = {};
};
