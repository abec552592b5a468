#include "PinPrompt.h"

#include <errno.h>

#include "Language.h"
#include "Process.h"
#include "Text.h"

namespace velcrypto {

namespace {

const int kMaxWrongLengths = 20;
const size_t kMaxShown = 48;  // characters of a name; all of them have to fit into 900 bytes

struct Words {
  const char *title, *request, *certificate, *issuer, *serial, *key, *tries, *prompt, *ok, *cancel;
  const char *wrong, *wrongLast, *wrongBound, *wrongDoubt, *length, *minLength;
};

const Words kEnglish = {"{}: PIN required",
                        "Please enter the PIN of your key.",
                        "Certificate: ",
                        "Issuer: ",
                        "Serial number: ",
                        "Key: ",
                        "Tries left: {}",
                        "PIN:",
                        "OK",
                        "Cancel",
                        "Wrong PIN, {} tries left",
                        "Wrong PIN, 1 try left: another wrong one locks the key",
                        "Wrong PIN, at least {} tries left",
                        "Wrong PIN, another wrong one may lock the key",
                        "A PIN has {} to {} characters",
                        "A PIN has {} characters or more"};

const Words kChinese = {"{}：需要 PIN 码",
                        "请输入密钥的 PIN 码。",
                        "证书：",
                        "颁发者：",
                        "序列号：",
                        "密钥：",
                        "剩余次数：{}",
                        "PIN 码：",
                        "确定",
                        "取消",
                        "PIN 码错误，还可以尝试 {} 次",
                        "PIN 码错误，还可以尝试 1 次，再次输错密钥将被锁定",
                        "PIN 码错误，至少还可以尝试 {} 次",
                        "PIN 码错误，再次输错可能锁定密钥",
                        "PIN 码长度为 {} 到 {} 个字符",
                        "PIN 码长度至少为 {} 个字符"};

const Words& TheWords() {
  return SpeaksChinese() ? kChinese : kEnglish;
}

// The pattern with each "{}" replaced by the next value.
std::string Filled(std::string pattern, const std::vector<std::string>& values) {
  size_t at = 0;
  for (const std::string& value : values) {
    at = pattern.find("{}", at);
    pattern.replace(at, 2, value);
    at += value.size();
  }
  return pattern;
}

std::string Filled(const char* pattern, unsigned number) {
  return Filled(pattern, {std::to_string(number)});
}

// Names come from certificates that anyone can make: no terminal may obey them, and no line of
// theirs may pass for one of ours.
std::string Shown(const std::string& name) {
  std::wstring text = Wide(name);
  for (wchar_t& c : text) {
    if (c < 0x20 || (c >= 0x7F && c < 0xA0) || c == 0x2028 || c == 0x2029) c = L'?';
  }
  const size_t end = kMaxShown / 2;
  if (text.size() > kMaxShown) text.replace(end, text.size() - 2 * end, L"…");
  return Narrow(text.c_str());
}

// The device, what it calls the key, and the part of it that the key is in.
std::string KeyName(const Identity& identity) {
  std::string text = Shown(identity.device);
  for (const std::string& part : {identity.application, identity.container}) {
    if (!part.empty() && part != identity.device) text += (text.empty() ? "" : " / ") + Shown(part);
  }
  return text;
}

std::string ErrorText(const PinState& state) {
  const Words& words = TheWords();
  const bool exact = state.maxTries != 0;
  if (state.triesLeft == 1) return exact ? words.wrongLast : words.wrongDoubt;
  return Filled(exact ? words.wrong : words.wrongBound, state.triesLeft);
}

std::string LengthText(const PinState& state) {
  const std::string least = std::to_string(state.minLength == 0 ? 1 : state.minLength);
  if (state.maxLength == 0) return Filled(TheWords().minLength, {least});
  return Filled(TheWords().length, {least, std::to_string(state.maxLength)});
}

bool MayBe(const Secret& pin, const PinState& state) {
  return !pin.empty() && pin.size() >= state.minLength &&
         (state.maxLength == 0 || pin.size() <= state.maxLength);
}

}  // namespace

PinPrompt::PinPrompt(const Identity& identity, const Pinentry::Patience& patience)
    : m_patience(patience),
      m_certificate(Shown(Narrow(identity.facts->record.SubjectCN))),
      m_issuer(Shown(Narrow(identity.facts->record.IssuerCN))),
      m_serial(Narrow(identity.facts->record.SerialNumber)),
      m_key(KeyName(identity)) {}

std::string PinPrompt::Description(const PinState& state) const {
  const Words& words = TheWords();
  std::string text = std::string(words.request) + "\n";
  text += "\n" + (words.certificate + m_certificate);
  text += "\n" + (words.issuer + m_issuer);
  text += "\n" + (words.serial + m_serial);
  text += "\n" + (words.key + m_key);
  if (!m_refused && state.triesLeft < state.maxTries) {
    text += "\n" + Filled(words.tries, state.triesLeft);
  }
  return text;
}

Outcome PinPrompt::Ask(const PinState& state, Secret* pin) {
  if (m_pinentry == nullptr) {
    m_pinentry = std::make_unique<Pinentry>(m_patience);
    const std::string named = EnvironmentText("VEL_PINENTRY");
    const Outcome started = m_pinentry->Start(named.empty() ? "pinentry" : named);
    if (!started.ok()) return started;
  }
  const Words& words = TheWords();
  PinTexts texts;
  texts.title = Filled(words.title, {Shown(program_invocation_short_name)});
  texts.description = Description(state);
  texts.prompt = words.prompt;
  texts.ok = words.ok;
  texts.cancel = words.cancel;
  if (m_refused) texts.error = ErrorText(state);
  for (int i = 0; i < kMaxWrongLengths; ++i) {
    const Outcome outcome = m_pinentry->Ask(texts, pin);
    if (!outcome.ok()) return outcome;
    if (m_refused && m_pinentry->FromStore()) {
      return {kPinWrong, 0, "the PIN program has stored a wrong PIN"};
    }
    if (MayBe(*pin, state)) return kOk;
    texts.error = LengthText(state);
  }
  return {kPinLengthWrong, 0, "the PIN program gives no PIN of a possible length"};
}

PinTurn::PinTurn() {
  Process& process = Process::Current();
  std::unique_lock<std::mutex> lock(process.dialogMutex);
  process.dialogClosed.wait(lock, [&process] { return !process.dialogOpen; });
  process.dialogOpen = true;
}

PinTurn::~PinTurn() {
  Process& process = Process::Current();
  {
    const std::lock_guard<std::mutex> lock(process.dialogMutex);
    process.dialogOpen = false;
  }
  process.dialogClosed.notify_one();
}

}  // namespace velcrypto
