#include "WhatsAppPage_linux.h"

#include <webkit2/webkit2.h>

#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/json/serialize.hpp>

#include "GtkThread_linux.h"
#include "platform/WhatsAppPageLog.h"
#include "WhatsAppScripts.h"
#include "WhatsAppSessionState.h"

namespace quarl {
namespace asio = boost::asio;
namespace json = boost::json;
using WhatsAppWeb::Point;
using WhatsAppWeb::Rect;
using ScriptResult = WhatsAppPage::ScriptResult;

namespace {

// The arguments as the page's bridge can carry them: it takes only numbers, strings and
// dictionaries, so each argument travels as its JSON text, in a dictionary by name, and the
// function's first lines turn each back into the value it was.
struct BridgedCall {
  std::string body;
  GVariant* arguments;
};

BridgedCall bridged(const std::string& body, const json::object& arguments) {
  std::string prologue;
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE("a{sv}"));
  for (const auto& [name, value] : arguments) {
    const std::string key(name);
    g_variant_builder_add(&builder, "{sv}", key.c_str(), g_variant_new_string(json::serialize(value).c_str()));
    prologue += key + " = JSON.parse(" + key + ");\n";
  }
  return BridgedCall{prologue + body, g_variant_builder_end(&builder)};
}

// A script's value as the text the session reads: a string as it is, anything else as JSON.
ScriptResult resultOf(JSCValue* value, GError* error) {
  if (error) {
    ScriptResult failed{std::nullopt, std::string(error->message)};
    g_error_free(error);
    return failed;
  }
  std::string text;
  if (jsc_value_is_string(value)) {
    gchar* string = jsc_value_to_string(value);
    text = string;
    g_free(string);
  } else if (!jsc_value_is_undefined(value)) {
    gchar* encoded = jsc_value_to_json(value, 0);
    if (encoded) text = encoded;
    g_free(encoded);
  }
  g_object_unref(value);
  return ScriptResult{std::move(text), std::nullopt};
}

template <class T>
using Answer = std::function<void(T)>;

template <class T>
gpointer holding(Answer<T> answer) {
  return new Answer<T>(std::move(answer));
}

template <class T>
std::unique_ptr<Answer<T>> taken(gpointer data) {
  return std::unique_ptr<Answer<T>>(static_cast<Answer<T>*>(data));
}

// The completion of either kind of script: hands its value, or its failure, to the answer held.
template <JSCValue* (*finish)(WebKitWebView*, GAsyncResult*, GError**)>
void scriptFinished(GObject* source, GAsyncResult* result, gpointer data) {
  GError* error = nullptr;
  auto* value = finish(WEBKIT_WEB_VIEW(source), result, &error);
  (*taken<ScriptResult>(data))(resultOf(value, error));
}

std::string permissionName(WebKitPermissionRequest* request) {
  if (WEBKIT_IS_NOTIFICATION_PERMISSION_REQUEST(request)) return "to show notifications";
  if (WEBKIT_IS_USER_MEDIA_PERMISSION_REQUEST(request)) return "for the camera or microphone";
  if (WEBKIT_IS_GEOLOCATION_PERMISSION_REQUEST(request)) return "for this computer's location";
  return std::string("for a permission (") + G_OBJECT_TYPE_NAME(request) + ")";
}

}  // namespace

// The view and its window, on the GTK thread.
struct WebKitView {
  std::function<void()> moved;  // posts to the executor
  std::function<void()> closing;
  GtkWidget* window = nullptr;
  WebKitWebView* view = nullptr;
  std::string site;  // the last address loaded; the page stays within its origin
  guint loadTimeout = 0;  // the bound of the load in progress; it must not outlive the view
  Point placed;  // where the window was last seen, so that a resize alone is no move

  ~WebKitView() {
    if (loadTimeout) g_source_remove(loadTimeout);
    if (window) gtk_widget_destroy(window);
  }

