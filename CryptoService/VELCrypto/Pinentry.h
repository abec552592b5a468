#pragma once
// A conversation with pinentry, the desktop's own PIN program, which asks in a window or on the
// terminal of the process. The PIN goes from the pipe into locked memory. The program is asked for
// nothing that could keep it: no key information, no cache. One thread at a time; the program ends
// with the object, and a terminal that it left without echo is put right.
//
// Failures, with the program's own error number where it gave one:
//   kCancelled    the user closed the dialog, chose to cancel, or interrupted it on the terminal
//   kTimeout      nobody answered the dialog, or the program says nothing
//   kNotLoggedIn  there is no such program, or no display and no terminal that it could use
//   kFailed       the program ended, or talked nonsense, in the middle
#include "AssuanClient.h"
#include "UserTerminal.h"

namespace velcrypto {

// UTF-8; long ones are cut.
struct PinTexts {
  std::string title, description, prompt, ok, cancel;
  std::string error;  // why it is asked again; empty the first time
};

class Pinentry {
 public:
  struct Patience {
    std::chrono::milliseconds reply = std::chrono::seconds(30);    // for all answers but the PIN
    std::chrono::milliseconds dialog = std::chrono::seconds(120);  // for the user
  };

  explicit Pinentry(const Patience& patience);
  ~Pinentry();
  Pinentry(const Pinentry&) = delete;
  Pinentry& operator=(const Pinentry&) = delete;

  // Starts `program`, a path or a name in PATH, and tells it terminal and locale. Once.
  Outcome Start(const std::string& program);

  // Shows the dialog; after a wrong PIN once more, with texts that say so. The PIN may be empty.
  Outcome Ask(const PinTexts& texts, Secret* pin);

  // Whether the last PIN came from a store of the program's and not from the user.
  bool FromStore() const { return m_client->SawStatus("PASSWORD_FROM_CACHE"); }

 private:
  Outcome Tell(const std::string& command);
  Outcome SendOptions();
  Outcome CheckFlavour();
  Outcome SendTexts(const PinTexts& texts);
  AssuanClient::Answer GetPin(Secret* pin, unsigned long* error);

  const Patience m_patience;
  const std::string m_terminal;
  const TerminalSettings m_settings;
  std::unique_ptr<AssuanClient> m_client;
};

}  // namespace velcrypto
