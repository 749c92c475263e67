#pragma once

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>
#include <boost/json/object.hpp>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Clock.h"
#include "SettingsStore.h"
#include "WhatsAppCapturePass.h"
#include "WhatsAppSend.h"
#include "WhatsAppSessionState.h"
#include "platform/PicturePasteboard.h"
#include "platform/WhatsAppPage.h"

namespace quarl {

// The owner's WhatsApp Web session, kept alive in a page nobody looks at: it loads the page,
// keeps its window parked off every screen, reads what the page shows, and runs the scripts
// that read and write there. Confined to the main executor. Nothing of the page is created
// while the owner has not switched WhatsApp on.
class WhatsAppSession : public std::enable_shared_from_this<WhatsAppSession> {
 public:
  // A script run through `evaluateReporting`: its answer, or why there is none.
  struct Report {
    std::optional<std::string> answer;
    std::optional<std::string> failure;
  };

  static constexpr std::string_view linkingTitle = "WhatsApp — scan this with your phone";

  // `page` is none on a computer that has no way to host a web page.
  static std::shared_ptr<WhatsAppSession> create(boost::asio::any_io_executor executor,
                                                 std::shared_ptr<const Clock> clock,
                                                 std::shared_ptr<SettingsStore> defaults,
                                                 std::shared_ptr<WhatsAppPage> page,
                                                 std::shared_ptr<PicturePasteboard> pasteboard = nullptr);

  bool isEnabled() const;
  // The sentence for why this computer cannot host the page, once opening it failed.
  const std::optional<std::string>& unavailableReason() const { return unavailable_; }
  // The address loaded: WhatsApp Web's root, or the root the settings name instead.
  std::string siteRoot() const;

  boost::asio::awaitable<void> load();
  boost::asio::awaitable<void> renavigate(std::string reason);
  boost::asio::awaitable<void> park();
  boost::asio::awaitable<void> reparkIfOnScreen();
  boost::asio::awaitable<void> showForLinking();
  // The window never closes: asking hides it, and the page and any half-done link stay alive.
  bool windowShouldClose();
  // Linking is over: the window goes back where nobody sees it.
  boost::asio::awaitable<void> endLinking();
  bool isShowingForLinking() const { return showingForLinking_; }
  // A navigation began since launch; loading again after that is re-navigation's to decide.
  bool hasNavigated() const { return navigationStartedAt_.has_value(); }

  // Probes the page once and keeps the answer; a failure is a state, never an error.
  boost::asio::awaitable<WhatsAppWeb::SessionState> refreshState();
  // Probes until the page is linked, or until the settle deadline has passed since the
  // navigation began; then the last answer.
  boost::asio::awaitable<WhatsAppWeb::SessionState> settledState();
  // The last answer, without waiting; none when WhatsApp is off or nothing has answered since
  // the last navigation. Asked every tick, it also reports a page slow to answer and loads
  // again one that never became WhatsApp.
  boost::asio::awaitable<std::optional<WhatsAppWeb::SessionState>> settledStateIfKnown();

  // Runs `body` with the page held: no re-navigation happens until it ends, however it ends.
  template <class T>
  boost::asio::awaitable<T> drivingThePage(std::function<boost::asio::awaitable<T>()> body) {
    const DrivingFlag held(driving_);
    co_return co_await body();
  }
  bool isDriving() const { return driving_ > 0; }

  // One capture pass in the page, with the page held for its length. A script that did not
  // run is a result that says so.
  boost::asio::awaitable<WhatsAppWeb::ReadResult> readNew(WhatsAppWeb::CaptureInputs inputs);

  // Sends a reply into `conversationRef`, files first and then the text, with the page held,
  // and only once the page shows that very conversation open. Every doubt ends in an outcome
  // that says what did not go; nothing is assumed to have gone.
  boost::asio::awaitable<WhatsAppWeb::SendOutcome> send(std::string conversationRef, std::string body,
                                                        std::vector<WhatsAppWeb::OutgoingFile> files,
                                                        std::optional<std::string> name);

