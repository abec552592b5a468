#include "VelFile.h"

#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <locale.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <type_traits>
#include <vector>

#include "FileService.h"
#include "LogHost.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using Bytes = FileService::Bytes;
using Fault = FileService::Fault;

const char kFile[] = "/tmp/file.bin";
const wchar_t kWideFile[] = L"/tmp/file.bin";

BOOL WriteText(CVelFile& file, std::string text, DWORD& length) {
  length = text.size();
  return file.Write(reinterpret_cast<PBYTE>(text.data()), length);
}

std::string ReadText(CVelFile& file, DWORD wanted) {
  std::string text(wanted, '?');
  DWORD length = wanted;
  EXPECT_TRUE(file.Read(reinterpret_cast<PBYTE>(text.data()), length));
  text.resize(length);
  return text;
}

class LocalFile : public testing::Test {
 protected:
  void SetUp() override {
    setlocale(LC_ALL, "C.UTF-8");
    remove(kFile);
  }
  void TearDown() override {
    remove(kFile);
    rmdir(kFile);
  }
  CVelFile m_file;
};

TEST_F(LocalFile, StartsClosedAndLocal) {
  EXPECT_EQ(m_file.m_hFile, nullptr);
  EXPECT_STREQ(m_file.m_strFileName, L"");
  EXPECT_EQ(m_file.m_dwFileID, 0u);
  EXPECT_EQ(m_file.m_bEnable, 0);
  EXPECT_EQ(m_file.GetFileID(), 0u);
  static_assert(std::is_same_v<decltype(m_file.m_strFileName), CString>);
  static_assert(std::is_same_v<decltype(m_file.m_pipcClient), CPipeIPC>);
  const std::vector<const void*> fields = {&m_file.m_hFile, &m_file.m_strFileName,
                                           &m_file.m_dwFileID, &m_file.m_pipcClient,
                                           &m_file.m_bEnable};
  EXPECT_TRUE(std::is_sorted(fields.begin(), fields.end()));
  EXPECT_EQ(fields[0], &m_file);
}

TEST_F(LocalFile, NoPathIs87) {
  EXPECT_EQ(m_file.OpenFile(nullptr, 1, 1, 1, 1), 87u);
  EXPECT_EQ(m_file.OpenFile(L"", 1, 1, 1, 1), 87u);
  EXPECT_EQ(m_file.m_hFile, nullptr);
}

TEST_F(LocalFile, MissingFileForReadingIs2AndLeavesTheHandleNull) {
  for (const int always : {0, 1}) {
    EXPECT_EQ(m_file.OpenFile(kWideFile, 0, always, always, 1), 2u);
    EXPECT_EQ(m_file.m_hFile, nullptr);
    EXPECT_STREQ(m_file.m_strFileName, L"");
    EXPECT_FALSE(Exists(kFile));
  }
}

TEST_F(LocalFile, FolderIs4) {
  mkdir(kFile, 0700);
  for (const int write : {0, 1}) {
    EXPECT_EQ(m_file.OpenFile(kWideFile, write, 1, 0, 1), 4u);
    EXPECT_EQ(m_file.m_hFile, nullptr);
  }
}

TEST_F(LocalFile, FailureOfThePlatformIsItsError) {
  EXPECT_EQ(m_file.OpenFile(L"/tmp/missing/file", 1, 1, 0, 1), 3u);
  EXPECT_EQ(m_file.GetFileID(), 0u);
  EXPECT_STREQ(m_file.m_strFileName, L"");
  ASSERT_EQ(symlink("/tmp/elsewhere", kFile), 0);
  EXPECT_EQ(m_file.OpenFile(kWideFile, 1, 1, 0, 1), 5u);
  EXPECT_EQ(m_file.CloseFile(), 0u);
  EXPECT_EQ(m_file.m_hFile, nullptr);
}

