// The GLib backend: a GSource watching the epoll set's descriptor, ready
// when it is readable or the loop core's next deadline has come. A pump of
// Varnek's own iterates the host's context and then runs its pass itself.
#include "varnek/platform/linux/glib/glib_loop.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <stdexcept>

namespace varnek {

namespace {

class GLibBackend : public LinuxBackend {
 public:
  explicit GLibBackend(GMainContext* context) {
    static GSourceFuncs funcs = {&Prepare, &Check, &Dispatch, nullptr, nullptr, nullptr};
    source_ = reinterpret_cast<Source*>(g_source_new(&funcs, sizeof(Source)));
    source_->owner = this;
    g_source_set_name(&source_->base, "varnek");
    // A handler's wait iterates the context from inside this source's own
    // dispatch; the source must still be polled there.
    g_source_set_can_recurse(&source_->base, TRUE);
    tag_ = g_source_add_unix_fd(&source_->base, epoll().Descriptor(), G_IO_IN);
    g_source_attach(&source_->base, context ? context : g_main_context_default());
  }
  ~GLibBackend() override {
    if (!g_source_is_destroyed(&source_->base)) g_source_destroy(&source_->base);
    g_source_unref(&source_->base);
  }

  void Attach(HostLoop& loop) override { loop_ = &loop; }

  bool WaitUntil(double deadline) override {
    GMainContext* context = LiveContext();
    const bool outer_wait = in_wait_;
    const double outer_deadline = wait_deadline_;
    in_wait_ = true;
    wait_deadline_ = deadline;
    g_main_context_iteration(context, deadline > Clock());
    in_wait_ = outer_wait;
    wait_deadline_ = outer_deadline;
    return epoll().WaitAndDispatch(0);
  }

  bool RunReady() override {
    LiveContext();
    return epoll().WaitAndDispatch(0);
  }

 private:
  struct Source {
    GSource base;
    GLibBackend* owner;
  };

  GMainContext* LiveContext() {
    if (g_source_is_destroyed(&source_->base)) {
      throw std::runtime_error(
          "GLibLoop: its GMainContext has been destroyed; the loop cannot wait");
    }
    return g_source_get_context(&source_->base);
  }

  // Seconds until the source is due: the pumping wait's deadline inside a
  // wait of Varnek's own, else the loop core's next deadline.
  double SecondsToDue() { return in_wait_ ? wait_deadline_ - Clock() : loop_->SecondsToNextDue(); }

  static gboolean Prepare(GSource* source, gint* timeout) {
    const double seconds = reinterpret_cast<Source*>(source)->owner->SecondsToDue();
    if (seconds <= 0) {
      *timeout = 0;
      return TRUE;
    }
    *timeout =
        std::isfinite(seconds) ? static_cast<gint>(std::min(std::ceil(seconds * 1000.0), 2e9)) : -1;
    return FALSE;
  }

  static gboolean Check(GSource* source) {
    auto* self = reinterpret_cast<Source*>(source)->owner;
    if (g_source_query_unix_fd(source, self->tag_) & G_IO_IN) return TRUE;
    return self->SecondsToDue() <= 0;
  }

  static gboolean Dispatch(GSource* source, GSourceFunc, gpointer) {
    auto* self = reinterpret_cast<Source*>(source)->owner;
    // Inside a wait of Varnek's own the waiting pass runs what is ready.
    if (self->in_wait_) return G_SOURCE_CONTINUE;
    // No exception may cross GLib's C frames.
    try {
      self->loop_->RunReady();
    } catch (const std::exception& e) {
      g_warning("varnek: a handler failed: %s", e.what());
    } catch (...) {
      g_warning("varnek: a handler failed");
    }
    return G_SOURCE_CONTINUE;
  }

  Source* source_ = nullptr;
  gpointer tag_ = nullptr;
  HostLoop* loop_ = nullptr;
  bool in_wait_ = false;
  double wait_deadline_ = 0;
};

}  // namespace

GLibLoop::GLibLoop(GMainContext* context, LoopMode mode)
    : LinuxLoop(std::make_unique<GLibBackend>(context), mode) {}

GLibLoop::~GLibLoop() = default;

}  // namespace varnek
