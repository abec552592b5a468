#include "SlotObject.h"

#include <stddef.h>

typedef void (*Slot)(void);

static long last_slot = -1;
static void* last_object;

static void* Called(void* object, long slot) {
  last_slot = slot;
  last_object = object;
  return NULL;
}

#define FUNCTION(n)                    \
  static void* Slot##n(void* object) { \
    return Called(object, n);          \
  }
#define TEN(M, t) M(t##0) M(t##1) M(t##2) M(t##3) M(t##4) M(t##5) M(t##6) M(t##7) M(t##8) M(t##9)
#define ENTRY(n) (Slot) Slot##n,

TEN(FUNCTION, )
TEN(FUNCTION, 1)
TEN(FUNCTION, 2)
TEN(FUNCTION, 3)
TEN(FUNCTION, 4)
TEN(FUNCTION, 5)
TEN(FUNCTION, 6)
TEN(FUNCTION, 7)
FUNCTION(1000)
FUNCTION(1001)
FUNCTION(1002)
FUNCTION(1003)

/* In front of the slots lie the offset to the whole object and the type information. */
static const Slot first_table[] = {NULL, NULL,
                                   TEN(ENTRY, ) TEN(ENTRY, 1) TEN(ENTRY, 2) TEN(ENTRY, 3)
                                       TEN(ENTRY, 4) TEN(ENTRY, 5) TEN(ENTRY, 6) TEN(ENTRY, 7)};
static const Slot second_table[] = {NULL, NULL, ENTRY(1000) ENTRY(1001) ENTRY(1002) ENTRY(1003)};

static struct {
  const Slot* first;
  const Slot* second;
} object = {first_table + 2, second_table + 2};

void* SlotObject(void) {
  return &object;
}

long LastSlot(void) {
  const long slot = last_slot;
  last_slot = -1;
  return slot;
}

void* LastObject(void) {
  return last_object;
}
