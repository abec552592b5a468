// What the key store makes of the files that it finds.
#include "keystore/Listing.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "KeyMaker.h"
#include "Text.h"

using keymaker::Bytes;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

const char kPin[] = "12345678";

class ListingTest : public testing::Test {
 protected:
  // The names of the listed files.
  std::vector<std::string> List() {
    std::vector<velcrypto::IdentityPtr> identities;
    m_skipped.clear();
    m_identities.clear();
    EXPECT_TRUE(m_listing.Refresh(&identities, &m_skipped).ok());
    std::vector<std::string> names;
    for (const auto& identity : identities) names.push_back(identity->container);
    m_identities = identities;
    return names;
  }
  std::string ReasonFor(const std::string& name) {
    for (const auto& item : m_skipped) {
      if (item.device == name) return item.reason.remark;
    }
    return "not skipped";
  }
  void Put(const std::string& name, const Bytes& content) {
    keymaker::WriteFile(m_folder / name, content);
  }

  const keymaker::Identity m_identity = keymaker::Make({});
  const Bytes m_good = keymaker::Pkcs12(m_identity, kPin);
  keymaker::TemporaryFolder m_folder;
  velcrypto::Listing m_listing{m_folder.path()};
  std::vector<velcrypto::IdentityPtr> m_identities;
  std::vector<velcrypto::Skipped> m_skipped;
};

}  // namespace

TEST_F(ListingTest, AnEmptyFolderHoldsNothing) {
  EXPECT_THAT(List(), IsEmpty());
  EXPECT_TRUE(m_skipped.empty());
}

TEST_F(ListingTest, AMissingFolderIsAMissingDevice) {
  velcrypto::Listing listing("/nowhere/at/all");
  std::vector<velcrypto::IdentityPtr> identities;
  const velcrypto::Outcome outcome = listing.Refresh(&identities, &m_skipped);
  EXPECT_EQ(outcome.code, 0xE0000043u);
  EXPECT_EQ(outcome.native, 2u);
}

TEST_F(ListingTest, WhatIsUnusableIsLeftOutWithItsReasonAndHidesNothing) {
  Put("good.p12", m_good);
  Put("text.p12", Bytes(100, 'x'));
  Put("empty.p12", {});
  Put("half.p12", Bytes(m_good.begin(), m_good.begin() + static_cast<long>(m_good.size() / 2)));
  Bytes longer = m_good;
  longer.push_back(0);
  Put("longer.p12", longer);
  Put("huge.p12", Bytes((1 << 20) + 1));
  keymaker::Request request;
  request.kind = keymaker::Kind::kP256;
  Put("p256.p12", keymaker::Pkcs12(keymaker::Make(request), kPin));
  keymaker::Pkcs12Options options;
  options.withMac = false;
  Put("nomac.p12", keymaker::Pkcs12(m_identity, kPin, options));
  options = {};
  options.encryptKey = false;
  Put("barekey.p12", keymaker::Pkcs12(m_identity, kPin, options));
  std::filesystem::create_directory(m_folder / "folder.p12");
  std::filesystem::create_symlink(m_folder / "good.p12", m_folder / "link.p12");
  ASSERT_EQ(mkfifo((m_folder / "pipe.p12").c_str(), 0600), 0);
  EXPECT_THAT(List(), ElementsAre("good.p12"));
  EXPECT_EQ(m_skipped.size(), 11u);
  for (const char* name : {"text.p12", "empty.p12", "half.p12", "longer.p12"}) {
    EXPECT_THAT(ReasonFor(name), HasSubstr("no PKCS#12 file")) << name;
  }
  EXPECT_EQ(ReasonFor("huge.p12"), "too large");
  EXPECT_THAT(ReasonFor("p256.p12"), HasSubstr("neither RSA nor SM2"));
  EXPECT_THAT(ReasonFor("nomac.p12"), HasSubstr("no MAC"));
  EXPECT_THAT(ReasonFor("barekey.p12"), HasSubstr("not encrypted"));
  for (const char* name : {"folder.p12", "link.p12", "pipe.p12"}) {
    EXPECT_EQ(ReasonFor(name), "not a regular file") << name;
  }
}

TEST_F(ListingTest, UnreadableFilesAreLeftOut) {
  Put("secret.p12", m_good);
  ASSERT_EQ(chmod((m_folder / "secret.p12").c_str(), 0), 0);
  ASSERT_EQ(chmod(m_folder.path().c_str(), 0755), 0);
  const uid_t user = geteuid();
  ASSERT_EQ(user == 0 ? seteuid(65534) : 0, 0);  // root reads everything
  const auto listed = List();
  ASSERT_EQ(user == 0 ? seteuid(user) : 0, 0);
  EXPECT_THAT(listed, IsEmpty());
  EXPECT_THAT(ReasonFor("secret.p12"), HasSubstr("ermission"));
}

