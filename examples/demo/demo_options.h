// Command-line options of the demo host.
#pragma once

#include <string>
#include <vector>

namespace varnek::demo {

struct Options {
  int port = 8080;
  int slots = 5;
  int watchdog = 0;  // 0: the server's default (300 s)
  std::string welcome;
  std::vector<std::string> users;    // NAME:PASS
  std::vector<std::string> secure;   // path prefixes
  bool defaults_for_admin = false;   // no --user/--secure given: /admin for admin:admin
  bool one_stack = false;            // --one-stack: the loop nests every handler
};

// Parses argv. Returns false and fills `error` on an unknown or malformed flag.
bool ParseOptions(int argc, char** argv, Options& options, std::string& error);

// The usage text printed on a bad flag.
std::string Usage();

}  // namespace varnek::demo
