#include "ParsePacket.h"

#include <gmock/gmock.h>
#include <stddef.h>
#include <string.h>

#include <string>
#include <type_traits>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

std::vector<int> BytesOf(const void* data, size_t size) {
  const unsigned char* const bytes = static_cast<const unsigned char*>(data);
  return std::vector<int>(bytes, bytes + size);
}

std::vector<int> BytesOf(CCommPacket& packet) {
  return BytesOf(packet.GetAddress(), packet.GetSize());
}

CCommUnPacket ReaderOf(const std::vector<unsigned char>& bytes) {
  CSmartBuffer buffer;
  buffer.SetBuffer(bytes.data(), static_cast<unsigned>(bytes.size()));
  return CCommUnPacket(buffer);
}

RouteMessageHeader Request(USHORT sourceObj, USHORT destinationObj) {
  RouteMessageHeader header = {};
  header.Source.ObjID = sourceObj;
  header.Destination.ObjID = destinationObj;
  header.Paramter = MSG_ISREQUESTPACK;
  header.MessageLen = 1;
  return header;
}

// A request of object 77 to object 101 and its answer.
struct Exchange {
  RouteMessageHeader request = Request(77, 101);
  RouteMessageHeader response = Request(101, 77);

  Exchange() {
    request.Destination.SessionID = response.Source.SessionID = 9;
    request.SequenceNum = 1000;
    response.SequenceNum = 1001;
    response.Paramter = 0;
  }
  int Check() const { return checkPipeRspHeader(request, response); }
};

TEST(Records, LieOnTheWireAtTheseOffsets) {
  EXPECT_EQ(offsetof(RegClient, SessionID), 0u);
  EXPECT_EQ(offsetof(RegClient, ObjID), 2u);
  EXPECT_EQ(offsetof(RegClient, WithCallBack), 4u);
  EXPECT_EQ(offsetof(RouteMessageHeader, Source), 0u);
  EXPECT_EQ(offsetof(RouteMessageHeader, Destination), 5u);
  EXPECT_EQ(offsetof(RouteMessageHeader, SequenceNum), 10u);
  EXPECT_EQ(offsetof(RouteMessageHeader, Paramter), 18u);
  EXPECT_EQ(offsetof(RouteMessageHeader, MessageLen), 26u);
  EXPECT_EQ(offsetof(_tagVEL_COMM_PROTOCOL, dwCmd), 0u);
  EXPECT_EQ(offsetof(_tagVEL_COMM_PROTOCOL, dwResult), 8u);
  EXPECT_EQ(offsetof(_tagVEL_COMM_PROTOCOL, dwExtendSize), 16u);
  EXPECT_EQ(offsetof(tag_VEL_Packet_TLV, usType), 0u);
  EXPECT_EQ(offsetof(tag_VEL_Packet_TLV, usChildCount), 2u);
  EXPECT_EQ(offsetof(tag_VEL_Packet_TLV, dwDataLen), 8u);
  EXPECT_EQ(sizeof(RegClient), 5u);
  EXPECT_EQ(sizeof(RouteMessageHeader), 34u);
  EXPECT_EQ(sizeof(_tagVEL_COMM_PROTOCOL), 24u);
  EXPECT_EQ(sizeof(tag_VEL_Packet_TLV), 16u);
}

TEST(Records, HeaderIsLittleEndian) {
  RouteMessageHeader header = {};
  header.Source = {0x0201, 0x0403, 1};
  header.Destination = {0x0605, 0x0807, 0};
  header.SequenceNum = 0x1817161514131211;
  header.Paramter = 4;
  header.MessageLen = 0x0102;
  EXPECT_THAT(BytesOf(&header, sizeof(header)),
              ElementsAre(1, 2, 3, 4, 1, 5, 6, 7, 8, 0, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17,
                          0x18, 4, 0, 0, 0, 0, 0, 0, 0, 2, 1, 0, 0, 0, 0, 0, 0));
}

TEST(Records, ServerSideOnesHaveTheirFields) {
  static_assert(std::is_same_v<decltype(ClientInfo::RegInfo), RegClient>);
  static_assert(sizeof(ClientInfo::ClientSocket) == 4 && sizeof(ClientInfo::ClientTimeOut) == 4);
  static_assert(std::is_signed_v<decltype(ClientInfo::ClientTimeOut)>);
  static_assert(sizeof(ClientRecvParamter::RemoteSocket) == 4);
  static_assert(std::is_same_v<decltype(ClientRecvParamter::pThis), CPipeIPC*>);
  static_assert(std::is_same_v<decltype(RequestParamter::Buffer), CSmartBuffer>);
}

TEST(EndpointPort, IsTruncatedTo16Bits) {
  EXPECT_EQ(EndpointPort(0, 101), 8766);
  EXPECT_EQ(EndpointPort(1000, 101), 9766);
  EXPECT_EQ(EndpointPort(65535, 101), 8765);
  EXPECT_EQ(EndpointPort(65535, 65535), 8663);
}

