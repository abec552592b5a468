#include "Channel.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

int ClaimStandardOutput() {
  signal(SIGPIPE, SIG_IGN);
  const int own = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
  dup2(STDERR_FILENO, STDOUT_FILENO);
  return own;
}

Channel::Channel(int output) : m_output(output), m_input(STDIN_FILENO, QSocketNotifier::Read) {
  connect(&m_input, &QSocketNotifier::activated, this, [this] { ReadMore(); });
  connect(&m_look, &QTimer::timeout, this, [this] { LookForReader(); });
  m_look.start(1000);
}

void Channel::SayReady() {
  Say("{\"ready\":" + QByteArray::number(m_lists) + "}\n");
}

void Channel::Answer(const QStringList& ids) {
  QJsonObject answer;
  if (ids.isEmpty()) {
    answer.insert(QStringLiteral("cancelled"), true);
  } else {
    answer.insert(QStringLiteral("chosen"), QJsonArray::fromStringList(ids));
  }
  Say(QJsonDocument(answer).toJson(QJsonDocument::Compact) + '\n');
}

void Channel::ReadMore() {
  char block[65536];
  const ssize_t count = read(STDIN_FILENO, block, sizeof(block));
  if (count < 0 && (errno == EINTR || errno == EAGAIN)) return;
  if (count <= 0) {
    m_input.setEnabled(false);  // no more lists; the one that is shown can still be answered
    if (m_lists == 0) onGone();
    return;
  }
  m_text.append(block, static_cast<int>(count));
  int end = 0;
  while ((end = m_text.indexOf('\n')) >= 0) {
    Request request;
    const bool isList = ParseRequest(m_text.left(end), &request);
    m_text.remove(0, end + 1);
    if (!isList) continue;
    ++m_lists;
    onRequest(request);
  }
}

void Channel::LookForReader() {
  pollfd polled = {m_output, 0, 0};
  if (poll(&polled, 1, 0) > 0 && (polled.revents & (POLLERR | POLLNVAL)) != 0) onGone();
}

void Channel::Say(const QByteArray& line) {
  const char* at = line.constData();
  size_t left = static_cast<size_t>(line.size());
  while (left > 0) {
    const ssize_t count = write(m_output, at, left);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return;
    at += count;
    left -= static_cast<size_t>(count);
  }
}
