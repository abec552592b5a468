#include <strings.h>

#include "Base64.h"
#include "Choice.h"
#include "Commands.h"
#include "Files.h"
#include "Terminal.h"

namespace vctk {
namespace {

const uint32_t kNoDialog = 0xE000005A;

// The toolkit keeps base64 text as 4-byte characters and counts bytes in 32 bits.
const size_t kMaxContent = 384u * 1024 * 1024 - 1024;

std::string ReadContent(const std::string& file) {
  std::string bytes = ReadFile(file, kMaxContent);
  if (bytes.empty()) {
    throw Failure(kFile, (file == "-" ? "standard input" : file) + " is empty",
                  "There is nothing to sign.");
  }
  return EncodeBase64(bytes);
}

// A bare signature without a dialog takes the digest that belongs to the key type.
void CheckPkcs1Digest(const std::string& digest, const std::string& type) {
  const std::string fixed = type == "RSA" ? "SHA1" : "SM3";
  if (digest.empty() || strcasecmp(digest.c_str(), fixed.c_str()) == 0) return;
  throw Failure(
      kUsage,
      "--p1 signs with " + fixed + " for this " + type + " key, not with " + Printable(digest),
      "A bare signature with another digest needs the PIN dialog of the device library, "
      "which this program does not use: leave --digest out, or make a PKCS#7 signature "
      "(--p7), which takes any digest.");
}

std::string SignWith(Session& session, const SignOptions& options, const Certificate& certificate,
                     const std::string& content, const Pin& pin) {
  return options.pkcs1 ? session.SignPkcs1(certificate.serial, content, pin)
                       : session.SignPkcs7(content, options.detached, pin);
}

// Without a PIN the device library asks for it, in a window or on the terminal; where it has no
// dialog, this program does on the terminal.
std::string SignAsking(Session& session, const SignOptions& options, const Certificate& certificate,
                       const std::string& content, PinSource& pins) {
  Pin pin;
  if (pins.IsTerminal()) {
    try {
      const KeyboardSignals afterwards;
      return SignWith(session, options, certificate, content, pin);
    } catch (const Failure& failure) {
      if (failure.Code() != kNoDialog) throw;
    }
  }
  pins.Read(Describe(certificate) + "\nPIN: ", pin);
  return SignWith(session, options, certificate, content, pin);
}

std::string Sign(Session& session, const SignOptions& options, const std::string& content,
                 PinSource& pins) {
  if (!options.pkcs1 && !options.digest.empty()) session.SetDigest(options.digest);
  const Certificate certificate = ChooseCertificate(session, options.serial);
  session.Choose(certificate.serial);
  if (options.pkcs1) CheckPkcs1Digest(options.digest, session.ChosenType());
  return SignAsking(session, options, certificate, content, pins);
}

std::string Encoded(const std::string& base64, bool binary) {
  if (!binary) return base64 + "\n";
  std::string bytes;
  if (!DecodeBase64(base64, bytes)) {
    throw Failure(kFailed, "the device library gave no signature", "Tell the supplier of the key.");
  }
  return bytes;
}

}  // namespace

ExitCode RunSign(const SignOptions& options) {
  if (options.binary && options.output.empty() && StandardOutputIsTerminal()) {
    throw Failure(kUsage, "a binary signature does not go to the terminal",
                  "Name a file with --output, or leave --binary out.");
  }
  PinSource pins(options.pinFile, options.file == "-");
  OutputFile output(options.output);
  const std::string content = ReadContent(options.file);
  Session session(FindKeyList(options.keyList), ParseFilters(options.filters));
  output.Commit(Encoded(Sign(session, options, content, pins), options.binary));
  return kDone;
}

}  // namespace vctk