TEST(RequestCheck, AcceptsExactlyTheServerObjects) {
  std::vector<int> accepted;
  for (int object = 0; object <= 0xFFFF; ++object) {
    if (checkPipeRequestHeader(Request(1, static_cast<USHORT>(object))) == 0) {
      accepted.push_back(object);
    }
  }
  EXPECT_THAT(accepted, ElementsAre(2003, 2004, 2005, 2006, 4003, 6115, 6116, 22000, 32001, 42002));
}

TEST(RequestCheck, SourceObject2001MayAskAnyObject) {
  EXPECT_EQ(checkPipeRequestHeader(Request(2001, 101)), 0);
  EXPECT_EQ(checkPipeRequestHeader(Request(2001, 4003)), 0);
  EXPECT_EQ(checkPipeRequestHeader(Request(101, 2001)), -1);
}

TEST(RequestCheck, RefusesFlagsFrom16OnAndEmptyBodies) {
  for (const USHORT source : {1, 2001}) {
    RouteMessageHeader header = Request(source, 4003);
    for (const ULONGLONG flags : {0, 4, 15}) {
      header.Paramter = flags;
      EXPECT_EQ(checkPipeRequestHeader(header), 0) << flags;
    }
    for (const ULONGLONG flags : {16ULL, 20ULL, 1ULL << 63}) {
      header.Paramter = flags;
      EXPECT_EQ(checkPipeRequestHeader(header), -1) << flags;
    }
    header.Paramter = 4;
    header.MessageLen = 0;
    EXPECT_EQ(checkPipeRequestHeader(header), -1);
    header.MessageLen = 1ULL << 40;
    EXPECT_EQ(checkPipeRequestHeader(header), 0);
  }
}

TEST(ResponseCheck, AcceptsTheAnswer) {
  EXPECT_EQ(Exchange().Check(), 0);
}

TEST(ResponseCheck, RefusesFlagsFrom16OnAndEmptyBodies) {
  Exchange exchange;
  exchange.response.Paramter = 15;
  EXPECT_EQ(exchange.Check(), 0);
  exchange.response.Paramter = 16;
  EXPECT_EQ(exchange.Check(), -1);
  exchange = Exchange();
  exchange.response.MessageLen = 0;
  EXPECT_EQ(exchange.Check(), -1);
}

TEST(ResponseCheck, RefusesAnotherSource) {
  Exchange exchange;
  exchange.response.Source.ObjID = 102;
  EXPECT_EQ(exchange.Check(), -1);
  exchange = Exchange();
  exchange.response.Source.SessionID = 8;
  EXPECT_EQ(exchange.Check(), -1);
}

TEST(ResponseCheck, DoesNotLookAtItsDestination) {
  Exchange exchange;
  exchange.response.Destination = {1, 2, 1};
  EXPECT_EQ(exchange.Check(), 0);
}

TEST(ResponseCheck, SequenceIsThatOfTheRequestPlusOne) {
  Exchange exchange;
  for (const ULONGLONG number : {1000, 999, 1002}) {
    exchange.response.SequenceNum = number;
    EXPECT_EQ(exchange.Check(), -1) << number;
  }
  exchange.request.SequenceNum = ~0ULL;
  exchange.response.SequenceNum = 0;
  EXPECT_EQ(exchange.Check(), 0);
}

TEST(CommPacket, StartsEmpty) {
  CCommPacket packet;
  EXPECT_EQ(packet.GetSize(), 0u);
  EXPECT_EQ(packet.GetAddress(), nullptr);
  EXPECT_EQ(packet.m_lCurrentTLVlen, 0);
  EXPECT_EQ(packet.m_CurrentPackTLV, nullptr);
}

TEST(CommPacket, NumbersTake8BytesAndBoolTakes4) {
  CCommPacket packet;
  EXPECT_EQ(packet.WriteDWORD(0x0102030405060708), 8u);
  EXPECT_EQ(packet.WriteULONGLONG(1), 8u);
  EXPECT_EQ(packet.WriteLONG(-2), 8u);
  EXPECT_EQ(packet.WriteBOOL(-1), 4u);
  EXPECT_EQ(packet.GetSize(), 28u);
  EXPECT_EQ(packet.GetAddress(), packet.GetBytes());
  EXPECT_THAT(BytesOf(packet),
              ElementsAre(8, 7, 6, 5, 4, 3, 2, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0xFE, 0xFF, 0xFF, 0xFF,
                          0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF));
}

TEST(CommPacket, RawBytesHaveNoLength) {
  CCommPacket packet;
  EXPECT_EQ(packet.WriteBuffer("abc", 3), 3u);
  EXPECT_EQ(packet.WriteBuffer("", 0), 0u);
  EXPECT_EQ(packet.WriteBuffer("d", 1), 1u);
  EXPECT_THAT(BytesOf(packet), ElementsAre('a', 'b', 'c', 'd'));
}

