#include "Vctk.h"

#include <stdlib.h>

#include <filesystem>

Vctk::Vctk() {
  std::filesystem::create_directory(KeyStore());
}

Invocation Vctk::Command(const std::vector<std::string>& arguments) const {
  Invocation invocation;
  const char* const program = getenv("VCTK");
  invocation.command = {program != nullptr ? program : "vctk"};
  invocation.command.insert(invocation.command.end(), arguments.begin(), arguments.end());
  // Nobody who runs the tests is asked, and nothing that is plugged in counts.
  invocation.environment = {{"HOME", m_folder.Path()},
                            {"VEL_KEYSTORE", KeyStore()},
                            {"VEL_PKCS11_MODULE", "/nonexistent/module.so"},
                            {"VEL_CERT_DIALOG", "none"},
                            {"VEL_PINENTRY", "/nonexistent/pinentry"},
                            {"LC_ALL", "C.UTF-8"}};
  return invocation;
}

Outcome Vctk::Run(const std::vector<std::string>& arguments, const std::string& input) const {
  Invocation invocation = Command(arguments);
  invocation.input = input;
  return RunProgram(invocation);
}

void Vctk::PlugIn(const Identity& identity) const {
  PutInto(KeyStore(), identity);
}

std::string Vctk::Have(const std::string& name, const std::string& text) const {
  WriteText(m_folder.File(name), text);
  return m_folder.File(name);
}
