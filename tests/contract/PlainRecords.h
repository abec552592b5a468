/* The records of the device interface by byte offset, for a device in plain C. Nothing of the
 * toolkit is included: what is written here is the platform's binary contract a second time. */
#include <stddef.h>
#include <stdint.h>

typedef void (*Slot)(void);

/* The function in a slot of the object's first table. */
Slot SlotOf(void* object, int slot);

/* One line for the transcript, printf-style. */
__attribute__((format(printf, 1, 2))) void Tell(const char* format, ...);

/* The lines so far; the next call starts a new transcript. */
__attribute__((visibility("default"))) const char* PlainTranscript(void);

uint16_t Get16(const void* record, int offset);
uint32_t Get32(const void* record, int offset);
uint64_t Get64(const void* record, int offset);
void* GetPointer(const void* record, int offset);
void Put16(void* record, int offset, uint16_t value);
void Put32(void* record, int offset, uint32_t value);
void Put64(void* record, int offset, uint64_t value);

/* A string object inside a record: 32 bytes, made, read and dropped by hand. */
void MakeString(void* record, int offset, const wchar_t* text);
const wchar_t* GetString(void* record, int offset);
void DropString(void* record, int offset);

/* List operations, by slot. */
long ListCount(void* list);
void* ListItem(void* list, int index);
void ListAdd(void* list, void* record);

/* Replaces the content of a result buffer. */
void BufferSet(void* buffer, const void* data, uint32_t size);

#define CERT_SIZE 624
enum { CERT_STRINGS = 17 };
extern const int kCertStringOffsets[CERT_STRINGS];

/* A certificate with every field different. */
void MakeCert(void* record);
void DropCert(void* record);
