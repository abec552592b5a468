#pragma once
// What a listing looked at and what it left out, for the call record: programs that help people
// tell from it why a certificate is not offered.
//
//   {...,"operation":"ListFamily","device":"LIBRARY","interface":"1","certificates":"2"}
//   {...,"operation":"ListToken","device":"TOKEN","library":"LIBRARY","certificates":"2","keys":"1"}
//   {...,"operation":"HideCertificate","device":"TOKEN","subject":...,"serial":...,
//    "validFrom":...,"validUntil":...,"filters":"6,8"}
#include "Filters.h"

namespace velcrypto {

// One line for each family, for each token with certificates, and for each certificate that a
// filter refuses (with the types of all that do). Nothing while the record is off.
void NoteListing(const std::vector<tag_VEL_KEY_INFO_EX>& families,
                 const std::vector<Listed>& certificates, const Filters& filters);

}  // namespace velcrypto
