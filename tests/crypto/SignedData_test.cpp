// PKCS#7 through the factories, verified by OpenSSL's CMS and by a second library.
#include <gmock/gmock.h>
#include <openssl/cms.h>
#include <openssl/err.h>

#include "BotanVerify.h"
#include "Library.h"

using keymaker::Bytes;

namespace {

const char kPin[] = "12345678";
const Bytes kNull = {0x05, 0x00};

class SignedData : public testing::Test {
 protected:
  void SetUp() override {
    keymaker::Request root;
    root.kind = keymaker::Kind::kRsa;
    root.authority = true;
    root.subject = {{"C", "CN"}, {"CN", "演示根证书"}};
    root.serial = "99";
    m_root = keymaker::Make(root, nullptr, false);
    keymaker::Request request;
    request.serial = "A1";
    request.keyUsage = "critical,digitalSignature,nonRepudiation";
    m_rsa = keymaker::Make(request, &m_root);
    request.kind = keymaker::Kind::kSm2;
    request.serial = "A2B3C4";
    request.subject = {{"CN", "李四"}};
    m_sm2 = keymaker::Make(request, &m_root);
    keymaker::Pkcs12Options options;
    options.issuers = {m_root};
    keymaker::WriteFile(m_store / "rsa.p12", keymaker::Pkcs12(m_rsa, kPin, options));
    keymaker::WriteFile(m_store / "sm2.p12", keymaker::Pkcs12(m_sm2, kPin));
    m_manager = ManagerOf(m_library, {KeyFamily(m_store.path())});
    for (const char* serial : {"A1", "A2B3C4"}) {
      ASSERT_EQ(m_manager->KeyPinCodeHandleByCertSN(VEL_PIN_CODE_OPER_TYPE_LOGIN, serial,
                                                    VEL_PIN_CODE_TYPE_USER, kPin, nullptr, nullptr),
                0u);
    }
    for (const auto& item : CertificatesOf(m_manager)) {
      (item.AsymmAlg == VEL_ASYMM_ALG_RSA ? m_rsaInfo : m_sm2Info) = item;
    }
  }

  Bytes P7(tag_VEL_CERT_INFO certificate, VEL_HASH_ALG hash, bool detached, bool withCertificate,
           Bytes data) {
    CSmartBuffer result;
    EXPECT_EQ(m_manager->P7Sign(&certificate, hash, detached, withCertificate, data.data(),
                                data.size(), &result),
              0u);
    return BytesOf(result);
  }

  Bytes P1(tag_VEL_CERT_INFO certificate, VEL_HASH_ALG hash, Bytes data) {
    CSmartBuffer result;
    EXPECT_EQ(m_manager->P1Sign(&certificate, hash, data.data(), data.size(), &result), 0u);
    return BytesOf(result);
  }

  // OpenSSL's CMS, with the root as the only trusted certificate.
  bool CmsVerifies(const Bytes& der, const Bytes* content, bool withSigner) {
    const unsigned char* at = der.data();
    CMS_ContentInfo* const cms = d2i_CMS_ContentInfo(nullptr, &at, static_cast<long>(der.size()));
    X509_STORE* const store = X509_STORE_new();
    X509_STORE_add_cert(store, m_root.certificate.get());
    X509_STORE_set_purpose(store, X509_PURPOSE_ANY);
    STACK_OF(X509)* const others = sk_X509_new_null();
    if (withSigner) sk_X509_push(others, m_rsa.certificate.get());
    BIO* const in = content == nullptr
                        ? nullptr
                        : BIO_new_mem_buf(content->data(), static_cast<int>(content->size()));
    const bool good = cms != nullptr && at == der.data() + der.size() &&
                      CMS_verify(cms, others, store, in, nullptr, CMS_BINARY) == 1;
    if (!good) ERR_print_errors_fp(stderr);
    BIO_free(in);
    sk_X509_free(others);
    X509_STORE_free(store);
    CMS_ContentInfo_free(cms);
    return good;
  }

