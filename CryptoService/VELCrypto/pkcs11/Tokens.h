#pragma once
// The tokens of one module: those that are plugged in, and those that were and may come back.
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "Token.h"

namespace velcrypto {

struct Found {
  std::vector<IdentityPtr> identities;
  std::vector<Skipped> skipped;
};

class Tokens {
 public:
  explicit Tokens(std::shared_ptr<Module> module) : m_module(std::move(module)) {}

  // Looks at every slot. A token that cannot be read is told in `skipped` and hides no other.
  // One call at a time.
  Outcome Look(Found* found);

  // Ends logins and sessions.
  void Close();

 private:
  struct Pass {
    std::map<std::string, Found> byName;  // sorted by label and serial number: slots change
    std::vector<Skipped> unreadable;
    std::map<std::string, unsigned> alike;  // tokens that were seen, by their key
    std::vector<CK_SLOT_ID> slots;
  };

  Outcome LookOnce(Pass* pass);
  void LookAt(CK_SLOT_ID slot, Pass* pass);
  bool IsAsBefore(CK_SLOT_ID slot, Pass* pass);
  std::shared_ptr<Token> TokenFor(CK_SLOT_ID slot, const CK_TOKEN_INFO& info, unsigned ordinal);
  bool IsSuspicious(const Pass& pass) const;
  bool FindsTokensOnlyWhenStarted(const Pass& pass) const;
  bool Restart();
  std::vector<std::shared_ptr<Token>> All();

  const std::shared_ptr<Module> m_module;
  mutable std::mutex m_mutex;
  std::map<std::pair<std::string, unsigned>, std::shared_ptr<Token>> m_tokens;
};

}  // namespace velcrypto
