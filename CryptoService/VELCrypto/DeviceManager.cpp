#include "DeviceManager.h"

#include <algorithm>

#include "ListingNotes.h"
#include "Text.h"

namespace velcrypto {

namespace {

std::string LibraryOf(const tag_VEL_KEY_INFO_EX& key) {
  return {key.InterfaceLibName, strnlen(key.InterfaceLibName, sizeof(key.InterfaceLibName))};
}

// Serial numbers are written with and without leading zeros.
bool SameSerial(LPCWSTR left, LPCWSTR right) {
  left += wcsspn(left, L"0");
  right += wcsspn(right, L"0");
  return Folded(left) == Folded(right);
}

void Record(const char* operation, const std::string& device, const Outcome& outcome) {
  CallTimer timer(operation);
  timer.device = device;
  timer.Finish(outcome);
}

VEL_HASH_ALG OrDefault(VEL_HASH_ALG configured, VEL_HASH_ALG standard) {
  return configured == VEL_HASH_ALG_UNKNOWN ? standard : configured;
}

}  // namespace

ULONG DeviceManager::AddKeyEx(ISmartList<tag_VEL_KEY_INFO_EX>* pKeys, BOOL bClear) {
  return Recorded("AddKeyEx", [&](std::string&) { return Configure(pKeys, bClear != FALSE); });
}

Outcome DeviceManager::Configure(ISmartList<tag_VEL_KEY_INFO_EX>* keys, bool clear) {
  if (keys == nullptr) return kInvalidParameter;
  if (clear) m_keys.clear();
  for (int i = 0; i < keys->GetCount(); ++i) {
    const tag_VEL_KEY_INFO_EX& key = keys->GetItem(i);
    if (std::find(m_keys.begin(), m_keys.end(), key) == m_keys.end()) m_keys.push_back(key);
  }
  return kOk;
}

ULONG DeviceManager::Initialize(IVELUsbKeyClass*) {
  return Recorded("Initialize", [&](std::string&) { return CheckFamilies(); });
}

// Families that cannot be opened now do not fail here: they may be plugged in later, and must not
// hide the others.
Outcome DeviceManager::CheckFamilies() {
  const bool anySupported =
      m_keys.empty() || std::any_of(m_keys.begin(), m_keys.end(), [](const auto& key) {
        return IsSupportedFamily(key.CryptoInterfaceType);
      });
  if (!anySupported) return {kFamilyNotSupported, 0, "none of the configured interface types"};
  m_initialized = true;
  return kOk;
}

Outcome DeviceManager::ListFamily(const tag_VEL_KEY_INFO_EX& key, Look look,
                                  std::vector<Found>* found) {
  const std::string library = LibraryOf(key);
  const OpenedBackend opened = OpenBackend(key.CryptoInterfaceType, library);
  std::vector<IdentityPtr> identities;
  std::vector<Skipped> skipped;
  Outcome outcome = opened.outcome;
  if (opened.backend != nullptr && look == Look::kKnown) {
    identities = opened.backend->Known();
  } else if (opened.backend != nullptr) {
    outcome = opened.backend->List(&identities, &skipped);
  }
  for (const Skipped& item : skipped) Record("ListCertificates", item.device, item.reason);
  if (!outcome.ok()) Record("ListCertificates", library, outcome);
  for (IdentityPtr& identity : identities) {
    Found item;
    item.listed = {std::move(identity), &key};
    item.backend = opened.backend;
    found->push_back(std::move(item));
  }
  return outcome;
}

// Fails only when no family could be looked into.
Outcome DeviceManager::ListAll(std::vector<Found>* found) {
  if (!m_initialized) return kNotInitialized;
  Outcome failure;
  bool anyListed = m_keys.empty();
  for (const tag_VEL_KEY_INFO_EX& key : m_keys) {
    const Outcome outcome = ListFamily(key, Look::kNow, found);
    if (outcome.ok()) anyListed = true;
    if (failure.ok()) failure = outcome;
  }
  return anyListed ? Outcome() : failure;
}

ULONG DeviceManager::GetCertList(ISmartList<tag_VEL_CERT_FILTER_ITEM>* pFilters,
                                 ISmartList<tag_VEL_CERT_INFO>* pCerts) {
  return Recorded("GetCertList", [&](std::string&) -> Outcome {
    if (pCerts == nullptr) return kInvalidParameter;
    if (!m_initialized) return kNotInitialized;
    Filters filters;
    const Outcome parsed = filters.Parse(pFilters);
    if (!parsed.ok()) return parsed;
    std::vector<Found> found;
    ListAll(&found);  // a family that cannot be opened holds no certificates; the record tells
    std::vector<Listed> listed;
    for (const Found& item : found) listed.push_back(item.listed);
    NoteListing(m_keys, listed, filters);
    for (const Found& item : found) {
      if (filters.Accept(item.listed)) pCerts->AddItem(RecordOf(item));
    }
    return kOk;
  });
}

tag_VEL_CERT_INFO DeviceManager::RecordOf(const Found& found) {
  const Identity& identity = found.identity();
  const tag_VEL_KEY_INFO_EX& key = *found.listed.family;
  tag_VEL_CERT_INFO record = identity.facts->record;
  record.CertKeyStatus = KeyStatusOf(identity);
  record.RSAHashALg = OrDefault(key.RSAHashALg, VEL_HASH_ALG_SHA256);
  record.SM2HashALg = OrDefault(key.SM2HashALg, VEL_HASH_ALG_SM3);
  record.CryptoInterfaceType = key.CryptoInterfaceType;
  record.InterfaceLibName = Wide(LibraryOf(key)).c_str();
  record.ApplicationName = Wide(identity.application).c_str();
  record.ContainerName = Wide(identity.container).c_str();
  record.DeviceName = Wide(identity.device).c_str();
  return record;
}

// What the family listed before is looked through first: the operation goes to its device then,
// which tells whether it is still there, and the others need not be asked.
template <typename Matches>
Outcome DeviceManager::FindIn(const tag_VEL_KEY_INFO_EX& key, Look look, Matches&& matches,
                              Found* found) {
  std::vector<Found> all;
  const Outcome outcome = ListFamily(key, look, &all);
  if (!outcome.ok()) return outcome;
  const auto at = std::find_if(all.begin(), all.end(),
                               [&](const Found& item) { return matches(item.identity()); });
  if (at == all.end()) {
    return look == Look::kKnown ? FindIn(key, Look::kNow, matches, found) : kCertificateNotFound;
  }
  *found = std::move(*at);
  return kOk;
}

Outcome DeviceManager::FindBySerial(LPCSTR serial, Found* found) {
  if (serial == nullptr) return kInvalidParameter;
  if (!m_initialized) return kNotInitialized;
  const std::wstring wanted = Wide(serial);
  const auto matches = [&](const Identity& identity) {
    return identity.hasKey && SameSerial(identity.facts->record.SerialNumber, wanted.c_str());
  };
  Outcome failure;
  bool anyListed = m_keys.empty();
  for (const tag_VEL_KEY_INFO_EX& key : m_keys) {
    const Outcome outcome = FindIn(key, Look::kKnown, matches, found);
    if (outcome.ok()) return kOk;
    if (outcome.code == kCertificateNotFound) anyListed = true;
    if (failure.ok()) failure = outcome;
  }
  if (!anyListed) return failure;
  return {kCertificateNotFound, 0, "no key with this serial number"};
}

Outcome DeviceManager::FindByRecord(const VEL_CERT_INFO& record, Look look, Found* found) {
  if (!m_initialized) return kNotInitialized;
  const auto matches = [&](const Identity& identity) {
    return identity.facts->record.VELCertUniqueID.CompareNoCase(record.VELCertUniqueID) == 0;
  };
  for (const tag_VEL_KEY_INFO_EX& key : m_keys) {
    if (key.CryptoInterfaceType != record.CryptoInterfaceType ||
        record.InterfaceLibName.CompareNoCase(Wide(LibraryOf(key)).c_str()) != 0) {
      continue;
    }
    const Outcome outcome = FindIn(key, look, matches, found);
    if (outcome.code != kCertificateNotFound) return outcome;
  }
  return {kCertificateNotFound, 0, "the certificate is not there"};
}

}  // namespace velcrypto
