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
  std::vector<std::string> users;   // NAME:PASS
  std::vector<std::string> secure;  // path prefixes
  bool defaults_for_admin = false;  // no --user/--secure given: /admin for admin:admin
  std::string time_server;          // the /system page's clock; "" the local one
  int time_port = 0;                // its UDP port; 0 the standard 123
  std::string gateway;              // /send posts here; empty: this host's own /echo
  // The /page form's serial line: a port number or a device; neither means a
  // simulated terminal on a pty pair inside the demo.
  int pager_port = 0;
  std::string pager_device;
  std::string pager_phone;
  bool one_stack = false;  // --one-stack: the loop nests every handler
  std::string tls;         // --tls NAME: HTTPS with the certificate NAME; "" plain HTTP
};

// Parses argv. Returns false and fills `error` on an unknown or malformed flag.
bool ParseOptions(int argc, char** argv, Options& options, std::string& error);

// The usage text printed on a bad flag.
std::string Usage();

}  // namespace varnek::demo
