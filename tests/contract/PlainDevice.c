/* A device library in plain C: objects with tables laid by hand, records read and written by byte
 * offset. It tells in a transcript what it was given; it knows no header of the toolkit, so that a
 * slip in a header shows as a difference. */
#include <stdlib.h>
#include <string.h>
#include <wchar.h>

#include "PlainRecords.h"

#define NOT_SUPPORTED 0xE0000008u

struct object {
  const Slot* table;
  unsigned long references;
  const char* name;
};

static void* NewObject(const Slot* table, const char* name) {
  struct object* const object = calloc(1, sizeof(*object));
  if (object == NULL) abort();
  object->table = table + 2;
  object->name = name;
  return object;
}

static void Destroy(struct object* object) {
  Tell("%s is destroyed", object->name);
  free(object);
}

static unsigned long AddRef(struct object* object) {
  return ++object->references;
}

static unsigned long Release(struct object* object) {
  const unsigned long left = --object->references;
  if (left == 0) Destroy(object);
  return left;
}

static unsigned long Unused(void) {
  Tell("a slot was called that the toolkit has no use for");
  return NOT_SUPPORTED;
}

#define NOWHERE NULL, NULL /* offset to the whole object, type information */
#define OBJECT (Slot) Destroy, (Slot)AddRef, (Slot)Release
#define UNUSED ((Slot)Unused)

/* --- device manager --- */

static unsigned long EnablePinStatusCheck(void* self, int enable) {
  (void)self;
  Tell("EnablePinStatusCheck %d", enable);
  return 0;
}

/* Uses the factory that it is given, as device libraries do. */
static unsigned long Initialize(void* self, void* loader) {
  (void)self;
  void* const aux = ((void* (*)(void*))SlotOf(loader, 2))(loader);
  Tell("Initialize: the factory's third slot makes %s", ((struct object*)aux)->name);
  ((unsigned long (*)(void*))SlotOf(aux, 1))(aux);
  ((unsigned long (*)(void*))SlotOf(aux, 2))(aux);
  void* const container = ((void* (*)(void*, void*, void*, void*))SlotOf(loader, 11))(
      loader, (void*)0x10, (void*)0x20, (void*)0x30);
  Tell("Initialize: the factory's twelfth slot makes %p", container);
  return 0;
}

static unsigned long AddKey(void* self, void* keys, int clear) {
  (void)self;
  for (int i = 0; i < ListCount(keys); ++i) {
    const char* const key = ListItem(keys, i);
    Tell("AddKey %lu %u %s %u %u %u %lu", Get64(key, 0), Get32(key, 8), key + 12, Get32(key, 1036),
         Get32(key, 1040), Get32(key, 1044), Get64(key, 1048));
  }
  Tell("AddKey of %ld, %d", ListCount(keys), clear);
  return 0;
}

static unsigned long AddKeyEx(void* self, void* keys, int clear) {
  (void)self;
  for (int i = 0; i < ListCount(keys); ++i) {
    const char* const key = ListItem(keys, i);
    Tell("AddKeyEx 0x%lX %u %s %lu %u %u %u %lu %u %s", Get64(key, 0), Get32(key, 8), key + 12,
         Get64(key, 1036), Get32(key, 1044), Get32(key, 1048), Get32(key, 1052), Get64(key, 1056),
         Get32(key, 1064), key + 1068);
  }
  Tell("AddKeyEx of %ld, %d", ListCount(keys), clear);
  return 0;
}

static unsigned long GetCertList(void* self, void* filters, void* certs) {
  (void)self;
  for (int i = 0; i < ListCount(filters); ++i) {
    char* const filter = ListItem(filters, i);
    Tell("GetCertList %u=%ls", Get32(filter, 0), GetString(filter, 4));
  }
  char record[CERT_SIZE], before[CERT_SIZE];
  MakeCert(record);
  memcpy(before, record, CERT_SIZE);
  ListAdd(certs, record);
  if (memcmp(record, before, CERT_SIZE) != 0) Tell("GetCertList: the list changed the record");
  DropCert(record);
  return 0;
}

static unsigned long KeyPinCodeHandle(void* self, int operation, const char* serial, int type,
                                      const char* pin, const char* newPin, char* info) {
  (void)self;
  Tell("KeyPinCodeHandleByCertSN %d %s %d %s %s %s", operation, serial, type, pin ? pin : "-",
       newPin ? newPin : "-", info ? "info" : "-");
  if (info != NULL) {
    Put32(info, 0, 2);
    Put16(info, 4, 16);
    Put16(info, 6, 6);
    Put16(info, 8, 10);
    Put16(info, 10, 7);
  }
  return 0;
}

