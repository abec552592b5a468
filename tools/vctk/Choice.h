#pragma once
// Which certificate a command works with.
#include <string>
#include <vector>

#include "Session.h"

namespace vctk {

// NAME=VALUE texts as filters. A Failure for a name that is unknown or a value that is missing.
std::vector<Filter> ParseFilters(const std::vector<std::string>& texts);

// "issuer, serial, ...": the names that ParseFilters knows.
std::string FilterNames();

// The signing certificate with the serial number (case, leading zeros and ":" do not count), or
// the only one when `serial` is empty. A Failure says why there is no choice, and lists the
// certificates when there are several.
Certificate ChooseCertificate(Session& session, const std::string& serial);

// One certificate a line, for people.
std::string Describe(const Certificate& certificate);

}  // namespace vctk
