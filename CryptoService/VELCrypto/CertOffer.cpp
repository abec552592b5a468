#include "CertOffer.h"

#include <errno.h>
#include <stdio.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "OpenSsl.h"
#include "Text.h"

namespace velcrypto {

namespace {

using Json = nlohmann::ordered_json;

// The same certificate may lie on several devices, and be listed for several key families.
std::string IdOf(const tag_VEL_CERT_INFO& record) {
  std::string id = Narrow(record.VELCertUniqueID);
  id += "/" + std::to_string(record.CryptoInterfaceType);
  for (const CVelStringW* part : {&record.InterfaceLibName, &record.DeviceName,
                                  &record.ApplicationName, &record.ContainerName}) {
    id += "/" + Narrow(*part);
  }
  return id;
}

// Where on the device the key lies: "device / application / container".
std::string LocationOf(const tag_VEL_CERT_INFO& record) {
  std::string location;
  for (const CVelStringW* part :
       {&record.DeviceName, &record.ApplicationName, &record.ContainerName}) {
    const std::string text = Narrow(*part);
    if (!text.empty()) location += (location.empty() ? "" : " / ") + text;
  }
  return location;
}

Json UsageOf(const tag_VEL_CERT_INFO& record) {
  static const char* const names[] = {"digitalSignature", "nonRepudiation", "keyEncipherment",
                                      "dataEncipherment", "keyAgreement"};
  Json usage = Json::array();
  for (unsigned bit = 0; bit < std::size(names); ++bit) {
    if ((record.KeyUsage >> bit & 1) != 0) usage.push_back(names[bit]);
  }
  return usage;
}

Json JsonOf(const Offered& offered) {
  const tag_VEL_CERT_INFO& record = offered.record;
  return {{"id", offered.id},
          {"name", Narrow(record.SubjectCN)},
          {"subject", Narrow(record.SubjectDN)},
          {"issuer", Narrow(record.IssuerCN)},
          {"issuerName", Narrow(record.IssuerDN)},
          {"serial", Narrow(record.SerialNumber)},
          {"validFrom", TimeText(record.EffectiveInfo)},
          {"validUntil", TimeText(record.ExpiredInfo)},
          {"keyType", KeyTypeOf(record)},
          {"usage", UsageOf(record)},
          {"email", Narrow(record.SubjectEmail)},
          {"device", DeviceNameOf(record)},
          {"location", LocationOf(record)},
          {"fingerprint", Narrow(record.VELCertUniqueID)}};
}

int BitsOf(const tag_VEL_CERT_INFO& record) {
  std::vector<BYTE> der;
  if (!DecodeBase64(Narrow(record.CertBase64), &der)) return 0;
  const X509Ptr certificate = ParseCertificate(der.data(), der.size());
  EVP_PKEY* const key = certificate == nullptr ? nullptr : X509_get0_pubkey(certificate.get());
  return key == nullptr ? 0 : EVP_PKEY_get_bits(key);
}

}  // namespace

Offer OfferOf(ISmartList<tag_VEL_CERT_INFO>* certificates) {
  Offer offer;
  for (int i = 0; i < certificates->GetCount(); ++i) {
    const tag_VEL_CERT_INFO& record = certificates->GetItem(i);
    offer.push_back({IdOf(record), record});
  }
  return offer;
}

std::string LineOf(const Offer& offer, const DialogOptions& options) {
  Json list = Json::array();
  for (const Offered& each : offer) list.push_back(JsonOf(each));
  const Json line = {{"certificates", std::move(list)},
                     {"multiple", options.multiple},
                     {"language", options.language},
                     {"program", program_invocation_short_name}};
  return line.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string KeyTypeOf(const tag_VEL_CERT_INFO& record) {
  if (record.AsymmAlg == VEL_ASYMM_ALG_SM2) return "SM2";
  if (record.AsymmAlg != VEL_ASYMM_ALG_RSA) return "";
  const int bits = BitsOf(record);
  return bits == 0 ? "RSA" : "RSA " + std::to_string(bits);
}

std::string DeviceNameOf(const tag_VEL_CERT_INFO& record) {
  const bool isFile = record.CryptoInterfaceType == VEL_CRYPTO_INTERFACE_TYPE_CSP;
  return Narrow(isFile ? record.ContainerName : record.DeviceName);
}

std::string TimeText(const SYSTEMTIME& time) {
  char text[64];
  snprintf(text, sizeof(text), "%04u-%02u-%02uT%02u:%02u:%02uZ", time.wYear, time.wMonth, time.wDay,
           time.wHour, time.wMinute, time.wSecond);
  return text;
}

LiveOffer::LiveOffer(Offer first)
    : m_offer(std::move(first)), m_changed(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

LiveOffer::~LiveOffer() {
  if (m_changed >= 0) close(m_changed);
}

void LiveOffer::Replace(Offer offer) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_offer = std::move(offer);
  if (m_changed >= 0) eventfd_write(m_changed, 1);
}

Offer LiveOffer::Take() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  eventfd_t count = 0;
  if (m_changed >= 0) eventfd_read(m_changed, &count);
  return m_offer;
}

}  // namespace velcrypto
