#pragma once
// What a key list says, for people to read; the toolkit reads it for itself.
#include <string>
#include <vector>

namespace vctk {

struct KeyFamily {
  std::string type;     // "CSP", "SKF", ...
  std::string library;  // decoded; empty: the family's default
  std::string digest, sm2Digest;
};

// The "lib" elements in their order. Tells little of a list that is ill-formed.
std::vector<KeyFamily> FamiliesOf(const std::string& keyList);

}  // namespace vctk
