#include "Process.h"

#include <unistd.h>

namespace velcrypto {

Process& Process::Current() {
  static std::atomic<Process*> current{nullptr};
  const pid_t pid = getpid();
  Process* known = current.load(std::memory_order_acquire);
  if (known != nullptr && known->pid == pid) return *known;
  auto fresh = std::make_unique<Process>();
  fresh->pid = pid;
  fresh->parent = known;
  // Nothing is to run at exit: threads of the host may still sign then.
  OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
  fresh->openSsl = OSSL_LIB_CTX_new();
  if (current.compare_exchange_strong(known, fresh.get(), std::memory_order_acq_rel)) {
    return *fresh.release();
  }
  OSSL_LIB_CTX_free(fresh->openSsl);
  return *known;
}

}  // namespace velcrypto
