#include "Choice.h"
#include "Commands.h"
#include "Files.h"

namespace vctk {
namespace {

void ReadReplacement(PinSource& pins, Pin& replacement) {
  pins.Read("New PIN: ", replacement);
  if (!pins.IsTerminal()) return;
  Pin again;
  pins.Read("New PIN again: ", again);
  if (!replacement.Equals(again)) {
    throw Failure(kPin, "the two new PINs differ", "The PIN was not changed. Start again.");
  }
}

}  // namespace

ExitCode RunPinChange(const PinChangeOptions& options) {
  PinSource pins(options.pinFile, false);
  Session session(FindKeyList(options.keyList), ParseFilters(options.filters));
  const Certificate certificate = ChooseCertificate(session, options.serial);
  Pin current;
  pins.Read(Describe(certificate) + "\nCurrent PIN: ", current);
  Pin replacement;
  ReadReplacement(pins, replacement);
  session.ChangePin(certificate.serial, current, replacement);
  Print("PIN changed.\n");
  return kDone;
}

}  // namespace vctk
