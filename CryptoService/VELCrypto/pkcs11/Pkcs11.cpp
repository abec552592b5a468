#include "Pkcs11.h"

#include <stdlib.h>

#include "Errors.h"
#include "Tokens.h"
#include "Watch.h"

namespace velcrypto {

namespace {

// The slowest readers take some seconds for a call.
const std::chrono::seconds kPatience(20);

const TokenIdentity& OwnOf(const Identity& identity) {
  return static_cast<const TokenIdentity&>(identity);
}

class Pkcs11 : public Backend {
 public:
  Pkcs11(std::shared_ptr<Module> module, std::chrono::milliseconds patience)
      : m_module(module),
        m_tokens(std::make_shared<Tokens>(std::move(module))),
        m_watch(patience) {}

  Outcome List(std::vector<IdentityPtr>* identities, std::vector<Skipped>* skipped) override;
  std::vector<IdentityPtr> Known() override;

  Outcome LogIn(const Identity& identity, const Secret& pin) override {
    return With(identity, [&](Token& token) { return token.LogIn(pin); });
  }
  Outcome LogOut(const Identity& identity) override {
    return With(identity, [](Token& token) { return token.LogOut(); });
  }
  bool IsLoggedIn(const Identity& identity) override {
    return With(identity,
                [&](Token& token) -> Outcome {
                  return token.IsOpen(identity, OwnOf(identity).keyId) ? kOk : kNotLoggedIn;
                })
        .ok();
  }
  Outcome ChangePin(const Identity& identity, const Secret& oldPin, const Secret& newPin) override {
    return With(identity, [&](Token& token) { return token.ChangePin(oldPin, newPin); });
  }
  Outcome GetPinState(const Identity& identity, PinState* state) override {
    return With(identity, [&](Token& token) { return token.GetPinState(state); });
  }
  Outcome SignDigest(const Identity& identity, const Secret* pin, const std::vector<BYTE>& digest,
                     std::vector<BYTE>* signature) override {
    return With(identity, [&](Token& token) {
      return token.Sign(identity, OwnOf(identity).keyId, pin, digest, signature);
    });
  }

  void Close() override {
    if (m_watch.IsStuck()) return;
    const auto use = m_module->Use();
    m_tokens->Close();
    m_watch.Rest();
  }

 private:
  // An operation on the token of an identity. A module that hangs is not entered: its locks would
  // hold the caller, too.
  template <typename Work>
  Outcome With(const Identity& identity, Work&& work) {
    if (m_watch.IsStuck()) return {kTimeout, 0, "the module does not answer"};
    const auto use = m_module->Use();
    const std::shared_ptr<Token> token = OwnOf(identity).token.lock();
    return token == nullptr ? Outcome(kDeviceNotPresent) : work(*token);
  }

  const std::shared_ptr<Module> m_module;
  const std::shared_ptr<Tokens> m_tokens;
  Watch m_watch;
  std::mutex m_knownMutex;
  std::vector<IdentityPtr> m_known;
};

// The thread that looks may outlive this call, so it has its own results.
Outcome Pkcs11::List(std::vector<IdentityPtr>* identities, std::vector<Skipped>* skipped) {
  const auto found = std::make_shared<Found>();
  const Outcome outcome =
      m_watch.Run([tokens = m_tokens, found] { return tokens->Look(found.get()); });
  if (!outcome.ok()) return outcome;
  {
    const std::lock_guard<std::mutex> lock(m_knownMutex);
    m_known = found->identities;
  }
  *identities = std::move(found->identities);
  *skipped = std::move(found->skipped);
  return kOk;
}

std::vector<IdentityPtr> Pkcs11::Known() {
  const std::lock_guard<std::mutex> lock(m_knownMutex);
  return m_known;
}

}  // namespace

std::string Pkcs11Module(const std::string& configured) {
  const char* const named = getenv("VEL_PKCS11_MODULE");
  return Module::Resolve(configured.empty() && named != nullptr ? named : configured);
}

std::unique_ptr<Backend> OpenPkcs11(const std::string& module, std::chrono::milliseconds patience,
                                    Outcome* outcome) {
  std::shared_ptr<Module> loaded = Module::Load(module, outcome);
  if (loaded == nullptr) return nullptr;
  return std::make_unique<Pkcs11>(std::move(loaded), patience);
}

std::unique_ptr<Backend> OpenPkcs11(const std::string& module, Outcome* outcome) {
  return OpenPkcs11(module, kPatience, outcome);
}

}  // namespace velcrypto
