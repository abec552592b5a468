// The PKCS#11 backend with a module that does what tokens do, and what they should not.
#include "pkcs11/Pkcs11.h"

#include <gmock/gmock.h>

#include <atomic>
#include <thread>

#include "FakePkcs11.h"
#include "KeyMaker.h"
#include "Signing.h"
#include "Text.h"
#include "Traces.h"

using fakep11::TokenWith;
using keymaker::Bytes;
using testing::ElementsAre;
using testing::IsEmpty;
using velcrypto::IdentityPtr;
using velcrypto::Outcome;
using velcrypto::Secret;

namespace {

const char kPin[] = "12345678";
const Bytes kId = {0x0A, 0x01};
const Bytes kData = {'a', 'b', 'c'};

const keymaker::Identity& Rsa() {
  static const keymaker::Identity* const made = [] {
    keymaker::Request request;
    request.serial = "0A1B";
    return new keymaker::Identity(keymaker::Make(request));
  }();
  return *made;
}

const keymaker::Identity& Sm2() {
  static const keymaker::Identity* const made = [] {
    keymaker::Request request;
    request.kind = keymaker::Kind::kSm2;
    request.serial = "C0FFEE";
    return new keymaker::Identity(keymaker::Make(request));
  }();
  return *made;
}

std::vector<fakep11::Object> PairOf(const keymaker::Identity& identity, const Bytes& id = kId) {
  return fakep11::Pair(identity.Der(), identity.key, id);
}

fakep11::Fault Returns(const std::string& function, CK_RV result, unsigned call = 0) {
  fakep11::Fault fault;
  fault.function = function;
  fault.result = result;
  fault.call = call;
  return fault;
}

class Pkcs11 : public testing::Test {
 protected:
  void SetUp() override {
    fakep11::Reset();
    Open(std::chrono::minutes(5));
  }
  void TearDown() override { fakep11::Reset(); }

  void Open(std::chrono::milliseconds patience) {
    Outcome outcome;
    m_backend = velcrypto::OpenPkcs11(FAKE_PKCS11_PATH, patience, &outcome);
    ASSERT_NE(m_backend, nullptr) << outcome.remark;
  }
  ULONG List() {
    m_identities.clear();
    m_skipped.clear();
    return m_backend->List(&m_identities, &m_skipped).code;
  }
  // Plugs in a token and finds its only certificate.
  void PlugIn(const fakep11::Token& token) {
    fakep11::Plug(token);
    ASSERT_EQ(List(), 0u);
    ASSERT_EQ(m_identities.size(), 1u) << (m_skipped.empty() ? "" : m_skipped[0].reason.remark);
    m_identity = m_identities[0];
  }
  // Two tokens of a module without slots to plug into.
  static void PlugInTwoThatAreSeenOnlyWhenStarted() {
    fakep11::Ways ways;
    ways.removable = false;
    ways.looksWhenStarted = true;
    fakep11::Behave(ways);
    fakep11::PlugInto(0, TokenWith(PairOf(Rsa()), "stays", "1"));
    fakep11::PlugInto(1, TokenWith(PairOf(Sm2()), "goes", "2"));
  }
  std::vector<std::string> Devices() const {
    std::vector<std::string> devices;
    for (const IdentityPtr& identity : m_identities) {
      devices.push_back(identity->device + "/" + identity->application);
    }
    return devices;
  }
  ULONG LogIn(const char* pin = kPin) { return m_backend->LogIn(*m_identity, Secret(pin)).code; }
  ULONG ChangePin(const char* from, const char* to) {
    return m_backend->ChangePin(*m_identity, Secret(from), Secret(to)).code;
  }
  Outcome Sign(const char* pin = nullptr) {
    const bool sm2 = m_identity->facts->record.AsymmAlg == VEL_ASYMM_ALG_SM2;
    m_signer = sm2 ? Sm2() : Rsa();
    Bytes digest;
    EVP_PKEY* const key = X509_get0_pubkey(m_signer.certificate.get());
    velcrypto::DigestForSigning(key, sm2 ? VEL_HASH_ALG_SM3 : VEL_HASH_ALG_SHA256, kData.data(),
                                kData.size(), &digest);
    m_signature.clear();
    if (pin == nullptr) return m_backend->SignDigest(*m_identity, nullptr, digest, &m_signature);
    const Secret secret(pin);
    return m_backend->SignDigest(*m_identity, &secret, digest, &m_signature);
  }
  bool Holds() const {
    const bool sm2 = m_identity->facts->record.AsymmAlg == VEL_ASYMM_ALG_SM2;
    return keymaker::Verifies(m_signer.key.get(), sm2 ? "SM3" : "SHA256", kData, m_signature);
  }
  unsigned TriesLeft() {
    velcrypto::PinState state;
    EXPECT_TRUE(m_backend->GetPinState(*m_identity, &state).ok());
    return state.triesLeft;
  }

  std::unique_ptr<velcrypto::Backend> m_backend;
  std::vector<IdentityPtr> m_identities;
  std::vector<velcrypto::Skipped> m_skipped;
  IdentityPtr m_identity;
  keymaker::Identity m_signer;
  Bytes m_signature;
};

// Without private keys in sight.
std::vector<fakep11::Object> CertificateOnly(const keymaker::Identity& identity) {
  return {PairOf(identity)[0]};
}

}  // namespace

