// The application a desktop operator test reads and works through AT-SPI: named controls, one
// control with no name, secret text, a deep chain and a long list. What the operator did lands
// in a JSON state file, so a test checks the effect rather than trusting the operator's word.
#include <gtk/gtk.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace {

struct Desk {
  std::string statePath;
  int count = 0;
  int sendPressed = 0;
  int placeOrderPressed = 0;
  int sendingOptionsPressed = 0;
  int unnamedPressed = 0;
  GtkWidget* countLabel = nullptr;
  GtkWidget* name = nullptr;
  GtkTextBuffer* notes = nullptr;
};

std::string jsonString(const char* text) {
  std::string out = "\"";
  for (const char* c = text; *c; ++c) {
    const auto byte = static_cast<unsigned char>(*c);
    if (byte == '"' || byte == '\\') {
      out += '\\';
      out += *c;
    } else if (byte < 0x20) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\u%04x", byte);
      out += escaped;
    } else {
      out += *c;
    }
  }
  return out + "\"";
}

// Written beside the file and renamed over it, so a test never reads half a state.
void writeState(const Desk& desk) {
  if (desk.statePath.empty()) return;
  GtkTextIter start, end;
  gtk_text_buffer_get_bounds(desk.notes, &start, &end);
  gchar* notes = gtk_text_buffer_get_text(desk.notes, &start, &end, FALSE);
  const std::string json = "{\"count\": " + std::to_string(desk.count) +
                           ", \"sendPressed\": " + std::to_string(desk.sendPressed) +
                           ", \"placeOrderPressed\": " + std::to_string(desk.placeOrderPressed) +
                           ", \"sendingOptionsPressed\": " + std::to_string(desk.sendingOptionsPressed) +
                           ", \"unnamedPressed\": " + std::to_string(desk.unnamedPressed) +
                           ", \"name\": " + jsonString(gtk_entry_get_text(GTK_ENTRY(desk.name))) +
                           ", \"notes\": " + jsonString(notes) + "}\n";
  g_free(notes);
  const std::string temporary = desk.statePath + ".tmp";
  if (!g_file_set_contents(temporary.c_str(), json.data(), static_cast<gssize>(json.size()), nullptr) ||
      std::rename(temporary.c_str(), desk.statePath.c_str()) != 0) {
    std::fprintf(stderr, "quarl-test-desk: could not write %s\n", desk.statePath.c_str());
  }
}

struct Press {
  Desk* desk;
  int* tally;
};

void pressed(GtkButton*, gpointer data) {
  auto* press = static_cast<Press*>(data);
  ++*press->tally;
  if (press->tally == &press->desk->count) {
    const std::string text = "Pressed " + std::to_string(press->desk->count) + " times";
    gtk_label_set_text(GTK_LABEL(press->desk->countLabel), text.c_str());
  }
  writeState(*press->desk);
}

void changed(gpointer, gpointer data) { writeState(*static_cast<Desk*>(data)); }

void forget(gpointer press, GClosure*) { delete static_cast<Press*>(press); }

void button(GtkWidget* into, GtkWidget* widget, Desk& desk, int& tally) {
  g_signal_connect_data(widget, "clicked", G_CALLBACK(pressed), new Press{&desk, &tally}, forget, GConnectFlags{});
  gtk_box_pack_start(GTK_BOX(into), widget, FALSE, FALSE, 0);
}

void named(GtkWidget* widget, const char* name) { atk_object_set_name(gtk_widget_get_accessible(widget), name); }

// The fixture waits for this line. It comes from the main loop once the window is mapped, so the
// accessibility bridge that gtk_init started has had its turns to register the application.
gboolean announceReady(gpointer) {
  std::puts("ready");
  std::fflush(stdout);
  return G_SOURCE_REMOVE;
}

gboolean mapped(GtkWidget* window, GdkEvent*, gpointer) {
  g_signal_handlers_disconnect_by_func(window, reinterpret_cast<gpointer>(mapped), nullptr);
  g_idle_add(announceReady, nullptr);
  return FALSE;
}

}  // namespace