TEST_F(ListingTest, HiddenFilesAreNotLookedAt) {
  Put(".hidden.p12", m_good);
  EXPECT_THAT(List(), IsEmpty());
  EXPECT_TRUE(m_skipped.empty());
}

TEST_F(ListingTest, EncryptedCertificatesNeedACertificateFileBeside) {
  keymaker::Pkcs12Options options;
  options.encryptCertificates = true;
  Put("closed.p12", keymaker::Pkcs12(m_identity, kPin, options));
  EXPECT_THAT(List(), IsEmpty());
  EXPECT_THAT(ReasonFor("closed.p12"), HasSubstr("encrypted"));
  Put("closed.crt", m_identity.Der());
  EXPECT_THAT(List(), ElementsAre("closed.p12"));
  EXPECT_TRUE(m_identities[0]->hasKey);
  EXPECT_EQ(m_identities[0]->facts->der, m_identity.Der());
  Put("closed.crt", {'x'});
  EXPECT_THAT(List(), IsEmpty());
}

TEST_F(ListingTest, AFileWithoutAKeyIsACertificateAlone) {
  keymaker::Pkcs12Options options;
  options.withKey = false;
  Put("cert.p12", keymaker::Pkcs12(m_identity, kPin, options));
  ASSERT_THAT(List(), ElementsAre("cert.p12"));
  EXPECT_FALSE(m_identities[0]->hasKey);
}

TEST_F(ListingTest, TheKeysCertificateIsToldFromItsIssuers) {
  keymaker::Request request;
  request.authority = true;
  request.subject = {{"CN", "root"}};
  const keymaker::Identity root = keymaker::Make(request, nullptr, true);
  request.subject = {{"CN", "middle"}};
  request.serial = "02";
  const keymaker::Identity middle = keymaker::Make(request, &root, true);
  request = {};
  request.serial = "03";
  const keymaker::Identity leaf = keymaker::Make(request, &middle);
  keymaker::Pkcs12Options options;
  options.issuers = {root, m_identity, middle};
  Put("chain.p12", keymaker::Pkcs12(leaf, kPin, options));
  ASSERT_THAT(List(), ElementsAre("chain.p12"));
  EXPECT_EQ(m_identities[0]->facts->der, leaf.Der());
  EXPECT_EQ(m_identities[0]->issuers, (std::vector<Bytes>{middle.Der(), root.Der()}))
      << "nearest first, strangers left out";
}

TEST_F(ListingTest, AListingShowsWhatIsThereNow) {
  EXPECT_THAT(List(), IsEmpty());
  Put("b.p12", m_good);
  EXPECT_THAT(List(), ElementsAre("b.p12"));
  Put("a.p12", m_good);
  EXPECT_THAT(List(), ElementsAre("a.p12", "b.p12"));
  std::filesystem::remove(m_folder / "b.p12");
  EXPECT_THAT(List(), ElementsAre("a.p12"));
  std::filesystem::rename(m_folder / "a.p12", m_folder / "c.p12");
  EXPECT_THAT(List(), ElementsAre("c.p12"));
}

// Same name, same size, same time of modification to the clock's tick.
TEST_F(ListingTest, AFileReplacedAtOnceIsSeen) {
  keymaker::Request request;
  std::vector<Bytes> files, certificates;
  for (const char* serial : {"11", "12"}) {
    request.serial = serial;
    const keymaker::Identity identity = keymaker::Make(request);
    files.push_back(keymaker::Pkcs12(identity, kPin));
    certificates.push_back(identity.Der());
  }
  for (size_t round = 0; round < 20; ++round) {
    Put("a.p12", files[round % 2]);
    ASSERT_THAT(List(), ElementsAre("a.p12"));
    ASSERT_EQ(m_identities[0]->facts->der, certificates[round % 2]) << round;
  }
}

TEST_F(ListingTest, UnchangedFilesAreNotReadAgain) {
  Put("a.p12", m_good);
  usleep(150000);  // until its time is older than the file system's clock is coarse
  List();
  const auto before = m_identities[0];
  List();
  EXPECT_EQ(m_identities[0], before);
}

TEST_F(ListingTest, NamesThatAreNoUtf8AreListed) {
  Put("\xFF\xFE.p12", m_good);
  EXPECT_EQ(List().size(), 1u);
}
