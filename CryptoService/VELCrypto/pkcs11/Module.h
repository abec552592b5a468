#pragma once
// A PKCS#11 module: loaded, initialised when it is first used, never unloaded and never finalised
// when the process ends, for some modules do not survive that. Any thread.
//
// A module that refuses to lock by itself gets one call at a time. One that somebody else in the
// process has initialised may have been promised anything, so it gets the same.
#include <functional>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <vector>

#include "../Outcome.h"
#include "Cryptoki.h"

namespace velcrypto {

class Module {
 public:
  // Null and a reason when there is no such module.
  static std::shared_ptr<Module> Load(const std::string& name, Outcome* outcome);

  // The path of the file that a name stands for, the same for all names of one file; the name
  // itself when it cannot be loaded. The empty name is every token that the system knows.
  static std::string Resolve(const std::string& name);

  const std::string& name() const { return m_name; }

  // Initialises once; a failure is tried again by the next call.
  Outcome Initialize();

  // The slots with a token in them.
  Outcome ListSlots(std::vector<CK_SLOT_ID>* slots);

  // What the token in the slot says of itself.
  Outcome ReadToken(CK_SLOT_ID slot, CK_TOKEN_INFO* info);

  // Finalises and initialises again: how modules that look for tokens only then are made to see
  // new ones. Nothing happens, and false comes back, while anybody else is using the module, when
  // it is not ours to finalise or when `allowed`, asked with nobody else inside, says no. All
  // handles of the module are void afterwards.
  bool Restart(const std::function<bool()>& allowed);

  // To be held while handles of the module are in use.
  std::shared_lock<std::shared_mutex> Use() { return std::shared_lock<std::shared_mutex>(m_use); }

  // Calls a function of the module; one that it lacks is CKR_FUNCTION_NOT_SUPPORTED.
  template <typename Function, typename... Args>
  CK_RV Call(Function CK_FUNCTION_LIST::*function, Args... args) {
    if (m_functions->*function == nullptr) return CKR_FUNCTION_NOT_SUPPORTED;
    const Frame frame(this);
    return (m_functions->*function)(args...);
  }

 private:
  // Around each call.
  class Frame {
   public:
    explicit Frame(Module* module);
    ~Frame();
    Frame(const Frame&) = delete;
    Frame& operator=(const Frame&) = delete;

   private:
    std::unique_lock<std::mutex> m_lock;
    void* const m_ours;
  };

  Module(std::string name, CK_FUNCTION_LIST* functions);
  CK_RV InitializeWith(CK_FLAGS flags);
  CK_RV InitializeLocking();
  CK_RV TryListSlots(std::vector<CK_SLOT_ID>* slots);

  const std::string m_name;
  CK_FUNCTION_LIST* const m_functions;
  std::shared_mutex m_use;
  std::mutex m_calls;
  bool m_locksItself = false;
  std::mutex m_state;
  bool m_initialized = false;
  bool m_ours = false;  // to finalise
};

}  // namespace velcrypto
