#include "State.h"

#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <sstream>
#include <thread>

namespace fakep11 {

namespace {

using Guard = std::lock_guard<std::mutex>;

// Faults for a program that cannot order them: FAKE_PKCS11="C_GetSlotList sleep 5000; C_Login ..."
State* FromEnvironment() {
  auto* const state = new State;
  const char* const text = getenv("FAKE_PKCS11");
  std::istringstream orders(text == nullptr ? "" : text);
  std::string order;
  while (std::getline(orders, order, ';')) {
    Fault fault;
    std::string what, value;
    std::istringstream(order) >> fault.function >> what >> value;
    if (what == "sleep") fault.milliseconds = static_cast<unsigned>(std::stoul(value));
    if (what == "await") fault.awaits = value;
    if (what == "print") fault.prints = value;
    if (what == "return") fault.result = std::stoul(value, nullptr, 0);
    fault.crashes = what == "crash";
    fault.hangs = what == "hang";
    state->faults.push_back(fault);
  }
  return state;
}

Slot* SlotOf(State& state, const std::string& label) {
  for (Slot& slot : state.slots) {
    if (slot.token.has_value() && slot.token->label == label) return &slot;
  }
  return nullptr;
}

Token Take(State& state, const std::string& label) {
  Slot* const slot = SlotOf(state, label);
  if (slot == nullptr) return {};
  Token token = *slot->token;
  slot->token.reset();
  ++slot->generation;
  slot->loggedIn = false;
  return token;
}

// The fault for this call, if any; each counts the calls of its function.
Fault Next(State& state, const std::string& function) {
  Fault now;
  for (Fault& fault : state.faults) {
    if (fault.function != function) continue;
    if (fault.call == 0 || fault.call == 1) now = fault;
    if (fault.call > 0) --fault.call;
    if (now.function == function && fault.call == 0 && now.call == 1) fault.function.clear();
  }
  return now;
}

}  // namespace

State& Get() {
  static State* const state = FromEnvironment();
  return *state;
}

Call::Call(const char* function, bool needsInitialized) {
  State& state = Get();
  std::unique_lock<std::mutex> lock(state.mutex);
  ++state.calls[function];
  state.mostInside = std::max(state.mostInside, ++state.inside);
  const Fault fault = Next(state, function);
  if (fault.crashes) abort();
  if (!fault.prints.empty()) {
    fputs(fault.prints.c_str(), stdout);
    fflush(stdout);
  }
  if (fault.milliseconds > 0 || !fault.awaits.empty()) {
    lock.unlock();
    std::this_thread::sleep_for(std::chrono::milliseconds(fault.milliseconds));
    while (!fault.awaits.empty() && access(fault.awaits.c_str(), F_OK) != 0) usleep(2000);
    lock.lock();
  }
  if (fault.hangs) {
    const unsigned resets = state.resets;
    state.changed.wait(lock, [&] { return state.resets != resets; });
    m_result = CKR_GENERAL_ERROR;
    return;
  }
  if (!fault.unplugs.empty()) Take(state, fault.unplugs);
  m_result = fault.result;
  if (m_result == CKR_OK && needsInitialized && !state.initialized) {
    m_result = CKR_CRYPTOKI_NOT_INITIALIZED;
  }
}

Call::~Call() {
  State& state = Get();
  const Guard lock(state.mutex);
  --state.inside;
  state.changed.notify_all();
}

void Reset() {
  State& state = Get();
  std::unique_lock<std::mutex> lock(state.mutex);
  ++state.resets;
  state.changed.notify_all();
  state.changed.wait(lock, [&] { return state.inside == 0; });
  for (Slot& slot : state.slots) {
    slot.token.reset();
    ++slot.generation;
    slot.loggedIn = false;
  }
  state.visible.clear();
  state.sessions.clear();
  state.faults.clear();
  state.calls.clear();
  state.ways = {};
  state.initialized = false;
  state.mostInside = 0;
}

void PlugInto(unsigned number, const Token& token) {
  State& state = Get();
  const Guard lock(state.mutex);
  if (state.slots.size() <= number) state.slots.resize(number + 1);
  state.slots[number].token = token;
  ++state.slots[number].generation;
}

void Plug(const Token& token) {
  unsigned number = 0;
  {
    State& state = Get();
    const Guard lock(state.mutex);
    while (number < state.slots.size() && state.slots[number].token.has_value()) ++number;
  }
  PlugInto(number, token);
}

Token Unplug(const std::string& label) {
  State& state = Get();
  const Guard lock(state.mutex);
  return Take(state, label);
}

Token Inspect(const std::string& label) {
  State& state = Get();
  const Guard lock(state.mutex);
  const Slot* const slot = SlotOf(state, label);
  return slot == nullptr ? Token() : *slot->token;
}

void Change(const std::string& label, void (*change)(Token&)) {
  State& state = Get();
  const Guard lock(state.mutex);
  Slot* const slot = SlotOf(state, label);
  if (slot != nullptr) change(*slot->token);
}

void Add(const Fault& fault) {
  State& state = Get();
  const Guard lock(state.mutex);
  state.faults.push_back(fault);
}

unsigned Calls(const std::string& function) {
  State& state = Get();
  const Guard lock(state.mutex);
  return state.calls[function];
}

unsigned AllCalls() {
  State& state = Get();
  const Guard lock(state.mutex);
  unsigned all = 0;
  for (const auto& entry : state.calls) all += entry.second;
  return all;
}

unsigned OpenSessions() {
  State& state = Get();
  const Guard lock(state.mutex);
  return static_cast<unsigned>(state.sessions.size());
}

unsigned MostAtOnce() {
  State& state = Get();
  const Guard lock(state.mutex);
  return state.mostInside;
}

void Behave(const Ways& ways) {
  State& state = Get();
  const Guard lock(state.mutex);
  state.ways = ways;
}

std::vector<Object> Pair(const Bytes& der, const std::shared_ptr<EVP_PKEY>& key, const Bytes& id) {
  Object certificate;
  certificate.der = der;
  certificate.id = id;
  Object publicKey;
  publicKey.kind = CKO_PUBLIC_KEY;
  publicKey.key = key;
  publicKey.id = id;
  Object privateKey = publicKey;
  privateKey.kind = CKO_PRIVATE_KEY;
  privateKey.isPrivate = true;
  return {certificate, publicKey, privateKey};
}

Token TokenWith(const std::vector<Object>& objects, const std::string& label,
                const std::string& serial) {
  Token token;
  token.label = label;
  token.serial = serial;
  token.objects = objects;
  return token;
}

}  // namespace fakep11