TEST_F(LocalFile, MarkIsWrittenToNewFilesOnly) {
  const struct {
    bool exists;
    int openAlways, createAlways, bom;
    const char* content;
  } cases[] = {{false, 1, 0, 1, "\xFF\xFE"},
               {false, 1, 0, 0, ""},
               {false, 0, 1, 1, "\xFF\xFE"},
               {false, 1, 1, 1, "\xFF\xFE"},
               {false, 0, 0, 1, ""},
               {true, 1, 0, 1, "old"},
               {true, 0, 0, 1, "old"},
               {true, 0, 1, 1,
                "\xFF\xFE"
                "d"},
               {true, 1, 1, 1,
                "\xFF\xFE"
                "d"},
               {true, 0, 1, 0, "old"}};
  for (const auto& c : cases) {
    remove(kFile);
    if (c.exists) Spill(kFile, "old");
    EXPECT_EQ(m_file.OpenFile(kWideFile, 1, c.openAlways, c.createAlways, c.bom), 0u);
    EXPECT_EQ(m_file.CloseFile(), 0u);
    EXPECT_EQ(Slurp(kFile), c.content) << c.exists << c.openAlways << c.createAlways << c.bom;
  }
}

TEST_F(LocalFile, OpeningAgainWritesNothing) {
  ASSERT_EQ(m_file.OpenFile(kWideFile, 1, 1, 0, 1), 0u);
  m_file.CloseFile();
  ASSERT_EQ(m_file.OpenFile(kWideFile, 1, 1, 0, 1), 0u);
  m_file.CloseFile();
  EXPECT_EQ(Slurp(kFile), "\xFF\xFE");
}

TEST_F(LocalFile, WithoutWritingItIsWritableAllTheSame) {
  Spill(kFile, "abc");
  ASSERT_EQ(m_file.OpenFile(kWideFile, 0, 0, 0, 0), 0u);
  DWORD length = 0;
  EXPECT_TRUE(WriteText(m_file, "X", length));
  EXPECT_EQ(Slurp(kFile), "Xbc");
}

TEST_F(LocalFile, KeepsItsNameWhileOpen) {
  ASSERT_EQ(m_file.OpenFile(kWideFile, 1, 1, 0, 0), 0u);
  EXPECT_STREQ(m_file.m_strFileName, kWideFile);
  EXPECT_EQ(m_file.GetFileID(), reinterpret_cast<DWORD>(m_file.m_hFile));
  EXPECT_NE(m_file.GetFileID(), 0u);
  EXPECT_EQ(m_file.CloseFile(), 0u);
  EXPECT_STREQ(m_file.m_strFileName, L"");
  EXPECT_EQ(m_file.GetFileID(), 0u);
}

TEST_F(LocalFile, ClosingAClosedFileIsSuccess) {
  EXPECT_EQ(m_file.CloseFile(), 0u);
  EXPECT_EQ(m_file.CloseFile(), 0u);
}

TEST_F(LocalFile, InvalidHandleHasNoId) {
  m_file.m_hFile = INVALID_HANDLE_VALUE;
  EXPECT_EQ(m_file.GetFileID(), 0u);
  EXPECT_EQ(m_file.SeekTo(0), 2u);
}

TEST_F(LocalFile, OpeningAnOpenFileClosesItFirst) {
  ASSERT_EQ(m_file.OpenFile(kWideFile, 1, 1, 0, 0), 0u);
  const HANDLE first = m_file.m_hFile;
  ASSERT_EQ(m_file.OpenFile(m_file.m_strFileName, 1, 1, 0, 0), 0u);
  EXPECT_STREQ(m_file.m_strFileName, kWideFile);
  EXPECT_EQ(m_file.m_hFile, first);  // its descriptor was free again
  EXPECT_EQ(m_file.OpenFile(L"/tmp", 1, 1, 0, 0), 4u);
  EXPECT_EQ(m_file.m_hFile, nullptr);
  LARGE_INTEGER size;
  EXPECT_FALSE(GetFileSizeEx(first, &size));
}

TEST_F(LocalFile, DestructionCloses) {
  HANDLE handle;
  {
    CVelFile file;
    file.OpenFile(kWideFile, 1, 1, 0, 0);
    handle = file.m_hFile;
  }
  LARGE_INTEGER size;
  EXPECT_FALSE(GetFileSizeEx(handle, &size));
}

TEST_F(LocalFile, NameIsWide) {
  ASSERT_EQ(m_file.OpenFile(L"/tmp/\u4e2d\u6587", 1, 1, 0, 0), 0u);
  EXPECT_TRUE(Exists("/tmp/\xe4\xb8\xad\xe6\x96\x87"));
  remove("/tmp/\xe4\xb8\xad\xe6\x96\x87");
}

