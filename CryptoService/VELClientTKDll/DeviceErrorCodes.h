#pragma once
// The device-library codes that the toolkit itself stores or tests.
#include "VELInterface.h"

enum DeviceErrorCode : ULONG {
  kErrorGeneral = 0xE0000001,
  kErrorInvalidParameter = 0xE0000003,
  kErrorBufferTooSmall = 0xE0000004,
  kErrorNoMemory = 0xE0000005,
  kErrorNotSupported = 0xE0000008,
  kErrorInvalidHandle = 0xE000000B,
  kErrorCreateFailed = 0xE000000C,
  kErrorInvalidObject = 0xE000000D,
  kErrorObjectNotFound = 0xE000000E,
  kErrorCertNotFound = 0xE0000061,
  kErrorHash = 0xE0000066,
  kErrorNoCertChosen = 0xE0000078,
  kErrorNoDataYet = 0xE0000084,
};
