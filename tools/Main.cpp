// Entry point of the `ostrel` command-line program; the work is in Cli.cpp and the commands.
#include "Cli.h"

#include <iostream>
#include <string>
#include <vector>

int main(int argc, char** argv) {
  std::vector<std::string> args;
  for (int i = 1; i < argc; ++i) args.emplace_back(argv[i]);
  return ostrel::cli::Main(args, std::cin, std::cout, std::cerr);
}
