#pragma once
// The certificates that a dialog offers, in the form in which they go to its program
// (docs/formats/certificate_dialog.md), and what comes of the question.
#include <chrono>
#include <mutex>
#include <string>
#include <vector>

#include "Outcome.h"
#include "VelKeyTypes.h"

namespace velcrypto {

struct Offered {
  std::string id;  // of the certificate on its device; of no meaning to others
  tag_VEL_CERT_INFO record;
};
using Offer = std::vector<Offered>;

Offer OfferOf(ISmartList<tag_VEL_CERT_INFO>* certificates);

struct DialogOptions {
  bool multiple = false;
  std::string language;  // empty: the environment's
  std::chrono::seconds patience{600};
};

struct Answer {
  Outcome outcome;
  std::vector<std::string> ids;  // of what was chosen; at least one when the outcome is ok
  bool shown = true;             // false: the user saw nothing, another way to ask may be tried
};

// One line of JSON, its end included.
std::string LineOf(const Offer& offer, const DialogOptions& options);

// "RSA 2048", "SM2"
std::string KeyTypeOf(const tag_VEL_CERT_INFO& record);

// The token's label; of a key in a file the file's name, by which people know it.
std::string DeviceNameOf(const tag_VEL_CERT_INFO& record);

// "2024-05-01T08:00:00Z"
std::string TimeText(const SYSTEMTIME& time);

// A list that may be replaced while it is shown. Any thread.
class LiveOffer {
 public:
  explicit LiveOffer(Offer first);
  ~LiveOffer();
  LiveOffer(const LiveOffer&) = delete;
  LiveOffer& operator=(const LiveOffer&) = delete;

  void Replace(Offer offer);

  // The list of now; Changed is quiet until the next Replace.
  Offer Take();

  // A descriptor that can be read from after a Replace; -1 when there was none left.
  int Changed() const { return m_changed; }

 private:
  std::mutex m_mutex;
  Offer m_offer;
  const int m_changed;
};

}  // namespace velcrypto
