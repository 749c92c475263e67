#include "AtspiSource_linux.h"

#include "AXSnapshot.h"
#include "AtspiCalls_linux.h"

#include <gio/gdesktopappinfo.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <limits>
#include <map>

namespace quarl {

namespace {

using atspi::accessibleOf;
using atspi::Error;
using atspi::hasState;
using atspi::keep;

std::optional<std::string> owned(gchar* text) {
  if (!text) return std::nullopt;
  std::string copy(text);
  g_free(text);
  if (copy.empty()) return std::nullopt;
  return copy;
}

// One character past what a read can hold, so that the read still knows it was cut.
constexpr int valueCharacterLimit = static_cast<int>(AXSnapshot::budget) + 1;

// Password fields carry text too, and are never asked for it.
bool carriesText(AtspiRole role) { return role == ATSPI_ROLE_ENTRY || role == ATSPI_ROLE_TEXT; }

constexpr std::size_t allChildren = std::numeric_limits<std::size_t>::max();

// The file a path names, as the kernel knows it: two paths to one program compare equal.
struct FileIdentity {
  dev_t device = 0;
  ino_t inode = 0;
  bool operator==(const FileIdentity&) const = default;
};

std::optional<FileIdentity> identityOf(const char* path) {
  struct stat status {};
  if (!path || ::stat(path, &status) != 0) return std::nullopt;
  return FileIdentity{status.st_dev, status.st_ino};
}

// The desktop's entries, read once per listing of apps, each with the program it runs looked up
// on the path once: a listing names every process from them.
class DesktopEntries {
 public:
  DesktopEntries() {
    GList* all = g_app_info_get_all();
    for (GList* item = all; item; item = item->next) {
      if (!G_IS_DESKTOP_APP_INFO(item->data)) continue;
      auto* info = G_APP_INFO(item->data);
      Known known;
      known.name = g_app_info_get_name(info);
      known.id = g_app_info_get_id(info) ? g_app_info_get_id(info) : "";
      if (known.id.ends_with(".desktop")) known.id.resize(known.id.size() - 8);
      if (const char* file = g_desktop_app_info_get_filename(G_DESKTOP_APP_INFO(info))) known.file = file;
      if (const char* executable = g_app_info_get_executable(info)) {
        gchar* path = g_find_program_in_path(executable);
        known.program = identityOf(path);
        g_free(path);
      }
      known_.push_back(std::move(known));
    }
    g_list_free_full(all, g_object_unref);
  }

  // Names `app` (a process) from the entry GIO launched it from, else from its program when
  // exactly one entry runs that program: an interpreter such as python3 runs many apps, and
  // naming one of them after another would let a password manager pass for something else.
  // Whether an entry named it.
  bool name(RunningApp& app) const {
    const auto* known = launchedFrom(*app.processId);
    if (!known) known = onlyRunnerOf(*app.processId);
    if (!known) return false;
    app.name = known->name;
    app.bundleId = known->id;
    return true;
  }

 private:
  struct Known {
    std::string name;
    std::string id;
    std::string file;
    std::optional<FileIdentity> program;
  };

  // GIO marks the processes it launches with the entry it launched them from.
  const Known* launchedFrom(std::int64_t processId) const {
    std::ifstream environment("/proc/" + std::to_string(processId) + "/environ", std::ios::binary);
    std::string file;
    std::string launcher;
    for (std::string variable; std::getline(environment, variable, '\0');) {
      if (variable.starts_with("GIO_LAUNCHED_DESKTOP_FILE=")) file = variable.substr(26);
      if (variable.starts_with("GIO_LAUNCHED_DESKTOP_FILE_PID=")) launcher = variable.substr(30);
    }
    // A child of the launched process inherits the mark without being the app.
    if (file.empty() || launcher != std::to_string(processId)) return nullptr;
    const auto found = std::find_if(known_.begin(), known_.end(), [&file](const Known& known) { return known.file == file; });
    return found == known_.end() ? nullptr : &*found;
  }