  static gboolean onDecidePolicy(WebKitWebView*, WebKitPolicyDecision* decision, WebKitPolicyDecisionType type,
                                 gpointer data) {
    auto* self = static_cast<WebKitView*>(data);
    if (type == WEBKIT_POLICY_DECISION_TYPE_RESPONSE) {
      if (webkit_response_policy_decision_is_mime_type_supported(WEBKIT_RESPONSE_POLICY_DECISION(decision))) return FALSE;
      auto* request = webkit_response_policy_decision_get_request(WEBKIT_RESPONSE_POLICY_DECISION(decision));
      WhatsAppPageLog::downloadRefused(webkit_uri_request_get_uri(request));
      webkit_policy_decision_ignore(decision);
      return TRUE;
    }
    auto* action = webkit_navigation_policy_decision_get_navigation_action(WEBKIT_NAVIGATION_POLICY_DECISION(decision));
    const std::string uri = webkit_uri_request_get_uri(webkit_navigation_action_get_request(action));
    if (type == WEBKIT_POLICY_DECISION_TYPE_NEW_WINDOW_ACTION) {
      WhatsAppPageLog::newWindowRefused(uri);
      webkit_policy_decision_ignore(decision);
      return TRUE;
    }
    if (WhatsAppWeb::isWithinSite(uri, self->site)) {
      webkit_policy_decision_use(decision);
      return TRUE;
    }
    WhatsAppPageLog::leavingRefused(uri);
    webkit_policy_decision_ignore(decision);
    return TRUE;
  }

  // window.open comes here without a policy decision: no view is made for it.
  static GtkWidget* onCreate(WebKitWebView*, WebKitNavigationAction* action, gpointer) {
    WhatsAppPageLog::newWindowRefused(webkit_uri_request_get_uri(webkit_navigation_action_get_request(action)));
    return nullptr;
  }

  static gboolean onPermissionRequest(WebKitWebView*, WebKitPermissionRequest* request, gpointer) {
    WhatsAppPageLog::permissionRefused(permissionName(request));
    webkit_permission_request_deny(request);
    return TRUE;
  }

  static void onDownload(WebKitWebContext*, WebKitDownload* download, gpointer) {
    auto* request = webkit_download_get_request(download);
    WhatsAppPageLog::downloadCancelled(webkit_uri_request_get_uri(request));
    webkit_download_cancel(download);
  }

  static gboolean onConfigure(GtkWidget* window, GdkEvent*, gpointer data) {
    auto* self = static_cast<WebKitView*>(data);
    gint x = 0, y = 0;
    gtk_window_get_position(GTK_WINDOW(window), &x, &y);
    const Point now{static_cast<double>(x), static_cast<double>(y)};
    if (now != self->placed) {
      self->placed = now;
      self->moved();
    }
    return FALSE;
  }

  static gboolean onDelete(GtkWidget*, GdkEvent*, gpointer data) {
    static_cast<WebKitView*>(data)->closing();
    return TRUE;
  }

  static gboolean onLoadTimeout(gpointer data) {
    auto* self = static_cast<WebKitView*>(data);
    self->loadTimeout = 0;
    if (webkit_web_view_is_loading(self->view)) {
      WhatsAppPageLog::loadTimedOut();
      webkit_web_view_stop_loading(self->view);
    }
    return G_SOURCE_REMOVE;
  }

