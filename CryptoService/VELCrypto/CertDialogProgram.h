#pragma once
// The choice of a certificate by a program with a window.
#include "CertOffer.h"

namespace velcrypto {

// $VEL_CERT_DIALOG, or this project's program when there is a desktop to show it on; empty when
// there is neither.
std::string FindDialogProgram();

// Runs the program and asks. Fails with kCancelled, kTimeout, kDeviceRemoved (what was chosen has
// left the list meanwhile), kFailed (it crashed, was killed, or answered nonsense).
Answer AskProgram(const std::string& path, LiveOffer& offer, const DialogOptions& options);

}  // namespace velcrypto
