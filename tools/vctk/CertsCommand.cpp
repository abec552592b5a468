#include <stdio.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "CallRecord.h"
#include "Choice.h"
#include "Commands.h"
#include "Files.h"
#include "Terminal.h"
#include "Waiting.h"

namespace vctk {
namespace {

using Json = nlohmann::ordered_json;

struct Row {
  Certificate certificate;
  std::string type;
  std::string base64;
};

// A session keeps the first certificate that it chose, so each is asked about in one of its own;
// the caller's session meanwhile keeps the device library loaded.
std::vector<Row> Gather(const KeyList& keyList, const std::vector<Filter>& filters,
                        Listing* listing) {
  const Waiting waiting("Looking for keys");
  Session session(keyList, filters);
  session.RecordCalls(true);
  std::vector<Row> rows;
  const std::vector<Certificate> certificates = session.List();
  *listing = LastListing(session.CallRecord());
  session.RecordCalls(false);  // each choice would record all the certificates that it passes over
  for (const Certificate& certificate : certificates) {
    Session single(keyList, filters);
    single.Choose(certificate.serial);
    rows.push_back({certificate, single.ChosenType(), single.ChosenCertificate()});
  }
  return rows;
}

Json JsonOf(const std::vector<Row>& rows) {
  Json list = Json::array();
  for (const Row& row : rows) {
    list.push_back({{"serial", row.certificate.serial},
                    {"type", row.type},
                    {"subject", row.certificate.subject},
                    {"certificate", row.base64}});
  }
  return list;
}

std::string Padded(const std::string& text, size_t width) {
  return text + std::string(text.size() < width ? width - text.size() : 0, ' ');
}

// The subject comes last: the width of Chinese letters on the terminal moves no column.
std::string TableOf(const std::vector<Row>& rows) {
  size_t width = 6;
  for (const Row& row : rows) width = std::max(width, row.certificate.serial.size());
  std::string table = Padded("SERIAL", width) + "  TYPE  SUBJECT\n";
  for (const Row& row : rows) {
    table += Padded(Printable(row.certificate.serial), width) + "  " +
             Padded(Printable(row.type), 4) + "  " + Printable(row.certificate.subject) + "\n";
  }
  return table;
}

std::string LeftOut(const Listing& listing) {
  std::string text;
  if (!listing.hidden.empty()) text += "Hidden:\n";
  for (const HiddenCertificate& each : listing.hidden) {
    std::string reasons;
    for (const std::string& reason : each.reasons) {
      reasons += (reasons.empty() ? "" : ", ") + reason;
    }
    text += "  " + Printable(each.serial) + "  " + Printable(each.subject) + "\n    " +
            Printable(reasons) + " (" + Printable(each.device) + ")\n";
  }
  if (!listing.skipped.empty()) text += "Not looked into:\n";
  for (const SkippedDevice& each : listing.skipped) {
    text += "  " + (each.device.empty() ? "(default)" : Printable(each.device)) + ": " +
            Printable(ReasonOf(each)) + "\n";
  }
  return text;
}

// A name that is no UTF-8 must not cost the whole list.
std::string TextOf(const Json& json) {
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace

ExitCode RunCerts(const CertsOptions& options) {
  const std::vector<Filter> filters = ParseFilters(options.filters);
  Listing listing;
  const std::vector<Row> rows = Gather(FindKeyList(options.keyList), filters, &listing);
  if (options.json && options.all) {
    Print(TextOf(Json({{"certificates", JsonOf(rows)},
                       {"hidden", JsonOf(listing.hidden)},
                       {"skipped", JsonOf(listing.skipped)}})));
  } else if (options.json) {
    Print(TextOf(JsonOf(rows)));
  } else {
    if (!rows.empty()) Print(TableOf(rows));
    if (options.all) Print(LeftOut(listing));
  }
  if (rows.empty()) throw NothingToSignWith();
  return kDone;
}

}  // namespace vctk