  void create(const std::filesystem::path& dataFolder) {
    const auto data = (dataFolder / "data").string();
    const auto cache = (dataFolder / "cache").string();
    auto* manager = webkit_website_data_manager_new("base-data-directory", data.c_str(), "base-cache-directory",
                                                    cache.c_str(), nullptr);
    // Cookies are kept in memory unless told otherwise, and the link lives in them.
    auto* cookies = webkit_website_data_manager_get_cookie_manager(manager);
    webkit_cookie_manager_set_persistent_storage(cookies, (dataFolder / "cookies.sqlite").c_str(),
                                                 WEBKIT_COOKIE_PERSISTENT_STORAGE_SQLITE);
    auto* context = webkit_web_context_new_with_website_data_manager(manager);
    g_object_unref(manager);
    g_signal_connect(context, "download-started", G_CALLBACK(onDownload), this);

    auto* content = webkit_user_content_manager_new();
    auto* shim = webkit_user_script_new(std::string(WhatsAppWeb::visibilityShimScript()).c_str(),
                                        WEBKIT_USER_CONTENT_INJECT_ALL_FRAMES,
                                        WEBKIT_USER_SCRIPT_INJECT_AT_DOCUMENT_START, nullptr, nullptr);
    webkit_user_content_manager_add_script(content, shim);
    webkit_user_script_unref(shim);

    view = WEBKIT_WEB_VIEW(g_object_new(WEBKIT_TYPE_WEB_VIEW, "web-context", context, "user-content-manager", content,
                                        nullptr));
    g_object_unref(context);
    g_object_unref(content);
    auto* settings = webkit_web_view_get_settings(view);
    webkit_settings_set_user_agent(settings, std::string(WhatsAppWeb::userAgent).c_str());
    // Xvfb has no GPU; software drawing also keeps a parked page cheap.
    webkit_settings_set_hardware_acceleration_policy(settings, WEBKIT_HARDWARE_ACCELERATION_POLICY_NEVER);
    // Every new window the page asks for, with or without a click, reaches a refusal below and
    // is logged, rather than some being dropped silently by the pop-up blocker.
    webkit_settings_set_javascript_can_open_windows_automatically(settings, TRUE);
    g_signal_connect(view, "create", G_CALLBACK(onCreate), this);
    g_signal_connect(view, "decide-policy", G_CALLBACK(onDecidePolicy), this);
    g_signal_connect(view, "permission-request", G_CALLBACK(onPermissionRequest), this);

    window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    gtk_window_set_default_size(GTK_WINDOW(window), static_cast<int>(WhatsAppWeb::webViewSize.width),
                                static_cast<int>(WhatsAppWeb::webViewSize.height));
    // Acts on the desktop go to the window in front, so the parked page must never take focus.
    gtk_window_set_accept_focus(GTK_WINDOW(window), FALSE);
    gtk_window_set_focus_on_map(GTK_WINDOW(window), FALSE);
    gtk_window_set_skip_taskbar_hint(GTK_WINDOW(window), TRUE);
    gtk_window_set_skip_pager_hint(GTK_WINDOW(window), TRUE);
    gtk_container_add(GTK_CONTAINER(window), GTK_WIDGET(view));
    g_signal_connect(window, "configure-event", G_CALLBACK(onConfigure), this);
    g_signal_connect(window, "delete-event", G_CALLBACK(onDelete), this);
  }

  void load(const std::string& url, std::chrono::seconds timeout) {
    site = url;
    webkit_web_view_load_uri(view, url.c_str());
    if (loadTimeout) g_source_remove(loadTimeout);
    loadTimeout = g_timeout_add_seconds(static_cast<guint>(timeout.count()), onLoadTimeout, this);
  }

  std::vector<Rect> screens() const {
    std::vector<Rect> frames;
    auto* display = gtk_widget_get_display(window);
    for (int i = 0; i < gdk_display_get_n_monitors(display); ++i) {
      GdkRectangle area;
      gdk_monitor_get_geometry(gdk_display_get_monitor(display, i), &area);
      frames.push_back({{static_cast<double>(area.x), static_cast<double>(area.y)},
                        {static_cast<double>(area.width), static_cast<double>(area.height)}});
    }
    return frames;
  }

  void place(Point origin) {
    gtk_window_move(GTK_WINDOW(window), static_cast<int>(origin.x), static_cast<int>(origin.y));
    if (!gtk_widget_get_visible(window)) gtk_widget_show_all(window);
  }

  void present(const std::string& title) {
    gtk_window_set_title(GTK_WINDOW(window), title.c_str());
    const auto frames = screens();
    if (!frames.empty()) {
      const auto& screen = frames.front();
      place({screen.origin.x + (screen.size.width - WhatsAppWeb::webViewSize.width) / 2,
             screen.origin.y + (screen.size.height - WhatsAppWeb::webViewSize.height) / 2});
    }
    gtk_window_set_accept_focus(GTK_WINDOW(window), TRUE);
    gtk_window_present(GTK_WINDOW(window));
  }
};

