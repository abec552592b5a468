#include "Signer.h"

#include <strings.h>

#include <optional>

#include "CallRecord.h"
#include "Messages.h"
#include "Terminal.h"
#include "Waiting.h"

namespace vctk {
namespace {

const uint32_t kCancelledByUser = 0xE0000002;
const uint32_t kNoPinDialog = 0xE000005A;

// A bare signature without a dialog takes the digest that belongs to the key type.
void CheckPkcs1Digest(const std::string& digest, const std::string& type) {
  const std::string fixed = type == "RSA" ? "SHA1" : "SM3";
  if (digest.empty() || strcasecmp(digest.c_str(), fixed.c_str()) == 0) return;
  throw Failure(
      kUsage,
      "--p1 signs with " + fixed + " for this " + type + " key, not with " + Printable(digest),
      "A bare signature with another digest needs the PIN dialog of the device library: "
      "give neither --cert nor a PIN (--dialog where there is no terminal); or leave "
      "--digest out, or make a PKCS#7 signature (--p7), which takes any digest.");
}

}  // namespace

Signer::Signer(const SignOptions& options, bool standardInputTaken)
    : m_options(options),
      m_pins(options.pinFile, standardInputTaken),
      m_keyList(FindKeyList(options.keyList)),
      m_filters(ParseFilters(options.filters)),
      m_session(m_keyList, m_filters),
      m_byDialogs(MayUseDialogs()) {
  if (!options.digest.empty()) m_session.SetDigest(options.digest);
}

// Neither a certificate nor a PIN is given, and there is somebody to ask.
bool Signer::MayUseDialogs() const {
  return m_options.serial.empty() && (m_options.dialog || m_pins.IsTerminal());
}

std::string Signer::Sign(const std::string& base64) {
  std::string signature;
  if (m_byDialogs && SignByDialogs(base64, &signature)) return signature;
  if (m_isFirst && m_certificate.serial.empty()) {
    TakeCertificate(ChooseCertificate(m_session, m_options.serial));
  }
  const bool isFirst = m_isFirst;
  m_isFirst = false;
  return isFirst ? SignFirst(base64) : SignWithPin(base64);
}

std::string Signer::SignWithPin(const std::string& base64) {
  std::optional<Waiting> waiting;
  if (!m_pin.IsEmpty()) waiting.emplace("Signing");  // else a dialog asks
  return m_options.pkcs1 ? m_session.SignPkcs1(m_certificate.serial, base64, m_pin)
                         : m_session.SignPkcs7(base64, m_options.detached, m_pin);
}

// Without a PIN the device library asks for it, in a window or on the terminal; where it has no
// dialog, this program does on the terminal.
std::string Signer::SignFirst(const std::string& base64) {
  if (m_pins.IsTerminal() && !m_noPinDialog) {
    try {
      const KeyboardSignals afterwards;
      return SignWithPin(base64);
    } catch (const Failure& failure) {
      if (failure.Code() != kNoPinDialog) throw;
    }
  }
  m_pins.Read(Describe(m_certificate) + "\nPIN: ", m_pin);
  return SignWithPin(base64);
}

void Signer::TakeCertificate(const Certificate& certificate) {
  m_certificate = certificate;
  m_session.Choose(certificate.serial);
  if (m_options.pkcs1) CheckPkcs1Digest(m_options.digest, m_session.ChosenType());
}

uint32_t Signer::AskByDialogs(const std::string& base64, std::string* signature) {
  const KeyboardSignals afterwards;
  return m_session.SignByDialogs(m_options.pkcs1, base64, m_options.detached, signature);
}

// False when the PIN cannot be asked for in a dialog; the certificate is chosen then.
bool Signer::SignByDialogs(const std::string& base64, std::string* signature) {
  if (m_isFirst) {
    m_session.RecordCalls(true);
    if (m_session.List().empty()) throw NothingToSignWith();
  }
  const uint32_t code = AskByDialogs(base64, signature);
  if (code == kNoPinDialog && m_isFirst && m_pins.IsTerminal()) {
    m_byDialogs = false;
    m_noPinDialog = true;
    TakeCertificate(CertificateOfDialog(m_session, m_keyList, m_filters));
    return false;
  }
  m_isFirst = false;
  if (code == 0) return true;
  const std::string remark = LastRemark(m_session.CallRecord(), "DisplayUI");
  if (code == kCancelledByUser && !remark.empty() && remark != "cancelled by the user") {
    throw Failure(kNoCertificate, "no certificate can be chosen: " + remark,
                  "Name one with --cert SERIAL; \"vctk certs\" lists them.");
  }
  throw CodeFailure("signing failed", code, m_session.LastMessage());
}

}  // namespace vctk