TEST(Pkcs11Module, IsTheFileWhateverItsNameIs) {
  Outcome outcome;
  EXPECT_EQ(velcrypto::OpenPkcs11("/nowhere/module.so", &outcome), nullptr);
  EXPECT_EQ(outcome.code, 0xE0000014u);
  EXPECT_NE(outcome.remark.find("/nowhere/module.so"), std::string::npos);
  EXPECT_EQ(velcrypto::OpenPkcs11("libc.so.6", &outcome), nullptr) << "a library, but no module";
  EXPECT_EQ(outcome.code, 0xE0000014u);
  const std::string path = FAKE_PKCS11_PATH;
  const size_t slash = path.rfind('/');
  EXPECT_EQ(velcrypto::Pkcs11Module(path.substr(0, slash) + "/./" + path.substr(slash + 1)),
            velcrypto::Pkcs11Module(path));
  EXPECT_EQ(velcrypto::Pkcs11Module("/nowhere/module.so"), "/nowhere/module.so");
  setenv("VEL_PKCS11_MODULE", FAKE_PKCS11_PATH, 1);
  EXPECT_EQ(velcrypto::Pkcs11Module(""), velcrypto::Pkcs11Module(path));
  EXPECT_EQ(velcrypto::Pkcs11Module("/nowhere/module.so"), "/nowhere/module.so");
  unsetenv("VEL_PKCS11_MODULE");
}

TEST_F(Pkcs11, TokensWithEqualLabelsAreToldApartByTheirSerialNumbers) {
  fakep11::Plug(TokenWith(PairOf(Rsa()), "card", "2"));
  fakep11::Plug(TokenWith(PairOf(Rsa()), "card", "1"));
  fakep11::Plug(TokenWith(PairOf(Sm2()), "another", "3"));
  ASSERT_EQ(List(), 0u);
  EXPECT_THAT(Devices(), ElementsAre("another/3", "card/1", "card/2"));
  EXPECT_NE(m_identities[1]->login, m_identities[2]->login);
  m_identity = m_identities[2];
  ASSERT_EQ(LogIn(), 0u);
  EXPECT_TRUE(m_backend->IsLoggedIn(*m_identities[2]));
  EXPECT_FALSE(m_backend->IsLoggedIn(*m_identities[1]));
}

TEST_F(Pkcs11, TokensThatAreAlikeInEverythingAreBothThere) {
  fakep11::Plug(TokenWith(PairOf(Rsa())));
  fakep11::Plug(TokenWith(PairOf(Rsa())));
  ASSERT_EQ(List(), 0u);
  ASSERT_EQ(m_identities.size(), 2u);
  m_identity = m_identities[1];
  ASSERT_EQ(LogIn(), 0u);
  EXPECT_TRUE(m_backend->IsLoggedIn(*m_identities[1]));
  EXPECT_FALSE(m_backend->IsLoggedIn(*m_identities[0]));
}

TEST_F(Pkcs11, RecordsNameTokenKeyAndSerialNumber) {
  PlugIn(TokenWith(PairOf(Rsa()), "我的卡", "007"));
  EXPECT_EQ(m_identity->device, "我的卡");
  EXPECT_EQ(m_identity->container, "0A01");
  EXPECT_EQ(m_identity->application, "007");
  EXPECT_TRUE(m_identity->hasKey);
}

TEST_F(Pkcs11, ATokenOfKeysAloneListsNothingAndIsTold) {
  auto objects = PairOf(Rsa());
  objects.erase(objects.begin());
  fakep11::Plug(TokenWith(objects, "keys"));
  fakep11::Plug(TokenWith({}, "empty", "2"));
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(List(), 0u);
    EXPECT_THAT(m_identities, IsEmpty());
    ASSERT_EQ(m_skipped.size(), 2u);
    EXPECT_EQ(m_skipped[0].device, "empty");
    EXPECT_EQ(m_skipped[1].device, "keys");
    for (const auto& skipped : m_skipped) EXPECT_EQ(skipped.reason.code, 0xE0000061u);
  }
}

TEST_F(Pkcs11, AnEmptySlotAndABlankTokenAreNoTokens) {
  fakep11::Token blank;
  blank.flags = 0;
  fakep11::PlugInto(3, blank);
  EXPECT_EQ(List(), 0u);
  EXPECT_THAT(m_identities, IsEmpty());
  ASSERT_EQ(m_skipped.size(), 1u);
  EXPECT_EQ(m_skipped[0].device, FAKE_PKCS11_PATH);
  EXPECT_EQ(m_skipped[0].reason.code, 0xE0000043u);
  fakep11::Plug(TokenWith(PairOf(Rsa())));
  EXPECT_EQ(List(), 0u);
  EXPECT_EQ(m_identities.size(), 1u);
  EXPECT_THAT(m_skipped, IsEmpty());
}

TEST_F(Pkcs11, BesidePublicKeysACertificateWithoutOneHasNoKey) {
  auto objects = PairOf(Rsa());
  auto other = PairOf(Sm2(), {0x02});
  objects.push_back(other[0]);
  fakep11::Plug(TokenWith(objects));
  ASSERT_EQ(List(), 0u);
  ASSERT_EQ(m_identities.size(), 2u);
  for (const IdentityPtr& identity : m_identities) {
    EXPECT_EQ(identity->hasKey, identity->facts->record.AsymmAlg == VEL_ASYMM_ALG_RSA);
  }
}