  std::pair<ULONG, Bytes> Wrap(tag_VEL_P1_TO_P7_PARAM param) {
    CSmartObjPtr<IVELKeyAuxClass> aux = m_library.NewAux();
    DWORD size = 0;
    const ULONG asked = aux->AssembleP1DataToP7Data(&param, nullptr, &size);
    if (asked != 0) return {asked, {}};
    Bytes result(size);
    const ULONG written = aux->AssembleP1DataToP7Data(&param, result.data(), &size);
    EXPECT_EQ(size, result.size());
    return {written, result};
  }

  static tag_VEL_P1_TO_P7_PARAM Param(Bytes& certificate, VEL_HASH_ALG hash, bool detached,
                                      Bytes& data, Bytes& signature) {
    return {detached,           hash,
            data.data(),        data.size(),
            signature.data(),   signature.size(),
            certificate.data(), certificate.size()};
  }

  Library m_library;
  keymaker::TemporaryFolder m_store;
  keymaker::Identity m_root, m_rsa, m_sm2;
  CSmartObjPtr<IVELDeviceManager> m_manager;
  tag_VEL_CERT_INFO m_rsaInfo, m_sm2Info;
  Bytes m_data = {'c', 'o', 'n', 't', 'e', 'n', 't', 0, 0xFF, '\n'};
};

}  // namespace

TEST_F(SignedData, RsaWithContentIsAcceptedByOpenSsl) {
  for (const VEL_HASH_ALG hash : {VEL_HASH_ALG_SHA1, VEL_HASH_ALG_SHA256, VEL_HASH_ALG_SHA512}) {
    const Bytes der = P7(m_rsaInfo, hash, false, true, m_data);
    EXPECT_TRUE(CmsVerifies(der, nullptr, false)) << hash;
    EXPECT_EQ(botanverify::Parse(der).content, m_data);
  }
}

TEST_F(SignedData, RsaWithoutContentIsAcceptedByOpenSslForThatContentAlone) {
  const Bytes der = P7(m_rsaInfo, VEL_HASH_ALG_SHA256, true, true, m_data);
  EXPECT_TRUE(CmsVerifies(der, &m_data, false));
  Bytes other = m_data;
  other[0] ^= 1;
  testing::internal::CaptureStderr();
  EXPECT_FALSE(CmsVerifies(der, &other, false));
  testing::internal::GetCapturedStderr();
}

TEST_F(SignedData, WithoutCertificatesTheVerifierBringsTheSigners) {
  const Bytes der = P7(m_rsaInfo, VEL_HASH_ALG_SHA256, false, false, m_data);
  EXPECT_TRUE(botanverify::Parse(der).certificates.empty());
  EXPECT_TRUE(CmsVerifies(der, nullptr, true));
}

TEST_F(SignedData, RsaUsesTheIdentifiersOfPkcs7) {
  const botanverify::SignedData data =
      botanverify::Parse(P7(m_rsaInfo, VEL_HASH_ALG_SHA256, false, true, m_data));
  EXPECT_EQ(data.type, "1.2.840.113549.1.7.2");
  EXPECT_EQ(data.contentType, "1.2.840.113549.1.7.1");
  EXPECT_EQ(data.version, 1u);
  EXPECT_EQ(data.signerVersion, 1u);
  EXPECT_EQ(data.digest, "2.16.840.1.101.3.4.2.1");
  EXPECT_EQ(data.signerDigest, data.digest);
  EXPECT_EQ(data.digestParameters, kNull);
  EXPECT_EQ(data.encryption, "1.2.840.113549.1.1.1");
  EXPECT_EQ(data.encryptionParameters, kNull);
  EXPECT_EQ(data.issuer, botanverify::IssuerOf(m_rsa.Der()));
  EXPECT_EQ(data.serial, botanverify::SerialOf(m_rsa.Der()));
}

TEST_F(SignedData, TheSignersCertificateComesFirstAndItsIssuersFollow) {
  const botanverify::SignedData data =
      botanverify::Parse(P7(m_rsaInfo, VEL_HASH_ALG_SHA256, true, true, m_data));
  EXPECT_EQ(data.certificates, (std::vector<Bytes>{m_rsa.Der(), m_root.Der()}));
}

