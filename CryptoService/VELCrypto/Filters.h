#pragma once
// The caller's filters over certificates. All items must hold; text compares ignoring case.
//
//   0 issuer DN      one of the "|"-separated alternatives equals, or is contained in, the issuer
//                    name in either order; blanks around "," and "=" do not count
//   1 serial number  equal, leading zeros not counting
//   2 subject DN     contained in it              11 certificate name: contained in the CN
//   3 e-mail         equal to the subject's or to an alternative name
//   4 base64         the same certificate
//   5 key spec       "1" may sign, "2" may encrypt, "3" both
//   6 key attribute  CertKeyStatus equals the number
//   7 library name   equals InterfaceLibName
//   8 time           "0" any, "1" outside its validity, "2" inside it now
//   9 key usage      "1" encryption bits, "2" signing bits; without the extension both
//  10 interface      the number
//  12 both uses      "1" the key both signs and encrypts, "0" any
#include <functional>
#include <utility>
#include <vector>

#include "Backend.h"
#include "VelKeyTypes.h"

namespace velcrypto {

// A certificate with the configured key family that it was listed for.
struct Listed {
  IdentityPtr identity;
  const tag_VEL_KEY_INFO_EX* family = nullptr;
};

VEL_CERT_KEY_STATUS KeyStatusOf(const Identity& identity);

class Filters {
 public:
  // Reads the items; null is no filter. kInvalidParameter for an unknown type, an empty value, or
  // anything but the numbers above where a number belongs.
  Outcome Parse(ISmartList<tag_VEL_CERT_FILTER_ITEM>* items);

  bool Accept(const Listed& listed) const;

  // The types of the items that refuse it, in their order.
  std::vector<VEL_CERT_FILTER_TYPE> Refusing(const Listed& listed) const;

 private:
  using Test = std::function<bool(const Listed&)>;
  std::vector<std::pair<VEL_CERT_FILTER_TYPE, Test>> m_tests;
};

}  // namespace velcrypto
