#include <stdio.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "Choice.h"
#include "Commands.h"
#include "Files.h"
#include "Terminal.h"

namespace vctk {
namespace {

struct Row {
  Certificate certificate;
  std::string type;
  std::string base64;
};

// A session keeps the first certificate that it chose, so each is asked about in one of its own;
// the caller's session meanwhile keeps the device library loaded.
std::vector<Row> Gather(const KeyList& keyList, const std::vector<Filter>& filters) {
  Session session(keyList, filters);
  std::vector<Row> rows;
  for (const Certificate& certificate : session.List()) {
    Session single(keyList, filters);
    single.Choose(certificate.serial);
    rows.push_back({certificate, single.ChosenType(), single.ChosenCertificate()});
  }
  return rows;
}

std::string JsonOf(const std::vector<Row>& rows) {
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const Row& row : rows) {
    list.push_back({{"serial", row.certificate.serial},
                    {"type", row.type},
                    {"subject", row.certificate.subject},
                    {"certificate", row.base64}});
  }
  // A name that is no UTF-8 must not cost the whole list.
  return list.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
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

}  // namespace

ExitCode RunCerts(const CertsOptions& options) {
  const std::vector<Filter> filters = ParseFilters(options.filters);
  const std::vector<Row> rows = Gather(FindKeyList(options.keyList), filters);
  if (options.json) Print(JsonOf(rows));
  if (rows.empty()) {
    throw Failure(kNoCertificate, "there is no certificate that can sign",
                  "Plug in the key, or loosen the filters. Certificates that are not valid now or "
                  "have no private key are not listed.");
  }
  if (!options.json) Print(TableOf(rows));
  return kDone;
}

}  // namespace vctk