  const Known* onlyRunnerOf(std::int64_t processId) const {
    const auto program = identityOf(("/proc/" + std::to_string(processId) + "/exe").c_str());
    if (!program) return nullptr;
    const Known* found = nullptr;
    for (const auto& known : known_) {
      if (known.program != program) continue;
      if (found) return nullptr;
      found = &known;
    }
    return found;
  }

  std::vector<Known> known_;
};

// Apps that show windows but keep out of the accessibility tree (Qt apps do, unless the session
// asks them in) are listed from the window manager's windows, so that a picture still leaves out
// those Quarl never looks at.
void addWindowsOnlyApps(X11Windows& windows, std::vector<RunningApp>& apps, std::optional<std::int64_t> front,
                        const DesktopEntries& entries) {
  for (const auto& client : windows.clients()) {
    if (!client.processId || !client.viewable) continue;
    if (std::any_of(apps.begin(), apps.end(), [&client](const RunningApp& app) { return app.processId == client.processId; })) {
      continue;
    }
    RunningApp running;
    running.processId = client.processId;
    if (!entries.name(running)) {
      std::ifstream command("/proc/" + std::to_string(*client.processId) + "/comm");
      std::getline(command, running.name);
    }
    if (!client.title.empty()) running.windows.push_back(client.title);
    running.frontmost = front == running.processId;
    if (!running.name.empty()) apps.push_back(std::move(running));
  }
}

}  // namespace

std::string_view AtspiSource::roleName(int atspiRole) {
  static const std::map<int, std::string_view> names{
      {ATSPI_ROLE_PUSH_BUTTON, "AXButton"},        {ATSPI_ROLE_TOGGLE_BUTTON, "AXCheckBox"},
      {ATSPI_ROLE_CHECK_BOX, "AXCheckBox"},        {ATSPI_ROLE_RADIO_BUTTON, "AXRadioButton"},
      {ATSPI_ROLE_LINK, "AXLink"},                 {ATSPI_ROLE_ENTRY, "AXTextField"},
      {ATSPI_ROLE_PASSWORD_TEXT, "AXTextField"},   {ATSPI_ROLE_TEXT, "AXTextArea"},
      {ATSPI_ROLE_LABEL, "AXStaticText"},          {ATSPI_ROLE_STATIC, "AXStaticText"},
      {ATSPI_ROLE_MENU_ITEM, "AXMenuItem"},        {ATSPI_ROLE_CHECK_MENU_ITEM, "AXMenuItem"},
      {ATSPI_ROLE_RADIO_MENU_ITEM, "AXMenuItem"},  {ATSPI_ROLE_MENU, "AXMenu"},
      {ATSPI_ROLE_MENU_BAR, "AXMenuBar"},          {ATSPI_ROLE_COMBO_BOX, "AXPopUpButton"},
      {ATSPI_ROLE_PAGE_TAB, "AXTab"},              {ATSPI_ROLE_PAGE_TAB_LIST, "AXTabGroup"},
      {ATSPI_ROLE_SLIDER, "AXSlider"},             {ATSPI_ROLE_SPIN_BUTTON, "AXIncrementor"},
      {ATSPI_ROLE_TABLE_CELL, "AXCell"},           {ATSPI_ROLE_LIST_ITEM, "AXCell"},
      {ATSPI_ROLE_TABLE, "AXTable"},               {ATSPI_ROLE_TREE_TABLE, "AXOutline"},
      {ATSPI_ROLE_LIST, "AXList"},                 {ATSPI_ROLE_LIST_BOX, "AXList"},
      {ATSPI_ROLE_FRAME, "AXWindow"},              {ATSPI_ROLE_WINDOW, "AXWindow"},
      {ATSPI_ROLE_DIALOG, "AXDialog"},             {ATSPI_ROLE_ALERT, "AXDialog"},
      {ATSPI_ROLE_FILLER, "AXGroup"},              {ATSPI_ROLE_PANEL, "AXGroup"},
      {ATSPI_ROLE_SCROLL_PANE, "AXScrollArea"},    {ATSPI_ROLE_SCROLL_BAR, "AXScrollBar"},
      {ATSPI_ROLE_TOOL_BAR, "AXToolbar"},          {ATSPI_ROLE_IMAGE, "AXImage"},
      {ATSPI_ROLE_ICON, "AXImage"},                {ATSPI_ROLE_HEADING, "AXHeading"},
      {ATSPI_ROLE_DOCUMENT_WEB, "AXWebArea"},      {ATSPI_ROLE_SEPARATOR, "AXSplitter"}};
  const auto found = names.find(atspiRole);
  return found == names.end() ? "AXUnknown" : found->second;
}

std::optional<std::string> AtspiSource::string(std::string_view attribute, const AXElement& of) {
  return thread_.call([&] { return stringHere(attribute, accessibleOf(of)); });
}

std::optional<std::string> AtspiSource::stringHere(std::string_view attribute, AtspiAccessible* accessible) {
  Error error;
  if (attribute == "AXRole") {
    const auto role = atspi_accessible_get_role(accessible, &error);
    // GTK gives one-line entries the role of text, and tells them apart by their state.
    if (role == ATSPI_ROLE_TEXT && hasState(accessible, ATSPI_STATE_SINGLE_LINE)) return std::string("AXTextField");
    return std::string(roleName(role));
  }
  // A password field is a text field that is never read, as on the Mac.
  if (attribute == "AXSubrole") {
    if (atspi_accessible_get_role(accessible, &error) != ATSPI_ROLE_PASSWORD_TEXT) return std::nullopt;
    return std::string("AXSecureTextField");
  }
  if (attribute == "AXTitle") return owned(atspi_accessible_get_name(accessible, &error));
  if (attribute == "AXDescription") return owned(atspi_accessible_get_description(accessible, &error));
  if (attribute != "AXValue") return std::nullopt;
  const auto role = atspi_accessible_get_role(accessible, &error);
  if (carriesText(role)) {
    AtspiText* text = atspi_accessible_get_text_iface(accessible);
    if (!text) return std::nullopt;
    // No more than a read can show: a document's whole text would cross the bus for nothing.
    Error countError;
    const int shown = std::min(atspi_text_get_character_count(text, &countError), valueCharacterLimit);
    auto value = shown > 0 ? owned(atspi_text_get_text(text, 0, shown, &error)) : std::nullopt;
    g_object_unref(text);
    return value;
  }
  if (role == ATSPI_ROLE_SLIDER || role == ATSPI_ROLE_SPIN_BUTTON) {
    AtspiValue* value = atspi_accessible_get_value_iface(accessible);
    if (!value) return std::nullopt;
    const double current = atspi_value_get_current_value(value, &error);
    g_object_unref(value);
    char shown[32];
    std::snprintf(shown, sizeof shown, "%g", current);
    return std::string(shown);
  }
  return std::nullopt;
}

std::optional<bool> AtspiSource::boolean(std::string_view attribute, const AXElement& of) {
  if (attribute != "AXEnabled") return std::nullopt;
  return thread_.call([&] { return hasState(accessibleOf(of), ATSPI_STATE_ENABLED); });
}

std::vector<AXElement> AtspiSource::children(const AXElement& of, std::size_t atMost) {
  return thread_.call([&] { return childrenHere(accessibleOf(of), atMost); });
}

std::vector<AXElement> AtspiSource::childrenHere(AtspiAccessible* accessible, std::size_t atMost) {
  Error error;
  const int count = atspi_accessible_get_child_count(accessible, &error);
  std::vector<AXElement> children;
  for (int i = 0; i < count && children.size() < atMost; ++i) {
    Error childError;
    if (auto* child = atspi_accessible_get_child_at_index(accessible, i, &childError)) {
      children.push_back(keep(child, thread_));
    }
  }
  return children;
}

std::vector<RunningApp> AtspiSource::runningApps() {
  return thread_.call([&] { return runningAppsHere(); });
}

std::vector<RunningApp> AtspiSource::runningAppsHere() {
  const auto front = windows_->activeProcess();
  const DesktopEntries entries;
  std::vector<RunningApp> apps;
  for (const auto& app : childrenHere(atspi_get_desktop(0), allChildren)) {
    Error error;
    RunningApp running;
    running.processId = atspi_accessible_get_process_id(accessibleOf(app), &error);
    if (!entries.name(running)) running.name = stringHere("AXTitle", accessibleOf(app)).value_or("");
    for (const auto& window : childrenHere(accessibleOf(app), allChildren)) {
      if (auto title = stringHere("AXTitle", accessibleOf(window))) running.windows.push_back(std::move(*title));
    }
    running.frontmost = front == running.processId;
    if (!running.name.empty() && (!running.windows.empty() || running.frontmost)) apps.push_back(std::move(running));
  }
  addWindowsOnlyApps(*windows_, apps, front, entries);
  return apps;
}

std::optional<AXElement> AtspiSource::appHere(std::int64_t processId) {
  for (const auto& app : childrenHere(atspi_get_desktop(0), allChildren)) {
    Error error;
    if (atspi_accessible_get_process_id(accessibleOf(app), &error) == processId) return app;
  }
  return std::nullopt;
}

std::optional<AXElement> AtspiSource::frontWindow(std::int64_t processId) {
  return thread_.call([&] { return frontWindowHere(processId); });
}

// The window the app has active, else the first it shows.
std::optional<AXElement> AtspiSource::frontWindowHere(std::int64_t processId) {
  const auto app = appHere(processId);
  if (!app) return std::nullopt;
  std::optional<AXElement> showing;
  for (const auto& candidate : childrenHere(accessibleOf(*app), allChildren)) {
    if (hasState(accessibleOf(candidate), ATSPI_STATE_ACTIVE)) return candidate;
    if (!showing && hasState(accessibleOf(candidate), ATSPI_STATE_SHOWING)) showing = candidate;
  }
  return showing;
}

// Asked of the app's front window in one call, which the app answers from its own tree.
std::optional<AXElement> AtspiSource::focusedElement(std::int64_t processId) {
  return thread_.call([&]() -> std::optional<AXElement> {
    const auto window = frontWindowHere(processId);
    if (!window) return std::nullopt;
    AtspiCollection* collection = atspi_accessible_get_collection_iface(accessibleOf(*window));
    if (!collection) return std::nullopt;
    GArray* wanted = g_array_new(FALSE, FALSE, sizeof(AtspiStateType));
    const AtspiStateType focused = ATSPI_STATE_FOCUSED;
    g_array_append_val(wanted, focused);
    AtspiStateSet* states = atspi_state_set_new(wanted);
    AtspiMatchRule* rule = atspi_match_rule_new(states, ATSPI_Collection_MATCH_ALL, nullptr, ATSPI_Collection_MATCH_ALL,
                                                nullptr, ATSPI_Collection_MATCH_ALL, nullptr,
                                                ATSPI_Collection_MATCH_ALL, FALSE);
    Error error;
    GArray* matches =
        atspi_collection_get_matches(collection, rule, ATSPI_Collection_SORT_ORDER_CANONICAL, 1, TRUE, &error);
    std::optional<AXElement> found;
    if (matches && matches->len > 0) found = keep(g_array_index(matches, AtspiAccessible*, 0), thread_);
    for (guint i = 1; matches && i < matches->len; ++i) g_object_unref(g_array_index(matches, AtspiAccessible*, i));
    if (matches) g_array_free(matches, TRUE);
    g_object_unref(rule);
    g_object_unref(states);
    g_array_free(wanted, TRUE);
    g_object_unref(collection);
    return found;
  });
}

}  // namespace quarl