TEST_F(Pkcs11, KeysThatHideCountAsThereUntilALoginTells) {
  auto hidden = PairOf(Rsa());
  hidden.erase(hidden.begin() + 1);  // the public key
  PlugIn(TokenWith(hidden));
  EXPECT_TRUE(m_identity->hasKey);
  ASSERT_EQ(LogIn(), 0u);
  ASSERT_EQ(List(), 0u);
  EXPECT_TRUE(m_identities[0]->hasKey);
  fakep11::Reset();
  Open(std::chrono::minutes(5));
  PlugIn(TokenWith(CertificateOnly(Rsa())));
  EXPECT_TRUE(m_identity->hasKey);
  EXPECT_EQ(Sign(kPin).code, 0xE000002Cu);
  ASSERT_EQ(List(), 0u);
  EXPECT_FALSE(m_identities[0]->hasKey) << "the login for the signature has told";
  ASSERT_EQ(LogIn(), 0u);
  ASSERT_EQ(List(), 0u);
  EXPECT_FALSE(m_identities[0]->hasKey);
  ASSERT_TRUE(m_backend->LogOut(*m_identity).ok());
  ASSERT_EQ(List(), 0u);
  EXPECT_FALSE(m_identities[0]->hasKey) << "and what it told is remembered";
  fakep11::Unplug("token");
  fakep11::Plug(TokenWith(CertificateOnly(Rsa())));
  ASSERT_EQ(List(), 0u);
  EXPECT_TRUE(m_identities[0]->hasKey) << "until the token was away";
}

TEST_F(Pkcs11, CertificatesOfAuthoritiesHaveNoKeyAndGoWithTheirUsers) {
  keymaker::Request request;
  request.authority = true;
  request.subject = {{"CN", "Root"}};
  const keymaker::Identity root = keymaker::Make(request, nullptr, true);
  request.subject = {{"CN", "Middle"}};
  const keymaker::Identity middle = keymaker::Make(request, &root, true);
  request.authority = false;
  request.subject = {{"CN", "User"}};
  const keymaker::Identity user = keymaker::Make(request, &middle);
  std::vector<fakep11::Object> objects = CertificateOnly(root);
  objects.push_back(CertificateOnly(user)[0]);
  objects.push_back(CertificateOnly(middle)[0]);
  fakep11::Plug(TokenWith(objects));
  ASSERT_EQ(List(), 0u);
  ASSERT_EQ(m_identities.size(), 3u);
  for (const IdentityPtr& identity : m_identities) {
    const bool isUser = identity->facts->der == user.Der();
    EXPECT_EQ(identity->hasKey, isUser);
    if (!isUser) continue;
    EXPECT_THAT(identity->issuers, ElementsAre(middle.Der(), root.Der()));
  }
}

TEST_F(Pkcs11, RepeatedIdsDoNotMixUpTheKeys) {
  keymaker::Request request;
  request.serial = "0B";
  const keymaker::Identity other = keymaker::Make(request, nullptr, true);
  auto objects = PairOf(other);
  const auto more = PairOf(Rsa());
  objects.insert(objects.end(), more.begin(), more.end());
  fakep11::Plug(TokenWith(objects));
  ASSERT_EQ(List(), 0u);
  ASSERT_EQ(m_identities.size(), 2u);
  for (const IdentityPtr& identity : m_identities) {
    if (identity->facts->der != Rsa().Der()) continue;
    m_identity = identity;
    ASSERT_TRUE(Sign(kPin).ok());
    EXPECT_TRUE(Holds());
  }
}

TEST_F(Pkcs11, AKeyWithoutTheIdOfItsCertificateIsFoundByItsModulus) {
  auto objects = PairOf(Rsa(), {});
  objects[2].id = {0x55};
  PlugIn(TokenWith(objects));
  ASSERT_TRUE(Sign(kPin).ok());
  EXPECT_TRUE(Holds());
}

TEST_F(Pkcs11, TheSameCertificateTwiceIsListedOnce) {
  auto objects = PairOf(Rsa());
  objects.push_back(objects[0]);
  PlugIn(TokenWith(objects));
}

TEST_F(Pkcs11, CertificatesThatCannotBeUsedHideNoOther) {
  keymaker::Request request;
  request.kind = keymaker::Kind::kP256;
  auto objects = CertificateOnly(keymaker::Make(request));
  fakep11::Object broken;
  broken.der = {0x30, 0x03, 0x02, 0x01};
  broken.id = {0x77};
  objects.push_back(broken);
  const auto good = PairOf(Rsa());
  objects.insert(objects.end(), good.begin(), good.end());
  PlugIn(TokenWith(objects));
  ASSERT_EQ(m_skipped.size(), 2u);
  EXPECT_EQ(m_skipped[0].reason.code, 0xE000002Bu);
  EXPECT_EQ(m_skipped[1].reason.code, 0xE0000089u);
  EXPECT_EQ(m_skipped[1].device, "token/77");
}

TEST_F(Pkcs11, HundredsOfObjectsAreReadWithOneCallEachAndOnce) {
  std::vector<fakep11::Object> objects;
  keymaker::Request request;
  for (int i = 0; i < 300; ++i) {
    request.serial = std::to_string(1000 + i);
    objects.push_back(CertificateOnly(keymaker::Make(request))[0]);
  }
  fakep11::Plug(TokenWith(objects));
  ASSERT_EQ(List(), 0u);
  EXPECT_EQ(m_identities.size(), 300u);
  EXPECT_EQ(fakep11::Calls("C_GetAttributeValue"), 300u);
  std::vector<IdentityPtr> before = m_identities;
  ASSERT_EQ(List(), 0u);
  EXPECT_EQ(m_identities, before) << "in the same order";
  EXPECT_EQ(fakep11::Calls("C_GetAttributeValue"), 300u) << "nothing has changed";
  fakep11::Change("token", [](fakep11::Token& token) { token.objects.pop_back(); });
  ASSERT_EQ(List(), 0u);
  EXPECT_EQ(m_identities.size(), 299u);
}

