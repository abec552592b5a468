#include "PlainRecords.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <wchar.h>

/* Of the compatibility library. */
void* GetProcessHeap(void);
void* HeapAlloc(void* heap, unsigned long flags, size_t size);
int HeapFree(void* heap, unsigned long flags, void* block);

static char transcript[16384];
static size_t transcript_length;
static int transcript_was_read;

void Tell(const char* format, ...) {
  if (transcript_was_read) transcript_length = 0;
  transcript_was_read = 0;
  va_list args;
  va_start(args, format);
  const size_t room = sizeof(transcript) - transcript_length;
  const int length = vsnprintf(transcript + transcript_length, room, format, args);
  va_end(args);
  if (length < 0 || (size_t)length + 1 >= room) abort();
  transcript_length += (size_t)length;
  transcript[transcript_length++] = '\n';
  transcript[transcript_length] = 0;
}

const char* PlainTranscript(void) {
  if (transcript_was_read) transcript[0] = 0;
  transcript_was_read = 1;
  return transcript;
}

Slot SlotOf(void* object, int slot) {
  const Slot* table;
  memcpy(&table, object, sizeof(table));
  return table[slot];
}

#define ACCESS(bits)                                               \
  uint##bits##_t Get##bits(const void* record, int offset) {       \
    uint##bits##_t value;                                          \
    memcpy(&value, (const char*)record + offset, sizeof(value));   \
    return value;                                                  \
  }                                                                \
  void Put##bits(void* record, int offset, uint##bits##_t value) { \
    memcpy((char*)record + offset, &value, sizeof(value));         \
  }
ACCESS(16)
ACCESS(32)
ACCESS(64)

void* GetPointer(const void* record, int offset) {
  void* pointer;
  memcpy(&pointer, (const char*)record + offset, sizeof(pointer));
  return pointer;
}

static void PutPointer(void* record, int offset, const void* pointer) {
  memcpy((char*)record + offset, &pointer, sizeof(pointer));
}

/* A string object: table, text, then the buffer object: table, block. Whoever is given a record
 * reads it by these offsets; no operation of it is theirs to call. */
enum { STRING_TEXT = 8, STRING_BUFFER = 16, BUFFER_BLOCK = 8 };

static void NotForReaders(void) {
  Tell("a slot was called that a reader has no use for");
  abort();
}

static const Slot buffer_table[2 + 11] = {
    NULL,          NULL, /* offset, type */
    NotForReaders, NotForReaders, NotForReaders, NotForReaders, NotForReaders, NotForReaders,
    NotForReaders, NotForReaders, NotForReaders, NotForReaders, NotForReaders};

static const Slot string_table[2 + 2] = {NULL, NULL, NotForReaders /* AddString */,
                                         NotForReaders /* Empty */};

void MakeString(void* record, int offset, const wchar_t* text) {
  const size_t size = (wcslen(text) + 1) * sizeof(wchar_t);
  void* const block = HeapAlloc(GetProcessHeap(), 8, size);
  memcpy(block, text, size);
  char* const string = (char*)record + offset;
  PutPointer(string, 0, string_table + 2);
  PutPointer(string, STRING_TEXT, block);
  PutPointer(string, STRING_BUFFER, buffer_table + 2);
  PutPointer(string, STRING_BUFFER + BUFFER_BLOCK, block);
}

const wchar_t* GetString(void* record, int offset) {
  return GetPointer(record, offset + STRING_BUFFER + BUFFER_BLOCK);
}

void DropString(void* record, int offset) {
  HeapFree(GetProcessHeap(), 0, GetPointer(record, offset + STRING_BUFFER + BUFFER_BLOCK));
}

enum { LIST_ADD_ITEM = 0, LIST_GET_COUNT = 1, LIST_GET_ITEM = 4 };

long ListCount(void* list) {
  return ((long (*)(void*))SlotOf(list, LIST_GET_COUNT))(list);
}

void* ListItem(void* list, int index) {
  return ((void* (*)(void*, int))SlotOf(list, LIST_GET_ITEM))(list, index);
}

/* A record with strings is passed by value as its address; the caller keeps it. */
void ListAdd(void* list, void* record) {
  ((long (*)(void*, void*))SlotOf(list, LIST_ADD_ITEM))(list, record);
}

enum { BUFFER_SET_BUFFER = 4 };

void BufferSet(void* buffer, const void* data, uint32_t size) {
  ((void* (*)(void*, const void*, uint32_t))SlotOf(buffer, BUFFER_SET_BUFFER))(buffer, data, size);
}

const int kCertStringOffsets[CERT_STRINGS] = {0,   32,  64,  96,  128, 160, 192, 256, 288,
                                              352, 384, 416, 448, 480, 512, 544, 592};

void MakeCert(void* record) {
  memset(record, 0, CERT_SIZE);
  MakeString(record, 0, L"unique");
  MakeString(record, 32, L"\u5F20\u4E09");
  MakeString(record, 64, L"CN=\u5F20\u4E09,O=Plain");
  MakeString(record, 96, L"Plain CA");
  MakeString(record, 128, L"CN=Plain CA");
  MakeString(record, 160, L"O=Plain,CN=Plain CA");
  MakeString(record, 192, L"00C0FFEE");
  for (int i = 0; i < 8; ++i) {
    Put16(record, 224 + 2 * i, (uint16_t)(2020 + i));
    Put16(record, 240 + 2 * i, (uint16_t)(2030 + i));
  }
  MakeString(record, 256, L"REVSLUNFUlQ=");
  MakeString(record, 288, L"zhang@plain.example");
  Put32(record, 320, 4); /* certificate and key pair */
  Put32(record, 324, 2); /* SM2 */
  Put32(record, 328, 4); /* SHA256 for RSA */
  Put32(record, 332, 6); /* SM3 for SM2 */
  Put32(record, 336, 3); /* signature and exchange */
  Put64(record, 340, 0x80000000C0u);
  Put32(record, 348, 101); /* SKF */
  MakeString(record, 352, L"libplain.so");
  MakeString(record, 384, L"3");
  MakeString(record, 416, L"application");
  MakeString(record, 448, L"container");
  MakeString(record, 480, L"device");
  MakeString(record, 512, L"user pin");
  MakeString(record, 544, L"admin pin");
  Put64(record, 576, 0x1122334455667788u);
  Put64(record, 584, 0x8877665544332211u);
  MakeString(record, 592, L"provider");
}

void DropCert(void* record) {
  for (int i = 0; i < CERT_STRINGS; ++i) {
    DropString(record, kCertStringOffsets[i]);
  }
}
