#pragma once
// Whose logins are open. A login opens a key, or a whole token, for the process; several managers
// may need it at once, and the log-out of one must not end the signature of another.
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include "Backend.h"

namespace velcrypto {

class Logins {
 public:
  // Logs in for `owner`.
  Outcome LogIn(const void* owner, Backend* backend, const Identity& identity, const Secret& pin);

  // Ends the owner's login; the key is closed when nobody else has one. Called by somebody without
  // a login it closes the key for all.
  Outcome LogOut(const void* owner, Backend* backend, const Identity& identity);

  // The owner goes without having logged out: what it opened stays open until anybody logs out.
  void Leave(const void* owner);

  // All logins have ended.
  void Clear();

 private:
  using Key = std::pair<Backend*, std::string>;

  std::mutex m_mutex;
  std::map<Key, std::set<const void*>> m_owners;  // null: one that has gone
};

}  // namespace velcrypto
