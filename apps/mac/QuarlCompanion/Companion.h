#pragma once

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "ArrivalNotifier.h"
#include "BrainClient.h"
#include "CompanionSettings.h"
#include "CompanionState.h"
#include "CompanionStatus.h"
#include "MessagesCapture.h"
#include "MessagesRelay.h"
#include "OperatorLink.h"
#include "PanelSession.h"
#include "SetupSteps.h"
#include "platform/CompanionHost.h"
#include "platform/CompanionWindows.h"
#include "platform/Keychain.h"
#include "platform/LoginItem.h"
#include "platform/NapHold.h"
#include "platform/Notifications.h"
#include "platform/PicturePasteboard.h"
#include "SettingsStore.h"
#include "WhatsAppCapture.h"
#include "WhatsAppSession.h"
#include "platform/StoreWatcher.h"
#include "platform/WhatsAppPage.h"

namespace quarl {

// Everything the coordinator is built from; chosen once, at start-up, by the host's main.
struct CompanionParts {
  boost::asio::any_io_executor executor;
  std::shared_ptr<const Clock> clock;
  std::shared_ptr<SettingsStore> defaults;
  std::shared_ptr<Keychain> keychain;
  std::shared_ptr<HttpTransport> transport;
  std::shared_ptr<CompanionHost> host;
  ClientIdentity identity;
  std::string messagesStore;  // the Messages store's path, ChatDatabase::defaultPath() on a Mac
  std::shared_ptr<StoreWatcher> storeWatcher = nullptr;  // none: the live pass runs on its timer only
  std::optional<OperatorParts> operatorParts = std::nullopt;  // none: this host never operates the Mac
  std::shared_ptr<WhatsAppPage> whatsappPage = nullptr;       // none: this host cannot hold WhatsApp Web
  // The application around the coordinator; none of them on a host without windows.
  std::shared_ptr<CompanionWindows> windows = nullptr;
  std::shared_ptr<LoginItem> loginItem = nullptr;
  std::shared_ptr<NapHold> napHold = nullptr;  // none: the system never naps this process
  std::shared_ptr<Notifications> notifications = nullptr;
  // None: a picture is always attached through WhatsApp's own menu, never pasted.
  std::shared_ptr<PicturePasteboard> picturePasteboard = nullptr;
};

// The one long-lived object of the companion: it owns the settings and state, runs the three
// repeating timers and orders the work of each tick. Confined to the main executor: every
// member is touched only by coroutines running there.
class Companion : public std::enable_shared_from_this<Companion> {
 public:
  static constexpr std::chrono::seconds tickInterval{30};
  static constexpr std::chrono::seconds relayInterval{3};
  static constexpr std::chrono::seconds liveInterval{5};
  // How long a change of the store is left to settle before the live pass reads it, so that a
  // burst of writes is read once.
  static constexpr std::chrono::milliseconds storeSettle{25};

  // Loads the settings and the stored credentials.
  static std::shared_ptr<Companion> create(CompanionParts parts);

  // Starts (or replaces) the three timers, runs one guarded tick at once and starts the
  // operator link.
  void start();
  // One tick, unless one is running; then exactly one more runs after it.
  boost::asio::awaitable<void> guardedTick();
  // One relay-jobs pass, unless one is running.
  boost::asio::awaitable<void> guardedRelayPass();
  boost::asio::awaitable<void> heartbeat();
  // The tick's Messages stage: the backlog, then receipts and reactions.
  boost::asio::awaitable<MessagesCapture::End> capture();
  // Pairs this Mac with the owner's account; the sentence of a failure, or none on success.
  boost::asio::awaitable<std::optional<std::string>> pair();
  // Forgets the credentials and shows the setup window in place of the panel.
  void signOut();
  // Ends the timers and the claiming of relay jobs; work under way goes on to its end.
  void stopTimers();
  // The store changed: the live pass runs once the change has settled.
  void storeChanged();
  bool hasCredentials() const { return settings_.credentials.has_value(); }
  // Logs a failure together with a short phrase naming what was being done.
  static void note(std::string_view failure, std::string_view doing);

  // At launch and from the menu: the panel when this Mac is paired, else the setup window.
  void showMainWindow();
  void showSetupWindow();
  // Brings the panel window up, signs its web view in with this Mac's session and opens `at`
  // of the panel's site.
  boost::asio::awaitable<void> openPanelWindow(std::string at);
  // Hands this Mac's session to the panel's web view as cookies, or shows in it why not.
  boost::asio::awaitable<PanelSession::Outcome> establishPanelSession(std::shared_ptr<PanelView> into);
  // The panel says its session lapsed: a new one is made once; a second lapse asks for a sign-in.
  boost::asio::awaitable<void> remintPanelSession();
  // The sign-in page's button: pairs, then opens the panel; a press while pairing does nothing.
  boost::asio::awaitable<void> signInFromPanel();
  // Asks once, ever, whether the application should open at login.
  boost::asio::awaitable<void> offerToStartAtLogin();
  // The setup window's "Open at Login": registers, or tells the owner where to do it.
  void startAtLogin();
  // The setup window's sign-in button: pairs, then opens the panel; the failure's sentence to
  // show beside the button. A press while pairing does nothing.
  boost::asio::awaitable<std::optional<std::string>> signInFromSetup();
  // What the setup window shows as done and still to do.
  SetupFacts setupFacts();

