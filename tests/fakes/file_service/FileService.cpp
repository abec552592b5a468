#include "FileService.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

namespace {

const size_t kRegistrationBytes = 5;
const size_t kHeaderBytes = 34;
const size_t kLengthOffset = 26;
const size_t kCommandBytes = 24;

bool ReadExactly(int connection, FileService::Bytes& out, size_t size) {
  out.resize(size);
  size_t filled = 0;
  while (filled < size) {
    const ssize_t count = recv(connection, out.data() + filled, size - filled, 0);
    if (count == 0 || (count < 0 && errno != EINTR)) return false;
    if (count > 0) filled += static_cast<size_t>(count);
  }
  return true;
}

// False when the peer is gone.
bool SendBytes(int connection, const FileService::Bytes& bytes, size_t begin, size_t end) {
  while (begin < end) {
    const ssize_t count = send(connection, bytes.data() + begin, end - begin, MSG_NOSIGNAL);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    begin += static_cast<size_t>(count);
  }
  return true;
}

void Append(FileService::Bytes& bytes, const FileService::Bytes& more) {
  bytes.insert(bytes.end(), more.begin(), more.end());
}

// A Win32 result: 2 for a missing file, 5 for a refused one, 87 for anything else.
uint64_t Win32Error() {
  if (errno == ENOENT) return 2;
  return errno == EACCES || errno == EISDIR ? 5 : 87;
}

}  // namespace

uint64_t NumberAt(const FileService::Bytes& bytes, size_t offset, size_t size) {
  uint64_t number = 0;
  for (size_t i = size; i-- > 0;) {
    number = number << 8 | (offset + i < bytes.size() ? bytes[offset + i] : 0);
  }
  return number;
}

void Put(FileService::Bytes& bytes, uint64_t number, size_t size) {
  for (size_t i = 0; i < size; ++i) bytes.push_back(static_cast<unsigned char>(number >> (8 * i)));
}

FileService::Bytes Numbers(std::initializer_list<uint64_t> eightByteNumbers) {
  FileService::Bytes bytes;
  for (const uint64_t number : eightByteNumbers) Put(bytes, number, 8);
  return bytes;
}

FileService::FileService(std::string folder, uint16_t port) : m_folder(std::move(folder)) {
  mkdir(m_folder.c_str(), 0700);
  Listen(port);
  m_acceptor = std::thread([this] { AcceptAll(); });
}

FileService::~FileService() {
  {
    const std::lock_guard<std::mutex> hold(m_lock);
    m_ending = true;
    for (const int connection : m_connections) shutdown(connection, SHUT_RDWR);
    m_changed.notify_all();
  }
  shutdown(m_listener, SHUT_RDWR);
  m_acceptor.join();
  std::unique_lock<std::mutex> hold(m_lock);
  m_changed.wait(hold, [this] { return m_connections.empty(); });
  close(m_listener);
  for (const auto& file : m_files) close(file.second);
}

