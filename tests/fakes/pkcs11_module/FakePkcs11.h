#pragma once
// A PKCS#11 module for tests: tokens that lock their PIN, have SM2 keys and keys that ask for the
// PIN at each use, can be pulled out at any call, and calls that fail, hang, sleep, print or crash
// on order. A test program links the module and opens it by its path: both see one instance.
#include <openssl/evp.h>
#include <p11-kit/pkcs11.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace fakep11 {

using Bytes = std::vector<unsigned char>;

// The number that this module took for SM2, and two that it has for other things.
constexpr CK_MECHANISM_TYPE kSm2 = CKM_VENDOR_DEFINED + 0x200;
constexpr CK_MECHANISM_TYPE kSm2OverData = CKM_VENDOR_DEFINED + 0x100;  // digests what it is given
constexpr CK_MECHANISM_TYPE kSm3 = CKM_VENDOR_DEFINED + 0xB01;

struct Object {
  CK_OBJECT_CLASS kind = CKO_CERTIFICATE;
  Bytes id;
  std::string label;
  Bytes der;                                // of a certificate
  std::shared_ptr<EVP_PKEY> key = nullptr;  // of a key
  bool isPrivate = false;                   // seen by those who are logged in
  bool asksEachTime = false;
};

struct Token {
  std::string label = "token", serial = "1";
  std::string pin = "12345678";
  unsigned tries = 3, triesLeft = 3;
  bool showsTries = true;  // by the flags of C_GetTokenInfo
  CK_ULONG minPin = 4, maxPin = 16;
  CK_FLAGS flags = CKF_LOGIN_REQUIRED | CKF_USER_PIN_INITIALIZED | CKF_TOKEN_INITIALIZED;
  std::vector<Object> objects;
  bool wrongSignatures = false;
};

// What one call does. The function by its name; the call counts from when the fault was added.
struct Fault {
  std::string function;
  unsigned call = 0;          // 0: each; 1: the next ...
  CK_RV result = CKR_OK;      // other than CKR_OK: returned
  unsigned milliseconds = 0;  // to sleep before
  std::string awaits;         // a file, before it goes on
  bool hangs = false;         // until Reset
  bool crashes = false;
  std::string prints;   // to standard output
  std::string unplugs;  // the token of this label
};

// All of it may be used while the module works.
void Reset();                   // no tokens, no faults, not initialised; hanging calls come back
void Plug(const Token& token);  // into the first free slot
void PlugInto(unsigned slot, const Token& token);
Token Unplug(const std::string& label);
Token Inspect(const std::string& label);
void Change(const std::string& label, void (*change)(Token&));
void Add(const Fault& fault);
unsigned Calls(const std::string& function);  // since Reset
unsigned AllCalls();
unsigned OpenSessions();
unsigned MostAtOnce();  // calls that were inside at the same time

struct Ways {
  bool locks = true;              // else CKR_CANT_LOCK
  bool removable = true;          // slots
  bool looksWhenStarted = false;  // tokens that come and go are seen after C_Initialize only
  CK_RV staleSession = CKR_SESSION_HANDLE_INVALID;
};
void Behave(const Ways& ways);

// A certificate, its public key and its private key.
std::vector<Object> Pair(const Bytes& der, const std::shared_ptr<EVP_PKEY>& key, const Bytes& id);

Token TokenWith(const std::vector<Object>& objects, const std::string& label = "token",
                const std::string& serial = "1");

}  // namespace fakep11
