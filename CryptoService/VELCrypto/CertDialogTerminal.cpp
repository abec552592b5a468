#include "CertDialogTerminal.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>

#include "Language.h"
#include "PinPrompt.h"
#include "Text.h"

namespace velcrypto {

namespace {

using Clock = std::chrono::steady_clock;

struct Words {
  const char *heading, *issuedBy, *until, *on, *prompt, *prompts, *noSuch, *changed;
  const char *subject, *issuer, *serial, *validity;
};

const Words kEnglish = {"Choose the certificate to sign with:",
                        "issued by ",
                        "valid until ",
                        "on ",
                        "Number (?number: details; Enter: cancel): ",
                        "Numbers (?number: details; Enter: cancel): ",
                        "That is not in the list.",
                        "The certificates have changed.",
                        "Subject:   ",
                        "Issuer:    ",
                        "Serial:    ",
                        "Validity:  "};
const Words kChinese = {"请选择签名证书：",
                        "颁发者 ",
                        "有效期至 ",
                        "设备 ",
                        "序号（?序号：详细信息；回车：取消）：",
                        "序号，可选多个（?序号：详细信息；回车：取消）：",
                        "列表中没有该证书。",
                        "证书列表已更新。",
                        "主题：    ",
                        "颁发者：  ",
                        "序列号：  ",
                        "有效期：  "};

// Names come from certificates that anyone can make, and a terminal would obey what is in them.
std::string Harmless(LPCWSTR text) {
  std::wstring wide(text == nullptr ? L"" : text);
  for (wchar_t& letter : wide) {
    const bool control = letter < 0x20 || (letter >= 0x7F && letter < 0xA0);
    const bool turnsText = (letter >= 0x202A && letter <= 0x202E) ||
                           (letter >= 0x2066 && letter <= 0x2069) || letter == 0x200E ||
                           letter == 0x200F;
    if (control || turnsText) letter = L'?';
  }
  return Narrow(wide.c_str());
}

// The controlling terminal, taking whole lines while it is used.
class Tty {
 public:
  Tty() : m_file(open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    // A job in the background would be stopped for touching the terminal.
    m_usable = m_file >= 0 && tcgetpgrp(m_file) == getpgrp() && tcgetattr(m_file, &m_before) == 0;
    if (!m_usable) return;
    termios lines = m_before;
    lines.c_lflag |= ICANON | ECHO | ISIG;
    lines.c_iflag |= ICRNL;
    // The interrupt key ends the line and cancels. As a signal it would be the host's, who may
    // have a handler and go on, or end with the terminal as it is now.
    m_interrupt = static_cast<char>(m_before.c_cc[VINTR]);
    lines.c_cc[VEOL] = m_before.c_cc[VINTR];
    lines.c_cc[VINTR] = lines.c_cc[VQUIT] = _POSIX_VDISABLE;
    tcsetattr(m_file, TCSADRAIN, &lines);
  }
  ~Tty() {
    if (m_usable) tcsetattr(m_file, TCSADRAIN, &m_before);
    if (m_file >= 0) close(m_file);
  }
  Tty(const Tty&) = delete;
  Tty& operator=(const Tty&) = delete;

  bool IsUsable() const { return m_usable; }

  void Show(const std::string& text) const {
    for (size_t done = 0; done < text.size();) {
      const ssize_t count = write(m_file, text.data() + done, text.size() - done);
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) return;
      done += static_cast<size_t>(count);
    }
  }

  enum class Event { kLine, kEnd, kChanged, kTimeout };

  Event Wait(int changed, Clock::time_point deadline, std::string* line) const {
    for (;;) {
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
      pollfd polled[] = {{m_file, POLLIN, 0}, {changed, POLLIN, 0}};
      const int ready =
          poll(polled, 2, static_cast<int>(std::clamp<long long>(left.count(), 0, 1000 * 1000)));
      if (ready > 0 && polled[0].revents != 0) return ReadLine(line);
      if (ready > 0) return Event::kChanged;
      if (ready < 0 && errno != EINTR) return Event::kEnd;
      if (Clock::now() >= deadline) return Event::kTimeout;
    }
  }

 private:
  Event ReadLine(std::string* line) const {
    char block[1024];
    ssize_t count = 0;
    do {
      count = read(m_file, block, sizeof(block));
    } while (count < 0 && errno == EINTR);
    if (count <= 0) return Event::kEnd;
    line->assign(block, static_cast<size_t>(count));
    const bool isKey = m_interrupt != static_cast<char>(_POSIX_VDISABLE);
    return isKey && line->find(m_interrupt) != std::string::npos ? Event::kEnd : Event::kLine;
  }

