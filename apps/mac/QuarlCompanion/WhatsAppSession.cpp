#include "WhatsAppSession.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>

#include "MessagesSender.h"
#include "QuarlLog.h"
#include "Trimmed.h"
#include "SettingsKeys.h"
#include "WhatsAppAnswer.h"
#include "WhatsAppScripts.h"

namespace quarl {
namespace asio = boost::asio;
using namespace std::chrono;
using WhatsAppWeb::SessionState;

std::shared_ptr<WhatsAppSession> WhatsAppSession::create(asio::any_io_executor executor, std::shared_ptr<const Clock> clock,
                                                         std::shared_ptr<SettingsStore> defaults,
                                                         std::shared_ptr<WhatsAppPage> page,
                                                         std::shared_ptr<PicturePasteboard> pasteboard) {
  return std::shared_ptr<WhatsAppSession>(new WhatsAppSession(std::move(executor), std::move(clock), std::move(defaults),
                                                              std::move(page), std::move(pasteboard)));
}

WhatsAppSession::WhatsAppSession(asio::any_io_executor executor, std::shared_ptr<const Clock> clock,
                                 std::shared_ptr<SettingsStore> defaults, std::shared_ptr<WhatsAppPage> page,
                                 std::shared_ptr<PicturePasteboard> pasteboard)
    : executor_(std::move(executor)),
      clock_(std::move(clock)),
      defaults_(std::move(defaults)),
      page_(std::move(page)),
      pasteboard_(std::move(pasteboard)) {
  if (!page_) unavailable_ = "this computer has no web view to host WhatsApp Web in";
}

bool WhatsAppSession::isEnabled() const {
  return linkingChosen_ || defaults_->boolean(keys::whatsappEnabled).value_or(false);
}

std::string WhatsAppSession::siteRoot() const {
  return defaults_->string(keys::whatsappWebURL).value_or(std::string(WhatsAppWeb::url));
}

namespace {

constexpr std::string_view switchedOff = "WhatsApp is not switched on on this Mac, so its page was never loaded";
constexpr milliseconds drivenPageRecheck{250};
// A sent file shows as a new bubble once WhatsApp has drawn it: looked for this often, this long.
constexpr milliseconds mediaBubbleRecheck{500};
constexpr int mediaBubbleLooks = 20;
// The send scripts bound themselves by their own turns; a page that navigates under one never
// answers it at all, and a relay pass must not wait for that for ever.
constexpr seconds sendScriptLimit{300};

}  // namespace

// Nothing of the page (no view, no thread, no display) is made while WhatsApp is off.
asio::awaitable<bool> WhatsAppSession::opened() {
  if (open_) co_return true;
  if (!page_ || !isEnabled()) co_return false;
  auto refusal = co_await page_->open();
  if (refusal) {
    if (unavailable_ != refusal) QuarlLog::say("quarl: whatsapp web cannot run here — " + *refusal);
    unavailable_ = std::move(refusal);
    co_return false;
  }
  open_ = true;
  unavailable_.reset();
  const std::weak_ptr<WhatsAppSession> weak = weak_from_this();
  page_->watchWindow(
      [weak] {
        if (auto self = weak.lock()) asio::co_spawn(self->executor_, reparkDetached(self), asio::detached);
      },
      [weak] {
        auto self = weak.lock();
        return self ? self->windowShouldClose() : false;
      });
  co_await park();
  co_return true;
}

asio::awaitable<void> WhatsAppSession::load() {
  if (!isEnabled()) co_return;
  const bool hosted = co_await opened();
  if (!hosted) co_return;
  const auto current = co_await page_->currentUrl();
  if (current == siteRoot()) co_return;
  co_await navigate();
  QuarlLog::say("quarl: whatsapp web loading — nothing it says is an answer yet");
}

asio::awaitable<void> WhatsAppSession::renavigate(std::string reason) {
  if (isDriving() || !open_) co_return;
  QuarlLog::say("quarl: whatsapp web re-navigating — " + reason);
  co_await navigate();
}

asio::awaitable<void> WhatsAppSession::navigate() { co_await navigateTo(siteRoot()); }

asio::awaitable<void> WhatsAppSession::navigateTo(std::string url) {
  navigationStartedAt_ = clock_->now();
  settled_.reset();
  linkedSinceNavigation_ = false;
  co_await page_->load(std::move(url), WhatsAppWeb::requestTimeout);
}

asio::awaitable<void> WhatsAppSession::waitForThePage() {
  while (isDriving()) co_await clock_->sleep(drivenPageRecheck);
}

asio::awaitable<void> WhatsAppSession::park() {
  if (!open_) co_return;
  const auto screens = co_await page_->screenFrames();
  co_await page_->placeWindow(WhatsAppWeb::parkOrigin(screens, WhatsAppWeb::webViewSize));
}

asio::awaitable<void> WhatsAppSession::reparkIfOnScreen() {
  if (showingForLinking_ || !open_) co_return;
  const auto screens = co_await page_->screenFrames();
  const auto origin = co_await page_->windowOrigin();
  if (WhatsAppWeb::isParked(origin, WhatsAppWeb::webViewSize, screens)) co_return;
  QuarlLog::say("quarl: whatsapp host was on screen — parking it again");
  co_await page_->placeWindow(WhatsAppWeb::parkOrigin(screens, WhatsAppWeb::webViewSize));
}

asio::awaitable<void> WhatsAppSession::reparkDetached(std::shared_ptr<WhatsAppSession> self) {
  co_await self->reparkIfOnScreen();
}

asio::awaitable<void> WhatsAppSession::parkDetached(std::shared_ptr<WhatsAppSession> self) { co_await self->park(); }

asio::awaitable<void> WhatsAppSession::showForLinking() {
  linkingChosen_ = true;
  if (!defaults_->write(keys::whatsappEnabled, true)) {
    QuarlLog::say("quarl: whatsapp: the choice to link could not be saved — it holds until Quarl quits");
  }
  co_await load();
  if (!open_) co_return;
  showingForLinking_ = true;
  std::string title(linkingTitle);
  co_await page_->presentWindow(std::move(title));
}

bool WhatsAppSession::windowShouldClose() {
  showingForLinking_ = false;
  asio::co_spawn(executor_, parkDetached(shared_from_this()), asio::detached);
  return false;
}

asio::awaitable<void> WhatsAppSession::endLinking() {
  showingForLinking_ = false;
  co_await park();
}

bool WhatsAppSession::isLinked() const { return settled_ && WhatsAppWeb::isSettled(*settled_); }

seconds WhatsAppSession::sinceNavigation() const {
  if (!navigationStartedAt_) return seconds(0);
  return duration_cast<seconds>(clock_->now() - *navigationStartedAt_);
}

asio::awaitable<SessionState> WhatsAppSession::refreshState() {
  const bool hosted = co_await opened();
  if (!hosted) co_return SessionState::unrecognised(unavailable_.value_or(std::string(switchedOff)));
  std::string probe(WhatsAppWeb::sessionProbeScript());
  const auto answer = co_await evaluate(std::move(probe));
  const auto state = WhatsAppWeb::readSessionState(answer.value_or(""));
  if (WhatsAppWeb::isSettled(state) && !linkedSinceNavigation_ && sinceNavigation() >= WhatsAppWeb::settleDeadline) {
    QuarlLog::say("quarl: whatsapp web answered after the settle deadline, at " + std::to_string(sinceNavigation().count()) +
                  "s: linked. The deadline is a report, not a verdict.");
  }
  settled_ = state;
  linkedSinceNavigation_ = linkedSinceNavigation_ || WhatsAppWeb::isSettled(state);
  const bool latched = defaults_->boolean(keys::whatsappHostsSession).value_or(false);
  const bool hosts = WhatsAppWeb::hostsSessionAfter(state, latched);
  if (hosts != latched) defaults_->write(keys::whatsappHostsSession, hosts);
  co_return state;
}

asio::awaitable<SessionState> WhatsAppSession::settledState() {
  if (!navigationStartedAt_) co_await load();
  if (!navigationStartedAt_) {
    co_return SessionState::unrecognised(unavailable_.value_or(std::string(switchedOff)));
  }
  for (;;) {
    const auto state = co_await refreshState();
    if (WhatsAppWeb::isSettled(state) || sinceNavigation() >= WhatsAppWeb::settleDeadline) co_return state;
    co_await clock_->sleep(WhatsAppWeb::settlePollInterval);
  }
}

asio::awaitable<std::optional<SessionState>> WhatsAppSession::settledStateIfKnown() {
  if (!isEnabled()) co_return std::nullopt;
  const auto since = sinceNavigation();
  if (navigationStartedAt_ && since >= WhatsAppWeb::settleDeadline && !isLinked()) {
    QuarlLog::say("quarl: whatsapp web has not answered within " + std::to_string(since.count()) + "s — last seen: " +
                  (settled_ ? WhatsAppWeb::describe(*settled_) : std::string("no answer yet")) +
                  " This is NOT 'not linked' and NOT final: it is still being asked.");
  }
  if (settled_ && WhatsAppWeb::shouldRenavigate(*settled_, since)) {
    auto reason = "unreadable for " + std::to_string(since.count()) +
                  "s. A page that never became WhatsApp is a navigation worth doing again.";
    co_await renavigate(std::move(reason));
  }
  co_return settled_;
}

asio::awaitable<std::optional<std::string>> WhatsAppSession::savePicture(std::string path) {
  const bool hosted = co_await opened();
  if (!hosted) co_return unavailable_.value_or(std::string(switchedOff));
  co_return co_await page_->savePicture(std::move(path));
}

asio::awaitable<std::optional<std::string>> WhatsAppSession::evaluate(std::string script) {
  const bool hosted = co_await opened();
  if (!hosted) co_return std::nullopt;
  auto result = co_await page_->evaluate(std::move(script));
  if (result.error) {
    QuarlLog::say("quarl: whatsapp script failed: " + *result.error);
    co_return std::nullopt;
  }
  co_return std::move(result.answer);
}

namespace {

asio::awaitable<WhatsAppSession::Report> reportOf(std::shared_ptr<WhatsAppPage> page, std::string script,
                                                  boost::json::object arguments) {
  auto result = co_await page->callAsync(std::move(script), std::move(arguments));
  if (result.error) {
    QuarlLog::say("quarl: whatsapp script failed to run: " + *result.error);
    co_return WhatsAppSession::Report{std::nullopt, std::move(result.error)};
  }
  co_return WhatsAppSession::Report{std::move(result.answer), std::nullopt};
}

}  // namespace

asio::awaitable<WhatsAppSession::Report> WhatsAppSession::evaluateReporting(std::string script,
                                                                           boost::json::object arguments,
                                                                           std::optional<seconds> within) {
  const bool hosted = co_await opened();
  if (!hosted) co_return Report{std::nullopt, unavailable_.value_or(std::string(switchedOff))};
  std::optional<milliseconds> limit;
  if (within) limit = duration_cast<milliseconds>(*within);
  const auto waited = within ? within->count() : 0;
  std::function<Report()> tooLate = [waited] {
    Report late{std::nullopt, "the script had not answered after " + std::to_string(waited) +
                                  " seconds, so Quarl stopped waiting for it"};
    QuarlLog::say("quarl: whatsapp script failed to run: " + *late.failure);
    return late;
  };
  auto work = reportOf(page_, std::move(script), std::move(arguments));
  co_return co_await WhatsAppWeb::firstAnswer<Report>(clock_, limit, std::move(tooLate), std::move(work));
}

asio::awaitable<WhatsAppWeb::ReadResult> WhatsAppSession::readNew(WhatsAppWeb::CaptureInputs inputs) {
  co_await waitForThePage();
  // The pass presses rows and waits on the page: a re-navigation under it would lose the pass.
  const DrivingFlag held(driving_);
  auto report = co_await evaluateReporting(WhatsAppWeb::captureScript(), inputs.arguments(),
                                           WhatsAppWeb::captureScriptLimit);
  if (!report.answer) {
    WhatsAppWeb::ReadResult notRun;
    notRun.stage = "notRun";
    notRun.reason = "nothing was read: the capture script did not run — see the line above";
    co_return notRun;
  }
  co_return WhatsAppWeb::readMessages(*report.answer, clock_->now());
}

asio::awaitable<WhatsAppWeb::SendOutcome> WhatsAppSession::send(std::string conversationRef, std::string body,
                                                                std::vector<WhatsAppWeb::OutgoingFile> files,
                                                                std::optional<std::string> name) {
  using WhatsAppWeb::SendOutcome;
  auto state = co_await refreshState();
  // A job claimed while the page is still loading waits for it, as far as the settle deadline.
  if (!WhatsAppWeb::isSettled(state)) state = co_await settledState();
  if (!WhatsAppWeb::isSettled(state)) co_return SendOutcome::notSent(std::string(WhatsAppWeb::notLinkedSentence));
  // Files WhatsApp cannot take are refused before the page is touched; the rest still goes.
  std::vector<WhatsAppWeb::OutgoingFile> going;
  std::vector<std::string> refused;
  for (auto& file : files) {
    if (auto refusal = WhatsAppWeb::outgoingMediaRefusal(static_cast<std::int64_t>(file.bytes.size()), file.type)) {
      QuarlLog::say("quarl: whatsapp: " + file.name + " not sent — " + *refusal);
      refused.push_back(std::move(*refusal));
    } else {
      going.push_back(std::move(file));
    }
  }
  std::string refusals;
  for (const auto& refusal : refused) refusals += (refusals.empty() ? "" : " ") + refusal;
  if (going.empty() && trimmed(body).empty()) {
    co_return SendOutcome::notSent(refusals.empty() ? std::string(MessagesSender::nothingToSendSentence) : refusals);
  }

  co_await waitForThePage();
  const DrivingFlag held(driving_);
  if (auto notOpen = co_await openConversation(conversationRef, name)) co_return SendOutcome::notSent(std::move(*notOpen));
  const int total = static_cast<int>(going.size());
  for (int i = 0; i < total; ++i) {
    const auto failure = co_await sendFile(going[static_cast<std::size_t>(i)]);
    QuarlLog::say("quarl: whatsapp after attempt (ok=" + std::string(failure ? "false" : "true") + ", file " +
                  std::to_string(i + 1) + " of " + std::to_string(total) + ")" + (failure ? " — " + *failure : ""));
    if (failure) co_return SendOutcome::notSent(WhatsAppWeb::mediaFailureSentence(i + 1, total, failure));
  }
  if (!trimmed(body).empty()) {
    const auto failure = co_await sendText(conversationRef, body);
    QuarlLog::say("quarl: whatsapp after attempt (ok=" + std::string(failure ? "false" : "true") + ", text)" +
                  (failure ? " — " + *failure : ""));
    if (failure) {
      co_return SendOutcome::notSent(total > 0 ? WhatsAppWeb::filesWentTextDidNot(total, *failure) : *failure);
    }
  }
  auto went = SendOutcome::went();
  if (!refusals.empty()) went.note = std::move(refusals);
  co_return went;
}

asio::awaitable<WhatsAppSession::OpenRun> WhatsAppSession::runOpenScript(const std::string& conversationRef,
                                                                         const std::optional<std::string>& name) {
  auto report = co_await evaluateReporting(WhatsAppWeb::openConversationScript(conversationRef, name), {}, sendScriptLimit);
  std::optional<std::string> notRun;
  if (!report.answer) notRun = WhatsAppWeb::sendNotRunSentence(report.failure.value_or("no answer"));
  co_return OpenRun{WhatsAppWeb::readOpenOutcome(report.answer.value_or("")), std::move(notRun)};
}

asio::awaitable<std::optional<std::string>> WhatsAppSession::openConversation(const std::string& conversationRef,
                                                                             const std::optional<std::string>& name) {
  auto run = co_await runOpenScript(conversationRef, name);
  const auto deepLink = WhatsAppWeb::conversationURL(conversationRef, siteRoot());
  if (!run.outcome.ok && run.outcome.reason == "not_in_list" && deepLink) {
    QuarlLog::say("quarl: whatsapp: " + conversationRef + " is not in the list — using the deep link");
    co_await loadDeepLink(*deepLink);
    run = co_await runOpenScript(conversationRef, name);
  }
  if (run.notRun) co_return run.notRun;
  auto& opened = run.outcome;
  if (opened.ok && opened.readable && opened.openedRef == conversationRef) co_return std::nullopt;
  QuarlLog::say("quarl: whatsapp: could not open " + conversationRef + " (" + opened.reason.value_or("unreadable") +
                ") walked=" + std::to_string(opened.walked) + " how=" + opened.how.summary() +
                " anyFiber=" + (opened.anyFiber ? "true" : "false"));
  if (opened.ok) opened.readable = false;
  co_return WhatsAppWeb::openFailureSentence(opened);
}

// The page loaded before answers until the new one replaces it, and a script it is still running
// then never answers: the link is followed only once the page answering is the new one.
asio::awaitable<void> WhatsAppSession::loadDeepLink(std::string link) {
  co_await evaluate("window.quarlLeftBehind = true; 1");
  co_await navigateTo(std::move(link));
  const auto deadline = clock_->now() + WhatsAppWeb::requestTimeout;
  while (clock_->now() < deadline) {
    const auto fresh = co_await evaluate("String(!window.quarlLeftBehind && document.readyState === 'complete')");
    if (fresh == "true") break;
    co_await clock_->sleep(drivenPageRecheck);
  }
  co_await settledState();
}

asio::awaitable<std::int64_t> WhatsAppSession::mediaCount() {
  std::string script(WhatsAppWeb::mediaCountScript());
  const auto answer = co_await evaluate(std::move(script));
  try {
    co_return answer ? std::stoll(*answer) : -1;
  } catch (const std::exception&) {
    co_return -1;
  }
}

asio::awaitable<std::optional<std::string>> WhatsAppSession::sendFile(const WhatsAppWeb::OutgoingFile& file) {
  const auto before = co_await mediaCount();
  const bool pasted = pastedNatively(file);
  auto report = co_await evaluateReporting(WhatsAppWeb::mediaSendScript(), file.arguments(pasted), sendScriptLimit);
  if (!report.answer) co_return WhatsAppWeb::sendNotRunSentence(report.failure.value_or("no answer"));
  const auto outcome = WhatsAppWeb::readMediaSendOutcome(report.answer);
  if (!outcome.stage) co_return "Quarl could not tell whether WhatsApp Web sent the file. Nothing is assumed.";
  if (!outcome.ok) co_return outcome.reason.value_or("WhatsApp Web did not say why.");
  // The page saw its preview go; the file went when the conversation shows one more of it.
  for (int look = 0; look < mediaBubbleLooks; ++look) {
    const auto after = co_await mediaCount();
    if (before >= 0 && after > before) co_return std::nullopt;
    co_await clock_->sleep(mediaBubbleRecheck);
  }
  QuarlLog::say("quarl: whatsapp: media send could not be confirmed — reporting failure");
  co_return "Quarl pressed send on the file and WhatsApp Web showed no new file in the conversation. Nothing is "
            "assumed to have gone.";
}

// A picture goes by the pasteboard only when there is one and the owner is not using it.
bool WhatsAppSession::pastedNatively(const WhatsAppWeb::OutgoingFile& file) {
  if (!pasteboard_) return false;
  if (!file.isPicture()) {
    QuarlLog::say("quarl: whatsapp: the file is not an image the pasteboard can carry");
    return false;
  }
  if (pasteboard_->ownerIsInTheApp()) {
    QuarlLog::say("quarl: whatsapp: not pasting — he is in the app and it is his clipboard");
    return false;
  }
  if (auto failure = pasteboard_->stagePicture(file)) {
    QuarlLog::say("quarl: whatsapp: could not stage the picture for the pasteboard: " + *failure);
    return false;
  }
  pasteboard_->pasteWithCommandV();
  QuarlLog::say("quarl: whatsapp: pasted the picture with a real command-V");
  return true;
}

asio::awaitable<std::optional<std::string>> WhatsAppSession::sendText(const std::string& conversationRef,
                                                                      const std::string& body) {
  auto report = co_await evaluateReporting(WhatsAppWeb::sendScript(conversationRef, body), {}, sendScriptLimit);
  if (!report.answer && report.failure) co_return WhatsAppWeb::sendNotRunSentence(*report.failure);
  const auto outcome = WhatsAppWeb::readSendOutcome(report.answer);
  if (outcome.sent) co_return std::nullopt;
  std::string script(WhatsAppWeb::composerReportScript());
  if (const auto composer = co_await evaluate(std::move(script))) {
    QuarlLog::say("quarl: whatsapp: the message box as the send found it:\n" + *composer);
  }
  co_return outcome.failure;
}

}  // namespace quarl
