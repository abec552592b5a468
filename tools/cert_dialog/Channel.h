#pragma once
// The talk with the program that asks: lists come in, one answer goes out.
#include <functional>
#include <QByteArray>
#include <QObject>
#include <QSocketNotifier>
#include <QStringList>
#include <QTimer>

#include "Certificate.h"

// Gives the program's real standard output a descriptor of its own and sends what libraries print
// there to standard error. Once, before anything else.
int ClaimStandardOutput();

class Channel : public QObject {
 public:
  // Reads standard input, answers to `output`. The application must exist.
  explicit Channel(int output);

  // Each list as it comes.
  std::function<void(const Request&)> onRequest;
  // Nobody hears the answer any more, or no list came at all.
  std::function<void()> onGone;

  // After each list that is shown.
  void SayReady();
  void Answer(const QStringList& ids);  // empty: cancelled

 private:
  void ReadMore();
  void LookForReader();
  void Say(const QByteArray& line);

  QByteArray m_text;  // read, up to the next line end
  int m_lists = 0;
  const int m_output;
  QSocketNotifier m_input;
  QTimer m_look;
};
