// The test platform: makes its temporary application folder when none is given.
#include "varnek/platform/linux/test_doubles/sim_platform.h"

#include "varnek/platform/linux/internal/linux_date_locale.h"
#include "varnek/platform/linux/internal/linux_files.h"
#include "varnek/platform/linux/internal/linux_profiles.h"

#include <stdlib.h>

#include <filesystem>
#include <string>
#include <system_error>

namespace varnek {

namespace {

// A fresh folder under the temporary directory, or "" when none can be made.
std::string MakeTempFolder() {
  std::string pattern = (std::filesystem::temp_directory_path() / "varnek-test-XXXXXX").string();
  if (!mkdtemp(pattern.data())) return {};
  return pattern;
}

}  // namespace

SimPlatform::SimPlatform(double start_date, Text command_line, Text path, LoopMode mode)
    : loop(start_date, mode),
      app(u"VarnekTest", std::move(path), std::move(command_line)),
      platform{.loop = loop,
               .app = app,
               .settings = settings,
               .sockets = net,
               .files = LinuxFiles(),
               .profiles = LinuxProfiles(),
               .dates = LinuxDates(),
               .readings = readings,
               .network_clock = network_clock,
               .messages = messages,
               .shares = shares,
               .surfaces = surfaces,
               .clipboard = clipboard,
               .midi = midi,
               .net_tables = net_tables,
               .web = web,
               .comms = comms} {
  if (app.path_.empty()) {
    std::string folder = MakeTempFolder();
    app.path_ = Text(folder.begin(), folder.end());  // temp paths are ASCII
    owns_path_ = !folder.empty();
  }
}

SimPlatform::~SimPlatform() {
  if (owns_path_) {
    std::error_code ignored;
    std::filesystem::remove_all(std::string(app.path_.begin(), app.path_.end()), ignored);
  }
}

}  // namespace varnek