TEST_F(Pkcs11, ALongCertificateIsReadWhole) {
  keymaker::Request request;
  for (int i = 0; i < 100; ++i) request.subject.push_back({"OU", std::string(60, 'x')});
  const keymaker::Identity made = keymaker::Make(request);
  ASSERT_GT(made.Der().size(), 4096u);
  PlugIn(TokenWith(PairOf(made)));
  EXPECT_EQ(m_identity->facts->der, made.Der());
}

TEST_F(Pkcs11, SignsWithAnRsaKey) {
  PlugIn(TokenWith(PairOf(Rsa())));
  EXPECT_EQ(Sign().code, 0xE000005Au);
  ASSERT_EQ(LogIn(), 0u);
  ASSERT_TRUE(Sign().ok());
  EXPECT_TRUE(Holds());
  ASSERT_TRUE(m_backend->LogOut(*m_identity).ok());
  EXPECT_EQ(Sign().code, 0xE000005Au);
  ASSERT_TRUE(Sign(kPin).ok());
  EXPECT_TRUE(Holds());
  EXPECT_FALSE(m_backend->IsLoggedIn(*m_identity)) << "that PIN was for one signature";
}

// The module has two mechanisms of its own that sign; the first gives what does not hold.
TEST_F(Pkcs11, FindsTheMakersMechanismForSm2) {
  PlugIn(TokenWith(PairOf(Sm2())));
  ASSERT_EQ(LogIn(), 0u);
  ASSERT_TRUE(Sign().ok());
  EXPECT_TRUE(Holds());
  EXPECT_EQ(fakep11::Calls("C_Sign"), 2u);
  ASSERT_TRUE(Sign().ok());
  EXPECT_TRUE(Holds());
  EXPECT_EQ(fakep11::Calls("C_Sign"), 3u) << "and remembers it";
}

TEST_F(Pkcs11, ASm2SignatureThatDoesNotHoldIsAnError) {
  fakep11::Token token = TokenWith(PairOf(Sm2()));
  token.wrongSignatures = true;
  PlugIn(token);
  EXPECT_EQ(Sign(kPin).code, 0xE0000070u);
}

TEST_F(Pkcs11, WrongPinsCountDownUntilTheTokenIsLocked) {
  PlugIn(TokenWith(PairOf(Rsa())));
  EXPECT_EQ(TriesLeft(), 2u);
  EXPECT_EQ(LogIn("87654321"), 0xE0000056u);
  EXPECT_EQ(TriesLeft(), 2u);
  EXPECT_EQ(LogIn("87654321"), 0xE0000056u);
  EXPECT_EQ(TriesLeft(), 1u);
  EXPECT_EQ(LogIn(), 0u) << "wrong twice, then right";
  EXPECT_EQ(TriesLeft(), 2u);
  EXPECT_EQ(LogIn("87654321"), 0xE0000056u);
  EXPECT_EQ(LogIn("87654321"), 0xE0000056u);
  EXPECT_EQ(LogIn("87654321"), 0xE0000057u) << "the last try leaves it locked";
  EXPECT_EQ(TriesLeft(), 0u);
  const unsigned before = fakep11::Calls("C_Login");
  EXPECT_EQ(LogIn(), 0xE0000057u);
  EXPECT_EQ(Sign(kPin).code, 0xE0000057u);
  EXPECT_EQ(fakep11::Calls("C_Login"), before) << "a locked token gets no PIN";
}

TEST_F(Pkcs11, ATokenThatShowsNoTriesGuaranteesOne) {
  fakep11::Token token = TokenWith(PairOf(Rsa()));
  token.showsTries = false;
  PlugIn(token);
  EXPECT_EQ(LogIn("87654321"), 0xE0000056u);
  EXPECT_EQ(TriesLeft(), 1u);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(LogIn("87654321"), 0xE0000056u);
  EXPECT_EQ(LogIn(), 0xE0000057u);
}

TEST_F(Pkcs11, EachPinIsTriedOnce) {
  PlugIn(TokenWith(PairOf(Rsa())));
  EXPECT_EQ(Sign("87654321").code, 0xE0000056u);
  EXPECT_EQ(fakep11::Inspect("token").triesLeft, 2u);
  EXPECT_EQ(ChangePin("87654321", "11223344"), 0xE0000056u);
  EXPECT_EQ(fakep11::Inspect("token").triesLeft, 1u);
}

TEST_F(Pkcs11, APinOfImpossibleLengthIsNotShownToTheToken) {
  PlugIn(TokenWith(PairOf(Rsa())));
  for (const char* pin : {"123", "12345678901234567"}) {
    EXPECT_EQ(LogIn(pin), 0xE0000059u);
    EXPECT_EQ(Sign(pin).code, 0xE0000059u);
    EXPECT_EQ(ChangePin(kPin, pin), 0xE0000059u);
    EXPECT_EQ(ChangePin(pin, kPin), 0xE0000059u);
  }
  EXPECT_EQ(fakep11::Calls("C_Login"), 0u);
  EXPECT_EQ(fakep11::Calls("C_SetPIN"), 0u);
}

TEST_F(Pkcs11, ATokenThatTellsNoLengthsGetsEveryPin) {
  fakep11::Token token = TokenWith(PairOf(Rsa()));
  token.minPin = 0;
  token.maxPin = 0;
  PlugIn(token);
  EXPECT_EQ(LogIn(), 0xE0000059u) << "the token's own word";
  EXPECT_EQ(fakep11::Calls("C_Login"), 1u);
}

