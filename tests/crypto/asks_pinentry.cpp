// asks_pinentry PROGRAM SECONDS: tells the terminal that it finds, asks there once, and tells the
// result and the PIN.
#include <stdio.h>
#include <stdlib.h>

#include "Pinentry.h"

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  velcrypto::Pinentry::Patience patience;
  patience.dialog = std::chrono::seconds(atoi(argv[2]));
  printf("terminal \"%s\"\n", velcrypto::UserTerminal().c_str());
  fflush(stdout);
  velcrypto::Secret pin;
  velcrypto::Outcome outcome;
  {
    velcrypto::Pinentry pinentry(patience);
    outcome = pinentry.Start(argv[1]);
    if (outcome.ok()) outcome = pinentry.Ask({"t", "description", "PIN:", "OK", "No", ""}, &pin);
  }
  printf("result 0x%08lX \"%s\"\n", static_cast<unsigned long>(outcome.code), pin.c_str());
  return 0;
}
