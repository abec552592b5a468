#include "CertDialogProgram.h"

#include <dlfcn.h>
#include <errno.h>
#include <poll.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>

#include "ChildProgram.h"

namespace velcrypto {

namespace {

using Json = nlohmann::json;
using Deadline = ChildProgram::Deadline;

constexpr char kProgram[] = "vctk-choose-certificate";
constexpr std::chrono::seconds kStartPatience{60};
constexpr std::chrono::seconds kEndPatience{2};
constexpr size_t kMaxTalk = 1 << 20;
constexpr int kCannotBeShown = 69;  // exit code: there is no such display, or none may be used

std::string OwnFolder() {
  Dl_info info = {};
  if (dladdr(reinterpret_cast<const void*>(&FindDialogProgram), &info) == 0) return std::string();
  const std::string file = info.dli_fname;
  const size_t end = file.rfind('/');
  return end == std::string::npos ? std::string() : file.substr(0, end);
}

class Conversation {
 public:
  Conversation(LiveOffer& offer, const DialogOptions& options)
      : m_offer(offer),
        m_options(options),
        m_readyBy(ChildProgram::Clock::now() + std::min(kStartPatience, options.patience)),
        m_answerBy(ChildProgram::Clock::now() + options.patience) {}

  Answer Run(const std::string& path) {
    m_answer.outcome = m_program.Start(path, {}, {});
    m_answer.shown = false;
    if (!m_answer.outcome.ok()) return m_answer;
    Talk();
    // One that has answered, or closed its output, ends by itself.
    const bool isEnding = m_closed || m_answer.outcome.ok() || m_answer.outcome.code == kCancelled;
    const ChildProgram::Ending ending =
        m_program.Stop(isEnding ? kEndPatience : std::chrono::seconds(0));
    if (!m_answered && m_closed) m_answer.outcome = WithoutAnswer(ending);
    m_answer.shown = m_ready || m_answered;
    return m_answer;
  }

 private:
  void Talk() {
    SendOffer();
    while (!m_answered && !m_closed) {
      const Deadline deadline = m_ready ? m_answerBy : m_readyBy;
      if (!Wait(deadline)) {
        Finish({kTimeout, 0, "the certificate dialog gave no answer in time"});
      } else if (m_changed) {
        SendOffer();
      } else {
        ReadMore();
      }
    }
  }

  // False when nothing came before the deadline.
  bool Wait(Deadline deadline) {
    for (;;) {
      const auto left =
          std::chrono::ceil<std::chrono::milliseconds>(deadline - ChildProgram::Clock::now());
      pollfd polled[] = {{m_program.Output(), POLLIN, 0}, {m_offer.Changed(), POLLIN, 0}};
      const int timeout = static_cast<int>(std::clamp<long long>(left.count(), 0, 1000 * 1000));
      const int ready = poll(polled, 2, timeout);
      m_changed = ready > 0 && polled[0].revents == 0;
      if (ready > 0) return true;
      if (ready < 0 && errno != EINTR) return false;
      if (ChildProgram::Clock::now() >= deadline) return false;
    }
  }

  void SendOffer() {
    m_current.clear();
    const Offer offer = m_offer.Take();
    for (const Offered& each : offer) m_current.insert(each.id);
    m_everOffered.insert(m_current.begin(), m_current.end());
    const std::string line = LineOf(offer, m_options);
    const Deadline deadline = m_ready ? m_answerBy : m_readyBy;
    // One that has closed its input may have answered before.
    if (m_program.Write(line.data(), line.size(), deadline) == ChildProgram::Io::kTimedOut) {
      Finish({kTimeout, 0, "the certificate dialog does not read"});
    }
  }

  void ReadMore() {
    char block[4096];
    size_t count = 0;
    m_closed = m_program.Read(block, sizeof(block), &count, m_answerBy) != ChildProgram::Io::kDone;
    m_text.append(block, count);
    m_talked += count;
    if (m_talked > kMaxTalk) Finish({kFailed, 0, "the certificate dialog talks without end"});
    for (size_t end = 0; !m_answered && (end = m_text.find('\n')) != std::string::npos;) {
      Hear(m_text.substr(0, end));
      m_text.erase(0, end + 1);
    }
  }

  // Lines that are no JSON objects are the chatter of libraries.
  void Hear(const std::string& line) {
    const Json object = Json::parse(line, nullptr, false);
    if (!object.is_object()) return;
    if (object.contains("ready")) m_ready = true;
    if (object.contains("cancelled")) Finish({kCancelled, 0, "cancelled by the user"});
    if (object.contains("chosen")) HearChoice(object["chosen"]);
  }

  void HearChoice(const Json& chosen) {
    const bool isList =
        chosen.is_array() && !chosen.empty() && (m_options.multiple || chosen.size() == 1) &&
        std::all_of(chosen.begin(), chosen.end(), [](const Json& id) { return id.is_string(); });
    if (!isList) return Finish({kFailed, 0, "the certificate dialog's answer makes no sense"});
    for (const Json& id : chosen) {
      const std::string& text = id.get_ref<const std::string&>();
      if (m_everOffered.count(text) == 0) {
        return Finish({kFailed, 0, "the certificate dialog chose what was not offered"});
      }
      if (m_current.count(text) == 0) {
        return Finish({kDeviceRemoved, 0, "the chosen certificate is gone"});
      }
      m_answer.ids.push_back(text);
    }
    Finish(kOk);
  }

  void Finish(Outcome outcome) {
    m_answered = true;
    m_answer.outcome = std::move(outcome);
  }

  Outcome WithoutAnswer(const ChildProgram::Ending& ending) const {
    const std::string what = "the certificate dialog ended without an answer";
    if (!ending.known) return {kFailed, 0, what};
    const unsigned long status = static_cast<unsigned long>(ending.status);
    const std::string number = std::to_string(ending.status);
    if (ending.bySignal) return {kFailed, status, what + ", by signal " + number};
    if (!m_ready && ending.status == kCannotBeShown) {
      return {kCancelled, status, "the certificate dialog cannot be shown"};
    }
    return {kFailed, status, what + ", with exit code " + number};
  }

  LiveOffer& m_offer;
  const DialogOptions& m_options;
  const Deadline m_readyBy;
  const Deadline m_answerBy;
  ChildProgram m_program;
  std::set<std::string> m_current;
  std::set<std::string> m_everOffered;
  std::string m_text;  // heard, up to the next line end
  size_t m_talked = 0;
  bool m_changed = false;
  bool m_ready = false;
  bool m_closed = false;
  bool m_answered = false;
  Answer m_answer;
};

}  // namespace

std::string FindDialogProgram() {
  const std::string named = EnvironmentText("VEL_CERT_DIALOG");
  if (!named.empty()) return FindProgram(named, {});
  if (EnvironmentText("DISPLAY").empty() && EnvironmentText("WAYLAND_DISPLAY").empty()) return "";
  const std::string own = OwnFolder();
  return FindProgram(kProgram, {own, own + "/../bin", own + "/../libexec", VELCRYPTO_LIBEXEC});
}

Answer AskProgram(const std::string& path, LiveOffer& offer, const DialogOptions& options) {
  return Conversation(offer, options).Run(path);
}

}  // namespace velcrypto