  // Saves a picture of the page as a PNG at `path`; the sentence of a failure, or none.
  boost::asio::awaitable<std::optional<std::string>> savePicture(std::string path);

  // A synchronous script's answer; none when it failed, which is logged.
  boost::asio::awaitable<std::optional<std::string>> evaluate(std::string script);
  // An asynchronous script with named arguments. Given a limit, a script that has not answered
  // within it is reported as such, and its late answer is dropped.
  boost::asio::awaitable<Report> evaluateReporting(std::string script, boost::json::object arguments,
                                                   std::optional<std::chrono::seconds> within);

 private:
  WhatsAppSession(boost::asio::any_io_executor executor, std::shared_ptr<const Clock> clock,
                  std::shared_ptr<SettingsStore> defaults, std::shared_ptr<WhatsAppPage> page,
                  std::shared_ptr<PicturePasteboard> pasteboard);

  // Counts one more driver for as long as it lives, so that a drive within a drive does not end
  // the outer one's protection.
  class DrivingFlag {
   public:
    explicit DrivingFlag(int& drivers) : drivers_(drivers) { ++drivers_; }
    ~DrivingFlag() { --drivers_; }
    DrivingFlag(const DrivingFlag&) = delete;
    DrivingFlag& operator=(const DrivingFlag&) = delete;

   private:
    int& drivers_;
  };

  // Opens the page once; false when this computer cannot host it.
  boost::asio::awaitable<bool> opened();
  boost::asio::awaitable<void> navigate();
  boost::asio::awaitable<void> navigateTo(std::string url);
  // Returns once no script drives the page: a capture pass and a send never share it.
  boost::asio::awaitable<void> waitForThePage();
  // The conversation open in the page, by the open script, through its deep link when the
  // list does not hold it; the sentence of a failure, or none.
  boost::asio::awaitable<std::optional<std::string>> openConversation(const std::string& conversationRef,
                                                                     const std::optional<std::string>& name);
  struct OpenRun {
    WhatsAppWeb::OpenOutcome outcome;
    std::optional<std::string> notRun;  // the sentence for a script that did not run
  };
  boost::asio::awaitable<OpenRun> runOpenScript(const std::string& conversationRef,
                                                const std::optional<std::string>& name);
  // One file into the open conversation; the sentence of its failure, or none.
  boost::asio::awaitable<std::optional<std::string>> sendFile(const WhatsAppWeb::OutgoingFile& file);
  boost::asio::awaitable<std::optional<std::string>> sendText(const std::string& conversationRef, const std::string& body);
  boost::asio::awaitable<std::int64_t> mediaCount();
  // Whether the picture is now pasted into the page natively; when not, it is attached.
  bool pastedNatively(const WhatsAppWeb::OutgoingFile& file);
  boost::asio::awaitable<void> loadDeepLink(std::string link);
  std::chrono::seconds sinceNavigation() const;
  // The last answer since the navigation was `linked`.
  bool isLinked() const;
  static boost::asio::awaitable<void> reparkDetached(std::shared_ptr<WhatsAppSession> self);
  static boost::asio::awaitable<void> parkDetached(std::shared_ptr<WhatsAppSession> self);

  boost::asio::any_io_executor executor_;
  std::shared_ptr<const Clock> clock_;
  std::shared_ptr<SettingsStore> defaults_;
  std::shared_ptr<WhatsAppPage> page_;
  std::shared_ptr<PicturePasteboard> pasteboard_;  // none: files are always attached
  bool open_ = false;
  bool linkingChosen_ = false;  // the owner chose to link in this run, even if that could not be saved
  std::optional<std::string> unavailable_;
  bool showingForLinking_ = false;
  int driving_ = 0;  // drives under way
  std::optional<SystemTime> navigationStartedAt_;
  std::optional<WhatsAppWeb::SessionState> settled_;
  bool linkedSinceNavigation_ = false;  // a late link is reported once a navigation
};

}  // namespace quarl
