// The PINs of the device manager: given, asked for, changed.
#include "DeviceManager.h"
#include "PinPrompt.h"
#include "Text.h"

namespace velcrypto {

ULONG DeviceManager::KeyPinCodeHandleByCertSN(VEL_PIN_CODE_OPER_TYPE operation, LPCSTR pCertSN,
                                              VEL_PIN_CODE_TYPE type, LPCSTR pPin, LPCSTR pNewPin,
                                              VEL_PIN_INFO* pInfo) {
  static const char* const names[] = {"Pin", "Login", "Logout", "ChangePin", "GetPinInfo"};
  const bool known =
      operation >= VEL_PIN_CODE_OPER_TYPE_LOGIN && operation <= VEL_PIN_CODE_OPER_TYPE_GET_PIN_INFO;
  return Recorded(names[known ? operation : 0], [&](std::string& device) -> Outcome {
    if (!known) return kInvalidParameter;
    if (type != VEL_PIN_CODE_TYPE_USER) return {kUserTypeInvalid, 0, "user PINs only"};
    Found found;
    const Outcome outcome = FindBySerial(pCertSN, &found);
    if (!outcome.ok()) return outcome;
    device = found.device();
    const Outcome result = HandlePin(operation, &found, Secret(pPin), Secret(pNewPin));
    // Who has logged in or out has no question about the PIN, and a token takes time to answer.
    const bool isDone = result.ok() && operation != VEL_PIN_CODE_OPER_TYPE_GET_PIN_INFO;
    return isDone ? result : NotePinState(found, result, pInfo);
  });
}

Outcome DeviceManager::LogIn(const Found& found, const Secret& pin) {
  return Process::Current().logins.LogIn(this, found.backend, found.identity(), pin);
}

Outcome DeviceManager::HandlePin(VEL_PIN_CODE_OPER_TYPE operation, Found* found, Secret pin,
                                 const Secret& newPin) {
  const Identity& identity = found->identity();
  const std::wstring id = Folded(identity.facts->record.VELCertUniqueID);
  Outcome outcome;
  switch (operation) {
    case VEL_PIN_CODE_OPER_TYPE_LOGIN:
      m_loginPins.erase(id);
      outcome = pin.empty() ? AskAndLogIn(found, &pin) : LogIn(*found, pin);
      if (outcome.ok() && !pin.empty() && !found->backend->IsLoggedIn(found->identity())) {
        m_loginPins.emplace(id, std::move(pin));
      }
      return outcome;
    case VEL_PIN_CODE_OPER_TYPE_LOGOUT:
      m_loginPins.erase(id);
      return Process::Current().logins.LogOut(this, found->backend, identity);
    case VEL_PIN_CODE_OPER_TYPE_CHANGE_PIN:
      return found->backend->ChangePin(identity, pin, newPin);
    default:
      return kOk;  // NotePinState reports
  }
}

Outcome DeviceManager::NotePinState(const Found& found, Outcome outcome, VEL_PIN_INFO* info) {
  if (outcome.ok() && info == nullptr) return outcome;
  PinState state;
  const Outcome read = found.backend->GetPinState(found.identity(), &state);
  if (!outcome.ok()) m_triesLeft = read.ok() ? state.triesLeft : 0;
  if (info == nullptr) return outcome;
  if (!read.ok()) return outcome.ok() ? read : outcome;
  info->PinCodeType = VEL_PIN_CODE_TYPE_USER;
  info->PinMinLen = static_cast<USHORT>(state.minLength);
  info->PinMaxLen = static_cast<USHORT>(state.maxLength);
  info->MaxRetryCount = static_cast<USHORT>(state.maxTries);
  info->RemainRetryCount = static_cast<USHORT>(state.triesLeft);
  return outcome;
}

ULONG DeviceManager::SetPinCode(VEL_PIN_CODE_TYPE type, LPWSTR pPin, VEL_CERT_INFO* pCert) {
  return Recorded("SetPinCode", [&](std::string&) -> Outcome {
    if (pCert == nullptr) return kInvalidParameter;
    if (type != VEL_PIN_CODE_TYPE_USER) return {kUserTypeInvalid, 0, "user PINs only"};
    const std::wstring id = Folded(pCert->VELCertUniqueID);
    m_pins.erase(id);
    Secret pin(static_cast<LPCWSTR>(pPin));
    if (!pin.empty()) m_pins.emplace(id, std::move(pin));
    return kOk;
  });
}

ULONG DeviceManager::EnablePinDialog(BOOL bEnable) {
  m_mayAsk = bEnable != FALSE;
  return kOk;
}

ULONG DeviceManager::SetForcePinDialog(BOOL bForce) {
  m_mustAsk = bForce != FALSE;
  return kOk;
}

// A PIN that was given serves one try, so a wrong one cannot lock the key by being used again.
bool DeviceManager::TakePin(Pins* pins, const Found& found, Secret* pin) {
  const auto given = pins->find(Folded(found.identity().facts->record.VELCertUniqueID));
  if (given == pins->end()) return false;
  *pin = std::move(given->second);
  pins->erase(given);
  return true;
}

Outcome DeviceManager::AskOnce(const Found& found, PinPrompt* prompt, Secret* pin) {
  PinState state;
  Outcome outcome = found.backend->GetPinState(found.identity(), &state);
  if (!outcome.ok()) return outcome;
  if (state.triesLeft == 0) return {kPinLocked, 0, "the PIN is locked"};
  CallTimer timer("AskPin");
  timer.device = found.device();
  outcome = prompt->Ask(state, pin);
  timer.Finish(outcome);
  return outcome;
}

// The key may have been pulled out while the user typed, and a listing holds none that is gone.
Outcome DeviceManager::FindAgain(Found* found) {
  Found now;
  const Outcome outcome = FindByRecord(RecordOf(*found), Look::kNow, &now);
  if (!outcome.ok()) return {kDeviceRemoved, outcome.native, "removed while the PIN was asked for"};
  *found = std::move(now);
  return kOk;
}

// The login stays as one by LOGIN does; another thread's may have made the question needless.
Outcome DeviceManager::AskAndLogIn(Found* found, Secret* pin) {
  if (!m_mayAsk) return {kNotLoggedIn, 0, "the PIN dialog is off"};
  const PinTurn turn;
  if (!m_mustAsk && found->backend->IsLoggedIn(found->identity())) return kOk;
  PinPrompt prompt(found->identity());
  for (;;) {
    Outcome outcome = AskOnce(*found, &prompt, pin);
    if (outcome.ok()) outcome = FindAgain(found);
    if (!outcome.ok()) return outcome;
    outcome = LogIn(*found, *pin);
    if (outcome.code != kPinWrong) return outcome;
    prompt.Refuse();
  }
}

// Leaves the PIN empty where the key is logged in and does not want it once more.
Outcome DeviceManager::Unlock(Found* found, Secret* pin) {
  if (TakePin(&m_pins, *found, pin)) return kOk;
  if (!m_mustAsk && found->backend->IsLoggedIn(found->identity())) return kOk;
  if (!m_mustAsk && TakePin(&m_loginPins, *found, pin)) return kOk;
  const Outcome outcome = AskAndLogIn(found, pin);
  if (outcome.ok() && found->backend->IsLoggedIn(found->identity())) *pin = Secret();
  return outcome;
}

}  // namespace velcrypto
