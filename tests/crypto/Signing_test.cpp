#include "Signing.h"

#include <gtest/gtest.h>
#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/param_build.h>

#include "BotanVerify.h"
#include "KeyMaker.h"

using keymaker::Bytes;
using velcrypto::KeyPtr;

namespace {

Bytes FromHex(const std::string& text) {
  Bytes bytes;
  for (size_t i = 0; i + 1 < text.size(); i += 2) {
    bytes.push_back(static_cast<unsigned char>(std::stoi(text.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

Bytes FromText(const std::string& text) {
  return Bytes(text.begin(), text.end());
}

// The signature example of GB/T 32918.5.
const char kXA[] = "09F9DF311E5421A150DD7D161E4BC5C672179FAD1833FC076BB08FF356F35020";
const char kYA[] = "CCEA490CE26775A52DC6EA718CC1AA600AED05FBF35E084A6632F6072DA9AD13";
const char kE[] = "F0B43E94BA45ACCAACE692ED534382EB17E6AB5A19CE7B31F4486FDFC0D28640";
const char kR[] = "F5A03B0648D2C4630EEAC513E1BB81A15944DA3827D5B74143AC7EACEEE720B3";
const char kS[] = "B1B6AA29DF212FD8763182BC0D421CA1BB9038FD1F7F42D4840B69C485BBC1AA";
const char kN[] = "FFFFFFFEFFFFFFFFFFFFFFFFFFFFFFFF7203DF6B21C6052B53BBF40939D54123";

KeyPtr ExampleKey() {
  const Bytes point = FromHex(std::string("04") + kXA + kYA);
  OSSL_PARAM parameters[] = {
      OSSL_PARAM_construct_utf8_string(OSSL_PKEY_PARAM_GROUP_NAME, const_cast<char*>("SM2"), 0),
      OSSL_PARAM_construct_octet_string(OSSL_PKEY_PARAM_PUB_KEY,
                                        const_cast<unsigned char*>(point.data()), point.size()),
      OSSL_PARAM_construct_end()};
  EVP_PKEY_CTX* const context = EVP_PKEY_CTX_new_from_name(nullptr, "SM2", nullptr);
  EVP_PKEY* key = nullptr;
  EVP_PKEY_fromdata_init(context);
  EVP_PKEY_fromdata(context, &key, EVP_PKEY_PUBLIC_KEY, parameters);
  EVP_PKEY_CTX_free(context);
  return KeyPtr(key);
}

// SEQUENCE { INTEGER, INTEGER } of hexadecimal contents as they are given.
Bytes Sequence(const std::string& r, const std::string& s) {
  const auto integer = [](const std::string& hex) {
    Bytes bytes = FromHex(hex);
    bytes.insert(bytes.begin(), {0x02, static_cast<unsigned char>(hex.size() / 2)});
    return bytes;
  };
  Bytes body = integer(r);
  const Bytes second = integer(s);
  body.insert(body.end(), second.begin(), second.end());
  body.insert(body.begin(), {0x30, static_cast<unsigned char>(body.size())});
  return body;
}

std::string Positive(const std::string& hex) {
  return std::string("00") + hex;
}

}  // namespace

TEST(Signing, Sm2DigestIsTheOneOfTheStandardsExample) {
  const KeyPtr key = ExampleKey();
  ASSERT_NE(key, nullptr);
  const Bytes message = FromText("message digest");
  Bytes digest;
  ASSERT_TRUE(velcrypto::DigestForSigning(key.get(), VEL_HASH_ALG_SM3, message.data(),
                                          message.size(), &digest)
                  .ok());
  EXPECT_EQ(digest, FromHex(kE));
}

TEST(Signing, TheStandardsSm2SignatureHolds) {
  const KeyPtr key = ExampleKey();
  EXPECT_TRUE(
      velcrypto::VerifyDigest(key.get(), FromHex(kE), Sequence(Positive(kR), Positive(kS))).ok());
}

TEST(Signing, Sm2SignaturesThatTheStandardForbidsDoNotHold) {
  const KeyPtr key = ExampleKey();
  const std::string r = Positive(kR);
  const std::string s = Positive(kS);
  const std::string n = Positive(kN);
  const Bytes bad[] = {
      Sequence("00", s),    Sequence(r, "00"), Sequence(n, s),
      Sequence(r, n),       Sequence(kR, s),  // negative
      Sequence("00" + r, s)                   // superfluous zero
  };
  for (const Bytes& signature : bad) {
    EXPECT_EQ(velcrypto::VerifyDigest(key.get(), FromHex(kE), signature).code, 0xE0000070u);
  }
  Bytes trailing = Sequence(r, s);
  trailing.push_back(0);
  EXPECT_EQ(velcrypto::VerifyDigest(key.get(), FromHex(kE), trailing).code, 0xE0000070u);
  Bytes digest = FromHex(kE);
  digest[31] ^= 1;
  EXPECT_EQ(velcrypto::VerifyDigest(key.get(), digest, Sequence(r, s)).code, 0xE0000070u);
}

TEST(Signing, RsaDigestInfoHasThePrefixesOfTheStandards) {
  const keymaker::Identity identity = keymaker::Make({});
  const struct {
    VEL_HASH_ALG alg;
    const char* prefix;
    const char* hashOfAbc;
  } cases[] = {
      {VEL_HASH_ALG_SHA1, "3021300906052B0E03021A05000414",
       "A9993E364706816ABA3E25717850C26C9CD0D89D"},
      {VEL_HASH_ALG_SHA256, "3031300D060960864801650304020105000420",
       "BA7816BF8F01CFEA414140DE5DAE2223B00361A396177A9CB410FF61F20015AD"},
      {VEL_HASH_ALG_SM3, "3030300C06082A811CCF5501831105000420",
       "66C7F0F462EEEDD9D1F2D46BDC10E4E24167C4875CF2F7A2297DA02B8F4BA8E0"},
      {VEL_HASH_ALG_MD5, "3020300C06082A864886F70D020505000410",
       "900150983CD24FB0D6963F7D28E17F72"},
  };
  const Bytes message = FromText("abc");
  for (const auto& item : cases) {
    Bytes digest;
    ASSERT_TRUE(velcrypto::DigestForSigning(identity.key.get(), item.alg, message.data(),
                                            message.size(), &digest)
                    .ok());
    EXPECT_EQ(digest, FromHex(std::string(item.prefix) + item.hashOfAbc));
  }
}

TEST(Signing, SignaturesHoldForOpenSslAndForASecondLibrary) {
  keymaker::Request request;
  const Bytes message = FromText("中文 and a few bytes more");
  for (const auto kind : {keymaker::Kind::kRsa, keymaker::Kind::kSm2}) {
    request.kind = kind;
    const keymaker::Identity identity = keymaker::Make(request);
    const bool rsa = kind == keymaker::Kind::kRsa;
    for (int round = 0; round < 20; ++round) {  // SM2 numbers vary in length
      Bytes digest, signature;
      ASSERT_TRUE(velcrypto::DigestForSigning(identity.key.get(),
                                              rsa ? VEL_HASH_ALG_SHA256 : VEL_HASH_ALG_SM3,
                                              message.data(), message.size(), &digest)
                      .ok());
      ASSERT_TRUE(velcrypto::SignWithKey(identity.key.get(), digest, &signature).ok());
      EXPECT_TRUE(velcrypto::VerifyDigest(identity.key.get(), digest, signature).ok());
      EXPECT_TRUE(
          keymaker::Verifies(identity.key.get(), rsa ? "SHA256" : "SM3", message, signature));
      EXPECT_TRUE(botanverify::Verifies(identity.Der(), "SHA-256", message, signature));
    }
  }
}

TEST(Signing, OtherKeysAreOfTheWrongType) {
  keymaker::Request request;
  request.kind = keymaker::Kind::kP256;
  const keymaker::Identity identity = keymaker::Make(request);
  Bytes digest;
  const BYTE byte = 1;
  EXPECT_EQ(
      velcrypto::DigestForSigning(identity.key.get(), VEL_HASH_ALG_SHA256, &byte, 1, &digest).code,
      0xE000002Bu);
  EXPECT_EQ(velcrypto::DigestForSigning(nullptr, VEL_HASH_ALG_SHA256, &byte, 1, &digest).code,
            0xE000002Bu);
}