TEST_F(LocalFile, WithoutAHandleSeekingIs2AndTheRestFails) {
  ULONGLONG size = 7;
  BYTE byte = 0;
  DWORD length = 1;
  EXPECT_EQ(m_file.SeekTo(0), 2u);
  EXPECT_EQ(m_file.SeekToBegin(), 2u);
  EXPECT_EQ(m_file.SeekToEnd(), 6u);
  EXPECT_EQ(m_file.GetFileSize(size), 0);
  EXPECT_EQ(m_file.Read(&byte, length), 0);
  length = 1;
  EXPECT_EQ(m_file.Write(&byte, length), 0);
  EXPECT_EQ(length, 0u);
  EXPECT_EQ(m_file.Flush(), 6u);
  EXPECT_EQ(m_file.SetEndOfFile(), 6u);
}

TEST_F(LocalFile, SeekToEndOfTenBytesIs10) {
  Spill(kFile, "0123456789");
  ASSERT_EQ(m_file.OpenFile(kWideFile, 1, 1, 0, 0), 0u);
  EXPECT_EQ(m_file.SeekToEnd(), 0u);
  DWORD length = 0;
  EXPECT_TRUE(WriteText(m_file, "X", length));
  EXPECT_EQ(Slurp(kFile), "0123456789X");
  EXPECT_EQ(m_file.SeekToBegin(), 0u);
  EXPECT_EQ(ReadText(m_file, 3), "012");
  EXPECT_EQ(m_file.SeekTo(9), 0u);
  EXPECT_EQ(ReadText(m_file, 100), "9X");
  EXPECT_EQ(ReadText(m_file, 100), "");
}

TEST_F(LocalFile, SizeFollowsWritingAndCutting) {
  ASSERT_EQ(m_file.OpenFile(kWideFile, 1, 1, 0, 0), 0u);
  ULONGLONG size = 99;
  DWORD length = 0;
  EXPECT_TRUE(m_file.GetFileSize(size));
  EXPECT_EQ(size, 0u);
  EXPECT_TRUE(WriteText(m_file, "0123456789", length));
  EXPECT_EQ(length, 10u);
  EXPECT_EQ(m_file.Flush(), 0u);
  EXPECT_EQ(m_file.SeekTo(4), 0u);
  EXPECT_EQ(m_file.SetEndOfFile(), 0u);
  EXPECT_TRUE(m_file.GetFileSize(size));
  EXPECT_EQ(size, 4u);
  EXPECT_EQ(Slurp(kFile), "0123");
}

TEST_F(LocalFile, SeekBeforeTheBeginningFails) {
  ASSERT_EQ(m_file.OpenFile(kWideFile, 1, 1, 0, 0), 0u);
  EXPECT_EQ(m_file.SeekTo(~0ULL), 131u);
}

TEST_F(LocalFile, ServiceDoesNotTakeOverWhileTheRouteIsOff) {
  FileService service("/tmp/service");
  ASSERT_EQ(m_file.OpenFile(kWideFile, 1, 1, 0, 0), 0u);
  EXPECT_EQ(m_file.m_dwFileID, 0u);
  EXPECT_THAT(service.Requests(), IsEmpty());
  EXPECT_TRUE(m_file.ServerIsExists());
}

TEST_F(LocalFile, OpeningLetsAServiceGoThatIsGone) {
  m_file.m_dwFileID = 7;
  EXPECT_EQ(m_file.OpenFile(kWideFile, 1, 1, 0, 0), 0u);
  EXPECT_EQ(m_file.m_dwFileID, 0u);
  DWORD length = 0;
  EXPECT_EQ(WriteText(m_file, "abc", length), 1);
  EXPECT_EQ(Slurp(kFile), "abc");
}

TEST_F(LocalFile, TakesOverWhileTheServiceIsAway) {
  m_file.m_bEnable = 1;
  EXPECT_FALSE(m_file.ServerIsExists());
  EXPECT_EQ(m_file.OpenFile(kWideFile, 1, 1, 0, 1), 0u);
  EXPECT_NE(m_file.m_hFile, nullptr);
  EXPECT_EQ(Slurp(kFile), "\xFF\xFE");
}