int main(int argc, char** argv) {
  Desk desk;
  for (int i = 1; i + 1 < argc; ++i) {
    if (std::strcmp(argv[i], "--state") == 0) desk.statePath = argv[i + 1];
  }
  g_set_prgname("quarl-test-desk");
  g_set_application_name("Quarl Test Desk");
  gtk_init(&argc, &argv);

  GtkWidget* window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  gtk_window_set_title(GTK_WINDOW(window), "Quarl Test Desk");
  gtk_window_set_default_size(GTK_WINDOW(window), 900, 700);
  g_signal_connect(window, "destroy", G_CALLBACK(gtk_main_quit), nullptr);
  g_signal_connect(window, "map-event", G_CALLBACK(mapped), nullptr);

  GtkWidget* scrolled = gtk_scrolled_window_new(nullptr, nullptr);
  gtk_container_add(GTK_CONTAINER(window), scrolled);
  GtkWidget* content = gtk_box_new(GTK_ORIENTATION_VERTICAL, 6);
  gtk_container_add(GTK_CONTAINER(scrolled), content);

  GtkWidget* buttons = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 6);
  gtk_box_pack_start(GTK_BOX(content), buttons, FALSE, FALSE, 0);
  button(buttons, gtk_button_new_with_label("Send"), desk, desk.sendPressed);
  button(buttons, gtk_button_new_with_label("Place order"), desk, desk.placeOrderPressed);
  button(buttons, gtk_button_new_with_label("Sending options"), desk, desk.sendingOptionsPressed);
  button(buttons, gtk_button_new_with_label("Count"), desk, desk.count);
  // A pixbuf rather than a themed icon: GTK names an image from a themed icon ("list-add" reads
  // "Add"), and this button must stay without any name.
  GdkPixbuf* square = gdk_pixbuf_new(GDK_COLORSPACE_RGB, TRUE, 8, 16, 16);
  gdk_pixbuf_fill(square, 0x3465a4ff);
  GtkWidget* unnamed = gtk_button_new();
  gtk_button_set_image(GTK_BUTTON(unnamed), gtk_image_new_from_pixbuf(square));
  g_object_unref(square);
  button(buttons, unnamed, desk, desk.unnamedPressed);

  desk.countLabel = gtk_label_new("Pressed 0 times");
  gtk_box_pack_start(GTK_BOX(content), desk.countLabel, FALSE, FALSE, 0);

  desk.name = gtk_entry_new();
  named(desk.name, "Name");
  g_signal_connect(desk.name, "changed", G_CALLBACK(changed), &desk);
  gtk_box_pack_start(GTK_BOX(content), desk.name, FALSE, FALSE, 0);

  GtkWidget* password = gtk_entry_new();
  gtk_entry_set_visibility(GTK_ENTRY(password), FALSE);
  gtk_entry_set_input_purpose(GTK_ENTRY(password), GTK_INPUT_PURPOSE_PASSWORD);
  gtk_entry_set_text(GTK_ENTRY(password), "hunter2-secret");
  named(password, "Password");
  gtk_box_pack_start(GTK_BOX(content), password, FALSE, FALSE, 0);

  GtkWidget* notes = gtk_text_view_new();
  named(notes, "Notes");
  gtk_widget_set_size_request(notes, -1, 80);
  desk.notes = gtk_text_view_get_buffer(GTK_TEXT_VIEW(notes));
  g_signal_connect(desk.notes, "changed", G_CALLBACK(changed), &desk);
  gtk_box_pack_start(GTK_BOX(content), notes, FALSE, FALSE, 0);

  GtkWidget* outer = content;
  for (int level = 0; level < 18; ++level) {
    GtkWidget* inner = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    gtk_box_pack_start(GTK_BOX(outer), inner, FALSE, FALSE, 0);
    outer = inner;
  }
  gtk_box_pack_start(GTK_BOX(outer), gtk_label_new("Deep label"), FALSE, FALSE, 0);

  GtkWidget* rows = gtk_list_box_new();
  for (int row = 1; row <= 2200; ++row) {
    const std::string text = "Row " + std::to_string(row);
    gtk_container_add(GTK_CONTAINER(rows), gtk_label_new(text.c_str()));
  }
  gtk_box_pack_start(GTK_BOX(content), rows, FALSE, FALSE, 0);

  writeState(desk);
  gtk_widget_show_all(window);
  gtk_window_present(GTK_WINDOW(window));
  gtk_main();
  return 0;
}
