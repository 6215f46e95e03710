// Varnek inside a GLib main loop (GTK, and Qt on Linux, whose event
// dispatcher is GLib's): the loop core is a GSource on the host's
// GMainContext, woken by Varnek's epoll descriptor and its next deadline.
//
//   GLibLoop loop;                          // the default main context
//   HTTPServer server(LinuxPlatformOn(loop));
//   gtk_main();                             // the host's loop runs Varnek
//
// Waits inside handlers: on strands a wait suspends its strand and control
// returns to the host's loop; in one-stack mode a wait iterates the host's
// context (the classic nested DoEvents), so the host's events run in it.
// A context destroyed while the loop lives makes every later wait fail with
// std::runtime_error.
#pragma once

#include <glib.h>

#include "varnek/platform/linux/linux_loop.h"

namespace varnek {

class GLibLoop : public LinuxLoop {
 public:
  // context: the host's context; null for the global default one. The loop
  // does not keep the context alive.
  explicit GLibLoop(GMainContext* context = nullptr, LoopMode mode = LoopMode::kStrands);
  ~GLibLoop() override;
};

}  // namespace varnek
