#pragma once
// The certificates of one token with what can be told about their keys. What was read is kept
// until the token's objects change; nothing private is ever read. One thread at a time.
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "../Backend.h"
#include "Objects.h"

namespace velcrypto {

class Token;

// What a listing hands out. The key is looked for when it is used: handles do not last.
struct TokenIdentity : Identity {
  std::weak_ptr<Token> token;  // lives as long as the backend
  Bytes keyId;                 // CKA_ID of the certificate
};

// How the token is called in the listing.
struct TokenNames {
  std::string key, label, serial;  // `key` as of Token::KeyOf
};

// Of an RSA key, without leading zeros; empty for other keys.
Bytes ModulusOf(const X509* certificate);
Bytes ModulusOf(const Attributes& key);

// What has to be read of a key object to know it and to sign with it.
const std::vector<CK_ATTRIBUTE_TYPE>& KeyAttributes();

class Contents {
 public:
  // Whether the session still sees the objects that the last Refresh saw, and at least one.
  bool AreSame(const SessionHandle& session, bool loggedIn) const;

  // Looks at the objects that the session sees. `loggedIn` tells that it sees private ones.
  CK_RV Refresh(const SessionHandle& session, bool loggedIn, const TokenNames& names,
                const std::shared_ptr<Token>& token);

  // The token was away: the next Refresh reads everything again, and what was known of keys that
  // hide may hold no longer.
  void Forget();

  // What came to light when the key was looked for, by somebody who is logged in.
  void NoteKey(const std::string& certificateId, bool found);

  const std::vector<IdentityPtr>& identities() const { return m_identities; }
  const std::vector<Skipped>& skipped() const { return m_skipped; }

 private:
  struct Certificate {
    Bytes der, id, label, modulus;
    bool authority = false;
    X509Ptr parsed;
    CertFactsPtr facts;
    std::vector<Bytes> issuers;
  };
  // The keys of one class that can be seen.
  struct Keys {
    std::set<Bytes> moduli;
    std::set<Bytes> otherIds;  // of keys that do not tell a modulus
    void Add(const Attributes& key);
    bool Hold(const Certificate& certificate) const;
    bool empty() const { return moduli.empty() && otherIds.empty(); }
  };
  struct Seen {
    std::vector<Certificate> certificates;
    Keys privateKeys, publicKeys;
    bool loggedIn = false;
  };

  using Handles = std::vector<CK_OBJECT_HANDLE>;

  static CK_RV FindAll(const SessionHandle& session, Handles* handles);  // sorted
  CK_RV Read(const SessionHandle& session, Seen* seen);
  CK_RV ReadCertificates(const SessionHandle& session, std::vector<Certificate>* certificates);
  Outcome Parse(Certificate* certificate) const;
  void ParseAll(std::vector<Certificate>* certificates, const TokenNames& names);
  static void FindIssuers(std::vector<Certificate>* certificates);
  bool HasKey(const Certificate& certificate, const Seen& seen) const;
  void MakeIdentities(const Seen& seen, const TokenNames& names,
                      const std::shared_ptr<Token>& token);

  Handles m_handles;  // of all objects; of the last reading
  bool m_loggedIn = false;
  std::map<Bytes, CertFactsPtr> m_facts;   // by the DER form
  std::map<std::string, bool> m_keyKnown;  // by the certificate's unique id
  std::vector<IdentityPtr> m_identities;
  std::vector<Skipped> m_skipped;
};

}  // namespace velcrypto