  // What the operator may do now: the host's readings with the owner's switch and keep-awake.
  OperatorCaps operatorCaps() const;
  // The owner's operator switch: saved, told to the service, and a live run ends when it goes
  // off. Whether the choice was saved; an unsaved choice changes nothing.
  bool setOperatorAllowed(bool on);
  // The owner's "Keep my Mac awake while Quarl works": saved and told to the service, and a
  // live run's hold follows it at once. Whether the choice was saved.
  bool setKeepAwakeWhileWorking(bool on);
  // The menu's mode picker: a narrower mode is set on the service at once; a wider one opens
  // the service's settings page in the panel, where only the owner's press can set it. The
  // sentence for the owner when the choice did not take, or where to make it on a host
  // without windows.
  boost::asio::awaitable<std::optional<std::string>> chooseMode(MacPermissionMode chosen);
  // "Check for Updates…" in a build that has no update feed: what to tell the owner.
  static std::string checkForUpdates();
  // The operator's live run, if one is.
  std::optional<std::string> liveRunId() const;
  // The menu's "Stop operating this Mac": the run that was stopped, if one was live.
  std::optional<std::string> stopOperating();
  // Quitting: the live run ends with "quit", and its report gets up to `bound` to go out.
  boost::asio::awaitable<void> finishOperating(std::chrono::milliseconds bound);

  // The menu's "Link WhatsApp…": shows the page with its QR code until a phone has linked it,
  // or until `bound` has passed; then parks the page again. `codeShown` is told each QR payload
  // the page shows, the first and every rotation, and is awaited before the page is read again.
  // The page's state at the end.
  boost::asio::awaitable<WhatsAppWeb::SessionState> linkWhatsApp(
      std::chrono::seconds bound, std::function<boost::asio::awaitable<void>(std::string code)> codeShown);
  WhatsAppSession& whatsapp() { return *whatsapp_; }

  const CompanionState& state() const { return state_; }
  // What the menu shows, gathered for `status`.
  CompanionStatus status() const;
  const CompanionSettings& settings() const { return settings_; }
  // The user code of the pairing under way, for the sign-in page; none otherwise.
  const std::optional<std::string>& pairingCode() const { return pairingCode_; }
  bool isTicking() const { return ticking_; }
  // A relay pass is under way: a job in hand may be waiting for its confirmation or report.
  bool isRelaying() const { return relayRunning_; }
  std::int64_t ticksRun() const { return ticksRun_; }

 private:
  explicit Companion(CompanionParts parts);

  void makeOperatorLink();
  boost::asio::awaitable<void> runTick();
  boost::asio::awaitable<void> refreshPermissionsNow();
  boost::asio::awaitable<void> offerChannels();
  // The tick's WhatsApp stage: reading what the page shows and, when it is linked, a capture pass.
  boost::asio::awaitable<void> captureWhatsApp();
  boost::asio::awaitable<void> runRelayJobs();
  boost::asio::awaitable<void> runLiveTick();
  void applyHeartbeat(const HeartbeatResponse& answer, const std::vector<std::string>& advertised);
  boost::json::object deviceFields();
  boost::json::object chatDbFields() const;
  void watchStore();
  std::optional<CaptureChannels> captureChannels() const;
  // The one client of this sign-in, shared by every stage: its single-flight renewal is what
  // keeps two stages from presenting the same refresh token, which would end the session.
  std::shared_ptr<BrainClient> client();
  std::string panelURL() const;
  void showPanelSignIn(const std::optional<std::string>& reason);
  void storeRotatedTokens(std::uint64_t session, const std::string& accessToken, const std::string& refreshToken);
  void loadCredentials();

  static boost::asio::awaitable<void> liveAfterSettling(std::shared_ptr<Companion> self);
  static boost::asio::awaitable<void> repeat(std::weak_ptr<Companion> weak, std::uint64_t generation,
                                             std::chrono::seconds interval, int which);

  CompanionParts parts_;
  CompanionState state_;
  CompanionSettings settings_;
  std::shared_ptr<RelaySendLedger> sendLedger_ = std::make_shared<RelaySendLedger>(parts_.defaults);
  MessagesCapture messagesCapture_;
  MessagesRelay messagesRelay_;
  std::shared_ptr<BrainClient> client_;
  std::shared_ptr<OperatorLink> operatorLink_;
  std::shared_ptr<WhatsAppSession> whatsapp_;
  WhatsAppCapture whatsappCapture_{parts_.clock, parts_.defaults};
  MessagesStoreReading storeReading_;
  std::optional<std::string> badgeLabel_;
  std::optional<std::string> pairingCode_;
  ArrivalNotifier arrivals_{parts_.notifications};
  std::optional<WhatsAppWeb::SessionState> whatsappSeen_;  // what the page showed when last read
  std::optional<MacPermissionMode> operatorMode_;          // the service's mode for this Mac, as last heard
  std::shared_ptr<PanelView> panelWebView_;
  std::string panelPath_{PanelSession::appPath};
  bool panelRemintAttempted_ = false;
  std::uint64_t timerGeneration_ = 0;
  std::uint64_t session_ = 0;  // one more at every sign-out and pairing: the rotations of a client belong to its session
  std::int64_t ticksRun_ = 0;
  bool ticking_ = false;
  bool tickRequested_ = false;
  bool relayRunning_ = false;
  bool pairingInProgress_ = false;
  bool liveWakePending_ = false;
};

}  // namespace quarl
