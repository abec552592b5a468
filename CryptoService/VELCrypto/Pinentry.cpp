#include "Pinentry.h"

#include <errno.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <utility>

#include "Language.h"

namespace velcrypto {

namespace {

using Answer = AssuanClient::Answer;

// A line has at most 1000 bytes; pinentry does not even answer longer ones.
const size_t kMaxParameter = 900;

// The numbers behind ERR are of libgpg-error: the program's part that failed in the high half, the
// error in the low one, with bit 15 set for the system's errors.
enum : unsigned long {
  kErrorMask = 0xFFFF,
  kErrorTimeout = 62,
  kErrorNoPinEntry = 85,
  kErrorCanceled = 99,
  kErrorNotConfirmed = 114,
  kErrorLocale = 166,
  kErrorFullyCanceled = 198,
  kErrorOfSystem = 0x8000
};

std::string Escaped(const std::string& text) {
  std::string result;
  size_t whole = 0;  // the end of the last character that is complete
  for (const char c : text) {
    if ((static_cast<unsigned char>(c) & 0xC0) != 0x80) whole = result.size();
    if (c == '%') {
      result += "%25";
    } else if (c == '\n') {
      result += "%0A";
    } else if (c == '\r') {
      result += "%0D";
    } else {
      result += c;
    }
    if (result.size() > kMaxParameter) return result.substr(0, whole) + "...";
  }
  return result;
}

std::string Owner() {
  char host[256] = {};
  gethostname(host, sizeof(host) - 1);
  return std::to_string(getpid()) + "/" + std::to_string(getuid()) + " " + host;
}

Outcome Lost(Answer answer) {
  switch (answer) {
    case Answer::kTimedOut:
      return {kTimeout, 0, "the PIN program does not answer"};
    case Answer::kClosed:
      return {kFailed, 0, "the PIN program ended"};
    default:
      return {kFailed, 0, "the PIN program does not keep to its protocol"};
  }
}

Outcome Refused(unsigned long error) {
  const unsigned long code = error & kErrorMask;
  if (code == kErrorTimeout) return {kTimeout, error, "nobody answered the PIN dialog"};
  if (code == kErrorCanceled || code == kErrorNotConfirmed || code == kErrorFullyCanceled) {
    return {kCancelled, error, "the PIN dialog was cancelled"};
  }
  if (code == kErrorNoPinEntry || (code & kErrorOfSystem) != 0) {
    return {kNotLoggedIn, error, "the PIN program has neither display nor terminal"};
  }
  return {kFailed, error, "the PIN program failed"};
}

}  // namespace

Pinentry::Pinentry(const Patience& patience)
    : m_patience(patience),
      m_terminal(UserTerminal()),
      m_settings(m_terminal),
      m_client(std::make_unique<AssuanClient>()) {}

Pinentry::~Pinentry() {
  const bool orderly = m_client->IsOrderly();
  m_client.reset();
  if (!orderly) m_settings.PutBack();
}

Outcome Pinentry::Start(const std::string& program) {
  const std::string path = FindProgram(program, {});
  if (path.empty()) return {kNotLoggedIn, ENOENT, "there is no PIN program " + program};
  const Outcome started = m_client->Start(path);
  if (!started.ok()) return {kNotLoggedIn, started.native, started.remark};
  const Answer greeting = m_client->Greet(m_patience.reply);
  // A window program that finds no display ends like this.
  if (greeting == Answer::kClosed) return {kNotLoggedIn, 0, "the PIN program ended at its start"};
  if (greeting != Answer::kOk) return Lost(greeting);
  const Outcome outcome = SendOptions();
  return outcome.ok() && m_terminal.empty() ? CheckFlavour() : outcome;
}

// Without a terminal pinentry-tty would take the pipe for one, and its end for a cancelled dialog.
Outcome Pinentry::CheckFlavour() {
  Secret flavour;
  const Answer answer = m_client->Transact("GETINFO flavor", m_patience.reply, &flavour);
  if (answer != Answer::kOk && answer != Answer::kError) return Lost(answer);
  const std::string text = flavour.c_str();  // "curses", or "gtk2:curses" without a display
  const std::string last = text.substr(text.rfind(':') + 1);
  if (last != "tty" && last != "curses") return kOk;
  return {kNotLoggedIn, ENOTTY, "the PIN program needs a terminal"};
}

// Programs know different commands and options; without one that is refused the dialog still works.
Outcome Pinentry::Tell(const std::string& command) {
  const Answer answer = m_client->Transact(command, m_patience.reply);
  return answer == Answer::kOk || answer == Answer::kError ? kOk : Lost(answer);
}

Outcome Pinentry::SendOptions() {
  const auto seconds = std::chrono::ceil<std::chrono::seconds>(m_patience.dialog);
  std::vector<std::string> commands = {
      "OPTION lc-ctype=" + CharacterLocale(), "OPTION lc-messages=" + MessageLocale(),
      "OPTION owner=" + Owner(), "SETTIMEOUT " + std::to_string(seconds.count())};
  if (!m_terminal.empty()) {
    commands.push_back("OPTION ttyname=" + m_terminal);
    const std::string type = EnvironmentText("TERM");
    if (!type.empty()) commands.push_back("OPTION ttytype=" + type);
  }
  for (const std::string& command : commands) {
    const Outcome outcome = Tell(Escaped(command));
    if (!outcome.ok()) return outcome;
  }
  return kOk;
}

Outcome Pinentry::SendTexts(const PinTexts& texts) {
  const std::pair<const char*, const std::string*> commands[] = {
      {"SETTITLE ", &texts.title}, {"SETDESC ", &texts.description}, {"SETPROMPT ", &texts.prompt},
      {"SETOK ", &texts.ok},       {"SETCANCEL ", &texts.cancel},    {"SETERROR ", &texts.error}};
  for (const auto& [command, text] : commands) {
    if (text->empty()) continue;
    const Outcome outcome = Tell(command + Escaped(*text));
    if (!outcome.ok()) return outcome;
  }
  return kOk;
}

// The program closes its dialog after the user's time; one that does not has some more.
Answer Pinentry::GetPin(Secret* pin, unsigned long* error) {
  *pin = Secret();
  return m_client->Transact("GETPIN", m_patience.dialog + m_patience.reply, pin, error);
}

Outcome Pinentry::Ask(const PinTexts& texts, Secret* pin) {
  Outcome outcome = SendTexts(texts);
  unsigned long error = 0;
  Answer answer = Answer::kOk;
  if (outcome.ok()) answer = GetPin(pin, &error);
  // A locale that this system does not have, or that cannot express the names.
  if (answer == Answer::kError && (error & kErrorMask) == kErrorLocale) {
    outcome = Tell("OPTION lc-ctype=C.UTF-8");
    if (outcome.ok()) answer = GetPin(pin, &error);
  }
  if (!outcome.ok() || answer == Answer::kOk) return outcome;
  // On a terminal the interrupt key ends the program, and the host where that does nothing about
  // it.
  if (answer == Answer::kClosed && m_client->EndedBy(SIGINT)) {
    return {kCancelled, 0, "the PIN dialog was interrupted"};
  }
  return answer == Answer::kError ? Refused(error) : Lost(answer);
}

}  // namespace velcrypto