// --- the service route ---

class ServiceFile : public testing::Test {
 protected:
  void SetUp() override {
    remove("/tmp/service/file.bin");
    m_file.m_bEnable = 1;
  }
  void Open() { ASSERT_EQ(m_file.OpenFile(L"/far/file.bin", 1, 1, 0, 0), 0u); }
  Bytes LastBody() { return m_service.Requests().back().body; }
  std::string Content() { return Slurp("/tmp/service/file.bin"); }

  // The service answers with these bytes whatever is asked.
  void Answer(const Bytes& bytes) {
    m_service.AnswerWith([bytes](const FileService::Request&) { return bytes; });
  }
  void AnswerProperly() { m_service.AnswerWith(nullptr); }

  FileService m_service{"/tmp/service"};
  CVelFile m_file;
};

// A request body by hand: the header of a command and its fields.
Bytes Command(uint64_t command, const Bytes& fields) {
  Bytes body = Numbers({command, 0, fields.size()});
  body.insert(body.end(), fields.begin(), fields.end());
  return body;
}

Bytes Flag(uint32_t value) {
  Bytes bytes;
  Put(bytes, value, 4);
  return bytes;
}

Bytes Join(const std::vector<Bytes>& pieces) {
  Bytes joined;
  for (const Bytes& piece : pieces) joined.insert(joined.end(), piece.begin(), piece.end());
  return joined;
}

TEST_F(ServiceFile, LivesThroughAllOperations) {
  EXPECT_EQ(m_file.OpenFile(L"/far/file.bin", 1, 1, 0, 1), 0u);
  EXPECT_GT(m_file.m_dwFileID, 0xFFFFFFFFu);
  EXPECT_EQ(m_file.m_hFile, nullptr);
  EXPECT_EQ(m_file.GetFileID(), 0u);  // the local handle's number, for a service file too
  EXPECT_STREQ(m_file.m_strFileName, L"/far/file.bin");
  EXPECT_EQ(Content(), "\xFF\xFE");
  DWORD length = 0;
  EXPECT_EQ(WriteText(m_file, "0123456789", length), 1);
  EXPECT_EQ(length, 10u);
  EXPECT_EQ(m_file.Flush(), 0u);
  ULONGLONG size = 5;
  EXPECT_EQ(m_file.GetFileSize(size), 1);
  EXPECT_EQ(size, 12u);
  EXPECT_EQ(m_file.SeekToBegin(), 0u);
  EXPECT_EQ(ReadText(m_file, 4),
            "\xFF\xFE"
            "01");
  EXPECT_EQ(m_file.SeekTo(6), 0u);
  EXPECT_EQ(m_file.SetEndOfFile(), 0u);
  EXPECT_EQ(m_file.SeekToEnd(), 0u);
  EXPECT_EQ(WriteText(m_file, "end", length), 1);
  EXPECT_EQ(m_file.CloseFile(), 0u);
  EXPECT_EQ(m_file.m_dwFileID, 0u);
  EXPECT_EQ(Content(),
            "\xFF\xFE"
            "0123end");
}

TEST_F(ServiceFile, OpenSendsPathAndFlags) {
  Answer(Numbers({0, 77}));
  EXPECT_EQ(m_file.OpenFile(L"a\u4e2d", 2, 3, 4, 5), 0u);
  EXPECT_EQ(m_file.m_dwFileID, 77u);
  const Bytes path = Join({Numbers({2}), Flag('a'), Flag(0x4e2d)});
  EXPECT_EQ(LastBody(), Command(1, Join({path, Flag(2), Flag(3), Flag(4), Flag(5)})));
  m_file.m_dwFileID = 0;
}

