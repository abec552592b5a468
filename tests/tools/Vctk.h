#pragma once
// The program under test with a home, a key store and no configuration of its own.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Identities.h"
#include "Program.h"

class Vctk : public ::testing::Test {
 protected:
  Vctk();

  // "vctk ARGUMENTS...", ready to be run or changed first.
  Invocation Command(const std::vector<std::string>& arguments) const;
  Outcome Run(const std::vector<std::string>& arguments, const std::string& input = "") const;

  // Adds an identity of SharedIdentities to the key store.
  void PlugIn(const Identity& identity) const;

  const TemporaryFolder& Folder() const { return m_folder; }
  std::string KeyStore() const { return m_folder.File("keystore"); }

  // A file that holds the text.
  std::string Have(const std::string& name, const std::string& text) const;
  std::string PinFile() const { return Have("pin", std::string(Identities::kPin) + "\n"); }

 private:
  TemporaryFolder m_folder;
};

// Exit codes, as vctk --help lists them.
enum { kDone, kFailed, kUsage, kFile, kNoSession, kNoCertificate, kPinFault, kCancelled };