WebKitWhatsAppPage::WebKitWhatsAppPage(asio::any_io_executor executor, std::filesystem::path dataFolder)
    : executor_(std::move(executor)), dataFolder_(std::move(dataFolder)) {}

WebKitWhatsAppPage::~WebKitWhatsAppPage() {
  if (gtk_ && view_) gtk_->runAndWait([this] { view_.reset(); });
}

asio::awaitable<std::optional<std::string>> WebKitWhatsAppPage::startGtk() {
  std::error_code failed;
  std::filesystem::create_directories(dataFolder_, failed);
  if (failed) co_return "its data folder " + dataFolder_.string() + " could not be made: " + failed.message();
  std::function<std::optional<std::string>()> start = [this]() -> std::optional<std::string> {
    std::string refusal;
    gtk_ = GtkThread::shared(refusal);
    if (!gtk_) return refusal;
    return std::nullopt;
  };
  auto refusal = co_await onOwnThread(std::move(start));
  if (refusal) co_return refusal;
  view_ = std::make_unique<WebKitView>();
  auto watchers = watchers_;
  auto executor = executor_;
  view_->moved = [watchers, executor] {
    asio::post(executor, [watchers] {
      if (watchers->moved) watchers->moved();
    });
  };
  auto* gtk = gtk_;
  auto* view = view_.get();
  view_->closing = [watchers, executor, gtk, view] {
    asio::post(executor, [watchers, gtk, view] {
      if (watchers->closing && watchers->closing()) gtk->invoke([view] { gtk_widget_hide(view->window); });
    });
  };
  const auto folder = dataFolder_;
  std::function<void(Answer<bool>)> work = [view, folder](Answer<bool> answer) {
    view->create(folder);
    answer(true);
  };
  co_await gtk_->ask<bool>(std::move(work));
  co_return std::nullopt;
}

asio::awaitable<std::optional<std::string>> WebKitWhatsAppPage::open() {
  while (opening_) {
    asio::steady_timer pause(executor_, std::chrono::milliseconds(50));
    co_await pause.async_wait(asio::use_awaitable);
  }
  if (opened_) co_return *opened_;
  opening_ = true;
  auto refusal = co_await startGtk();
  opening_ = false;
  opened_ = refusal;
  co_return refusal;
}

asio::awaitable<std::string> WebKitWhatsAppPage::currentUrl() {
  auto* view = view_.get();
  std::function<void(Answer<std::string>)> work = [view](Answer<std::string> answer) {
    const char* uri = webkit_web_view_get_uri(view->view);
    answer(uri ? uri : "");
  };
  co_return co_await gtk_->ask<std::string>(std::move(work));
}

asio::awaitable<void> WebKitWhatsAppPage::load(std::string url, std::chrono::seconds timeout) {
  auto* view = view_.get();
  std::function<void(Answer<bool>)> work = [view, url, timeout](Answer<bool> answer) {
    view->load(url, timeout);
    answer(true);
  };
  co_await gtk_->ask<bool>(std::move(work));
}

asio::awaitable<ScriptResult> WebKitWhatsAppPage::evaluate(std::string script) {
  auto* view = view_.get();
  std::function<void(Answer<ScriptResult>)> work = [view, script](Answer<ScriptResult> answer) {
    webkit_web_view_evaluate_javascript(
        view->view, script.c_str(), static_cast<gssize>(script.size()), nullptr, nullptr, nullptr,
        scriptFinished<webkit_web_view_evaluate_javascript_finish>, holding(std::move(answer)));
  };
  co_return co_await gtk_->ask<ScriptResult>(std::move(work));
}

asio::awaitable<ScriptResult> WebKitWhatsAppPage::callAsync(std::string body, json::object arguments) {
  auto* view = view_.get();
  std::function<void(Answer<ScriptResult>)> work = [view, body, arguments](Answer<ScriptResult> answer) {
    auto call = bridged(body, arguments);
    // In the page's own world (no world name): the fibres the scripts read are the page's objects.
    webkit_web_view_call_async_javascript_function(
        view->view, call.body.c_str(), static_cast<gssize>(call.body.size()), call.arguments, nullptr, nullptr, nullptr,
        scriptFinished<webkit_web_view_call_async_javascript_function_finish>, holding(std::move(answer)));
  };
  co_return co_await gtk_->ask<ScriptResult>(std::move(work));
}