TEST_F(SignedData, Sm2UsesTheIdentifiersOfGmT0010) {
  for (const bool detached : {false, true}) {
    const botanverify::SignedData data =
        botanverify::Parse(P7(m_sm2Info, VEL_HASH_ALG_SM3, detached, true, m_data));
    EXPECT_EQ(data.type, "1.2.156.10197.6.1.4.2.2");
    EXPECT_EQ(data.contentType, "1.2.156.10197.6.1.4.2.1");
    EXPECT_EQ(data.version, 1u);
    EXPECT_EQ(data.signerVersion, 1u);
    EXPECT_EQ(data.digest, "1.2.156.10197.1.401");
    EXPECT_EQ(data.signerDigest, "1.2.156.10197.1.401");
    EXPECT_EQ(data.encryption, "1.2.156.10197.1.301.1");
    EXPECT_EQ(data.detached, detached);
    EXPECT_EQ(data.content, detached ? Bytes() : m_data);
    EXPECT_EQ(data.certificates, std::vector<Bytes>{m_sm2.Der()});
    EXPECT_EQ(data.issuer, botanverify::IssuerOf(m_sm2.Der()));
    EXPECT_EQ(data.serial, botanverify::SerialOf(m_sm2.Der()));
    EXPECT_TRUE(botanverify::Verifies(m_sm2.Der(), "SM3", m_data, data.signature));
    EXPECT_TRUE(keymaker::Verifies(m_sm2.key.get(), "SM3", m_data, data.signature));
  }
}

TEST_F(SignedData, RsaSignaturesInItHoldForASecondLibrary) {
  const std::pair<VEL_HASH_ALG, const char*> digests[] = {{VEL_HASH_ALG_SHA1, "SHA-1"},
                                                          {VEL_HASH_ALG_SHA256, "SHA-256"},
                                                          {VEL_HASH_ALG_SHA512, "SHA-512"},
                                                          {VEL_HASH_ALG_SM3, "SM3"}};
  for (const auto& digest : digests) {
    const botanverify::SignedData data =
        botanverify::Parse(P7(m_rsaInfo, digest.first, true, false, m_data));
    EXPECT_TRUE(botanverify::Verifies(m_rsa.Der(), digest.second, m_data, data.signature))
        << digest.second;
  }
}

TEST_F(SignedData, AWrappedRsaSignatureIsTheSameBytesAsTheDirectOne) {
  Bytes certificate = m_rsa.Der();
  keymaker::WriteFile(m_store / "rsa.p12", keymaker::Pkcs12(m_rsa, kPin));
  ASSERT_EQ(m_manager->KeyPinCodeHandleByCertSN(VEL_PIN_CODE_OPER_TYPE_LOGIN, "A1",
                                                VEL_PIN_CODE_TYPE_USER, kPin, nullptr, nullptr),
            0u);
  for (const bool detached : {false, true}) {
    Bytes signature = P1(m_rsaInfo, VEL_HASH_ALG_SHA256, m_data);
    const auto wrapped = Wrap(Param(certificate, VEL_HASH_ALG_SHA256, detached, m_data, signature));
    ASSERT_EQ(wrapped.first, 0u);
    EXPECT_EQ(wrapped.second, P7(m_rsaInfo, VEL_HASH_ALG_SHA256, detached, true, m_data));
  }
}

TEST_F(SignedData, AWrappedSm2SignatureIsTheSameStructureAsTheDirectOne) {
  Bytes certificate = m_sm2.Der();
  for (const bool detached : {false, true}) {
    const Bytes direct = P7(m_sm2Info, VEL_HASH_ALG_SM3, detached, true, m_data);
    Bytes signature = botanverify::Parse(direct).signature;
    EXPECT_EQ(Wrap(Param(certificate, VEL_HASH_ALG_SM3, detached, m_data, signature)).second,
              direct);
  }
}

TEST_F(SignedData, WrappingDoesNotCompareTheSignatureWithTheContent) {
  Bytes certificate = m_sm2.Der();
  Bytes signature = P1(m_sm2Info, VEL_HASH_ALG_SM3, m_data);
  Bytes other = {'o', 't', 'h', 'e', 'r'};
  const auto wrapped = Wrap(Param(certificate, VEL_HASH_ALG_SM3, false, other, signature));
  ASSERT_EQ(wrapped.first, 0u);
  EXPECT_EQ(botanverify::Parse(wrapped.second).content, other);
}