TEST_F(Pkcs11, ThePinIsChangedLoggedInOrNot) {
  PlugIn(TokenWith(PairOf(Rsa())));
  ASSERT_EQ(ChangePin(kPin, "87654321"), 0u);
  EXPECT_EQ(LogIn(), 0xE0000056u);
  ASSERT_EQ(LogIn("87654321"), 0u);
  ASSERT_EQ(ChangePin("87654321", kPin), 0u);
  EXPECT_TRUE(m_backend->IsLoggedIn(*m_identity));
  EXPECT_EQ(fakep11::OpenSessions(), 1u);
}

// A module that is logged in accepts any PIN.
TEST_F(Pkcs11, ASecondLoginChecksItsPin) {
  PlugIn(TokenWith(PairOf(Rsa())));
  ASSERT_EQ(LogIn(), 0u);
  ASSERT_EQ(LogIn(), 0u);
  EXPECT_EQ(LogIn("87654321"), 0xE0000056u);
  ASSERT_EQ(LogIn(), 0u);
  EXPECT_EQ(Sign("87654321").code, 0xE0000056u);
}

TEST_F(Pkcs11, ALoginOfSomebodyElseInTheProcessIsNotTaken) {
  PlugIn(TokenWith(PairOf(Rsa())));
  auto host = velcrypto::OpenPkcs11(FAKE_PKCS11_PATH, nullptr);
  std::vector<IdentityPtr> theirs;
  ASSERT_TRUE(host->List(&theirs, &m_skipped).ok());
  ASSERT_TRUE(host->LogIn(*theirs[0], Secret(kPin)).ok());
  EXPECT_FALSE(m_backend->IsLoggedIn(*m_identity));
  EXPECT_EQ(LogIn("87654321"), 0xE0000056u);
  EXPECT_EQ(LogIn(), 0u);
}

TEST_F(Pkcs11, AKeyThatAsksEachTimeGetsThePinEachTime) {
  auto objects = PairOf(Rsa());
  objects[2].asksEachTime = true;
  PlugIn(TokenWith(objects));
  ASSERT_TRUE(Sign(kPin).ok());
  EXPECT_TRUE(Holds());
  ASSERT_EQ(LogIn(), 0u);
  EXPECT_FALSE(m_backend->IsLoggedIn(*m_identity)) << "the PIN is needed again";
  EXPECT_EQ(Sign().code, 0xE000005Au);
  ASSERT_TRUE(Sign(kPin).ok());
  EXPECT_TRUE(Holds());
  EXPECT_EQ(Sign("87654321").code, 0xE0000056u);
  EXPECT_EQ(fakep11::Inspect("token").triesLeft, 2u) << "one try, though two logins";
  ASSERT_TRUE(Sign(kPin).ok()) << "no operation was left open";
  EXPECT_TRUE(Holds());
}

TEST_F(Pkcs11, AnSm2KeyThatAsksEachTimeIsTriedWithOneWrongPinOnly) {
  auto objects = PairOf(Sm2());
  objects[2].asksEachTime = true;
  PlugIn(TokenWith(objects));
  ASSERT_TRUE(Sign(kPin).ok());
  EXPECT_TRUE(Holds());
  ASSERT_EQ(LogIn(), 0u);
  EXPECT_EQ(Sign("87654321").code, 0xE0000056u);
  EXPECT_EQ(fakep11::Inspect("token").triesLeft, 2u);
}

TEST_F(Pkcs11, AReaderWithKeysOfItsOwnAsksThere) {
  fakep11::Token token = TokenWith(PairOf(Rsa()));
  token.flags |= CKF_PROTECTED_AUTHENTICATION_PATH;
  PlugIn(token);
  EXPECT_TRUE(m_backend->IsLoggedIn(*m_identity)) << "no PIN is wanted from us";
  ASSERT_TRUE(Sign().ok());
  EXPECT_TRUE(Holds());
}

TEST_F(Pkcs11, ATokenWithoutLoginSignsAtOnce) {
  auto objects = PairOf(Rsa());
  objects[2].isPrivate = false;
  fakep11::Token token = TokenWith(objects);
  token.flags = CKF_TOKEN_INITIALIZED;
  PlugIn(token);
  EXPECT_TRUE(m_backend->IsLoggedIn(*m_identity));
  ASSERT_TRUE(Sign().ok());
  EXPECT_TRUE(Holds());
}

TEST_F(Pkcs11, ATokenThatComesBackIsFoundInWhateverSlot) {
  for (const CK_RV stale : {CKR_SESSION_HANDLE_INVALID, CKR_DEVICE_REMOVED, CKR_SESSION_CLOSED,
                            CKR_TOKEN_NOT_PRESENT, CKR_DEVICE_ERROR}) {
    fakep11::Reset();
    Open(std::chrono::minutes(5));
    fakep11::Ways ways;
    ways.staleSession = stale;
    fakep11::Behave(ways);
    PlugIn(TokenWith(PairOf(Rsa())));
    ASSERT_EQ(LogIn(), 0u);
    const fakep11::Token token = fakep11::Unplug("token");
    EXPECT_FALSE(m_backend->IsLoggedIn(*m_identity));
    EXPECT_EQ(Sign().code, 0xE0000043u);
    EXPECT_EQ(LogIn(), 0xE0000043u);
    ASSERT_EQ(List(), 0u);
    EXPECT_THAT(m_identities, IsEmpty());
    fakep11::PlugInto(5, token);
    EXPECT_EQ(Sign().code, 0xE000005Au) << "the login has gone with the token";
    ASSERT_EQ(LogIn(), 0u);
    ASSERT_TRUE(Sign().ok());
    EXPECT_TRUE(Holds());
    ASSERT_EQ(List(), 0u);
    EXPECT_EQ(m_identities.size(), 1u);
  }
}

