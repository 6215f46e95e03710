// Parsing of the demo host's flags.
#include "examples/demo/demo_options.h"

#include <cstdlib>

namespace varnek::demo {

namespace {

bool ToInt(const std::string& text, int low, int high, int& out) {
  if (text.empty()) return false;
  char* end = nullptr;
  const long value = std::strtol(text.c_str(), &end, 10);
  if (*end != '\0' || value < low || value > high) return false;
  out = static_cast<int>(value);
  return true;
}

}  // namespace

std::string Usage() {
  return "usage: varnek-demo [--port N] [--slots N] [--watchdog SECONDS] [--welcome TEXT]\n"
         "                   [--user NAME:PASS]... [--secure PATH]... [--gateway URL]\n"
         "                   [--time-server HOST] [--time-port N]\n"
         "                   [--pager-port N | --pager-device PATH] [--pager-phone NUMBER]\n"
         "                   [--one-stack] [--tls NAME]\n"
         "Without --user and --secure, /admin is secured for admin:admin.\n"
         "--one-stack nests every handler on one stack (the classic way) instead of\n"
         "running each connection on a strand of its own.\n"
         "--tls NAME serves HTTPS with NAME.pem and NAME.key (or NAME.p12) from\n"
         "$VARNEK_CERT_DIR, $XDG_CONFIG_HOME/varnek/certs or /etc/varnek/certs.\n";
}

bool ParseOptions(int argc, char** argv, Options& options, std::string& error) {
  for (int k = 1; k < argc; ++k) {
    const std::string flag = argv[k];
    if (flag == "--help" || flag == "-h") {
      error = "";
      return false;
    }
    if (flag == "--one-stack") {  // a flag without a value
      options.one_stack = true;
      continue;
    }
    if (k + 1 >= argc) {
      error = "missing value after " + flag;
      return false;
    }
    const std::string value = argv[++k];
    bool ok = true;
    if (flag == "--port") {
      ok = ToInt(value, 1, 65535, options.port);
    } else if (flag == "--slots") {
      ok = ToInt(value, 1, 32767, options.slots);
    } else if (flag == "--watchdog") {
      ok = ToInt(value, -32768, 32767, options.watchdog);
    } else if (flag == "--welcome") {
      options.welcome = value;
    } else if (flag == "--user") {
      ok = value.find(':') != std::string::npos;
      options.users.push_back(value);
    } else if (flag == "--time-server") {
      options.time_server = value;
    } else if (flag == "--time-port") {
      ok = ToInt(value, 1, 65535, options.time_port);
    } else if (flag == "--secure") {
      options.secure.push_back(value);
    } else if (flag == "--gateway") {
      options.gateway = value;
    } else if (flag == "--pager-port") {
      ok = ToInt(value, 1, 255, options.pager_port);
    } else if (flag == "--pager-device") {
      options.pager_device = value;
    } else if (flag == "--pager-phone") {
      options.pager_phone = value;
    } else if (flag == "--tls") {
      ok = !value.empty();
      options.tls = value;
    } else {
      error = "unknown flag " + flag;
      return false;
    }
    if (!ok) {
      error = "bad value for " + flag + ": " + value;
      return false;
    }
  }
  if (options.users.empty() && options.secure.empty()) {
    options.defaults_for_admin = true;
    options.users.push_back("admin:admin");
    options.secure.push_back("/admin");
  }
  return true;
}

}  // namespace varnek::demo
