#pragma once
// A program that speaks the Assuan protocol on its standard input and output, one line for a
// command and its answers, as pinentry does; over libassuan. All that is said stays in locked
// memory, which is wiped with the object. The program ends with the object. One thread at a time.
#include <memory>
#include <string>

#include "ChildProgram.h"
#include "Secret.h"

struct assuan_context_s;

namespace velcrypto {

class AssuanClient {
 public:
  enum class Answer {
    kOk,
    kError,     // refused, with a number
    kTimedOut,  // nothing in time
    kClosed,    // the program has ended
    kNonsense   // it does not keep to the protocol
  };

  AssuanClient();
  // Says BYE and lets the program end when its last answer was kOk or kError, else kills it.
  ~AssuanClient();
  AssuanClient(const AssuanClient&) = delete;
  AssuanClient& operator=(const AssuanClient&) = delete;

  // Starts the program and waits for its greeting. Once.
  Outcome Start(const std::string& path);
  Answer Greet(std::chrono::milliseconds patience);

  // `command` has at most 1000 bytes and no line end. The data of the answer go to `data`, without
  // which they are dropped; the number of an error to `error`, which may be null.
  Answer Transact(const std::string& command, std::chrono::milliseconds patience,
                  Secret* data = nullptr, unsigned long* error = nullptr);

  // Whether a status line with this keyword came with the last answer.
  bool SawStatus(const std::string& keyword) const;

  // After kClosed: whether this signal has ended the program. False when the host took the answer.
  bool EndedBy(int signal);

  // Whether the program may be told more.
  bool IsOrderly() const { return m_orderly; }

 private:
  friend struct AssuanHooks;
  struct Release {
    void operator()(assuan_context_s* context) const;
  };

  Answer ReadAnswer(Secret* data, unsigned long* error);
  Answer Lost() const;
  // libassuan goes on after a failure: it says BYE.
  void Note(ChildProgram::Io io) {
    if (m_io == ChildProgram::Io::kDone) m_io = io;
  }

  ChildProgram m_program;
  std::unique_ptr<assuan_context_s, Release> m_context;
  ChildProgram::Deadline m_deadline;
  ChildProgram::Io m_io = ChildProgram::Io::kDone;  // the first failure of reading or writing
  size_t m_heard = 0;
  bool m_orderly = false;
  std::string m_status;  // keywords, a blank before and behind each
};

}  // namespace velcrypto