asio::awaitable<std::vector<Rect>> WebKitWhatsAppPage::screenFrames() {
  auto* view = view_.get();
  std::function<void(Answer<std::vector<Rect>>)> work = [view](Answer<std::vector<Rect>> answer) {
    answer(view->screens());
  };
  co_return co_await gtk_->ask<std::vector<Rect>>(std::move(work));
}

asio::awaitable<Point> WebKitWhatsAppPage::windowOrigin() {
  auto* view = view_.get();
  std::function<void(Answer<Point>)> work = [view](Answer<Point> answer) {
    gint x = 0, y = 0;
    gtk_window_get_position(GTK_WINDOW(view->window), &x, &y);
    answer(Point{static_cast<double>(x), static_cast<double>(y)});
  };
  co_return co_await gtk_->ask<Point>(std::move(work));
}

asio::awaitable<void> WebKitWhatsAppPage::placeWindow(Point origin) {
  auto* view = view_.get();
  std::function<void(Answer<bool>)> work = [view, origin](Answer<bool> answer) {
    gtk_window_set_accept_focus(GTK_WINDOW(view->window), FALSE);
    view->place(origin);
    answer(true);
  };
  co_await gtk_->ask<bool>(std::move(work));
}

asio::awaitable<void> WebKitWhatsAppPage::presentWindow(std::string title) {
  auto* view = view_.get();
  std::function<void(Answer<bool>)> work = [view, title](Answer<bool> answer) {
    view->present(title);
    answer(true);
  };
  co_await gtk_->ask<bool>(std::move(work));
}

void WebKitWhatsAppPage::watchWindow(std::function<void()> moved, std::function<bool()> closing) {
  watchers_->moved = std::move(moved);
  watchers_->closing = std::move(closing);
}

asio::awaitable<std::optional<std::string>> WebKitWhatsAppPage::savePicture(std::string path) {
  auto* view = view_.get();
  std::function<void(Answer<std::optional<std::string>>)> work = [view, path](Answer<std::optional<std::string>> answer) {
    struct Saving {
      std::string path;
      Answer<std::optional<std::string>> answer;
    };
    webkit_web_view_get_snapshot(
        view->view, WEBKIT_SNAPSHOT_REGION_VISIBLE, WEBKIT_SNAPSHOT_OPTIONS_NONE, nullptr,
        [](GObject* source, GAsyncResult* result, gpointer data) {
          std::unique_ptr<Saving> saving(static_cast<Saving*>(data));
          GError* error = nullptr;
          cairo_surface_t* picture = webkit_web_view_get_snapshot_finish(WEBKIT_WEB_VIEW(source), result, &error);
          if (!picture) {
            std::string why = error ? error->message : "the view gave no picture";
            if (error) g_error_free(error);
            saving->answer("the picture of the page could not be taken: " + why);
            return;
          }
          const auto status = cairo_surface_write_to_png(picture, saving->path.c_str());
          cairo_surface_destroy(picture);
          if (status != CAIRO_STATUS_SUCCESS) {
            saving->answer("the picture of the page could not be saved at " + saving->path + ": " +
                           cairo_status_to_string(status));
            return;
          }
          saving->answer(std::nullopt);
        },
        new Saving{path, std::move(answer)});
  };
  co_return co_await gtk_->ask<std::optional<std::string>>(std::move(work));
}

}  // namespace quarl

// What the host loads this library for: see WhatsAppPageModule_linux.h.
extern "C" __attribute__((visibility("default"))) void quarlMakeWebKitWhatsAppPage(
    const boost::asio::any_io_executor* executor, const std::filesystem::path* dataFolder,
    std::shared_ptr<quarl::WhatsAppPage>* made) {
  *made = std::make_shared<quarl::WebKitWhatsAppPage>(*executor, *dataFolder);
}
