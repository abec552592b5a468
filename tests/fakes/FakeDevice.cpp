#include "FakeDevice.h"

FakeDevice& Fake() {
  static FakeDevice* const device = new FakeDevice;  // libraries are unloaded at exit, too
  return *device;
}