static unsigned long GetKeyDevInfo(void* self, const char* serial, char* info) {
  (void)self;
  Tell("GetKeyDevInfoByCertSN %s", serial);
  for (int i = 0; i < 326; ++i) info[i] = (char)(i * 7 + 1);
  return 0;
}

static unsigned long RegCertListBroadcastObject(void* self, const char* info) {
  (void)self;
  void* const function = GetPointer(info, 8);
  unsigned long (*callback)(void*, void*);
  memcpy(&callback, &function, sizeof(callback));
  const unsigned long code = callback(GetPointer(info, 0), GetPointer(info, 16));
  Tell("RegCertListBroadcastObject: the callback gave %lu", code);
  return code;
}

static unsigned long P1Sign(void* self, void* cert, int hash, const char* data, unsigned long size,
                            void* signature) {
  (void)self;
  Tell("P1Sign %ls %d %.*s", GetString(cert, 192), hash, (int)size, data);
  BufferSet(signature, "P1-BY-C", 7);
  return 0;
}

static unsigned long P7Sign(void* self, void* cert, int hash, int detach, int includeCert,
                            const char* data, unsigned long size, void* signature) {
  (void)self;
  Tell("P7Sign %ls %d %d %d %.*s", GetString(cert, 192), hash, detach, includeCert, (int)size,
       data);
  BufferSet(signature, "P7-BY-C", 7);
  return 0;
}

static unsigned long P7SignEx(void* self, void* cert, int hash, int detach, int includeCert,
                              const char* data, unsigned long size, void* signature,
                              const char* attributes, unsigned long count) {
  P7Sign(self, cert, hash, detach, includeCert, data, size, signature);
  for (unsigned long i = 0; i < count; ++i) {
    const char* const attribute = attributes + 24 * i;
    Tell("P7SignEx %s %.*s", (const char*)GetPointer(attribute, 0), (int)Get64(attribute, 16),
         (const char*)GetPointer(attribute, 8));
  }
  return 0;
}

static unsigned long SetKeyCheckTime(void* self, unsigned long time) {
  (void)self;
  Tell("SetKeyCheckTime %lu", time);
  return 0;
}

static unsigned long SetForcePinDialog(void* self, int force) {
  (void)self;
  Tell("SetForcePinDialog %d", force);
  return 0;
}

static unsigned long SetPinCode(void* self, int type, const wchar_t* pin, void* cert) {
  (void)self;
  Tell("SetPinCode %d %ls %ls", type, pin, GetString(cert, 192));
  return 0;
}

static unsigned long GetPinRetryTimes(void* self) {
  (void)self;
  Tell("GetPinRetryTimes");
  return 7;
}

enum { MANAGER_SLOTS = 70 };
static const Slot manager_table[2 + MANAGER_SLOTS] = {
    NOWHERE,
    OBJECT,
    (Slot)EnablePinStatusCheck,
    (Slot)Initialize,
    (Slot)AddKey,
    UNUSED, /* DeleteKey */
    (Slot)GetCertList,
    UNUSED, /* DoAction */
    UNUSED, /* SetKeyChangeCallBack */
    (Slot)KeyPinCodeHandle,
    (Slot)GetKeyDevInfo,
    UNUSED, /* RefreshCertList */
    UNUSED, /* EnablePinDialog */
    UNUSED, /* RefreshSepcialCertList */
    UNUSED, /* SetKeyInfoSaveCallBack */
    (Slot)RegCertListBroadcastObject,
    UNUSED, /* UnregCertListBroadcastObject */
    (Slot)P1Sign,
    (Slot)P7Sign,
    (Slot)P7SignEx,
    UNUSED,
    UNUSED, /* unauthenticated attributes */
    UNUSED,
    UNUSED,
    UNUSED,
    UNUSED, /* Encrypt to P7Envelope */
    UNUSED,
    UNUSED,
    UNUSED, /* P1Sign in steps */
    UNUSED,
    UNUSED,
    UNUSED, /* P7AttachSign in steps */
    UNUSED,
    UNUSED,
    UNUSED, /* P7DetachSign in steps */
    UNUSED,
    UNUSED,
    UNUSED,
    UNUSED, /* P1Verify */
    UNUSED,
    UNUSED,
    UNUSED,
    UNUSED, /* P7AttachVerify */
    UNUSED,
    UNUSED,
    UNUSED,
    UNUSED, /* P7DetachVerify */
    UNUSED,
    UNUSED,
    UNUSED, /* FilterCertList, GetSignCerts, GetEncryptCerts */
    UNUSED,
    UNUSED,
    UNUSED, /* P7Envelope in steps */
    UNUSED,
    UNUSED, /* destructors */
    UNUSED,
    UNUSED, /* RefreshCertList(BOOL), SetFlags */
    (Slot)SetKeyCheckTime,
    UNUSED, /* CspKeyInfoCombine */
    (Slot)AddKeyEx,
    UNUSED, /* DeleteKeyEx */
    UNUSED,
    UNUSED,
    UNUSED,
    UNUSED, /* fingers, P1ByCertEntity */
    (Slot)SetForcePinDialog,
    (Slot)SetPinCode,
    (Slot)GetPinRetryTimes,
    UNUSED, /* SetDevPinCode */
};

