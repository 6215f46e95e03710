# The public surface: every header a host may include, listed one by one.
# cmake --install puts exactly these (and the umbrella varnek.h) under
# include/varnek; tests/package/public_headers.cmake checks that every other
# header of the library is library-only (under an internal/ folder or named
# *_internal.h), that varnek.h includes each of these outside platform/linux/
# and nothing else, and that a public header includes only public ones.
# platform/linux/ lists what a host reaches directly: the loops it may own,
# the socket and comm controls' own settings, the GLib loop.
set(VARNEK_PUBLIC_HEADERS
  adds/adds.h adds/adds_core.h
  adds/generators/code39.h adds/generators/generators.h adds/generators/play_string.h
  adds/generators/rtf_to_html.h
  adds/net/network.h adds/net/network_time_shares.h
  adds/paging/paging.h
  adds/store/host_controls.h adds/store/storage.h adds/store/variable_store.h
  adds/system/app_arguments.h adds/system/coordinates.h adds/system/system_services.h
  adds/text/text_toolkit.h
  platform/application.h platform/classic_command_line.h platform/clipboard.h platform/comm.h
  platform/comm_tracer.h platform/command_runner.h platform/date_locale.h
  platform/drawing_surface.h platform/files.h platform/host_loop.h platform/loop_backend.h
  platform/message_box.h platform/midi_output.h platform/midi_sounding_notes.h
  platform/net_tables.h platform/network_clock.h platform/network_shares.h platform/platform.h
  platform/profile.h platform/settings_store.h platform/socket.h platform/socket_settings.h
  platform/system_readings.h platform/web_services.h
  platform/linux/epoll_set.h platform/linux/external_loop.h platform/linux/linux_comm.h
  platform/linux/linux_loop.h platform/linux/linux_network_clock.h platform/linux/linux_socket.h
  platform/linux/name_resolver.h platform/linux/tls_context.h
  platform/linux/glib/glib_loop.h
  runtime/casemap.h runtime/chunked_sequence.h runtime/collection.h runtime/compare.h
  runtime/convert.h runtime/date_math.h runtime/date_text.h runtime/dates.h runtime/failure.h
  runtime/int16.h runtime/like.h runtime/locale_source.h runtime/number_text.h
  runtime/optional_arg.h runtime/strings.h runtime/text.h runtime/variant.h
  server/http_constants.h server/http_server.h server/secure_path_rule.h
)
