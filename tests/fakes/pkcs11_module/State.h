#pragma once
// The state of the module, guarded by one mutex.
#include <condition_variable>
#include <mutex>
#include <optional>
#include <set>

#include "FakePkcs11.h"

namespace fakep11 {

struct Slot {
  std::optional<Token> token;
  unsigned generation = 0;  // plugged in so many times: handles of before are void
  bool loggedIn = false;
};

struct Session {
  unsigned slot = 0;
  unsigned generation = 0;
  bool writes = false;
  bool finding = false;
  std::vector<CK_OBJECT_HANDLE> found;
  const Object* signer = nullptr;
  CK_MECHANISM_TYPE mechanism = 0;
  bool mayOnce = false;  // the PIN was given for this use
};

struct State {
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<Slot> slots;    // as they are
  std::vector<bool> visible;  // as the module knows them, where it looks when started
  std::map<CK_SESSION_HANDLE, Session> sessions;
  CK_SESSION_HANDLE lastSession = 100;
  std::vector<Fault> faults;
  std::map<std::string, unsigned> calls;
  Ways ways;
  bool initialized = false;
  unsigned resets = 0;
  unsigned inside = 0, mostInside = 0;
};

State& Get();

// The beginning of each call: counts it and plays its faults. CKR_OK goes on.
class Call {
 public:
  explicit Call(const char* function, bool needsInitialized = true);
  ~Call();
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;
  CK_RV result() const { return m_result; }

 private:
  CK_RV m_result = CKR_OK;
};

}  // namespace fakep11
