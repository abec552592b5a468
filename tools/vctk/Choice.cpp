#include "Choice.h"

#include <ctype.h>

#include <algorithm>
#include <iterator>

#include "Failure.h"
#include "Terminal.h"

namespace vctk {
namespace {

// The index is the filter type of VCTK_AddFilter.
const char* const kFilterNames[] = {"issuer",    "serial",     "subject",  "email",    "base64",
                                    "key-spec",  "key-status", "library",  "validity", "usage",
                                    "interface", "name",       "both-uses"};

std::string Comparable(const std::string& serial) {
  std::string result;
  for (const char c : serial) {
    if (c == ':' || c == ' ') continue;
    if (c == '0' && result.empty()) continue;
    result += static_cast<char>(toupper(static_cast<unsigned char>(c)));
  }
  return result;
}

Certificate Named(Session& session, const std::vector<Certificate>& certificates,
                  const std::string& serial) {
  const std::string wanted = Comparable(serial);
  for (const Certificate& each : certificates) {
    if (Comparable(each.serial) == wanted) return each;
  }
  if (session.Exists(serial)) {
    throw Failure(kNoCertificate, "the certificate " + Printable(serial) + " cannot sign",
                  "It is not valid now, is not meant for signing, its private key is missing, or "
                  "a filter leaves it out.");
  }
  throw Failure(kNoCertificate, "there is no certificate " + Printable(serial),
                "Plug in the key; \"vctk certs\" lists the certificates that can sign.");
}

}  // namespace

std::vector<Filter> ParseFilters(const std::vector<std::string>& texts) {
  std::vector<Filter> filters;
  for (const std::string& text : texts) {
    const size_t middle = text.find('=');
    const std::string name = text.substr(0, middle);
    const auto found = std::find(std::begin(kFilterNames), std::end(kFilterNames), name);
    if (found == std::end(kFilterNames)) {
      throw Failure(kUsage, "there is no filter " + Printable(name),
                    "The filters are " + FilterNames() + ".");
    }
    if (middle == std::string::npos || middle + 1 == text.size()) {
      throw Failure(kUsage, "the filter " + name + " has no value", "Write NAME=VALUE.");
    }
    const auto type = static_cast<unsigned long>(found - std::begin(kFilterNames));
    filters.emplace_back(type, text.substr(middle + 1));
  }
  return filters;
}

std::string FilterNames() {
  std::string names;
  for (const char* const name : kFilterNames)
    names += (names.empty() ? "" : ", ") + std::string(name);
  return names;
}

std::string FilterName(unsigned type) {
  return type < std::size(kFilterNames) ? kFilterNames[type] : std::to_string(type);
}

Certificate ChooseCertificate(Session& session, const std::string& serial) {
  const std::vector<Certificate> certificates = session.List();
  if (!serial.empty()) return Named(session, certificates, serial);
  if (certificates.empty()) throw NothingToSignWith();
  if (certificates.size() == 1) return certificates.front();
  std::string lines;
  for (const Certificate& each : certificates) lines += "\n  " + Describe(each);
  throw Failure(kNoCertificate, "there are several certificates" + lines,
                "Name one of them with --cert SERIAL.");
}

// A session tells the chosen certificate but not its serial number, so the listed ones are asked
// for theirs, each in a session of its own.
Certificate CertificateOfDialog(Session& session, const KeyList& keyList,
                                const std::vector<Filter>& filters) {
  const std::string chosen = session.ChosenCertificate();
  for (const Certificate& each : session.List()) {
    Session single(keyList, filters);
    single.Choose(each.serial);
    if (single.ChosenCertificate() == chosen) return each;
  }
  throw Failure(kNoCertificate, "the chosen certificate is gone", "Plug the key in again.");
}

Failure NothingToSignWith() {
  return Failure(kNoCertificate, "there is no certificate that can sign",
                 "Plug in the key, or loosen the filters; \"vctk certs --all\" shows what is left "
                 "out and why.");
}

std::string Describe(const Certificate& certificate) {
  return Printable(certificate.serial) + "  " + Printable(certificate.subject);
}

}  // namespace vctk