void FileService::Listen(uint16_t port) {
  m_listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(m_listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  if (bind(m_listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
      listen(m_listener, 128) != 0) {
    throw std::runtime_error("the file service cannot listen");
  }
}

void FileService::AcceptAll() {
  for (;;) {
    const int connection = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection < 0 && (errno == EINTR || errno == ECONNABORTED)) continue;
    if (connection < 0) return;
    const std::lock_guard<std::mutex> hold(m_lock);
    if (m_ending) {
      close(connection);
      return;
    }
    m_connections.push_back(connection);
    std::thread([this, connection] {
      Serve(connection);
      Forget(connection);
    }).detach();
  }
}

void FileService::Forget(int connection) {
  const std::lock_guard<std::mutex> hold(m_lock);
  m_connections.erase(std::find(m_connections.begin(), m_connections.end(), connection));
  close(connection);
  m_changed.notify_all();
}

void FileService::Misbehave(Fault fault, std::chrono::milliseconds delay) {
  const std::lock_guard<std::mutex> hold(m_lock);
  m_fault = fault;
  m_delay = delay;
  m_changed.notify_all();
}

void FileService::AnswerWith(std::function<Bytes(const Request&)> answer) {
  const std::lock_guard<std::mutex> hold(m_lock);
  m_answer = std::move(answer);
}

std::vector<FileService::Request> FileService::Requests() {
  const std::lock_guard<std::mutex> hold(m_lock);
  return m_requests;
}

std::vector<FileService::Bytes> FileService::Answers() {
  const std::lock_guard<std::mutex> hold(m_lock);
  return m_answers;
}

void FileService::Pause() {
  std::unique_lock<std::mutex> hold(m_lock);
  m_changed.wait_for(hold, m_delay, [this] { return m_ending; });
}

void FileService::Serve(int connection) {
  Fault fault;
  {
    const std::lock_guard<std::mutex> hold(m_lock);
    fault = m_fault;
  }
  Request request;
  if (!Register(connection, request, fault)) return;
  if (fault == Fault::kNeverRead) {
    std::unique_lock<std::mutex> hold(m_lock);
    m_changed.wait(hold, [this] { return m_ending || m_fault != Fault::kNeverRead; });
    return;
  }
  if (!ReadRequest(connection, request)) return;
  {
    const std::lock_guard<std::mutex> hold(m_lock);
    m_requests.push_back(request);
  }
  if (fault == Fault::kCloseAtRequest) return;
  if (fault != Fault::kNoAnswer) Respond(connection, request, fault);
  // The client closes first, as the protocol has it.
  Bytes rest;
  if (fault != Fault::kHalfHeader && fault != Fault::kHalfBody) ReadExactly(connection, rest, 1);
}

bool FileService::Register(int connection, Request& request, Fault fault) {
  if (!ReadExactly(connection, request.registration, kRegistrationBytes)) return false;
  if (fault == Fault::kCloseAtRegistration) return false;
  Bytes rest;
  if (fault == Fault::kIgnoreRegistration) return ReadExactly(connection, rest, 1);
  const bool refuse = fault == Fault::kRefuseRegistration;
  SendBytes(connection, {static_cast<unsigned char>(refuse ? 1 : 0)}, 0, 1);
  if (refuse) ReadExactly(connection, rest, 1);
  return !refuse;
}

bool FileService::ReadRequest(int connection, Request& request) {
  return ReadExactly(connection, request.header, kHeaderBytes) &&
         ReadExactly(connection, request.body, NumberAt(request.header, kLengthOffset, 8));
}

void FileService::Respond(int connection, const Request& request, Fault fault) {
  Bytes body = Execute(request);
  {
    const std::lock_guard<std::mutex> hold(m_lock);
    m_answers.push_back(body);
  }
  uint64_t sequence = NumberAt(request.header, 10, 8) + 1;
  uint64_t flags = 0;
  uint64_t length = body.size();
  uint64_t session = NumberAt(request.header, 5, 2);
  uint64_t object = NumberAt(request.header, 7, 2);
  if (fault == Fault::kOldSequence) --sequence;
  if (fault == Fault::kFarSequence) ++sequence;
  if (fault == Fault::kWrongSession) ++session;
  if (fault == Fault::kWrongObject) ++object;
  if (fault == Fault::kFlagsOf16) flags = 16;
  if (fault == Fault::kLengthOf0) length = 0;
  if (fault == Fault::kLengthOf0) body.clear();
  if (fault == Fault::kLengthOf2To40) length = 1ULL << 40;
  if (fault == Fault::kLengthOfEverything) length = ~0ULL;
  if (fault == Fault::kLengthOf3GiB) length = 3ULL << 30;
  Bytes message;
  Put(message, session, 2);
  Put(message, object, 2);
  Put(message, 0, 1);
  message.insert(message.end(), request.header.begin(), request.header.begin() + 5);
  Put(message, sequence, 8);
  Put(message, flags, 8);
  Put(message, length, 8);
  Append(message, body);
  if (fault == Fault::kMoreData) Append(message, Bytes(10000, 0xAA));
  size_t end = message.size();
  if (fault == Fault::kHalfHeader) end = kHeaderBytes / 2;
  if (fault == Fault::kHalfBody) end = kHeaderBytes + body.size() / 2;
  if (fault == Fault::kAnswerLate) Pause();
  if (fault != Fault::kOneByteAtATime && fault != Fault::kDrip) {
    SendBytes(connection, message, 0, end);
    return;
  }
  for (size_t at = 0; at < end; ++at) {
    if (!SendBytes(connection, message, at, at + 1)) return;
    if (fault == Fault::kDrip) Pause();
  }
}

FileService::Bytes FileService::Execute(const Request& request) {
  {
    const std::lock_guard<std::mutex> hold(m_lock);
    if (m_answer) return m_answer(request);
  }
  const uint64_t command = NumberAt(request.body, 0, 8);
  const bool sound = request.body.size() >= kCommandBytes && NumberAt(request.body, 8, 8) == 0 &&
                     NumberAt(request.body, 16, 8) == request.body.size() - kCommandBytes;
  if (!sound) return Numbers({87});
  const Bytes fields(request.body.begin() + kCommandBytes, request.body.end());
  return command == 1 ? Open(fields) : OnFile(command, fields);
}

FileService::Bytes FileService::Open(const Bytes& fields) {
  const size_t length = NumberAt(fields, 0, 8);
  std::string name;
  for (size_t i = 0; i < length; ++i) name += static_cast<char>(NumberAt(fields, 8 + 4 * i, 4));
  const size_t flags = 8 + 4 * length;
  if (fields.size() != flags + 16) return Numbers({87});
  const bool write = NumberAt(fields, flags, 4) != 0;
  const bool openAlways = NumberAt(fields, flags + 4, 4) != 0;
  const bool createAlways = NumberAt(fields, flags + 8, 4) != 0;
  const bool bom = NumberAt(fields, flags + 12, 4) != 0;
  const std::string path = m_folder + "/" + name.substr(name.rfind('/') + 1);
  const bool isNew = createAlways || access(path.c_str(), F_OK) != 0;
  int mode = write ? O_RDWR : O_RDONLY;
  if (openAlways) mode |= O_CREAT;
  if (createAlways) mode |= O_CREAT | O_TRUNC;
  const int file = open(path.c_str(), mode | O_CLOEXEC, 0600);
  if (file < 0) return Numbers({Win32Error()});
  if (isNew && bom && ::write(file, "\xFF\xFE", 2) != 2) return Numbers({Win32Error()});
  const std::lock_guard<std::mutex> hold(m_lock);
  m_files[++m_lastId] = file;
  return Numbers({0, m_lastId});
}

FileService::Bytes FileService::OnFile(uint64_t command, const Bytes& fields) {
  const std::lock_guard<std::mutex> hold(m_lock);
  const auto found = m_files.find(NumberAt(fields, 0, 8));
  if (found == m_files.end()) return Numbers({6});
  const int file = found->second;
  const uint64_t argument = NumberAt(fields, 8, 8);
  const auto result = [](bool done) { return Numbers({done ? 0 : Win32Error()}); };
  Bytes answer;
  switch (command) {
    case 4:
      return result(lseek(file, static_cast<off_t>(argument), SEEK_SET) >= 0);
    case 5:
      return result(lseek(file, 0, SEEK_SET) >= 0);
    case 6:
      return result(lseek(file, 0, SEEK_END) >= 0);
    case 7: {
      struct stat info = {};
      Put(answer, fstat(file, &info) == 0, 4);
      Put(answer, static_cast<uint64_t>(info.st_size), 8);
      return answer;
    }
    case 8:
      m_files.erase(found);
      return result(close(file) == 0);
    case 9: {
      Bytes content(argument);
      const ssize_t count = read(file, content.data(), content.size());
      content.resize(count < 0 ? 0 : static_cast<size_t>(count));
      Put(answer, count >= 0, 4);
      Put(answer, content.size(), 8);
      Append(answer, content);
      return answer;
    }
    case 10: {
      if (fields.size() != 16 + argument) return Numbers({87});
      const ssize_t count = write(file, fields.data() + 16, argument);
      Put(answer, count >= 0, 4);
      Put(answer, count < 0 ? 0 : static_cast<uint64_t>(count), 8);
      return answer;
    }
    case 11:
      return result(fsync(file) == 0);
    case 12:
      return result(ftruncate(file, lseek(file, 0, SEEK_CUR)) == 0);
    default:
      return Numbers({50});
  }
}