/* --- dialog --- */

static unsigned long DisplayUI(void* self, int multiple, void* certs, void* chosen) {
  (void)self;
  Tell("DisplayUI %d %ld", multiple, ListCount(certs));
  ListAdd(chosen, ListItem(certs, 0));
  return 0;
}

static unsigned long EnableSingleCertSkipUI(void* self, int enable) {
  (void)self;
  Tell("EnableSingleCertSkipUI %d", enable);
  return 0;
}

static const Slot dialog_table[2 + 7] = {
    NOWHERE, OBJECT, UNUSED /* SetLanguage */, (Slot)DisplayUI, (Slot)EnableSingleCertSkipUI,
    UNUSED /* RefreshDisplayCerts */};

/* --- conversions --- */

static unsigned long AssembleP1DataToP7Data(void* self, const char* param, char* result,
                                            unsigned long* size) {
  (void)self;
  Tell("AssembleP1DataToP7Data %u %u %.*s %.*s %.*s %s", Get32(param, 0), Get32(param, 4),
       (int)Get64(param, 16), (const char*)GetPointer(param, 8), (int)Get64(param, 32),
       (const char*)GetPointer(param, 24), (int)Get64(param, 48),
       (const char*)GetPointer(param, 40), result == NULL ? "size" : "result");
  if (result != NULL) memcpy(result, "P1-IN-P7-BY-C", 13);
  *size = 13;
  return 0;
}

static const Slot aux_table[2 + 11] = {
    NOWHERE, OBJECT, UNUSED, UNUSED, UNUSED, UNUSED, UNUSED, UNUSED, (Slot)AssembleP1DataToP7Data,
    UNUSED};

/* --- call queue --- */

static unsigned long Enable(void* self, int queue, int headInfo) {
  (void)self;
  Tell("Enable %d %d", queue, headInfo);
  return 0;
}

static unsigned long Clear(void* self) {
  (void)self;
  Tell("Clear");
  return 0;
}

static const char* Get(void* self) {
  (void)self;
  return "queue by C";
}

static const Slot queue_table[2 + 6] = {NOWHERE, OBJECT, (Slot)Enable, (Slot)Clear, (Slot)Get};

/* --- the twelve entry points --- */

__attribute__((visibility("default"))) void* CreateUsbKeyInstance_DeviceManager(void) {
  return NewObject(manager_table, "the manager");
}

__attribute__((visibility("default"))) void* CreateUsbKeyInstance_CertUI(void) {
  return NewObject(dialog_table, "the dialog");
}

__attribute__((visibility("default"))) void* CreateUsbKeyInstance_AuxClass(void) {
  return NewObject(aux_table, "the conversions");
}

__attribute__((visibility("default"))) void* CreateUsbKeyInstance_CallQueue(void) {
  return NewObject(queue_table, "the queue");
}

__attribute__((visibility("default"))) void* CreateUsbKeyInstance_DeviceSet(int type) {
  return (void*)(intptr_t)(0x1000 + type);
}

__attribute__((visibility("default"))) void* CreateUsbKeyInstance_Certificate(void) {
  return (void*)0x2000;
}

__attribute__((visibility("default"))) void* CreateUsbKeyInstance_SessionKey(void) {
  return (void*)0x3000;
}

__attribute__((visibility("default"))) void* CreateUsbKeyInstance_TokenPrivileges(void) {
  return (void*)0x4000;
}

__attribute__((visibility("default"))) void* CreateUsbKeyInstance_Device(char* set) {
  return set + 1;
}

__attribute__((visibility("default"))) void* CreateUsbKeyInstance_Application(char* device) {
  return device + 2;
}

__attribute__((visibility("default"))) void* CreateUsbKeyInstance_HashKey(char* device) {
  return device + 3;
}

__attribute__((visibility("default"))) void* CreateUsbKeyInstance_Container(uintptr_t device,
                                                                            uintptr_t application,
                                                                            uintptr_t hashKey) {
  return (void*)(device << 16 | application << 8 | hashKey);
}
