#include <algorithm>
#include <nlohmann/json.hpp>

#include "CallRecord.h"
#include "Choice.h"
#include "Commands.h"
#include "Files.h"
#include "KeyListSummary.h"
#include "Libraries.h"
#include "Terminal.h"

namespace vctk {
namespace {

using Json = nlohmann::ordered_json;

struct Findings {
  std::string toolkit, compatibility, device;  // files; empty when not loaded
  std::string deviceFault;
  std::string keyListOrigin, keyListFault;
  std::vector<KeyFamily> families;
  Listing listing;
  std::vector<std::string> modules;  // that the listing loaded
  std::vector<Certificate> certificates;
  std::string type, digest;  // of the only certificate
  std::string signingFault;
  ExitCode exitCode = kDone;
};

void LookForLibraries(Findings& findings) {
  const std::vector<std::string> loaded = LoadedLibraries();
  findings.toolkit = FindLibrary(loaded, "libVELClientTK64.so");
  findings.compatibility = FindLibrary(loaded, "libVELInterface64.so");
  findings.device = FindLibrary(loaded, "libVELCrypto64.so");
}

// The toolkit has no name for SHA512 when it comes from the key list, and signs with none then.
void CheckDigest(Findings& findings) {
  if (findings.digest != "UNKNOWN") return;
  findings.signingFault =
      "the key list gives no digest that signatures can take by themselves; SHA512 is one that has "
      "to be named: vctk sign --digest SHA512";
  findings.exitCode = kFailed;
}

void Examine(Session& session, Findings& findings) {
  const std::vector<std::string> before = LoadedLibraries();
  LookForLibraries(findings);
  session.RecordCalls(true);
  try {
    findings.certificates = session.List();
    if (findings.certificates.size() == 1) {
      session.Choose(findings.certificates[0].serial);
      findings.type = session.ChosenType();
      findings.digest = session.Digest();
      CheckDigest(findings);
    }
  } catch (const Failure& failure) {
    findings.signingFault = failure.what();
    findings.exitCode = failure.Exit();
  }
  findings.listing = LastListing(session.CallRecord());
  findings.modules = Added(before, LoadedLibraries());
  if (findings.certificates.empty() && findings.exitCode == kDone) {
    findings.signingFault = "there is no certificate that can sign";
    findings.exitCode = kNoCertificate;
  }
}

Findings Look(const DoctorOptions& options) {
  Findings findings;
  findings.exitCode = kNoSession;
  const std::vector<Filter> filters = ParseFilters(options.filters);
  LookForLibraries(findings);
  findings.deviceFault = WhyDeviceLibraryFails();
  try {
    const KeyList keyList = FindKeyList(options.keyList);
    findings.keyListOrigin = keyList.origin;
    findings.families = FamiliesOf(keyList.text);
    Session session(keyList, filters);
    findings.exitCode = kDone;
    Examine(session, findings);
  } catch (const Failure& failure) {
    if (findings.deviceFault.empty()) findings.keyListFault = failure.what();
    findings.signingFault = failure.what();
    findings.exitCode = failure.Exit();
  }
  return findings;
}

std::string Joined(const std::vector<std::string>& texts) {
  std::string joined;
  for (const std::string& text : texts) joined += (joined.empty() ? "" : ", ") + text;
  return joined;
}

std::string Count(size_t number, const std::string& what) {
  return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

std::string LibrariesText(const Findings& findings) {
  const auto orMissing = [](const std::string& file) {
    return file.empty() ? std::string("not loaded") : Printable(file);
  };
  std::string text = "Libraries\n  toolkit         " + orMissing(findings.toolkit) +
                     "\n  compatibility   " + orMissing(findings.compatibility) +
                     "\n  device library  " + orMissing(findings.device) + "\n";
  if (!findings.deviceFault.empty()) text += "    " + Printable(findings.deviceFault) + "\n";
  for (const std::string& module : findings.modules) {
    text += "  loaded by it    " + Printable(module) + "\n";
  }
  return text;
}

std::string KeyListText(const Findings& findings) {
  std::string text = "Key list: " + Printable(findings.keyListOrigin) + "\n";
  if (!findings.keyListFault.empty()) text += "  " + Printable(findings.keyListFault) + "\n";
  for (const KeyFamily& family : findings.families) {
    text += "  " + Printable(family.type) + "  " +
            (family.library.empty() ? "(default)" : Printable(family.library)) + "  " +
            Printable(family.digest) + "/" + Printable(family.sm2Digest) + "\n";
  }
  return text;
}

std::string TokensText(const Listing& listing) {
  std::string text = "Tokens\n";
  for (const ListedToken& token : listing.tokens) {
    text += "  " + Printable(token.name) + ": " + Count(token.certificates, "certificate") + ", " +
            Count(token.keys, "key") + "\n";
  }
  for (const SkippedDevice& skipped : listing.skipped) {
    text += "  " + (skipped.device.empty() ? "(default)" : Printable(skipped.device)) + ": " +
            Printable(ReasonOf(skipped)) + "\n";
  }
  return text;
}

std::string SigningText(const Findings& findings) {
  std::string text = "Certificates\n";
  for (const Certificate& each : findings.certificates) {
    text += "  can sign  " + Describe(each) + "\n";
  }
  for (const HiddenCertificate& each : findings.listing.hidden) {
    text += "  hidden    " + Printable(each.serial) + "  " + Printable(each.subject) + " (" +
            Printable(Joined(each.reasons)) + ")\n";
  }
  text += "Signing\n  ";
  if (!findings.signingFault.empty()) return text + Printable(findings.signingFault) + "\n";
  if (findings.certificates.size() > 1) {
    return text + "one of the " + std::to_string(findings.certificates.size()) +
           " certificates, as the user chooses\n";
  }
  return text + "with " + Describe(findings.certificates[0]) + ", " + Printable(findings.type) +
         ", " + Printable(findings.digest) + "\n";
}

Json JsonOf(const Findings& findings) {
  Json families = Json::array();
  for (const KeyFamily& each : findings.families) {
    families.push_back({{"type", each.type},
                        {"library", each.library},
                        {"digest", each.digest},
                        {"sm2_digest", each.sm2Digest}});
  }
  Json listed = Json::array();
  for (const ListedFamily& each : findings.listing.families) {
    listed.push_back(
        {{"library", each.library}, {"interface", each.type}, {"certificates", each.certificates}});
  }
  Json tokens = Json::array();
  for (const ListedToken& each : findings.listing.tokens) {
    tokens.push_back({{"token", each.name},
                      {"library", each.library},
                      {"certificates", each.certificates},
                      {"keys", each.keys}});
  }
  Json certificates = Json::array();
  for (const Certificate& each : findings.certificates) {
    certificates.push_back({{"serial", each.serial}, {"subject", each.subject}});
  }
  return {{"libraries",
           {{"toolkit", findings.toolkit},
            {"compatibility", findings.compatibility},
            {"device", findings.device},
            {"device_fault", findings.deviceFault},
            {"loaded_by_device", findings.modules}}},
          {"key_list",
           {{"origin", findings.keyListOrigin},
            {"fault", findings.keyListFault},
            {"families", families}}},
          {"listed", listed},
          {"tokens", tokens},
          {"skipped", JsonOf(findings.listing.skipped)},
          {"certificates", certificates},
          {"hidden", JsonOf(findings.listing.hidden)},
          {"signing",
           {{"possible", findings.exitCode == kDone},
            {"fault", findings.signingFault},
            {"choice", findings.certificates.size() > 1},
            {"type", findings.type},
            {"digest", findings.digest}}}};
}

}  // namespace

ExitCode RunDoctor(const DoctorOptions& options) {
  const Findings findings = Look(options);
  if (options.json) {
    Print(JsonOf(findings).dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
  } else {
    Print(LibrariesText(findings) + KeyListText(findings) + TokensText(findings.listing) +
          SigningText(findings));
  }
  return findings.exitCode;
}

}  // namespace vctk
