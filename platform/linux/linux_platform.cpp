// The process-wide Linux platform: each service is made at first use of the
// bundle and lives until the process ends. Add a service with one line below;
// a service that needs the loop takes the one given.
#include <memory>
#include <vector>

#include "varnek/platform/linux/internal/alsa_midi_output.h"
#include "varnek/platform/linux/internal/cairo_surface.h"
#include "varnek/platform/linux/internal/file_settings_store.h"
#include "varnek/platform/linux/internal/linux_clipboard.h"
#include "varnek/platform/linux/internal/linux_application.h"
#include "varnek/platform/linux/linux_comm.h"
#include "varnek/platform/linux/internal/linux_date_locale.h"
#include "varnek/platform/linux/internal/linux_files.h"
#include "varnek/platform/linux/internal/linux_command_runner.h"
#include "varnek/platform/linux/internal/linux_locale_source.h"
#include "varnek/platform/linux/linux_loop.h"
#include "varnek/platform/linux/internal/linux_network_shares.h"
#include "varnek/platform/linux/linux_network_clock.h"
#include "varnek/platform/linux/internal/linux_system_readings.h"
#include "varnek/platform/linux/internal/linux_net_tables.h"
#include "varnek/platform/linux/linux_socket.h"
#include "varnek/platform/linux/internal/linux_web_services.h"
#include "varnek/platform/linux/internal/linux_profiles.h"
#include "varnek/platform/linux/internal/stderr_message_box.h"
#include "varnek/platform/platform.h"

namespace varnek {

Platform& LinuxPlatformOn(LinuxLoop& loop) {
  // Never destroyed: handlers may still reach the services during exit. The
  // list keeps every bundle reachable, so leak checkers see them as kept.
  static auto* bundles = new std::vector<Platform*>;
  InstallLocaleSource(&LinuxLocale());  // the runtime follows setlocale from here on
  auto* settings = new FileSettingsStore;
  auto* p = new Platform{
      .loop = loop,  // the Linux services watch their descriptors here
      .app = *new LinuxApplication,
      .settings = *settings,
      .sockets = *new LinuxSocketFactory(loop),
      .files = LinuxFiles(),
      .profiles = LinuxProfiles(),
      .dates = LinuxDates(),
      .readings = *new LinuxSystemReadings,
      .network_clock = *new LinuxNetworkClock(loop),
      .messages = *new StderrMessageBox,
      .shares = *new LinuxNetworkShares(*new LinuxCommandRunner, {}, settings),
      .surfaces = *new CairoSurfaceFactory,
      .clipboard = *new LinuxClipboard,
      .midi = *new AlsaMidiOutput,
      .net_tables = *new LinuxNetTables,
      .web = *new LinuxWebServices(loop),
      .comms = *new LinuxCommFactory(loop, settings),
  };
  bundles->push_back(p);
  return *p;
}

Platform& LinuxPlatform() {
  static Platform* platform = &LinuxPlatformOn(*new LinuxLoop);
  return *platform;
}

}  // namespace varnek
