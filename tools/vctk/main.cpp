// vctk: lists signing certificates, signs files, changes PINs.
#include <langinfo.h>
#include <locale.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <sstream>

#include "Choice.h"
#include "Commands.h"
#include "Files.h"

namespace vctk {
namespace {

const char kFooter[] =
    "Exit codes: 0 done, 1 the toolkit or the key reported a failure, 2 wrong usage,\n"
    "3 a file cannot be read or written, 4 key list or device library unusable,\n"
    "5 no certificate or no clear choice, 6 PIN missing, wrong or locked, 7 cancelled.\n"
    "\n"
    "The key list is --key-list, else $VCTK_KEY_LIST, else vel/keylist.xml in the user's\n"
    "configuration folder, else /etc/vel/keylist.xml, else the key store and every PKCS#11\n"
    "token that the system knows.\n";

std::string LocaleOfMessages() {
  for (const char* const name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* const value = getenv(name);
    if (value != nullptr && value[0] != '\0') return value;
  }
  return std::string();
}

// The toolkit takes the locale of the environment for its texts, which are UTF-8. The language of
// the dialogs stays.
void EnsureUtf8() {
  if (setlocale(LC_ALL, "") != nullptr && strcmp(nl_langinfo(CODESET), "UTF-8") == 0) return;
  const std::string locale = LocaleOfMessages();
  const char* const wanted = getenv("LANGUAGE");
  if (wanted == nullptr || *wanted == '\0') {
    setenv("LANGUAGE", locale.substr(0, locale.find('.')).c_str(), 1);
  }
  setenv("LC_ALL", "C.UTF-8", 1);
  setlocale(LC_ALL, "");
}

struct Options {
  CertsOptions certs;
  SignOptions sign;
  PinChangeOptions pinChange;
  DoctorOptions doctor;
  CommonOptions calls;
  std::string code;
};

void AddCommon(CLI::App& command, CommonOptions& options) {
  command.add_option("--key-list", options.keyList, "The key list: which keys are looked for")
      ->type_name("FILE");
  command
      .add_option("--filter", options.filters,
                  "Only certificates that pass; may be repeated. NAME is one of " + FilterNames())
      ->type_name("NAME=VALUE")
      ->take_all()
      ->expected(1);
}

void AddPinFile(CLI::App& command, std::string& pinFile, const std::string& lines) {
  command
      .add_option("--pin-file", pinFile,
                  "File with " + lines +
                      ", \"-\" for standard input. Without it standard input is read when it is a "
                      "pipe or a file, else you are asked")
      ->type_name("FILE");
}

CLI::App* AddCerts(CLI::App& app, CertsOptions& options) {
  CLI::App* const command = app.add_subcommand("certs", "List the certificates that can sign");
  AddCommon(*command, options);
  command->add_flag("--json", options.json, "As a JSON array with the certificates in base64");
  command->add_flag("--all", options.all,
                    "Also those that cannot sign, with the reason, and what could not be looked "
                    "into; with --json an object with certificates, hidden and skipped");
  return command;
}

CLI::App* AddSign(CLI::App& app, SignOptions& options) {
  CLI::App* const command = app.add_subcommand("sign", "Sign files");
  command
      ->add_option("FILE", options.files,
                   "The files to sign, \"-\" for standard input. Each of several gets its "
                   "signature beside it, named FILE.p7, .p7s (detached) or .p1")
      ->required()
      ->type_name("");
  AddCommon(*command, options);
  CLI::Option* const pkcs1 = command->add_flag(
      "--p1", options.pkcs1, "A bare PKCS#1 signature: SHA1 for an RSA key, SM3 for an SM2 key");
  command->add_flag("--p7", "A PKCS#7 signature with the certificate (the default)")
      ->excludes(pkcs1);
  command->add_flag("--detached", options.detached, "Leave the content out of the PKCS#7 signature")
      ->excludes(pkcs1);
  command
      ->add_option("--cert", options.serial,
                   "Serial number of the certificate. Where neither certificate nor PIN is given "
                   "and there is a terminal, they are asked for in dialogs")
      ->type_name("SERIAL");
  command
      ->add_option("--digest", options.digest,
                   "MD5, SHA1, SHA256, SHA512 or SM3; without it the key list's for the key")
      ->type_name("NAME");
  command
      ->add_option("-o,--output", options.output,
                   "Where the signature goes, else to standard output; the folder for several")
      ->type_name("FILE");
  command->add_flag("--binary", options.binary, "Bytes (DER for PKCS#7) instead of base64");
  command->add_flag("--dialog", options.dialog,
                    "Ask for certificate and PIN in dialogs without a terminal, too");
  AddPinFile(*command, options.pinFile, "the PIN in its first line");
  return command;
}

CLI::App* AddPinChange(CLI::App& app, PinChangeOptions& options) {
  CLI::App* const pin = app.add_subcommand("pin", "PIN of a key")->require_subcommand(1);
  CLI::App* const command = pin->add_subcommand("change", "Change the PIN");
  AddCommon(*command, options);
  command->add_option("--cert", options.serial, "Serial number of a certificate on the key")
      ->type_name("SERIAL");
  AddPinFile(*command, options.pinFile,
             "the current PIN in the first and the new one in the second line");
  return command;
}

CLI::App* AddDoctor(CLI::App& app, DoctorOptions& options) {
  CLI::App* const command = app.add_subcommand(
      "doctor", "Tell what is installed, plugged in and would be signed with, and what is wrong");
  AddCommon(*command, options);
  command->add_flag("--json", options.json, "As a JSON object");
  return command;
}

CLI::App* AddCalls(CLI::App& app, CommonOptions& options) {
  CLI::App* const command = app.add_subcommand(
      "calls", "List the certificates and show the device library's record of it, for support");
  AddCommon(*command, options);
  return command;
}

CLI::App* AddMessage(CLI::App& app, std::string& code) {
  CLI::App* const command = app.add_subcommand("message", "Tell what an error code means");
  command->add_option("CODE", code, "The code, as 0xE0000056 or -536870826")
      ->required()
      ->type_name("");
  return command;
}

// Help and version are "errors" of the parser with exit code 0.
ExitCode TellParser(const CLI::App& app, const CLI::ParseError& error) {
  std::ostringstream out;
  std::ostringstream err;
  const int code = app.exit(error, out, err);
  Print(out.str());
  fputs(err.str().c_str(), stderr);
  return code == 0 ? kDone : kUsage;
}

ExitCode Run(int argc, char** argv) {
  CLI::App app("Lists signing certificates and signs files with them.", "vctk");
  app.set_version_flag("--version", "vctk " VCTK_VERSION);
  app.footer(kFooter);
  app.require_subcommand(1);
  Options options;
  const CLI::App* const certs = AddCerts(app, options.certs);
  const CLI::App* const sign = AddSign(app, options.sign);
  const CLI::App* const pinChange = AddPinChange(app, options.pinChange);
  const CLI::App* const doctor = AddDoctor(app, options.doctor);
  const CLI::App* const calls = AddCalls(app, options.calls);
  AddMessage(app, options.code);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return TellParser(app, error);
  }
  if (certs->parsed()) return RunCerts(options.certs);
  if (sign->parsed()) return RunSign(options.sign);
  if (pinChange->parsed()) return RunPinChange(options.pinChange);
  if (doctor->parsed()) return RunDoctor(options.doctor);
  if (calls->parsed()) return RunCalls(options.calls);
  return RunMessage(options.code);
}

int RunAndTell(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const Failure& failure) {
    fprintf(stderr, "vctk: %s\n", failure.what());
    if (!failure.Advice().empty()) fprintf(stderr, "  %s\n", failure.Advice().c_str());
    return failure.Exit();
  } catch (const std::exception& error) {
    fprintf(stderr, "vctk: %s\n", error.what());
    return kFailed;
  }
}

}  // namespace
}  // namespace vctk

int main(int argc, char** argv) {
  vctk::ClaimStandardOutput();
  vctk::EnsureUtf8();
  const int exitCode = vctk::RunAndTell(argc, argv);
#ifdef VCTK_ORDERLY_EXIT
  return exitCode;
#else
  // Everything is written and the session ended; the toolkit's log would keep the process for
  // another second, and what it has not written by now it would throw away all the same.
  fflush(nullptr);
  _exit(exitCode);
#endif
}