TEST_F(Pkcs11, AnotherTokenInTheSlotGetsNoPin) {
  PlugIn(TokenWith(PairOf(Rsa())));
  fakep11::Unplug("token");
  fakep11::PlugInto(0, TokenWith(PairOf(Rsa()), "token", "2"));
  EXPECT_EQ(LogIn("87654321"), 0xE0000043u);
  EXPECT_EQ(fakep11::Inspect("token").triesLeft, 3u);
}

TEST_F(Pkcs11, ATokenPulledOutAtAnyCallOfASignatureIsAnErrorAndNothingWorse) {
  for (const char* function : {"C_GetSessionInfo", "C_Login", "C_FindObjectsInit", "C_FindObjects",
                               "C_GetAttributeValue", "C_SignInit", "C_Sign", "C_Logout"}) {
    fakep11::Reset();
    Open(std::chrono::minutes(5));
    PlugIn(TokenWith(PairOf(Rsa())));
    fakep11::Fault fault;
    fault.function = function;
    fault.call = 1;
    fault.unplugs = "token";
    fakep11::Add(fault);
    const ULONG code = Sign(kPin).code;
    EXPECT_EQ(code == 0u, std::string(function) == "C_Logout") << function;
    EXPECT_LE(fakep11::Calls("C_Login"), 1u) << function;
    EXPECT_EQ(Sign(kPin).code, 0xE0000043u) << function;
    fakep11::Plug(TokenWith(PairOf(Rsa())));
    EXPECT_EQ(Sign(kPin).code, 0u) << function;
  }
}

TEST_F(Pkcs11, EveryCallOfAListingMayFailWithoutHidingAnotherToken) {
  for (const char* function : {"C_OpenSession", "C_FindObjectsInit", "C_FindObjects",
                               "C_FindObjectsFinal", "C_GetAttributeValue"}) {
    for (const CK_RV result : {CKR_DEVICE_ERROR, CKR_GENERAL_ERROR, CKR_FUNCTION_FAILED,
                               CKR_HOST_MEMORY, CKR_VENDOR_DEFINED + 7}) {
      fakep11::Reset();
      Open(std::chrono::minutes(5));
      fakep11::Plug(TokenWith(PairOf(Rsa()), "first", "1"));
      fakep11::Plug(TokenWith(PairOf(Sm2()), "second", "2"));
      fakep11::Add(Returns(function, result, 1));
      ASSERT_EQ(List(), 0u) << function;
      EXPECT_THAT(Devices(), ElementsAre("second/2")) << function << " " << result;
      ASSERT_EQ(m_skipped.size(), 1u) << function;
      EXPECT_EQ(m_skipped[0].reason.native, result) << function;
      EXPECT_NE(m_skipped[0].reason.code, 0u) << function;
      ASSERT_EQ(List(), 0u);
      EXPECT_THAT(Devices(), ElementsAre("first/1", "second/2")) << function;
    }
  }
}

TEST_F(Pkcs11, ATokenThatFailsForAMomentIsAskedAgain) {
  fakep11::Plug(TokenWith(PairOf(Rsa())));
  fakep11::Add(Returns("C_GetTokenInfo", CKR_DEVICE_ERROR, 1));
  ASSERT_EQ(List(), 0u);
  EXPECT_EQ(m_identities.size(), 1u);
  Open(std::chrono::minutes(5));
  fakep11::Add(Returns("C_GetTokenInfo", CKR_DEVICE_ERROR));
  ASSERT_EQ(List(), 0u);
  ASSERT_EQ(m_skipped.size(), 1u);
  EXPECT_EQ(m_skipped[0].reason.code, 0xE0000040u);
}

TEST_F(Pkcs11, AModuleThatCannotBeStartedIsTriedAgain) {
  fakep11::Plug(TokenWith(PairOf(Rsa())));
  fakep11::Add(Returns("C_Initialize", CKR_DEVICE_ERROR, 1));
  EXPECT_EQ(List(), 0xE0000040u);
  EXPECT_EQ(List(), 0u);
  EXPECT_EQ(m_identities.size(), 1u);
}

TEST_F(Pkcs11, AModuleThatAHostHasFinalisedIsStartedAgain) {
  PlugIn(TokenWith(PairOf(Rsa())));
  auto functions = reinterpret_cast<CK_FUNCTION_LIST*>(0);
  ASSERT_EQ(C_GetFunctionList(&functions), CKR_OK);
  ASSERT_EQ(functions->C_Finalize(nullptr), CKR_OK);
  ASSERT_EQ(List(), 0u);
  EXPECT_EQ(m_identities.size(), 1u);
  ASSERT_EQ(functions->C_Finalize(nullptr), CKR_OK);
  EXPECT_TRUE(Sign(kPin).ok());
}

