// The library's run loop in GLib's, as applications with GTK have it.
#include <glib-unix.h>

#include "Application.h"

int main() {
  GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
  {
    const Application application([loop] { g_main_loop_quit(loop); });

    const auto turn = [](gint, GIOCondition, gpointer runLoop) -> gboolean {
      static_cast<kestrin::MainRunLoop*>(runLoop)->runOneTurn();
      return G_SOURCE_CONTINUE;
    };
    const guint source = g_unix_fd_add(application.runLoop().fileDescriptor(), G_IO_IN, turn,
                                       &application.runLoop());

    g_main_loop_run(loop);
    g_source_remove(source);
  }
  g_main_loop_unref(loop);
}
