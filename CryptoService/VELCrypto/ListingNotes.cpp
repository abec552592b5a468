#include "ListingNotes.h"

#include <algorithm>
#include <map>

#include "CertOffer.h"
#include "Process.h"
#include "Text.h"

namespace velcrypto {

namespace {

std::string LibraryOf(const tag_VEL_KEY_INFO_EX& key) {
  return {key.InterfaceLibName, strnlen(key.InterfaceLibName, sizeof(key.InterfaceLibName))};
}

void NoteFamily(const tag_VEL_KEY_INFO_EX& family, const std::vector<Listed>& certificates) {
  struct Token {
    size_t certificates = 0, keys = 0;
  };
  std::map<std::string, Token> tokens;
  size_t count = 0;
  for (const Listed& each : certificates) {
    if (each.family != &family) continue;
    ++count;
    Token& token = tokens[each.identity->device];
    ++token.certificates;
    if (each.identity->hasKey) ++token.keys;
  }
  CallRecord& calls = Process::Current().calls;
  const std::string library = LibraryOf(family);
  calls.Note("ListFamily", library,
             {{"interface", std::to_string(family.CryptoInterfaceType)},
              {"certificates", std::to_string(count)}});
  for (const auto& [name, token] : tokens) {
    calls.Note("ListToken", name,
               {{"library", library},
                {"certificates", std::to_string(token.certificates)},
                {"keys", std::to_string(token.keys)}});
  }
}

void NoteHidden(const Listed& hidden, const std::vector<VEL_CERT_FILTER_TYPE>& refusing) {
  std::string types;
  for (const VEL_CERT_FILTER_TYPE type : refusing) {
    types += (types.empty() ? "" : ",") + std::to_string(type);
  }
  const tag_VEL_CERT_INFO& record = hidden.identity->facts->record;
  Process::Current().calls.Note("HideCertificate", hidden.identity->device,
                                {{"subject", Narrow(record.SubjectDN)},
                                 {"serial", Narrow(record.SerialNumber)},
                                 {"validFrom", TimeText(record.EffectiveInfo)},
                                 {"validUntil", TimeText(record.ExpiredInfo)},
                                 {"filters", types}});
}

}  // namespace

void NoteListing(const std::vector<tag_VEL_KEY_INFO_EX>& families,
                 const std::vector<Listed>& certificates, const Filters& filters) {
  if (!Process::Current().calls.IsOn()) return;
  for (const tag_VEL_KEY_INFO_EX& family : families) NoteFamily(family, certificates);
  for (const Listed& each : certificates) {
    const std::vector<VEL_CERT_FILTER_TYPE> refusing = filters.Refusing(each);
    if (!refusing.empty()) NoteHidden(each, refusing);
  }
}

}  // namespace velcrypto