TEST_F(Pkcs11, NativeCodesAreKept) {
  PlugIn(TokenWith(PairOf(Rsa())));
  const struct {
    CK_RV native;
    ULONG code;
  } cases[] = {{CKR_PIN_EXPIRED, 0xE000005E},    {CKR_USER_PIN_NOT_INITIALIZED, 0xE000005D},
               {CKR_PIN_LOCKED, 0xE0000057},     {CKR_FUNCTION_CANCELED, 0xE0000002},
               {CKR_DEVICE_REMOVED, 0xE0000042}, {CKR_VENDOR_DEFINED + 3, 0xE0000001}};
  for (const auto& item : cases) {
    fakep11::Add(Returns("C_Login", item.native, 1));
    const Outcome outcome = m_backend->LogIn(*m_identity, Secret(kPin));
    EXPECT_EQ(outcome.code, item.code);
    EXPECT_EQ(outcome.native, item.native);
    EXPECT_EQ(outcome.remark, "C_Login");
  }
}

TEST_F(Pkcs11, ASlowModuleIsWaitedFor) {
  Open(std::chrono::seconds(3));
  fakep11::Plug(TokenWith(PairOf(Rsa())));
  for (const char* function : {"C_Initialize", "C_GetSlotList", "C_GetTokenInfo", "C_OpenSession",
                               "C_FindObjectsInit", "C_FindObjects"}) {
    fakep11::Fault slow;
    slow.function = function;
    slow.milliseconds = 300;
    fakep11::Add(slow);
  }
  const auto start = std::chrono::steady_clock::now();
  ASSERT_EQ(List(), 0u);
  EXPECT_EQ(m_identities.size(), 1u);
  EXPECT_GT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3))
      << "longer in all than one call may take";
}

TEST_F(Pkcs11, AModuleThatHangsIsLeftAlone) {
  PlugIn(TokenWith(PairOf(Rsa())));
  Open(std::chrono::milliseconds(200));
  fakep11::Fault hang;
  hang.function = "C_GetSlotList";
  hang.hangs = true;
  fakep11::Add(hang);
  EXPECT_EQ(List(), 0xE0000016u);
  EXPECT_EQ(List(), 0xE0000016u);
  EXPECT_TRUE(Eventually([] { return fakep11::Calls("C_GetSlotList") == 3; }))
      << "two of the first listing";
  // The call may have begun after the time in which the thread should have.
  EXPECT_TRUE(Eventually(
      [this] { return m_backend->GetPinState(*m_identity, nullptr).code == 0xE0000016u; }));
  m_backend->Close();
  fakep11::Reset();
  fakep11::Plug(TokenWith(PairOf(Rsa())));
  EXPECT_TRUE(Eventually([this] { return List() == 0 && m_identities.size() == 1; }))
      << "it has come back";
}

