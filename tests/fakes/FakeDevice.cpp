#include "FakeDevice.h"

FakeDevice& Fake() {
  static FakeDevice* const device = new FakeDevice;  // libraries are unloaded at exit, too
  return *device;
}

void KeepLostObject(const void* object) {
  static std::vector<const void*>* const objects = new std::vector<const void*>;
  objects->push_back(object);
}