TEST_F(ServiceFile, OperationsSendTheirFields) {
  Open();
  const uint64_t id = m_file.m_dwFileID;
  Answer(Numbers({0, 0}));
  ULONGLONG size = 0x1234567890;
  BYTE bytes[] = {'a', 'b', 'c'};
  DWORD length = 3;
  const struct {
    std::function<void()> call;
    Bytes body;
  } cases[] = {{[&] { m_file.SeekTo(1ULL << 40); }, Command(4, Numbers({id, 1ULL << 40}))},
               {[&] { m_file.SeekToBegin(); }, Command(5, Numbers({id}))},
               {[&] { m_file.SeekToEnd(); }, Command(6, Numbers({id}))},
               {[&] { m_file.GetFileSize(size); }, Command(7, Numbers({id, 0x1234567890}))},
               {[&] { m_file.Read(bytes, length = 3); }, Command(9, Numbers({id, 3}))},
               {[&] { m_file.Write(bytes, length = 3); },
                Command(10, Join({Numbers({id, 3}), Bytes{'a', 'b', 'c'}}))},
               {[&] { m_file.Flush(); }, Command(11, Numbers({id}))},
               {[&] { m_file.SetEndOfFile(); }, Command(12, Numbers({id}))},
               {[&] { m_file.CloseFile(); }, Command(8, Numbers({id}))}};
  for (const auto& c : cases) {
    c.call();
    EXPECT_EQ(LastBody(), c.body);
  }
}

TEST_F(ServiceFile, NameIsStoredWhateverTheResult) {
  EXPECT_EQ(m_file.OpenFile(L"/far/missing", 0, 0, 0, 0), 2u);
  EXPECT_EQ(m_file.m_dwFileID, 0u);
  EXPECT_STREQ(m_file.m_strFileName, L"/far/missing");
  m_service.Misbehave(Fault::kCloseAtRequest);
  EXPECT_EQ(m_file.OpenFile(L"/far/other", 1, 1, 0, 0), 0xE0010005u);
  EXPECT_STREQ(m_file.m_strFileName, L"/far/other");
  EXPECT_EQ(m_file.m_hFile, nullptr);
}

TEST_F(ServiceFile, ResultOfTheServiceIsReturned) {
  Open();
  Answer(Numbers({1234}));
  EXPECT_EQ(m_file.SeekTo(1), 1234u);
  EXPECT_EQ(m_file.SeekToBegin(), 1234u);
  EXPECT_EQ(m_file.SeekToEnd(), 1234u);
  EXPECT_EQ(m_file.Flush(), 1234u);
  EXPECT_EQ(m_file.SetEndOfFile(), 1234u);
  EXPECT_EQ(m_file.CloseFile(), 1234u);
  EXPECT_EQ(m_file.m_dwFileID, 0u);  // closed all the same
}

TEST_F(ServiceFile, ShortAnswersReadAsZero) {
  Open();
  const DWORD id = m_file.m_dwFileID;
  for (const size_t bytes : {1, 3, 7}) {
    Answer(Bytes(bytes, 0xFF));
    EXPECT_EQ(m_file.SeekTo(1), 0u);
    EXPECT_EQ(m_file.Flush(), 0u);
    ULONGLONG size = 9;
    EXPECT_EQ(m_file.GetFileSize(size), bytes < 4 ? 0 : -1);
    EXPECT_EQ(size, 0u);
    BYTE buffer[] = {'k'};
    DWORD length = 1;
    EXPECT_EQ(m_file.Read(buffer, length), bytes < 4 ? 0 : -1);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(buffer[0], 'k');
    length = 1;
    EXPECT_EQ(m_file.Write(buffer, length), bytes < 4 ? 0 : -1);
    EXPECT_EQ(length, 0u);
  }
  EXPECT_EQ(m_file.m_dwFileID, id);
  Answer(Numbers({0}));  // success, but no id
  m_file.m_dwFileID = 0;
  EXPECT_EQ(m_file.OpenFile(L"x", 1, 1, 0, 0), 0u);
  EXPECT_EQ(m_file.m_dwFileID, 0u);
}

TEST_F(ServiceFile, LongerAnswerThanWantedLeavesTheBufferAndTellsItsLength) {
  Open();
  Answer(Join({Flag(1), Numbers({5}), Bytes{'a', 'b', 'c', 'd', 'e'}}));
  BYTE buffer[8] = {'k', 'k', 'k', 'k', 'k', 'k', 'k', 0};
  DWORD length = 4;
  EXPECT_EQ(m_file.Read(buffer, length), 1);
  EXPECT_EQ(length, 5u);
  EXPECT_STREQ(reinterpret_cast<char*>(buffer), "kkkkkkk");
  length = 5;
  EXPECT_EQ(m_file.Read(buffer, length), 1);
  EXPECT_STREQ(reinterpret_cast<char*>(buffer), "abcdekk");
}

