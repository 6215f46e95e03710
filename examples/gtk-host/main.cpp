// A GTK window that embeds the server on the GLib backend: a port field, a
// start/stop button, the live list of the server's reports and the count of
// requests served. GTK's own loop runs Varnek; a GTK timer of the host ticks
// beside it, and its longest gap is told at the end.
// Usage: varnek-gtk-host [--port N] [--screenshot FILE.png] [--quiet]. With
// --port the server starts at once; --quiet leaves the list and the count
// alone (to measure the loop without GTK's drawing). SIGINT or SIGTERM ends it (after the
// screenshot of the window, when asked for).
#include <glib-unix.h>
#include <gtk/gtk.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>

#include "varnek/platform/linux/glib/glib_loop.h"
#include "varnek/platform/platform.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/strings.h"
#include "varnek/server/http_server.h"

namespace {

using namespace varnek;

struct Window {
  GtkWidget* window = nullptr;
  GtkWidget* port = nullptr;
  GtkWidget* button = nullptr;
  GtkWidget* reports = nullptr;
  GtkWidget* served_label = nullptr;
  std::unique_ptr<HTTPServer> server;
  long served = 0;
  std::string screenshot;
  bool quiet = false;
  // The host's own timer, ticking every 100 ms.
  gint64 last_tick = 0;
  gint64 longest_gap = 0;
  long ticks = 0;
};

Platform& VarnekPlatform() {
  static GLibLoop* const loop = new GLibLoop;  // on GTK's default context; never destroyed
  return LinuxPlatformOn(*loop);
}

// The list keeps the latest reports only: a long list costs GTK time on
// every insertion.
constexpr int kReportsKept = 200;

void AddReport(Window& w, const std::string& text) {
  if (w.quiet) return;
  GtkListBox* list = GTK_LIST_BOX(w.reports);
  if (gtk_list_box_get_row_at_index(list, kReportsKept - 1)) {
    gtk_widget_destroy(GTK_WIDGET(gtk_list_box_get_row_at_index(list, 0)));
  }
  GtkWidget* row = gtk_label_new(text.c_str());
  gtk_label_set_xalign(GTK_LABEL(row), 0);
  gtk_list_box_insert(GTK_LIST_BOX(w.reports), row, -1);
  gtk_widget_show(row);
}

void ShowServed(Window& w) {
  if (w.quiet) return;
  const std::string text = "Requests served: " + std::to_string(w.served);
  gtk_label_set_text(GTK_LABEL(w.served_label), text.c_str());
}

void Start(Window& w) {
  w.server = std::make_unique<HTTPServer>(VarnekPlatform());
  HTTPServer& server = *w.server;
  server.InternalState = [&w](Variant&, Variant& text) { AddReport(w, text.ToUtf8()); };
  server.GETReceived = [&w, &server](Variant& url, Variant& ip, Variant&, Variant& response,
                                     Variant&, Collection&, Collection&) {
    if (url.ToText() != u"/") return;
    ++w.served;
    ShowServed(w);
    Text body = u"<p>Hello, " + ip.ToText() + u", from a GTK window</p>";
    response = CStr(server.http_Header(e200_OK, eTextHTML, Len(body))) + body;
  };
  const int port = std::atoi(gtk_entry_get_text(GTK_ENTRY(w.port)));
  server.MaxConcurrentConnections(200);
  server.ServerPort(port);
  server.ServerOpen(true);
  if (!server.ServerOpen()) {
    AddReport(w, "cannot serve on port " + std::to_string(port));
    w.server.reset();
    return;
  }
  gtk_button_set_label(GTK_BUTTON(w.button), "Stop");
  std::cout << "varnek-gtk-host serving on http://127.0.0.1:" << port << "/" << std::endl;
}

void Toggle(GtkButton*, gpointer data) {
  auto& w = *static_cast<Window*>(data);
  if (w.server) {
    w.server.reset();  // safe inside a host callback: the server waits for its handlers
    gtk_button_set_label(GTK_BUTTON(w.button), "Start");
  } else {
    Start(w);
  }
}

gboolean Tick(gpointer data) {
  auto& w = *static_cast<Window*>(data);
  const gint64 now = g_get_monotonic_time();
  if (w.last_tick) w.longest_gap = std::max(w.longest_gap, now - w.last_tick);
  w.last_tick = now;
  ++w.ticks;
  return G_SOURCE_CONTINUE;
}

void SaveScreenshot(Window& w) {
  GdkWindow* gdk = gtk_widget_get_window(w.window);
  if (w.screenshot.empty() || !gdk) return;
  GdkPixbuf* shot =
      gdk_pixbuf_get_from_window(gdk, 0, 0, gdk_window_get_width(gdk), gdk_window_get_height(gdk));
  if (!shot || !gdk_pixbuf_save(shot, w.screenshot.c_str(), "png", nullptr, nullptr)) {
    std::cerr << "varnek-gtk-host: no screenshot\n";
  }
  if (shot) g_object_unref(shot);
}

gboolean Quit(gpointer data) {
  SaveScreenshot(*static_cast<Window*>(data));
  gtk_main_quit();
  return G_SOURCE_REMOVE;
}

}  // namespace