TEST_F(SignedData, WrappingReportsTheSizeOfAShortBufferAndWritesNothing) {
  Bytes certificate = m_sm2.Der();
  Bytes signature = P1(m_sm2Info, VEL_HASH_ALG_SM3, m_data);
  tag_VEL_P1_TO_P7_PARAM param = Param(certificate, VEL_HASH_ALG_SM3, false, m_data, signature);
  const size_t needed = Wrap(param).second.size();
  CSmartObjPtr<IVELKeyAuxClass> aux = m_library.NewAux();
  Bytes buffer(needed, 0xEE);
  DWORD size = needed - 1;
  EXPECT_EQ(aux->AssembleP1DataToP7Data(&param, buffer.data(), &size), 0xE0000004u);
  EXPECT_EQ(size, needed);
  EXPECT_EQ(buffer, Bytes(needed, 0xEE));
}

TEST_F(SignedData, WrappingRejectsWhatIsMissingOrDoesNotGoTogether) {
  Bytes certificate = m_sm2.Der();
  Bytes rubbish = {0x30, 0x03, 1, 2, 3};
  Bytes signature = {1, 2, 3};
  const auto good = Param(certificate, VEL_HASH_ALG_SM3, false, m_data, signature);
  auto param = good;
  param.P1DataBuffer = nullptr;
  EXPECT_EQ(Wrap(param).first, 0xE0000003u);
  param = good;
  param.CertBuffer = nullptr;
  EXPECT_EQ(Wrap(param).first, 0xE0000003u);
  param = good;
  param.OrgDataBuffer = nullptr;
  EXPECT_EQ(Wrap(param).first, 0xE0000003u);
  param.DetachType = TRUE;
  EXPECT_EQ(Wrap(param).first, 0u) << "a detached one needs no content";
  EXPECT_EQ(Wrap(Param(rubbish, VEL_HASH_ALG_SM3, false, m_data, signature)).first, 0xE0000003u);
  EXPECT_EQ(Wrap(Param(certificate, VEL_HASH_ALG_SHA256, false, m_data, signature)).first,
            0xE0000029u);
  EXPECT_EQ(Wrap(Param(certificate, VEL_HASH_ALG_UNKNOWN, false, m_data, signature)).first,
            0xE0000029u);
  CSmartObjPtr<IVELKeyAuxClass> aux = m_library.NewAux();
  DWORD size = 0;
  EXPECT_EQ(aux->AssembleP1DataToP7Data(nullptr, nullptr, &size), 0xE0000003u);
  param = good;
  EXPECT_EQ(aux->AssembleP1DataToP7Data(&param, nullptr, nullptr), 0xE0000003u);
}

TEST_F(SignedData, EmptyContentIsContent) {
  const Bytes der = P7(m_rsaInfo, VEL_HASH_ALG_SHA256, false, true, Bytes(1));
  EXPECT_EQ(botanverify::Parse(der).content, Bytes(1));
  CSmartBuffer result;
  BYTE none = 0;
  ASSERT_EQ(m_manager->P7Sign(&m_rsaInfo, VEL_HASH_ALG_SHA256, FALSE, TRUE, &none, 0, &result), 0u);
  const botanverify::SignedData data = botanverify::Parse(BytesOf(result));
  EXPECT_FALSE(data.detached);
  EXPECT_TRUE(data.content.empty());
  EXPECT_TRUE(CmsVerifies(BytesOf(result), nullptr, false));
}

TEST_F(SignedData, LongContentIsWhole) {
  Bytes data(3 * 1024 * 1024 + 1);
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<unsigned char>(i * 7 + i / 251);
  const botanverify::SignedData parsed =
      botanverify::Parse(P7(m_sm2Info, VEL_HASH_ALG_SM3, false, true, data));
  EXPECT_TRUE(parsed.content == data);
  EXPECT_TRUE(botanverify::Verifies(m_sm2.Der(), "SM3", data, parsed.signature));
}
