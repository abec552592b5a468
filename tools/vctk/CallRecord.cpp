#include "CallRecord.h"

#include <stdlib.h>
#include <time.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "Choice.h"
#include "Messages.h"

namespace vctk {
namespace {

using Json = nlohmann::json;

std::vector<Json> LinesOf(const std::string& record) {
  std::vector<Json> lines;
  std::istringstream text(record);
  for (std::string line; std::getline(text, line);) {
    Json object = Json::parse(line, nullptr, false);
    if (object.is_object()) lines.push_back(std::move(object));
  }
  return lines;
}

std::string Member(const Json& line, const char* name) {
  const auto found = line.find(name);
  return found == line.end() || !found->is_string() ? std::string() : found->get<std::string>();
}

unsigned NumberOf(const Json& line, const char* name) {
  return static_cast<unsigned>(strtoul(Member(line, name).c_str(), nullptr, 0));
}

std::string Now() {
  const time_t now = time(nullptr);
  tm parts = {};
  gmtime_r(&now, &parts);
  char text[32];
  strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%SZ", &parts);
  return text;
}

// The types are those of VCTK_AddFilter; some are of the standard filters.
std::string ReasonOf(unsigned type, const Json& line) {
  switch (type) {
    case 5:
    case 9:
      return "not for signing";
    case 6:
      return "no private key";
    case 8: {
      const std::string from = Member(line, "validFrom");
      if (from > Now()) return "not valid before " + from.substr(0, 10);
      return "expired on " + Member(line, "validUntil").substr(0, 10);
    }
    default:
      return "left out by the filter " + FilterName(type);
  }
}

HiddenCertificate HiddenOf(const Json& line) {
  HiddenCertificate hidden = {
      Member(line, "device"), Member(line, "subject"), Member(line, "serial"), {}};
  std::istringstream types(Member(line, "filters"));
  for (std::string type; std::getline(types, type, ',');) {
    const std::string reason =
        ReasonOf(static_cast<unsigned>(strtoul(type.c_str(), nullptr, 10)), line);
    if (hidden.reasons.empty() || hidden.reasons.back() != reason) hidden.reasons.push_back(reason);
  }
  return hidden;
}

}  // namespace

nlohmann::ordered_json JsonOf(const std::vector<HiddenCertificate>& hidden) {
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const HiddenCertificate& each : hidden) {
    list.push_back({{"serial", each.serial},
                    {"subject", each.subject},
                    {"device", each.device},
                    {"reasons", each.reasons}});
  }
  return list;
}

nlohmann::ordered_json JsonOf(const std::vector<SkippedDevice>& skipped) {
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const SkippedDevice& each : skipped) {
    list.push_back({{"device", each.device}, {"code", Hex(each.code)}, {"reason", each.remark}});
  }
  return list;
}

std::string ReasonOf(const SkippedDevice& skipped) {
  return Hex(skipped.code) + " " + (skipped.remark.empty() ? TextOf(skipped.code) : skipped.remark);
}

Listing LastListing(const std::string& record) {
  Listing listing;
  bool ended = false;
  for (const Json& line : LinesOf(record)) {
    const std::string operation = Member(line, "operation");
    if (ended) listing = Listing();
    ended = operation == "GetCertList";
    const std::string device = Member(line, "device");
    if (operation == "ListFamily") {
      listing.families.push_back(
          {device, NumberOf(line, "interface"), NumberOf(line, "certificates")});
    } else if (operation == "ListToken") {
      listing.tokens.push_back({device, Member(line, "library"), NumberOf(line, "certificates"),
                                NumberOf(line, "keys")});
    } else if (operation == "HideCertificate") {
      listing.hidden.push_back(HiddenOf(line));
    } else if (operation == "ListCertificates") {
      listing.skipped.push_back({device, NumberOf(line, "result"), Member(line, "remark")});
    }
  }
  return listing;
}

std::string LastRemark(const std::string& record, const std::string& operation) {
  std::string remark;
  for (const Json& line : LinesOf(record)) {
    if (Member(line, "operation") == operation) remark = Member(line, "remark");
  }
  return remark;
}

}  // namespace vctk
