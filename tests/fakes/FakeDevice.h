#pragma once
// What the fake device library answers and what it was asked. It lives in a library of its own, so
// that it outlasts the loading and unloading of libVELCrypto64.so. One thread at a time, or several
// while nothing is recorded and the script stays as it is.
#include <functional>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

struct FakeCert {
  std::wstring serial = L"01";
  std::wstring subject = L"CN=signer";
  std::wstring base64 = L"Q0VSVA==";  // of "CERT"
  int asymmAlg = 1;                   // RSA
  int rsaHash = 3;                    // SHA1
  int sm2Hash = 6;                    // SM3
  int keyStatus = 4;                  // certificate and key pair
  int keySpec = 1;                    // signature
  bool keyUsageSigns = true;
};

struct FakeDevice {
  // --- the script ---

  // What is plugged in. A listing applies the filters for serial number, key spec, key status and
  // key usage, and passes over all others.
  std::vector<FakeCert> certs;

  // Results by operation, one a call, of which the last one stays; 0 for what is not named. The PIN
  // operations go by "Login", "Logout", "ChangePin" and "GetPinInfo".
  std::map<std::string, std::vector<unsigned long>, std::less<>> codes;

  std::string p1Signature = "P1-SIGNATURE";
  std::string p7Signature = "P7-SIGNATURE";
  std::string wrapped = "P1-IN-P7";
  std::optional<unsigned long> wrappedSize;  // said to be that of `wrapped`
  unsigned long pinRetryTimes = 0;           // GetPinRetryTimes
  unsigned short remainRetryCount = 0;       // of the PIN information
  std::optional<std::string> queue = "";     // the call queue's text; none: a null pointer
  int dialogPicks = 0;                       // index in the list that is shown; -1: nothing
  std::optional<FakeCert> dialogBrings;      // picked, listed or not
  std::function<void()> onLoad;              // runs in the library's initialiser
  std::function<void()> onCall;              // runs in operations that have a result
  std::function<void()> onMake;              // runs in the factories

  // --- the record ---

  bool recording = true;
  std::vector<std::string> calls;  // in order, as "Operation(argument, ...)"
  const void* loader = nullptr;    // the factory that IVELDeviceManager::Initialize was given
  int liveObjects = 0;
  int loads = 0;
  int unloads = 0;

  // The calls since the last time, which are forgotten.
  std::vector<std::string> TakeCalls() { return std::exchange(calls, {}); }

  void Count(int objects) { __atomic_add_fetch(&liveObjects, objects, __ATOMIC_RELAXED); }

  template <typename... Args>
  void Record(const char* operation, const Args&... args) {
    if (!recording) return;
    std::ostringstream line;
    [[maybe_unused]] const char* separator = "";
    line << operation << '(';
    ((line << std::exchange(separator, ", ") << args), ...);
    line << ')';
    calls.push_back(line.str());
  }

  unsigned long NextCode(const char* operation) {
    if (onCall) onCall();
    const auto found = codes.find(operation);
    if (found == codes.end() || found->second.empty()) return 0;
    const unsigned long code = found->second.front();
    if (found->second.size() > 1) found->second.erase(found->second.begin());
    return code;
  }
};

// Keeps objects that no release will destroy from being taken for leaks.
__attribute__((visibility("default"))) void KeepLostObject(const void* object);

// The one of the process; assign FakeDevice() to start afresh.
__attribute__((visibility("default"))) FakeDevice& Fake();