  int m_file;
  bool m_usable = false;
  char m_interrupt = 0;
  termios m_before = {};
};

// The numbers in the line, from 1; empty when there is anything else in it.
std::vector<size_t> NumbersIn(const std::string& line) {
  std::vector<size_t> numbers;
  for (const char* at = line.c_str();;) {
    at += strspn(at, " ,\t\r\n");
    if (*at == '\0') return numbers;
    char* end = nullptr;
    const unsigned long number = *at >= '0' && *at <= '9' ? strtoul(at, &end, 10) : 0;
    if (number == 0 || (*end != '\0' && strchr(" ,\t\r\n", *end) == nullptr)) return {};
    numbers.push_back(number);
    at = end;
  }
}

class Questioner {
 public:
  Questioner(const Tty& tty, LiveOffer& live, const DialogOptions& options)
      : m_tty(tty),
        m_live(live),
        m_options(options),
        m_words(SpeaksChinese(options.language) ? kChinese : kEnglish) {}

  Answer Run() {
    const Clock::time_point deadline = Clock::now() + m_options.patience;
    ShowList();
    for (;;) {
      std::string line;
      switch (m_tty.Wait(m_live.Changed(), deadline, &line)) {
        case Tty::Event::kChanged:
          m_tty.Show(std::string("\n") + m_words.changed + "\n");
          ShowList();
          break;
        case Tty::Event::kTimeout:
          m_tty.Show("\n");
          return {{kTimeout, 0, "nobody answered on the terminal"}, {}, true};
        case Tty::Event::kEnd:
          m_tty.Show("\n");
          return Cancelled();
        case Tty::Event::kLine: {
          const bool empty = line.find_first_not_of(" \t\r\n") == std::string::npos;
          if (empty) return Cancelled();
          Answer answer;
          if (Hear(line, &answer)) return answer;
          m_tty.Show(Prompt());
        }
      }
    }
  }

 private:
  static Answer Cancelled() { return {{kCancelled, 0, "cancelled by the user"}, {}, true}; }

  const char* Prompt() const { return m_options.multiple ? m_words.prompts : m_words.prompt; }

  void ShowList() {
    m_offer = m_live.Take();
    std::string text = std::string(m_words.heading) + "\n";
    for (size_t i = 0; i < m_offer.size(); ++i) {
      const tag_VEL_CERT_INFO& record = m_offer[i].record;
      const std::string number = std::to_string(i + 1);
      const std::string device = Harmless(Wide(DeviceNameOf(record)).c_str());
      text += std::string(number.size() < 3 ? 3 - number.size() : 0, ' ') + number + "  " +
              Harmless(record.SubjectCN) + "\n     " + KeyTypeOf(record) + ", " + m_words.issuedBy +
              Harmless(record.IssuerCN) + ", " + m_words.until +
              TimeText(record.ExpiredInfo).substr(0, 10);
      if (!device.empty()) text += std::string(", ") + m_words.on + device;
      text += "\n";
    }
    m_tty.Show(text + Prompt());
  }

  void ShowDetails(const tag_VEL_CERT_INFO& record) const {
    m_tty.Show(m_words.subject + Harmless(record.SubjectDN) + "\n" + m_words.issuer +
               Harmless(record.IssuerDN) + "\n" + m_words.serial + Harmless(record.SerialNumber) +
               "\n" + m_words.validity + TimeText(record.EffectiveInfo) + " - " +
               TimeText(record.ExpiredInfo) + "\n");
  }

  // True when the line chooses.
  bool Hear(const std::string& line, Answer* answer) const {
    const size_t first = line.find_first_not_of(" \t");
    const bool details = line[first] == '?';
    std::vector<size_t> numbers = NumbersIn(details ? line.substr(first + 1) : line);
    std::sort(numbers.begin(), numbers.end());
    numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
    const bool fits = !numbers.empty() && numbers.back() <= m_offer.size() &&
                      (numbers.size() == 1 || (m_options.multiple && !details));
    if (!fits) {
      m_tty.Show(std::string(m_words.noSuch) + "\n");
      return false;
    }
    if (details) {
      ShowDetails(m_offer[numbers[0] - 1].record);
      return false;
    }
    for (const size_t number : numbers) answer->ids.push_back(m_offer[number - 1].id);
    return true;
  }

  const Tty& m_tty;
  LiveOffer& m_live;
  const DialogOptions& m_options;
  const Words& m_words;
  Offer m_offer;
};

}  // namespace

Answer AskTerminal(LiveOffer& offer, const DialogOptions& options) {
  const PinTurn turn;  // what is typed must not go to another thread's question
  const Tty tty;
  if (!tty.IsUsable()) return {{kCancelled, 0, "there is no terminal to ask on"}, {}, false};
  return Questioner(tty, offer, options).Run();
}

}  // namespace velcrypto
