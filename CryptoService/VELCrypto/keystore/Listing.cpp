#include "Listing.h"

#include <dirent.h>
#include <fcntl.h>
#include <openssl/pem.h>
#include <string.h>
#include <time.h>

#include <algorithm>

#include "Pkcs12File.h"

namespace velcrypto {

namespace {

const char kCertificateSuffix[] = ".crt";

// Two changes within one tick of the file system's clock bear the same time; a file that was read
// sooner after its change than this is read again.
const double kSettledSeconds = 0.1;

void CloseFolder(DIR* folder) {
  closedir(folder);
}

bool EndsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// The names to look at in a fixed order. Hidden files are ours or the desktop's.
Outcome NamesIn(const Descriptor& folder, std::vector<std::string>* names) {
  const int copy = openat(folder.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const Owned<DIR, CloseFolder> stream(copy < 0 ? nullptr : fdopendir(copy));
  if (stream == nullptr) {
    if (copy >= 0) close(copy);
    return SystemOutcome(kFileReadFailed, "open folder");
  }
  while (const dirent* entry = readdir(stream.get())) {
    const std::string name = entry->d_name;
    if (name[0] != '.' && !EndsWith(name, kCertificateSuffix)) names->push_back(name);
  }
  std::sort(names->begin(), names->end());
  return kOk;
}

std::string CertificateNameFor(const std::string& name) {
  const size_t dot = name.rfind('.');
  return name.substr(0, dot == std::string::npos ? name.size() : dot) + kCertificateSuffix;
}

X509Ptr ReadCertificate(const std::vector<BYTE>& file) {
  X509Ptr certificate = ParseCertificate(file.data(), file.size());
  if (certificate != nullptr) return certificate;
  const BioPtr source(BIO_new_mem_buf(file.data(), static_cast<int>(file.size())));
  return X509Ptr(PEM_read_bio_X509(source.get(), nullptr, nullptr, nullptr));
}

bool IsSettled(const FileStamp& stamp) {
  timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  return difftime(now.tv_sec, stamp.changed.tv_sec) +
             static_cast<double>(now.tv_nsec - stamp.changed.tv_nsec) / 1e9 >
         kSettledSeconds;
}

Outcome MakeIdentity(const std::string& path, const std::string& name, Pkcs12Content content,
                     IdentityPtr* result) {
  auto identity = std::make_shared<Identity>();
  identity->facts = FactsOf(content.certificate.get());
  if (identity->facts == nullptr) return {kFileContentWrong, 0, "the certificate is broken"};
  if (identity->facts->record.AsymmAlg == VEL_ASYMM_ALG_UNKNOWN) {
    return {kKeyTypeWrong, 0, "the key is neither RSA nor SM2"};
  }
  identity->issuers = std::move(content.issuers);
  identity->hasKey = content.hasKey;
  identity->container = name;
  identity->device = path;
  identity->id = name;
  identity->login = name;
  *result = identity;
  return kOk;
}

}  // namespace

Listing::Entry Listing::Read(const Descriptor& folder, const std::string& name) const {
  Entry entry;
  std::vector<BYTE> file;
  Pkcs12Content content;
  entry.reason = ReadFileOf(folder, name, kMaxFileSize, &file, &entry.stamp);
  if (entry.reason.ok()) entry.reason = ReadPkcs12(file, &content);
  if (!entry.reason.ok()) return entry;
  if (content.certificate == nullptr) {
    const Outcome read =
        ReadFileOf(folder, CertificateNameFor(name), kMaxFileSize, &file, &entry.beside);
    if (read.ok()) content.certificate = ReadCertificate(file);
  }
  if (content.certificate == nullptr) {
    entry.reason = {kFileContentWrong, 0,
                    "the certificate is encrypted and there is no .crt file beside"};
    return entry;
  }
  entry.reason = MakeIdentity(m_path, name, std::move(content), &entry.identity);
  entry.settled =
      IsSettled(entry.stamp) && (entry.beside == FileStamp() || IsSettled(entry.beside));
  return entry;
}

// Entries that were left out are read again each time: what was unreadable may have become
// readable without a change of the file.
bool Listing::IsCurrent(const Descriptor& folder, const std::string& name, const struct stat& info,
                        const Entry& entry) const {
  if (!entry.settled || entry.identity == nullptr || entry.stamp != FileStamp(info)) return false;
  if (entry.beside == FileStamp()) return true;
  struct stat beside;
  return fstatat(folder.get(), CertificateNameFor(name).c_str(), &beside, AT_SYMLINK_NOFOLLOW) ==
             0 &&
         entry.beside == FileStamp(beside);
}

Outcome Listing::Refresh(std::vector<IdentityPtr>* identities, std::vector<Skipped>* skipped) {
  const Descriptor folder = OpenFolder(m_path);
  if (!folder.ok()) return SystemOutcome(kFileReadFailed, m_path);
  std::vector<std::string> names;
  const Outcome outcome = NamesIn(folder, &names);
  if (!outcome.ok()) return outcome;
  std::map<std::string, Entry> current;
  for (const std::string& name : names) {
    struct stat info;
    Entry entry;
    if (fstatat(folder.get(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
      entry.reason = SystemOutcome(kFileReadFailed, "stat");
    } else if (!S_ISREG(info.st_mode)) {
      entry.reason = {kFileReadFailed, 0, "not a regular file"};
    } else {
      const auto known = m_entries.find(name);
      entry = known != m_entries.end() && IsCurrent(folder, name, info, known->second)
                  ? std::move(known->second)
                  : Read(folder, name);
    }
    if (entry.identity != nullptr) {
      identities->push_back(entry.identity);
      current.emplace_hint(current.end(), name, std::move(entry));
    } else {
      skipped->push_back({name, entry.reason});
    }
  }
  m_entries = std::move(current);
  return kOk;
}

}  // namespace velcrypto