TEST(CommPacket, StringIsItsLengthAndUtf32) {
  CCommPacket packet;
  CString text(L"ab");
  EXPECT_EQ(packet.WriteCString(text), 8u);
  EXPECT_THAT(BytesOf(packet), ElementsAre(2, 0, 0, 0, 0, 0, 0, 0, 0x61, 0, 0, 0, 0x62, 0, 0, 0));
}

TEST(CommPacket, StringCountsCharactersNotBytes) {
  CCommPacket packet;
  CString text(L"\u4e2d\U0001F600");
  packet.WriteCString(text);
  EXPECT_THAT(BytesOf(packet),
              ElementsAre(2, 0, 0, 0, 0, 0, 0, 0, 0x2d, 0x4e, 0, 0, 0, 0xf6, 1, 0));
}

TEST(CommPacket, EmptyStringIsItsLengthAlone) {
  CCommPacket packet;
  CString text;
  EXPECT_EQ(packet.WriteCString(text), 0u);
  EXPECT_THAT(BytesOf(packet), ElementsAreArray(std::vector<int>(8, 0)));
}

TEST(CommPacket, WhatCannotBeWrittenFailsAndChangesNothing) {
  CCommPacket packet;
  packet.WriteBuffer("ab", 2);
  EXPECT_EQ(packet.WriteBuffer(nullptr, 4), 0xFFFFFFFFu);
  EXPECT_EQ(packet.WriteBuffer("x", 0x100000000), 0xFFFFFFFFu);
  EXPECT_EQ(packet.WriteBuffer("x", 0xFFFFFFFF), 0xFFFFFFFFu);
  EXPECT_EQ(packet.WriteBuffer("x", ~0UL), 0xFFFFFFFFu);
  EXPECT_THAT(BytesOf(packet), ElementsAre('a', 'b'));
}

TEST(CommUnPacket, ReadsWhatThePacketWrote) {
  CCommPacket packet;
  packet.WriteDWORD(~0UL - 1);
  packet.WriteULONGLONG(1ULL << 40);
  packet.WriteBOOL(-3);
  packet.WriteBuffer("xyz", 3);
  CCommUnPacket reader(packet.m_Buffer);
  DWORD number = 0;
  ULONGLONG large = 0;
  BOOL flag = 0;
  char text[4] = {};
  EXPECT_EQ(reader.ReadDWORD(number), 8u);
  EXPECT_EQ(reader.ReadULONGLONG(large), 8u);
  EXPECT_EQ(reader.ReadBOOL(flag), 4u);
  EXPECT_EQ(reader.ReadBuffer(text, 3), 3u);
  EXPECT_EQ(number, ~0UL - 1);
  EXPECT_EQ(large, 1ULL << 40);
  EXPECT_EQ(flag, -3);
  EXPECT_STREQ(text, "xyz");
  EXPECT_EQ(reader.m_dwCurrentPos, 23u);
  EXPECT_EQ(reader.ReadBuffer(text, 1), 0xFFFFFFFFu);
}

TEST(CommUnPacket, DwordFromSevenBytesFailsAndDoesNotAdvance) {
  CCommUnPacket reader = ReaderOf({1, 2, 3, 4, 5, 6, 7});
  DWORD number = 42;
  EXPECT_EQ(reader.ReadDWORD(number), 0xFFFFFFFFu);
  EXPECT_EQ(number, 42u);
  EXPECT_EQ(reader.m_dwCurrentPos, 0u);
  BOOL flag = 0;
  EXPECT_EQ(reader.ReadBOOL(flag), 4u);
  EXPECT_EQ(flag, 0x04030201);
}

TEST(CommUnPacket, HugeSizesFail) {
  CCommUnPacket reader = ReaderOf({1, 2, 3});
  char out[4] = {};
  reader.ReadBuffer(out, 2);
  EXPECT_EQ(reader.ReadBuffer(out, ~0UL), 0xFFFFFFFFu);
  EXPECT_EQ(reader.ReadBuffer(out, ~0UL - 1), 0xFFFFFFFFu);
  EXPECT_EQ(reader.ReadBuffer(out, 1), 1u);
}

TEST(CommUnPacket, EmptyInputHasNothing) {
  CCommUnPacket reader;
  DWORD number = 7;
  EXPECT_EQ(reader.ReadDWORD(number), 0xFFFFFFFFu);
  EXPECT_EQ(reader.ReadBuffer(nullptr, 0), 0u);
  EXPECT_EQ(number, 7u);
}

TEST(CommUnPacket, NewInputStartsAtItsFirstByte) {
  CCommUnPacket reader = ReaderOf({1, 2, 3});
  char out[4] = {};
  reader.ReadBuffer(out, 3);
  CSmartBuffer next;
  next.SetBuffer("q", 1);
  reader.SetBuffer(next);
  next.SetBuffer("r", 1);  // the reader has a copy
  EXPECT_EQ(reader.ReadBuffer(out, 1), 1u);
  EXPECT_EQ(out[0], 'q');
}

}  // namespace
