#include "Logins.h"

namespace velcrypto {

// Owners are noted before they log in, so that a log-out meanwhile leaves the key open.
Outcome Logins::LogIn(const void* owner, Backend* backend, const Identity& identity,
                      const Secret& pin) {
  const Key key(backend, identity.login);
  bool isNew = false;
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    isNew = m_owners[key].insert(owner).second;
  }
  const Outcome outcome = backend->LogIn(identity, pin);
  if (outcome.ok() || !isNew) return outcome;
  const std::lock_guard<std::mutex> lock(m_mutex);
  const auto owners = m_owners.find(key);
  if (owners == m_owners.end()) return outcome;
  owners->second.erase(owner);
  if (!owners->second.empty()) return outcome;
  m_owners.erase(owners);
  backend->LogOut(identity);  // those that it stayed open for have gone
  return outcome;
}

Outcome Logins::LogOut(const void* owner, Backend* backend, const Identity& identity) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  const auto owners = m_owners.find({backend, identity.login});
  if (owners != m_owners.end()) {
    const bool wasOne = owners->second.erase(owner) != 0;
    if (wasOne && !owners->second.empty()) return kOk;
    m_owners.erase(owners);
  }
  return backend->LogOut(identity);
}

void Logins::Leave(const void* owner) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  for (auto& entry : m_owners) {
    if (entry.second.erase(owner) != 0) entry.second.insert(nullptr);
  }
}

void Logins::Clear() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_owners.clear();
}

}  // namespace velcrypto
