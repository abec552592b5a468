#include "Tokens.h"

#include <algorithm>

namespace velcrypto {

std::vector<std::shared_ptr<Token>> Tokens::All() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  std::vector<std::shared_ptr<Token>> all;
  for (const auto& entry : m_tokens) all.push_back(entry.second);
  return all;
}

std::shared_ptr<Token> Tokens::TokenFor(CK_SLOT_ID slot, const CK_TOKEN_INFO& info,
                                        unsigned ordinal) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  std::shared_ptr<Token>& token = m_tokens[{Token::KeyOf(info), ordinal}];
  if (token == nullptr) token = std::make_shared<Token>(m_module, slot, info, ordinal);
  return token;
}

// Of tokens that are alike in everything only the first: which is the first is found out by
// counting.
bool Tokens::IsAsBefore(CK_SLOT_ID slot, Pass* pass) {
  for (const std::shared_ptr<Token>& token : All()) {
    if (token->ordinal() != 0) continue;
    Found found;
    if (!token->ListUnchanged(slot, &found.identities, &found.skipped)) continue;
    ++pass->alike[token->key()];
    pass->byName[token->sortingName()] = std::move(found);
    return true;
  }
  return false;
}

void Tokens::LookAt(CK_SLOT_ID slot, Pass* pass) {
  if (IsAsBefore(slot, pass)) return;
  CK_TOKEN_INFO info = {};
  Outcome outcome = m_module->ReadToken(slot, &info);
  const std::string device = m_module->name() + ", slot " + std::to_string(slot);
  if (!outcome.ok()) {
    pass->unreadable.push_back({device, outcome});
    return;
  }
  if ((info.flags & CKF_TOKEN_INITIALIZED) == 0) return;
  const unsigned ordinal = pass->alike[Token::KeyOf(info)]++;
  const std::shared_ptr<Token> token = TokenFor(slot, info, ordinal);
  Found& found = pass->byName[token->sortingName()];
  outcome = token->List(slot, info, &found.identities, &found.skipped);
  if (!outcome.ok()) pass->unreadable.push_back({device, outcome});
}

Outcome Tokens::LookOnce(Pass* pass) {
  const auto use = m_module->Use();
  const Outcome outcome = m_module->ListSlots(&pass->slots);
  if (!outcome.ok()) return outcome;
  for (const CK_SLOT_ID slot : pass->slots) LookAt(slot, pass);
  return kOk;
}

// A token is gone or broken, or there is none.
bool Tokens::IsSuspicious(const Pass& pass) const {
  const std::lock_guard<std::mutex> lock(m_mutex);
  return !pass.unreadable.empty() || pass.alike.empty() ||
         std::any_of(m_tokens.begin(), m_tokens.end(), [&](const auto& known) {
           const auto seen = pass.alike.find(known.first.first);
           return seen == pass.alike.end() || seen->second <= known.first.second;
         });
}

// Software tokens, above all: nothing can be plugged in or out of their slots.
bool Tokens::FindsTokensOnlyWhenStarted(const Pass& pass) const {
  const auto use = m_module->Use();
  return !pass.slots.empty() &&
         std::all_of(pass.slots.begin(), pass.slots.end(), [&](CK_SLOT_ID slot) {
           CK_SLOT_INFO info = {};
           return m_module->Call(&CK_FUNCTION_LIST::C_GetSlotInfo, slot, &info) == CKR_OK &&
                  (info.flags & CKF_REMOVABLE_DEVICE) == 0;
         });
}

bool Tokens::Restart() {
  const auto all = All();
  return m_module->Restart([&] {
    if (std::any_of(all.begin(), all.end(),
                    [](const auto& token) { return token->IsLoggedIn(); })) {
      return false;
    }
    for (const auto& token : all) token->Forget();
    return true;
  });
}

Outcome Tokens::Look(Found* found) {
  Outcome outcome = m_module->Initialize();
  Pass pass;
  if (outcome.ok()) outcome = LookOnce(&pass);
  if (outcome.ok() && IsSuspicious(pass) && FindsTokensOnlyWhenStarted(pass) && Restart()) {
    pass = {};
    outcome = LookOnce(&pass);
  }
  if (!outcome.ok()) return outcome;
  found->skipped = std::move(pass.unreadable);
  if (pass.byName.empty() && found->skipped.empty()) {
    found->skipped.push_back({m_module->name(), {kDeviceNotPresent, 0, "no token is plugged in"}});
  }
  for (auto& [name, token] : pass.byName) {
    std::move(token.identities.begin(), token.identities.end(),
              std::back_inserter(found->identities));
    std::move(token.skipped.begin(), token.skipped.end(), std::back_inserter(found->skipped));
  }
  return kOk;
}

void Tokens::Close() {
  for (const auto& token : All()) token->Close();
}

}  // namespace velcrypto
