// sparam: the command-line tool for network data files.
#include <CLI/CLI.hpp>
#include <iostream>

#include "product/InfoCommand.h"

int main(int argc, char** argv) {
  CLI::App app{"sparam: inspect and convert network data (S, Y, Z parameters) and project files"};
  app.require_subcommand(1);

  sparam::InfoOptions info;
  CLI::App* infoCommand = app.add_subcommand(
      "info", "Summarise a project file (.ndp): design variables, solutions, ports, frequencies");
  infoCommand->add_option("FILE", info.path, "project file to describe")->required();
  infoCommand->add_flag("--json", info.json, "machine-readable output");
  int status = 0;
  infoCommand->callback([&] { status = sparam::RunInfo(info, std::cout, std::cerr); });

  CLI11_PARSE(app, argc, argv);
  return status;
}
