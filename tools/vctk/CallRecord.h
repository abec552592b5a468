#pragma once
// What the device library's call record tells. Lines that are no JSON objects are left out: the
// form is the device library's own, and another maker's may differ.
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace vctk {

// A certificate that a filter keeps from being offered.
struct HiddenCertificate {
  std::string device, subject, serial;
  std::vector<std::string> reasons;
};

// A device, file or family that could not be looked into.
struct SkippedDevice {
  std::string device;
  unsigned code = 0;
  std::string remark;
};

struct ListedFamily {
  std::string library;
  unsigned type = 0;
  unsigned certificates = 0;
};

struct ListedToken {
  std::string name, library;
  unsigned certificates = 0, keys = 0;
};

struct Listing {
  std::vector<ListedFamily> families;
  std::vector<ListedToken> tokens;
  std::vector<HiddenCertificate> hidden;
  std::vector<SkippedDevice> skipped;
};

// As a JSON array of objects.
nlohmann::ordered_json JsonOf(const std::vector<HiddenCertificate>& hidden);
nlohmann::ordered_json JsonOf(const std::vector<SkippedDevice>& skipped);

// "0xE0000043 the folder is not there"
std::string ReasonOf(const SkippedDevice& skipped);

// Of the last listing in the record.
Listing LastListing(const std::string& record);

// The remark of the last operation of that name; empty without one.
std::string LastRemark(const std::string& record, const std::string& operation);

}  // namespace vctk
