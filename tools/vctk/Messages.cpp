#include "Messages.h"

#include <stdio.h>

#include <algorithm>
#include <iterator>

#include "MessageTable.h"
#include "vctk.h"

namespace vctk {
namespace {

struct Meaning {
  uint32_t code;
  ExitCode exitCode;
  const char* advice;
};

// The toolkit's own codes have no text of their own, so their advice says what they mean.
const Meaning kMeanings[] = {
    {VCTK_OK, kDone, "Nothing went wrong."},
    {VCTK_ERROR_LOAD_USB_KEY_DLL_FAILED, kNoSession, "The device library cannot be loaded."},
    {VCTK_ERROR_SET_SUPPORT_KEY_FAILED, kNoSession, "The key list was rejected."},
    {VCTK_ERROR_CERTUI_INSTANCE_NOT_INIT, kFailed, "There is no certificate dialog."},
    {VCTK_ERROR_OUT_BUFFER_SIZE_NOT_ENOUGH, kFailed,
     "The output buffer is too small: ask for the size with a null buffer first."},
    {VCTK_ERROR_GET_SIGN_CERT_FAILED, kFailed, "The chosen certificate has no content."},
    {VCTK_ERROR_GET_LAST_ERROR_MSG_FAILED, kFailed, "The text of the error cannot be had."},
    {VCTK_ERROR_GET_SIGN_CERT_TYPE_FAILED, kFailed, "The chosen certificate has no key type."},
    {VCTK_ERROR_GET_SIGN_HASH_FAILED, kFailed, "The digest cannot be told."},
    {VCTK_ERROR_P1SIGN_RESULT_INVALID, kFailed, "There is no signature yet: sign first."},
    {VCTK_ERROR_P7SIGN_RESULT_INVALID, kFailed, "There is no PKCS#7 signature yet: sign first."},
    {VCTK_ERROR_INVALID_PARAMETER, kFailed, "A pointer that must be given is null."},
    {0xE0000002, kCancelled, "Nothing was done. Start again when you are ready."},
    {0xE0000003, kFailed, "A value was not understood: check those given with --filter."},
    {0xE0000005, kFailed, "Memory ran out: close other programs or sign a smaller file."},
    {0xE000000A, kFailed, "Access was refused: check who may read and write the key's files."},
    {0xE000000C, kFailed, "The device library lacks something: install its current version."},
    {0xE000000E, kNoCertificate,
     "Plug in the key, or loosen the filters. Only certificates that are valid now and whose "
     "private key is present can sign."},
    {0xE0000029, kFailed, "The key cannot make such a signature: name another --digest."},
    {0xE0000042, kFailed, "Plug the key in again and start over."},
    {0xE0000043, kFailed, "Plug in the key and start over."},
    {0xE0000056, kPin,
     "Give the right PIN. Every wrong one costs a try, and a key without tries left is locked."},
    {0xE0000057, kPin, "Ask the issuer of the key to unlock it."},
    {0xE0000058, kPin, "The PIN holds characters that the key does not take."},
    {0xE0000059, kPin, "The PIN is shorter or longer than the key takes. No try was lost."},
    {0xE000005A, kPin,
     "The key wants a PIN and no dialog can be shown: give it on the terminal, with --pin-file or "
     "on standard input."},
    {0xE0000061, kNoCertificate,
     "No signing certificate fits: \"vctk certs\" lists those that do. Plug in the key."},
    {0xE0000066, kFailed, "Name a digest with --digest: MD5, SHA1, SHA256, SHA512 or SM3."},
    {0xE0000070, kFailed,
     "The signature that the key made does not fit its certificate: the key is faulty."},
    {0xE0000078, kNoCertificate, "Name a certificate with --cert: \"vctk certs\" lists them."},
    {0xE0020001, kFailed, "Plug the key in again and start over."},
    {0xE0020004, kFailed, "Plug in the key; when it is, install its driver."},
    {0xE0020005, kFailed, "The key list names a kind of key that the device library lacks."},
};

const Meaning* Find(uint32_t code) {
  const auto found = std::find_if(std::begin(kMeanings), std::end(kMeanings),
                                  [code](const Meaning& each) { return each.code == code; });
  return found == std::end(kMeanings) ? nullptr : found;
}

const MessageEntry* FindText(uint32_t code) {
  const MessageEntry* const end = kMessageTable + kMessageTableSize;
  const MessageEntry* const found =
      std::lower_bound(kMessageTable, end, code,
                       [](const MessageEntry& each, uint32_t value) { return each.code < value; });
  return found != end && found->code == code ? found : nullptr;
}

}  // namespace

std::string TextOf(uint32_t code) {
  const MessageEntry* const entry = FindText(code);
  return entry != nullptr ? entry->text : "未知错误，错误码：" + Hex(code);
}

bool IsKnown(uint32_t code) {
  return FindText(code) != nullptr || Find(code) != nullptr;
}

std::string AdviceFor(uint32_t code) {
  const Meaning* const meaning = Find(code);
  if (meaning != nullptr) return meaning->advice;
  return "Try again; when it goes on, tell the code to the supplier of the key.";
}

ExitCode ExitOf(uint32_t code) {
  const Meaning* const meaning = Find(code);
  return meaning != nullptr && meaning->exitCode != kDone ? meaning->exitCode : kFailed;
}

std::string Hex(uint32_t code) {
  char text[16];
  snprintf(text, sizeof(text), "0x%08X", code);
  return text;
}

}  // namespace vctk