TEST_F(ServiceFile, AnswerThatPromisesMoreThanItHoldsLeavesTheBuffer) {
  Open();
  for (const uint64_t promised : {6ULL, 8ULL, ~0ULL}) {
    Answer(Join({Flag(1), Numbers({promised}), Bytes{'a', 'b', 'c', 'd', 'e'}}));
    BYTE buffer[8] = {'k', 'k', 'k', 'k', 'k', 'k', 'k', 0};
    DWORD length = 8;
    EXPECT_EQ(m_file.Read(buffer, length), 1);
    EXPECT_EQ(length, promised);
    EXPECT_STREQ(reinterpret_cast<char*>(buffer), "kkkkkkk");
  }
}

TEST_F(ServiceFile, ChannelErrorsComeOutAsTheyAre) {
  Open();
  const struct {
    Fault fault;
    DWORD code;
  } cases[] = {{Fault::kRefuseRegistration, 0xE0010004}, {Fault::kCloseAtRequest, 0xE0010005}};
  for (const auto& c : cases) {
    m_service.Misbehave(c.fault);
    EXPECT_EQ(m_file.SeekTo(1), c.code);
    EXPECT_EQ(m_file.SeekToBegin(), c.code);
    EXPECT_EQ(m_file.SeekToEnd(), c.code);
    EXPECT_EQ(m_file.Flush(), c.code);
    EXPECT_EQ(m_file.SetEndOfFile(), c.code);
    EXPECT_EQ(m_file.CloseFile(), c.code);
    EXPECT_NE(m_file.m_dwFileID, 0u);  // still open at the service
    // The operations that give a BOOL give the code as well, so a failing channel reads as TRUE.
    ULONGLONG size = 5;
    BYTE buffer[] = {'k'};
    DWORD length = 1;
    EXPECT_EQ(static_cast<unsigned>(m_file.GetFileSize(size)), c.code);
    EXPECT_EQ(size, 5u);
    EXPECT_EQ(static_cast<unsigned>(m_file.Read(buffer, length)), c.code);
    EXPECT_EQ(static_cast<unsigned>(m_file.Write(buffer, length)), c.code);
    EXPECT_EQ(length, 1u);
  }
  m_service.Misbehave(Fault::kNone);
  EXPECT_EQ(m_file.CloseFile(), 0u);
}

TEST_F(ServiceFile, StaysWithTheServiceWhenTheRouteIsSwitchedOff) {
  Open();
  m_file.m_bEnable = 0;
  DWORD length = 0;
  EXPECT_EQ(WriteText(m_file, "abc", length), 1);
  EXPECT_EQ(Content(), "abc");
  EXPECT_EQ(m_file.CloseFile(), 0u);
}

TEST_F(ServiceFile, OpeningAnOpenFileClosesItAtTheService) {
  Open();
  const uint64_t first = m_file.m_dwFileID;
  Open();
  EXPECT_NE(m_file.m_dwFileID, first);
  const auto requests = m_service.Requests();
  ASSERT_EQ(requests.size(), 3u);
  EXPECT_EQ(requests[1].body, Command(8, Numbers({first})));
}

TEST_F(ServiceFile, DestructionClosesAtTheService) {
  {
    CVelFile file;
    file.m_bEnable = 1;
    ASSERT_EQ(file.OpenFile(L"/far/file.bin", 1, 1, 0, 0), 0u);
  }
  EXPECT_EQ(NumberAt(LastBody(), 0, 8), 8u);
}

TEST_F(ServiceFile, LargeContentsPass) {
  Open();
  std::string content(3000000, 'x');
  for (size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * 7 >> 2);
  DWORD length = 0;
  EXPECT_EQ(WriteText(m_file, content, length), 1);
  EXPECT_EQ(length, content.size());
  EXPECT_EQ(m_file.SeekToBegin(), 0u);
  EXPECT_TRUE(ReadText(m_file, content.size()) == content);
}

}  // namespace
