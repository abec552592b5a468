#pragma once
/* A file service for tests: listens on the loopback address and serves every command of the file
 * service with real files in a folder of its own, or misbehaves as it is told.
 *
 * Written from the byte tables in docs/formats alone and sharing nothing with the toolkit, so that
 * one mistake cannot be on both sides. The constructor returns when connections are taken, the
 * destructor when all of its threads have ended; the other functions may be called from any thread.
 */
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class FileService {
 public:
  typedef std::vector<unsigned char> Bytes;

  enum class Fault {
    kNone,
    kRefuseRegistration,   // answers 1 and goes on listening
    kCloseAtRegistration,  // closes without an answer
    kIgnoreRegistration,   // never answers it
    kNeverRead,            // accepts the registration and reads nothing more
    kCloseAtRequest,       // closes without a response
    kNoAnswer,
    kAnswerLate,  // after the delay
    kOldSequence,
    kFarSequence,
    kWrongObject,
    kWrongSession,
    kFlagsOf16,
    kLengthOf0,           // a header and nothing else
    kLengthOf2To40,       // announced; as many bytes come as without the fault
    kLengthOfEverything,  // 2^64 - 1
    kLengthOf3GiB,
    kOneByteAtATime,
    kDrip,        // a byte for each delay
    kHalfHeader,  // then closes
    kHalfBody,    // then closes
    kMoreData,    // behind the announced body
  };

  struct Request {
    Bytes registration;
    Bytes header;
    Bytes body;
  };

  explicit FileService(std::string folder, uint16_t port = 8766);
  ~FileService();

  void Misbehave(Fault fault, std::chrono::milliseconds delay = std::chrono::milliseconds(100));

  // Answers with this body instead of executing the command; an empty function executes again.
  void AnswerWith(std::function<Bytes(const Request&)> answer);

  // All the requests that were received whole, oldest first.
  std::vector<Request> Requests();

  // The bodies of the responses to them, faults apart.
  std::vector<Bytes> Answers();

 private:
  void Listen(uint16_t port);
  void AcceptAll();
  void Serve(int connection);
  bool Register(int connection, Request& request, Fault fault);
  bool ReadRequest(int connection, Request& request);
  void Respond(int connection, const Request& request, Fault fault);
  Bytes Execute(const Request& request);
  Bytes Open(const Bytes& fields);
  Bytes OnFile(uint64_t command, const Bytes& fields);
  void Forget(int connection);
  void Pause();

  const std::string m_folder;
  int m_listener = -1;
  std::thread m_acceptor;

  std::mutex m_lock;
  std::condition_variable m_changed;
  bool m_ending = false;
  Fault m_fault = Fault::kNone;
  std::chrono::milliseconds m_delay{100};
  std::function<Bytes(const Request&)> m_answer;
  std::vector<Request> m_requests;
  std::vector<Bytes> m_answers;
  std::vector<int> m_connections;  // each has a detached thread
  std::map<uint64_t, int> m_files;
  uint64_t m_lastId = 0x1122334400000000;  // wider than 32 bits on purpose
};

// Little-endian numbers, for the tests that look into requests or write answers.
uint64_t NumberAt(const FileService::Bytes& bytes, size_t offset, size_t size);
void Put(FileService::Bytes& bytes, uint64_t number, size_t size);
FileService::Bytes Numbers(std::initializer_list<uint64_t> eightByteNumbers);