TEST_F(Pkcs11, AModuleThatDoesNotLockGetsOneCallAtATime) {
  for (const bool locks : {false, true}) {
    fakep11::Reset();
    fakep11::Ways ways;
    ways.locks = locks;
    fakep11::Behave(ways);
    Open(std::chrono::minutes(5));
    fakep11::Plug(TokenWith(PairOf(Rsa()), "first", "1"));
    fakep11::Plug(TokenWith(PairOf(Rsa()), "second", "2"));
    ASSERT_EQ(List(), 0u);
    fakep11::Fault slow;
    slow.function = "C_Login";
    slow.milliseconds = 20;
    fakep11::Add(slow);
    std::vector<std::thread> threads;
    std::atomic<int> failures{0};
    for (const IdentityPtr& identity : m_identities) {
      threads.emplace_back([&, identity] {
        for (int i = 0; i < 5; ++i) {
          if (!m_backend->LogIn(*identity, Secret(kPin)).ok()) ++failures;
          if (!m_backend->LogOut(*identity).ok()) ++failures;
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(fakep11::MostAtOnce(), locks ? fakep11::MostAtOnce() : 1u);
  }
}

TEST_F(Pkcs11, TokensOfAModuleThatLooksOnlyWhenStartedComeAndGo) {
  PlugInTwoThatAreSeenOnlyWhenStarted();
  ASSERT_EQ(List(), 0u);
  EXPECT_THAT(Devices(), ElementsAre("goes/2", "stays/1"));
  EXPECT_EQ(fakep11::Calls("C_Finalize"), 0u);
  const fakep11::Token token = fakep11::Unplug("goes");
  ASSERT_EQ(List(), 0u);
  EXPECT_THAT(Devices(), ElementsAre("stays/1"));
  fakep11::PlugInto(1, token);
  ASSERT_EQ(List(), 0u);
  EXPECT_THAT(Devices(), ElementsAre("goes/2", "stays/1"));
  const unsigned finalized = fakep11::Calls("C_Finalize");
  ASSERT_EQ(List(), 0u);
  EXPECT_EQ(fakep11::Calls("C_Finalize"), finalized) << "nothing is missed any more";
}

TEST_F(Pkcs11, ALoginIsNotLostForTheSakeOfAMissingToken) {
  PlugInTwoThatAreSeenOnlyWhenStarted();
  ASSERT_EQ(List(), 0u);
  m_identity = m_identities[1];
  ASSERT_EQ(LogIn(), 0u);
  fakep11::Unplug("goes");
  ASSERT_EQ(List(), 0u);
  EXPECT_EQ(fakep11::Calls("C_Finalize"), 0u);
  EXPECT_TRUE(Sign().ok());
}

TEST_F(Pkcs11, AModuleWithSlotsToPlugIntoIsNeverFinalised) {
  fakep11::Fault crash;
  crash.function = "C_Finalize";
  crash.crashes = true;
  fakep11::Add(crash);
  PlugIn(TokenWith(PairOf(Rsa())));
  ASSERT_EQ(LogIn(), 0u);
  fakep11::Unplug("token");
  EXPECT_EQ(List(), 0u);
  m_backend->Close();
  m_backend.reset();
  EXPECT_EQ(fakep11::Calls("C_Finalize"), 0u);
}

TEST_F(Pkcs11, CloseEndsLoginsAndSessionsAndTheBackendWorksOn) {
  PlugIn(TokenWith(PairOf(Rsa())));
  ASSERT_EQ(LogIn(), 0u);
  m_backend->Close();
  EXPECT_EQ(fakep11::OpenSessions(), 0u);
  EXPECT_FALSE(m_backend->IsLoggedIn(*m_identity));
  ASSERT_TRUE(Sign(kPin).ok());
  EXPECT_TRUE(Holds());
}

TEST_F(Pkcs11, ASignatureWhileLoggedInTakesThreeCalls) {
  PlugIn(TokenWith(PairOf(Rsa())));
  ASSERT_EQ(LogIn(), 0u);
  ASSERT_TRUE(Sign().ok());
  const unsigned before = fakep11::AllCalls();
  ASSERT_TRUE(Sign().ok());
  EXPECT_EQ(fakep11::AllCalls() - before, 3u) << "session, C_SignInit, C_Sign";
}

TEST_F(Pkcs11, AListingThatFindsEverythingAsBeforeAsksForNothingElse) {
  fakep11::Plug(TokenWith(PairOf(Rsa()), "first", "1"));
  fakep11::Plug(TokenWith(PairOf(Sm2()), "second", "2"));
  ASSERT_EQ(List(), 0u);
  const std::vector<IdentityPtr> before = m_identities;
  const unsigned calls = fakep11::AllCalls(), infos = fakep11::Calls("C_GetTokenInfo");
  ASSERT_EQ(List(), 0u);
  EXPECT_EQ(m_identities, before);
  EXPECT_EQ(fakep11::Calls("C_GetTokenInfo"), infos);
  EXPECT_EQ(fakep11::AllCalls() - calls, 2u + 2 * 5) << "slots; session and objects of each token";
}

TEST_F(Pkcs11, ASignatureAfterALoginReadsNoAttributesOnceTheKeyIsKnown) {
  PlugIn(TokenWith(PairOf(Rsa())));
  for (const unsigned calls : {12u, 10u}) {
    const unsigned before = fakep11::AllCalls();
    ASSERT_EQ(LogIn(), 0u);
    ASSERT_TRUE(Sign().ok());
    EXPECT_TRUE(Holds());
    ASSERT_TRUE(m_backend->LogOut(*m_identity).ok());
    EXPECT_LE(fakep11::AllCalls() - before, calls);
  }
  EXPECT_EQ(fakep11::Calls("C_GetTokenInfo"), 2u) << "of the listing";
}

TEST_F(Pkcs11, ATokenIsAskedForItsTriesAgainWhenWrongPinsWereGiven) {
  PlugIn(TokenWith(PairOf(Rsa())));
  ASSERT_EQ(LogIn("87654321"), 0xE0000056u);
  fakep11::Change("token", [](fakep11::Token& token) { token.triesLeft = 0; });
  const unsigned before = fakep11::Calls("C_Login");
  EXPECT_EQ(LogIn(), 0xE0000057u) << "another process has locked it";
  EXPECT_EQ(fakep11::Calls("C_Login"), before);
  fakep11::Change("token", [](fakep11::Token& token) { token.triesLeft = 3; });
  EXPECT_EQ(LogIn(), 0u) << "and somebody has unlocked it";
}

TEST_F(Pkcs11, AKeyThatHasGoneIsNotTakenForTheOneThatWas) {
  PlugIn(TokenWith(PairOf(Rsa())));
  ASSERT_TRUE(Sign(kPin).ok());
  fakep11::Change("token", [](fakep11::Token& token) { token.objects.pop_back(); });
  EXPECT_EQ(Sign(kPin).code, 0xE000002Cu);
  EXPECT_EQ(Sign(kPin).code, 0xE000002Cu);
}

TEST_F(Pkcs11, TheThreadOfListingsEndsWithTheLastObject) {
  std::thread([] {}).join();  // the thread sanitizer adds one of its own to the first
  const NewThreads threads;
  PlugIn(TokenWith(PairOf(Rsa())));
  EXPECT_EQ(threads.Count(), 1u);
  ASSERT_EQ(List(), 0u);
  EXPECT_EQ(threads.Count(), 1u) << "one for all listings";
  m_backend->Close();
  EXPECT_TRUE(Eventually([&] { return threads.Count() == 0; }));
  ASSERT_EQ(List(), 0u);
  EXPECT_EQ(m_identities.size(), 1u);
  EXPECT_EQ(threads.Count(), 1u);
}

TEST_F(Pkcs11, ManyThreadsSignAndListAtOnce) {
  fakep11::Plug(TokenWith(PairOf(Rsa()), "first", "1"));
  fakep11::Plug(TokenWith(PairOf(Rsa()), "second", "2"));
  ASSERT_EQ(List(), 0u);
  const std::vector<IdentityPtr> identities = m_identities;
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (unsigned i = 0; i < 6; ++i) {
    threads.emplace_back([&, i] {
      const Bytes digest(20, 7);
      for (int round = 0; round < 10; ++round) {
        Bytes signature;
        std::vector<IdentityPtr> listed;
        std::vector<velcrypto::Skipped> skipped;
        const Secret pin(kPin);
        if (!m_backend->SignDigest(*identities[i % 2], &pin, digest, &signature).ok()) ++failures;
        if (!m_backend->List(&listed, &skipped).ok() || listed.size() != 2) ++failures;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failures, 0);
}
