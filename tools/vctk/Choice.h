#pragma once
// Which certificate a command works with.
#include <string>
#include <vector>

#include "Failure.h"
#include "Session.h"

namespace vctk {

// NAME=VALUE texts as filters. A Failure for a name that is unknown or a value that is missing.
std::vector<Filter> ParseFilters(const std::vector<std::string>& texts);

// "issuer, serial, ...": the names that ParseFilters knows.
std::string FilterNames();

// The name of a filter type; its number when it has none.
std::string FilterName(unsigned type);

// The signing certificate with the serial number (case, leading zeros and ":" do not count), or
// the only one when `serial` is empty. A Failure says why there is no choice, and lists the
// certificates when there are several.
Certificate ChooseCertificate(Session& session, const std::string& serial);

// What the user chose in the dialog of the session's last signature.
Certificate CertificateOfDialog(Session& session, const KeyList& keyList,
                                const std::vector<Filter>& filters);

// There is none: the reason and what to do.
Failure NothingToSignWith();

// One certificate a line, for people.
std::string Describe(const Certificate& certificate);

}  // namespace vctk