int main(int argc, char** argv) {
  gtk_init(&argc, &argv);
  Window w;
  std::string port = "8080";
  bool start = false;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--quiet") == 0) {
      w.quiet = true;
    } else if (i + 1 >= argc) {
      break;
    } else if (std::strcmp(argv[i], "--port") == 0) {
      port = argv[++i];
      start = true;
    } else if (std::strcmp(argv[i], "--screenshot") == 0) {
      w.screenshot = argv[++i];
    }
  }

  w.window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  gtk_window_set_title(GTK_WINDOW(w.window), "Varnek in GTK");
  gtk_window_set_default_size(GTK_WINDOW(w.window), 560, 400);
  g_signal_connect(w.window, "destroy", G_CALLBACK(gtk_main_quit), nullptr);
  GtkWidget* column = gtk_box_new(GTK_ORIENTATION_VERTICAL, 6);
  GtkWidget* bar = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 6);
  w.port = gtk_entry_new();
  gtk_entry_set_text(GTK_ENTRY(w.port), port.c_str());
  w.button = gtk_button_new_with_label("Start");
  g_signal_connect(w.button, "clicked", G_CALLBACK(Toggle), &w);
  w.served_label = gtk_label_new("");
  ShowServed(w);
  gtk_box_pack_start(GTK_BOX(bar), gtk_label_new("Port"), FALSE, FALSE, 0);
  gtk_box_pack_start(GTK_BOX(bar), w.port, FALSE, FALSE, 0);
  gtk_box_pack_start(GTK_BOX(bar), w.button, FALSE, FALSE, 0);
  gtk_box_pack_end(GTK_BOX(bar), w.served_label, FALSE, FALSE, 0);
  w.reports = gtk_list_box_new();
  GtkWidget* scroll = gtk_scrolled_window_new(nullptr, nullptr);
  gtk_container_add(GTK_CONTAINER(scroll), w.reports);
  gtk_box_pack_start(GTK_BOX(column), bar, FALSE, FALSE, 0);
  gtk_box_pack_start(GTK_BOX(column), scroll, TRUE, TRUE, 0);
  gtk_container_add(GTK_CONTAINER(w.window), column);
  gtk_widget_show_all(w.window);

  g_timeout_add(100, Tick, &w);
  g_unix_signal_add(SIGINT, Quit, &w);
  g_unix_signal_add(SIGTERM, Quit, &w);
  if (start) Start(w);
  gtk_main();
  w.server.reset();
  std::cerr << "varnek-gtk-host: " << w.ticks << " ticks of 100 ms, longest gap "
            << w.longest_gap / 1000 << " ms, " << w.served << " requests served" << std::endl;
  return 0;
}
