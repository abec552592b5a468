#pragma once
// What all objects of the library share in one process. A forked child starts with an empty one
// and never touches its parent's: locks that were held, logins and sessions stay behind.
#include <openssl/crypto.h>

#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "Backend.h"
#include "CallRecord.h"
#include "Logins.h"
#include "VelKeyTypes.h"

namespace velcrypto {

struct Process {
  std::mutex mutex;  // guards `backends`
  std::map<std::pair<VEL_CRYPTO_INTERFACE_TYPE, std::string>, std::unique_ptr<Backend>> backends;
  Logins logins;
  CallRecord calls;
  std::atomic<long> objects{0};  // handed out and not yet released

  std::mutex dialogMutex;  // guards `dialogOpen`; never held while a dialog is open
  std::condition_variable dialogClosed;
  bool dialogOpen = false;

  OSSL_LIB_CTX* openSsl = nullptr;  // the library context of all operations

  pid_t pid = 0;
  Process* parent = nullptr;  // kept reachable, never used

  // This process's. Never destroyed: other threads may use it while the process ends.
  static Process& Current();
};

}  // namespace velcrypto
