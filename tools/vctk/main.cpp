#include <CLI/CLI.hpp>

int main(int argc, char** argv) {
  CLI::App app("Lists signing certificates and signs files with them.", "vctk");
  app.set_version_flag("--version", "vctk " VCTK_VERSION);
  app.require_subcommand(1);
  CLI11_PARSE(app, argc, argv);
  return 0;
}
