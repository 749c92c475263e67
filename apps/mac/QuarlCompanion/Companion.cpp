#include "Companion.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <filesystem>
#include <random>

#include "MacModeMenu.h"
#include "PairingClient.h"
#include "QuarlLog.h"
#include "RandomText.h"
#include "SettingsKeys.h"
#include "WhatsAppScripts.h"

namespace quarl {
namespace asio = boost::asio;
namespace json = boost::json;

namespace {

constexpr std::string_view fullDiskAccessSentence =
    "Quarl needs Full Disk Access to read Messages. System Settings → Privacy & Security → Full Disk Access.";
constexpr std::string_view pairingExpiredSentence = "That code expired before it was approved. Try again.";
constexpr std::string_view pairingUnderWaySentence =
    "Quarl is already signing this Mac in: approve the code it showed, or wait until that code expires.";

LoginQuestion loginQuestion() {
  return {"Open Quarl when you log in?",
          "Quarl can only read new iMessages while it is running. If it is not open, replies you send from your phone "
          "wait until it is.",
          "Yes, open it at login", "No, I will open it myself"};
}

enum Work { tickWork, relayWork, liveWork, heartbeatWork, loginQuestionWork };

// Detached work keeps the coordinator alive until it is done.
asio::awaitable<void> runWork(std::shared_ptr<Companion> self, Work work) {
  if (work == tickWork) co_await self->guardedTick();
  if (work == relayWork) co_await self->guardedRelayPass();
  if (work == heartbeatWork) co_await self->heartbeat();
  if (work == loginQuestionWork) co_await self->offerToStartAtLogin();
}

asio::awaitable<void> openPanelAt(std::shared_ptr<Companion> self, std::string at) {
  co_await self->openPanelWindow(std::move(at));
}

}  // namespace

std::shared_ptr<Companion> Companion::create(CompanionParts parts) {
  auto companion = std::shared_ptr<Companion>(new Companion(std::move(parts)));
  if (companion->parts_.operatorParts) companion->makeOperatorLink();
  return companion;
}

Companion::Companion(CompanionParts parts)
    : parts_(std::move(parts)),
      settings_(CompanionSettings::load(*parts_.defaults)),
      messagesCapture_(parts_.clock, parts_.defaults, parts_.host, parts_.messagesStore),
      messagesRelay_(parts_.clock, parts_.messagesStore, sendLedger_, parts_.defaults),
      whatsapp_(WhatsAppSession::create(parts_.executor, parts_.clock, parts_.defaults, parts_.whatsappPage,
                                        parts_.picturePasteboard)) {
  messagesCapture_.setOwnSends(std::make_shared<LedgerOwnSends>(sendLedger_));
  messagesRelay_.sendWhatsAppThrough(whatsapp_);
  loadCredentials();
}

void Companion::makeOperatorLink() {
  auto random = std::make_shared<std::mt19937_64>(std::random_device{}());
  // The link's providers hold the coordinator weakly: the coordinator owns the link.
  const auto weak = weak_from_this();
  operatorLink_ = OperatorLink::create(OperatorLinkParts{
      parts_.executor, parts_.clock, parts_.defaults, *parts_.operatorParts,
      [weak] {
        auto self = weak.lock();
        return self ? self->operatorCaps() : OperatorCaps{};
      },
      [random] { return std::uniform_real_distribution<double>(0.0, 1.0)(*random); }});
}

void Companion::loadCredentials() {
  const auto deviceId = parts_.defaults->string(keys::deviceId);
  auto access = parts_.keychain->read(keys::accessTokenAccount);
  auto refresh = parts_.keychain->read(keys::refreshTokenAccount);
  if (!deviceId || !access || !refresh) return;
  settings_.credentials = Credentials{std::move(*access), std::move(*refresh), *deviceId};
  state_.signIn = SignIn::signedIn(*deviceId);
}

void Companion::start() {
  const auto generation = ++timerGeneration_;
  const auto self = weak_from_this();
  asio::co_spawn(parts_.executor, repeat(self, generation, tickInterval, tickWork), asio::detached);
  asio::co_spawn(parts_.executor, repeat(self, generation, relayInterval, relayWork), asio::detached);
  asio::co_spawn(parts_.executor, repeat(self, generation, liveInterval, liveWork), asio::detached);
  asio::co_spawn(parts_.executor, runWork(shared_from_this(), tickWork), asio::detached);
  watchStore();
  if (operatorLink_) {
    const auto weak = weak_from_this();
    operatorLink_->start(
        [weak]() -> std::shared_ptr<BrainClient> {
          auto self = weak.lock();
          return self ? self->client() : nullptr;
        },
        [weak] {
          auto self = weak.lock();
          return self && self->hasCredentials();
        });
  }
}

OperatorCaps Companion::operatorCaps() const {
  auto caps = parts_.host->operatorCaps();
  // A host that cannot operate never tells the service it may, whatever the setting says.
  caps.switchOn = operatorLink_ && parts_.defaults->boolean(keys::operatorAllowed).value_or(false);
  caps.keepAwake = parts_.defaults->boolean(keys::keepAwakeWhileWorking).value_or(false);
  return caps;
}

bool Companion::setOperatorAllowed(bool on) {
  if (!parts_.defaults->write(keys::operatorAllowed, json::value(on))) return false;
  QuarlLog::operatorSwitch(on);
  if (operatorLink_ && on) operatorLink_->wake();
  if (operatorLink_ && !on) operatorLink_->stopBecauseSwitchedOff();
  // What this Mac may do has changed: the service hears it now, not at the next tick.
  asio::co_spawn(parts_.executor, runWork(shared_from_this(), heartbeatWork), asio::detached);
  return true;
}

bool Companion::setKeepAwakeWhileWorking(bool on) {
  if (!parts_.defaults->write(keys::keepAwakeWhileWorking, json::value(on))) return false;
  if (operatorLink_) operatorLink_->refreshKeepAwake();
  asio::co_spawn(parts_.executor, runWork(shared_from_this(), heartbeatWork), asio::detached);
  return true;
}

asio::awaitable<std::optional<std::string>> Companion::chooseMode(MacPermissionMode chosen) {
  auto brain = client();
  if (!brain) co_return "Sign this Mac in to Quarl first: its permission mode is kept by the service.";
  const auto choice = MacModeMenu::choose(chosen, operatorMode_, settings_.credentials->deviceId);
  if (const auto* open = std::get_if<MacModeMenu::OpenSettings>(&choice)) {
    if (!parts_.windows) {
      co_return "A wider mode is chosen by your own press on Quarl's settings page: " +
          PanelSession::joined(settings_.baseURL, open->path);
    }
    co_await openPanelWindow(open->path);
    co_return std::nullopt;
  }
  const auto* set = std::get_if<MacModeMenu::SetMode>(&choice);
  if (!set) co_return std::nullopt;
  const auto session = session_;
  const auto answer = co_await brain->setPermissionMode(settings_.credentials->deviceId, std::string(rawValue(set->mode)));
  if (!answer) {
    note(answer.error().description(), "setting the permission mode");
    co_return "Quarl could not reach the service, so this Mac's permission mode is unchanged.";
  }
  if (answer->status / 100 != 2) {
    note("the service answered " + std::to_string(answer->status), "setting the permission mode");
    co_return "The service did not take the change, so this Mac's permission mode is unchanged.";
  }
  if (session == session_) operatorMode_ = set->mode;
  co_return std::nullopt;
}

std::string Companion::checkForUpdates() {
  QuarlLog::updateCheckWithoutFeed();
  return "This build of Quarl has no update feed, so it cannot check for updates. Install a newer build to update it.";
}

std::optional<std::string> Companion::liveRunId() const {
  return operatorLink_ ? operatorLink_->liveRunId() : std::nullopt;
}

std::optional<std::string> Companion::stopOperating() {
  return operatorLink_ ? operatorLink_->stop(OperatorEndCode::menu) : std::nullopt;
}

asio::awaitable<void> Companion::finishOperating(std::chrono::milliseconds bound) {
  if (operatorLink_) co_await operatorLink_->finish(bound);
}

void Companion::watchStore() {
  if (!parts_.storeWatcher) return;
  const auto folder = std::filesystem::path(parts_.messagesStore).parent_path().string();
  const auto weak = weak_from_this();
  const bool watching = parts_.storeWatcher->watch(folder, [weak] {
    if (auto self = weak.lock()) self->storeChanged();
  });
  if (!watching) QuarlLog::say("quarl: not watching the Messages folder — the live pass runs every 5 s");
}

void Companion::storeChanged() {
  if (liveWakePending_) return;
  liveWakePending_ = true;
  asio::co_spawn(parts_.executor, liveAfterSettling(shared_from_this()), asio::detached);
}

asio::awaitable<void> Companion::liveAfterSettling(std::shared_ptr<Companion> self) {
  co_await self->parts_.clock->sleep(storeSettle);
  self->liveWakePending_ = false;
  co_await self->runLiveTick();
}

// One repeating timer. It holds the coordinator weakly and ends once the coordinator is gone
// or `start()` has replaced it with a newer generation.
asio::awaitable<void> Companion::repeat(std::weak_ptr<Companion> weak, std::uint64_t generation,
                                        std::chrono::seconds interval, int which) {
  for (;;) {
    std::shared_ptr<const Clock> clock;
    if (auto self = weak.lock(); self && self->timerGeneration_ == generation) clock = self->parts_.clock;
    if (!clock) co_return;
    co_await clock->sleep(interval);
    auto self = weak.lock();
    if (!self || self->timerGeneration_ != generation) co_return;
    if (which == liveWork) {
      co_await self->runLiveTick();
    } else {
      asio::co_spawn(self->parts_.executor, runWork(self, static_cast<Work>(which)), asio::detached);
    }
  }
}

asio::awaitable<void> Companion::guardedTick() {
  if (parts_.napHold) parts_.napHold->hold(state_.signIn.isSignedIn());
  if (ticking_) {
    tickRequested_ = true;
    QuarlLog::say("quarl: tick asked for while one is still running — it will run next");
    co_return;
  }
  ticking_ = true;
  do {
    tickRequested_ = false;
    co_await runTick();
  } while (tickRequested_);
  ticking_ = false;
}

asio::awaitable<void> Companion::runTick() {
  ++ticksRun_;
  co_await refreshPermissionsNow();
  co_await offerChannels();
  co_await heartbeat();
  co_await guardedRelayPass();
  // Named, not compared inside the condition: GCC 12 miscompiles a co_await there.
  const auto captured = co_await capture();
  if (captured == MessagesCapture::End::sessionGone) {
    QuarlLog::say("quarl: this Mac's session with Quarl is gone — the rest of this tick is skipped");
    co_return;
  }
  co_await captureWhatsApp();
}

asio::awaitable<void> Companion::guardedRelayPass() {
  if (relayRunning_) co_return;
  relayRunning_ = true;
  co_await runRelayJobs();
  relayRunning_ = false;
}

asio::awaitable<void> Companion::refreshPermissionsNow() {
  const auto reading = co_await parts_.host->readMessagesStore(parts_.messagesStore);
  storeReading_ = reading;
  state_.canReadMessages = reading.readable && !reading.schemaFailure;
  if (!reading.readable) {
    state_.blockedReason = std::string(fullDiskAccessSentence);
  } else {
    state_.blockedReason = reading.schemaFailure;
  }
}

asio::awaitable<void> Companion::offerChannels() {
  std::optional<WhatsAppStanding> whatsapp;
  if (whatsapp_->isEnabled()) {
    auto settled = co_await whatsapp_->settledStateIfKnown();
    if (settled) state_.whatsappLinked = WhatsAppWeb::hostsSessionAfter(*settled, state_.whatsappLinked);
    if (settled) whatsappSeen_ = settled;
    whatsapp = WhatsAppStanding{std::move(settled), whatsapp_->unavailableReason()};
  }
  const bool hostsSession = parts_.defaults->boolean(keys::whatsappHostsSession).value_or(false);
  const auto offer = offeredChannels(state_.canReadMessages, whatsapp, hostsSession);
  if (offer.logLine) QuarlLog::say(*offer.logLine);
  if (offer.whatsappBlockedReason) QuarlLog::say(*offer.whatsappBlockedReason);
  if (offer.whatsappBlockedReason && !state_.blockedReason) state_.blockedReason = offer.whatsappBlockedReason;
  state_.enabledChannels = offer.channels;
}

// Loads the page on the first tick after the owner switched WhatsApp on, reads what it shows,
// and reads the new messages of a linked page.
asio::awaitable<void> Companion::captureWhatsApp() {
  if (!whatsapp_->isEnabled()) co_return;
  if (!whatsapp_->hasNavigated()) co_await whatsapp_->load();
  if (whatsapp_->unavailableReason()) co_return;
  const auto state = co_await whatsapp_->refreshState();
  whatsappSeen_ = state;
  const auto skipped = [](std::string_view reason) {
    QuarlLog::say("quarl: whatsapp capture skipped — " + std::string(reason));
  };
  auto brain = client();
  if (!brain) {
    skipped("not signed in");
    co_return;
  }
  if (!settings_.whatsappChannelId) {
    skipped("no WhatsApp channel id yet");
    co_return;
  }
  if (const auto reason = WhatsAppWeb::captureSkipReason(state)) {
    skipped(*reason);
    co_return;
  }
  const auto advertised = state_.advertisableChannels();
  if (std::find(advertised.begin(), advertised.end(), "whatsapp") == advertised.end()) {
    skipped("linked, but the channel is not advertised — this is a bug");
    co_return;
  }
  co_await whatsappCapture_.capture(*whatsapp_, *brain, *settings_.whatsappChannelId);
}

asio::awaitable<WhatsAppWeb::SessionState> Companion::linkWhatsApp(
    std::chrono::seconds bound, std::function<asio::awaitable<void>(std::string code)> codeShown) {
  co_await whatsapp_->showForLinking();
  const auto deadline = parts_.clock->now() + bound;
  std::string shown;
  auto state = co_await whatsapp_->refreshState();
  while (!WhatsAppWeb::isSettled(state) && !whatsapp_->unavailableReason() && parts_.clock->now() < deadline) {
    if (state.kind == WhatsAppWeb::SessionState::Kind::needsLink) {
      std::string script(WhatsAppWeb::linkCodeScript());
      const auto code = co_await whatsapp_->evaluate(std::move(script));
      if (code && !code->empty() && *code != shown) {
        shown = *code;
        co_await codeShown(shown);
      }
    }
    co_await parts_.clock->sleep(WhatsAppWeb::settlePollInterval);
    state = co_await whatsapp_->refreshState();
  }
  if (WhatsAppWeb::isSettled(state)) state_.whatsappLinked = true;
  co_await whatsapp_->endLinking();
  co_return state;
}

asio::awaitable<void> Companion::runRelayJobs() {
  auto brain = client();
  if (!brain) co_return;
  co_await messagesRelay_.runRelayJobs(*brain);
}

std::optional<CaptureChannels> Companion::captureChannels() const {
  if (!settings_.imessageChannelId) return std::nullopt;
  return CaptureChannels{*settings_.imessageChannelId, settings_.smsChannelId};
}

asio::awaitable<MessagesCapture::End> Companion::capture() {
  if (!state_.canReadMessages) {
    QuarlLog::say("quarl: capture skipped — this Mac cannot read Messages");
    co_return MessagesCapture::End::done;
  }
  auto brain = client();
  if (!brain) {
    QuarlLog::say("quarl: capture skipped — not signed in");
    co_return MessagesCapture::End::done;
  }
  auto channels = captureChannels();
  if (!channels) {
    QuarlLog::say("quarl: capture skipped — no iMessage channel id yet");
    co_return MessagesCapture::End::done;
  }
  const auto end = co_await messagesCapture_.capture(*brain, std::move(*channels));
  state_.lastCaptureAt = messagesCapture_.lastReadAt();
  co_return end;
}

asio::awaitable<void> Companion::runLiveTick() {
  if (!state_.canReadMessages) co_return;
  auto brain = client();
  auto channels = captureChannels();
  if (!brain || !channels) co_return;
  co_await messagesCapture_.captureRecentFirst(*brain, std::move(*channels));
  state_.lastCaptureAt = messagesCapture_.lastReadAt();
}

asio::awaitable<void> Companion::heartbeat() {
  auto brain = client();
  if (!brain) {
    QuarlLog::say("quarl: heartbeat skipped — no credentials loaded yet");
    co_return;
  }
  HeartbeatReport report;
  report.channels = state_.advertisableChannels();
  report.blockedReason = state_.heartbeatBlockedReason();
  report.device = deviceFields();
  report.chatDb = chatDbFields();
  if (const auto& captured = messagesCapture_.report()) report.capture = captured->wire();
  report.operatorCaps = operatorCaps().wire();
  const auto advertised = report.channels;
  auto answer = co_await brain->heartbeat(std::move(report));
  if (!answer) {
    QuarlLog::say({{"quarl: sending the heartbeat failed — ", false}, {answer.error().description(), false}});
    co_return;
  }
  applyHeartbeat(*answer, advertised);
}

void Companion::applyHeartbeat(const HeartbeatResponse& answer, const std::vector<std::string>& advertised) {
  const auto needsYou = answer.needsYou.value_or(0);
  const auto followUps = answer.followUpCount.value_or(0);
  const auto waiting = needsYou + followUps;
  const auto label = waiting >= 1 ? std::optional(std::to_string(waiting)) : std::nullopt;
  if (label != badgeLabel_) {
    QuarlLog::say("quarl: dock badge " + badgeLabel_.value_or("none") + " -> " + label.value_or("none") + " (" +
                  std::to_string(needsYou) + " waiting, " + std::to_string(followUps) + " follow-ups)");
    badgeLabel_ = label;
    parts_.host->setBadge(label);
    arrivals_.heard(waiting);
  }

  if (!answer.channelIds || answer.channelIds->empty()) {
    if (!advertised.empty()) {
      QuarlLog::say("quarl: heartbeat named no channel ids while advertising " + joinedChannels(advertised) +
                    " — leaving the previous state alone rather than reporting every channel as dropped");
    }
  } else {
    struct Row {
      std::string_view kind;
      std::string_view key;
      std::optional<std::string> CompanionSettings::*field;
    };
    const Row rows[] = {{"imessage", keys::imessageChannelId, &CompanionSettings::imessageChannelId},
                        {"sms", keys::smsChannelId, &CompanionSettings::smsChannelId},
                        {"whatsapp", keys::whatsappChannelId, &CompanionSettings::whatsappChannelId}};
    std::vector<std::string> learned;
    for (const auto& row : rows) {
      const auto found = answer.channelIds->find(std::string(row.kind));
      if (found == answer.channelIds->end()) continue;
      if (parts_.defaults->string(row.key) != found->second) {
        parts_.defaults->write(row.key, json::value(found->second));
        learned.emplace_back(row.kind);
      }
      settings_.*row.field = found->second;
    }
    if (!learned.empty()) QuarlLog::say("quarl: learned channel ids for " + joinedChannels(learned));

    std::vector<std::string> unconnected;
    for (const auto& channel : advertised) {
      if (!answer.channelIds->contains(channel)) unconnected.push_back(channel);
    }
    state_.unconnectedChannels = unconnected;
    if (!unconnected.empty()) {
      std::string line = "quarl: advertising " + joinedChannels(unconnected) +
                         " with no connected channel on this account — those messages are being dropped. Connect it "
                         "in Settings.";
      if (answer.unmatched && !answer.unmatched->empty()) {
        line += " The account has no row at all for " + joinedChannels(*answer.unmatched) + ".";
      }
      QuarlLog::say(line);
    }
  }
  if (const auto mode = MacModeMenu::mode(answer.macPermissionMode)) operatorMode_ = mode;
  state_.lastHeartbeatAt = parts_.clock->now();
  QuarlLog::say("quarl: heartbeat ok, advertising " + (advertised.empty() ? std::string("nothing") : joinedChannels(advertised)));
}

json::object Companion::deviceFields() {
  auto installId = parts_.defaults->string(keys::installId);
  if (!installId) {
    installId = randomHex(16);
    parts_.defaults->write(keys::installId, json::value(*installId));
  }
  return json::object{{"installId", *installId}, {"hardware", parts_.host->hardwareDescription()}};
}

// The Messages store as the last check found it.
json::object Companion::chatDbFields() const {
  json::object fields{{"readable", storeReading_.readable}, {"schemaKnown", storeReading_.readable && !storeReading_.schemaFailure}};
  if (storeReading_.schemaFailure) fields["schemaFailure"] = *storeReading_.schemaFailure;
  return fields;
}

std::shared_ptr<BrainClient> Companion::client() {
  if (!settings_.credentials) {
    client_.reset();
    return nullptr;
  }
  if (client_) return client_;
  std::weak_ptr<Companion> weak = weak_from_this();
  const auto session = session_;
  client_ = std::make_shared<BrainClient>(parts_.executor, settings_.apiURL, parts_.identity, settings_.credentials,
                                          parts_.transport, parts_.clock,
                                          [weak, session](const std::string& access, const std::string& refresh) {
                                            if (auto self = weak.lock()) self->storeRotatedTokens(session, access, refresh);
                                          });
  return client_;
}

void Companion::storeRotatedTokens(std::uint64_t session, const std::string& accessToken,
                                   const std::string& refreshToken) {
  // An exchange that finishes after a sign-out or a new pairing belongs to a session that is
  // over: its pair must not be written over the new state.
  if (session != session_) {
    QuarlLog::say("quarl: a token rotation of a session that has ended came late — dropped");
    return;
  }
  // A keychain that refuses the pair is not fatal: the tokens in memory stay in use this run.
  parts_.keychain->write(keys::accessTokenAccount, accessToken);
  parts_.keychain->write(keys::refreshTokenAccount, refreshToken);
  if (settings_.credentials) {
    settings_.credentials->accessToken = accessToken;
    settings_.credentials->refreshToken = refreshToken;
  }
  QuarlLog::say("quarl: rotated this Mac's session tokens");
}

asio::awaitable<std::optional<std::string>> Companion::pair() {
  if (pairingInProgress_) {
    QuarlLog::say("quarl: pairing already running — ignoring a second panel sign-in press");
    co_return std::string(pairingUnderWaySentence);
  }
  pairingInProgress_ = true;
  PairingClient pairing(settings_.apiURL, parts_.identity, parts_.transport);
  const auto started = co_await pairing.start(deviceFields());
  if (!started) {
    pairingInProgress_ = false;
    co_return started.error().description();
  }
  pairingCode_ = started->userCode;
  // A panel open on its sign-in page shows the code to approve in place of its button.
  showPanelSignIn(std::nullopt);
  parts_.host->showPairingCode(started->userCode, started->verificationUrl);

  std::optional<std::string> outcome = std::string(pairingExpiredSentence);
  bool deadlinePassed = true;
  const auto deadline = parts_.clock->now() + std::chrono::seconds(started->expiresInSeconds);
  while (parts_.clock->now() < deadline) {
    co_await parts_.clock->sleep(std::chrono::seconds(started->intervalSeconds));
    const auto polled = co_await pairing.poll(started->deviceCode);
    deadlinePassed = false;
    if (!polled) {
      outcome = polled.error().description();
      break;
    }
    using Status = PairingClient::Poll::Status;
    if (polled->status == Status::pending) {
      deadlinePassed = true;
      continue;
    }
    if (polled->status == Status::denied) outcome = "That request was refused on the web. Nothing was connected.";
    if (polled->status == Status::approved) {
      const auto& credentials = *polled->credentials;
      parts_.keychain->write(keys::accessTokenAccount, credentials.accessToken);
      parts_.keychain->write(keys::refreshTokenAccount, credentials.refreshToken);
      parts_.defaults->write(keys::deviceId, json::value(credentials.deviceId));
      settings_ = CompanionSettings::load(*parts_.defaults);
      settings_.credentials = credentials;
      client_.reset();
      ++session_;
      state_.signIn = SignIn::signedIn(credentials.deviceId);
      panelRemintAttempted_ = false;
      operatorMode_.reset();
      if (operatorLink_) operatorLink_->wake();
      outcome = std::nullopt;
    }
    break;
  }
  pairingCode_.reset();
  if (deadlinePassed) state_.blockedReason = outcome;
  if (!outcome) {
    // The question waits for the owner's answer; the pairing's caller does not.
    asio::co_spawn(parts_.executor, runWork(shared_from_this(), loginQuestionWork), asio::detached);
    // Still pairing until the first tick is done: a sign-in press meanwhile starts nothing.
    co_await guardedTick();
  }
  pairingInProgress_ = false;
  co_return outcome;
}

void Companion::stopTimers() {
  ++timerGeneration_;
  messagesRelay_.stopClaiming();
}

void Companion::signOut() {
  parts_.keychain->remove(keys::accessTokenAccount);
  parts_.keychain->remove(keys::refreshTokenAccount);
  parts_.defaults->remove(keys::deviceId);
  settings_.credentials.reset();
  client_.reset();
  ++session_;
  state_.signIn = SignIn::signedOut();
  if (operatorLink_) operatorLink_->wake();  // a signed-out Mac ends its live run now
  panelWebView_.reset();
  whatsappSeen_.reset();
  operatorMode_.reset();
  if (parts_.windows) {
    parts_.windows->closePanelWindow();
    parts_.windows->showSetupWindow();
  }
  QuarlLog::say("quarl: signed out — credentials forgotten, this Mac has stopped relaying");
}

CompanionStatus Companion::status() const {
  CompanionStatus status;
  status.running = true;
  status.signedIn = state_.signIn.isSignedIn();
  if (settings_.credentials) status.deviceId = settings_.credentials->deviceId;
  status.summary = state_.summary(parts_.clock->now());
  status.offered = state_.advertisableChannels();
  status.whyNot = state_.blockedReason ? state_.blockedReason
                  : state_.chatDbBlockedReason ? state_.chatDbBlockedReason
                                               : state_.unconnectedChannelWarning();
  status.lastCaptureAt = state_.lastCaptureAt;
  status.whatsapp = {whatsapp_->isEnabled(), parts_.defaults->boolean(keys::whatsappHostsSession).value_or(false),
                     whatsapp_->unavailableReason(), whatsappSeen_};
  const auto caps = operatorCaps();
  status.canOperate = operatorLink_ != nullptr;
  status.operatorAllowed = caps.switchOn;
  status.keepAwake = caps.keepAwake;
  status.mode = operatorMode_;
  status.liveRun = liveRunId();
  return status;
}

void Companion::note(std::string_view failure, std::string_view doing) {
  QuarlLog::say("quarl: " + std::string(doing) + " failed — " + std::string(failure));
}

void Companion::showMainWindow() {
  if (parts_.defaults->string(keys::deviceId) && hasCredentials()) {
    asio::co_spawn(parts_.executor, openPanelAt(shared_from_this(), std::string(PanelSession::appPath)), asio::detached);
  } else {
    showSetupWindow();
  }
}

void Companion::showSetupWindow() {
  if (parts_.windows) parts_.windows->showSetupWindow();
}

std::string Companion::panelURL() const { return PanelSession::joined(settings_.baseURL, panelPath_); }

void Companion::showPanelSignIn(const std::optional<std::string>& reason) {
  if (panelWebView_) panelWebView_->showSignIn(reason);
}

asio::awaitable<void> Companion::openPanelWindow(std::string at) {
  if (!parts_.windows) co_return;
  panelPath_ = std::move(at);
  panelWebView_ = parts_.windows->openPanelWindow();
  panelRemintAttempted_ = false;
  const auto outcome = co_await establishPanelSession(panelWebView_);
  if ((outcome == PanelSession::Outcome::established || outcome == PanelSession::Outcome::rateLimited) && panelWebView_) {
    panelWebView_->load(panelURL());
  }
}

asio::awaitable<PanelSession::Outcome> Companion::establishPanelSession(std::shared_ptr<PanelView> into) {
  using Outcome = PanelSession::Outcome;
  const auto unreachable = [&into] {
    QuarlLog::say("quarl: panel session request failed");
    into->showNotice(std::string(PanelSession::unreachableHeading), std::string(PanelSession::unreachableText));
    return Outcome::unreachable;
  };
  auto brain = client();
  if (!brain) {
    into->showSignIn(std::nullopt);
    co_return Outcome::signInNeeded;
  }
  // A sign-out while the request is out closes the window: what comes back is not shown.
  const auto session = session_;
  auto answer = co_await brain->panelSession();
  if (session != session_) co_return Outcome::signInNeeded;
  if (!answer && answer.error().isTransport()) co_return unreachable();
  // Signed out while the request was out: the session it asked for is over.
  auto status = answer ? answer->status : 401;
  // Only a session that is over needs a sign-in: a renewal the service failed for another
  // reason leaves the 401 a refusal like any other.
  bool refusedAfterRenewal = false;
  if (status == 401 && answer) {
    const auto renewed = co_await brain->renew();
    if (session != session_) co_return Outcome::signInNeeded;
    if (renewed) {
      co_await parts_.clock->sleep(PanelSession::attemptPause);
      answer = co_await brain->panelSession();
      if (session != session_) co_return Outcome::signInNeeded;
      if (!answer && answer.error().isTransport()) co_return unreachable();
      status = answer ? answer->status : 401;
    } else {
      note(renewed.error().description(), "renewing for the panel");
      if (renewed.error().isTransport()) co_return unreachable();
      refusedAfterRenewal = !renewed.error().isSessionGone();
    }
  }
  const auto outcome = refusedAfterRenewal ? Outcome::refused : PanelSession::outcomeOf(status);
  if (outcome == Outcome::established) {
    const auto count = co_await into->storeCookies(PanelSession::setCookieValues(answer->headers), settings_.baseURL);
    QuarlLog::say("quarl: panel session established (" + std::to_string(count) + " cookie(s))");
  }
  if (outcome == Outcome::rateLimited) {
    QuarlLog::say("quarl: panel session rate-limited, reusing the session already in this window");
  }
  if (outcome == Outcome::signInNeeded) {
    into->showSignIn(std::string(PanelSession::expiredSentence));
  }
  if (outcome == Outcome::refused) {
    QuarlLog::say("quarl: panel session refused (" + std::to_string(status) + ")");
    into->showNotice(std::nullopt, std::string(PanelSession::refusedSentence));
  }
  co_return outcome;
}

asio::awaitable<void> Companion::remintPanelSession() {
  if (!panelWebView_) co_return;
  if (panelRemintAttempted_) {
    QuarlLog::say("quarl: the panel session lapsed again after a re-mint — asking for a sign-in");
    showPanelSignIn(std::string(PanelSession::expiredSentence));
    co_return;
  }
  panelRemintAttempted_ = true;
  const auto view = panelWebView_;
  const auto outcome = co_await establishPanelSession(view);
  if (outcome == PanelSession::Outcome::established) {
    QuarlLog::say("quarl: re-minted the panel session — nobody had to sign in");
    view->reload();
  }
}

asio::awaitable<void> Companion::signInFromPanel() {
  if (pairingInProgress_) {
    QuarlLog::say("quarl: pairing already running — ignoring a second panel sign-in press");
    co_return;
  }
  QuarlLog::say("quarl: panel sign-in button pressed — starting pairing");
  const auto failure = co_await pair();
  if (failure) {
    showPanelSignIn(failure);
    co_return;
  }
  QuarlLog::say("quarl: pairing from the panel succeeded — reloading the panel");
  if (panelWebView_) co_await openPanelWindow(panelPath_);
}

asio::awaitable<void> Companion::offerToStartAtLogin() {
  if (!parts_.loginItem || parts_.defaults->boolean(keys::askedAboutLogin).value_or(false)) co_return;
  parts_.defaults->write(keys::askedAboutLogin, json::value(true));
  const auto loginItem = parts_.loginItem;
  const bool yes = co_await loginItem->ask(loginQuestion());
  if (yes) startAtLogin();
}

void Companion::startAtLogin() {
  if (!parts_.loginItem) return;
  if (const auto error = parts_.loginItem->registerMainApplication()) {
    QuarlLog::say("quarl: could not register as a login item: " + *error);
    parts_.loginItem->tell(
        "Quarl could not add itself to your login items. You can add it in System Settings → General → Login Items.");
  }
}

asio::awaitable<std::optional<std::string>> Companion::signInFromSetup() {
  if (pairingInProgress_) co_return std::nullopt;
  auto failure = co_await pair();
  if (!failure) showMainWindow();
  co_return failure;
}

SetupFacts Companion::setupFacts() {
  const auto caps = parts_.host->operatorCaps();
  return {state_.signIn.isSignedIn(), pairingCode_, state_.canReadMessages, caps.accessibility, caps.screenRecording,
          parts_.loginItem && parts_.loginItem->isRegistered()};
}

}  // namespace quarl
