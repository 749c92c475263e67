#include "DesktopStepExecutor.h"

#include "AXReader.h"
#include "ActPolicy.h"
#include "MacKeyCodes.h"
#include "MacPermissionPolicy.h"
#include "OperatorLookPolicy.h"
#include "Workers.h"

namespace quarl {
namespace asio = boost::asio;
using Outcome = OperatorStepOutcome;
using Request = OperatorStepRequest;

namespace {

std::optional<RunningApp> frontOf(const std::vector<RunningApp>& apps) {
  for (const auto& app : apps) {
    if (app.frontmost) return app;
  }
  return std::nullopt;
}

// The app a look or a read is of, or why there is none: refused for an app never looked at,
// failed for one that is not there.
std::variant<RunningApp, Outcome> lookedAt(const std::optional<std::string>& named, const std::vector<RunningApp>& running,
                                           std::int64_t ownProcessId) {
  auto target = OperatorLookPolicy::frontTarget(named, running, ownProcessId);
  if (auto* app = std::get_if<RunningApp>(&target)) return std::move(*app);
  const auto& sentence = std::get<std::string>(target);
  return sentence == OperatorLookPolicy::neverLooksSentence ? Outcome::refused(sentence) : Outcome::failed(sentence);
}

// What the rules weigh of an element: read from it, with what the read around it said.
ActTarget describe(AXUISource& source, const AXElement& element, std::optional<std::string> windowTitle = std::nullopt,
                   std::optional<std::string> dialogText = std::nullopt) {
  return ActTarget{source.string("AXRole", element), source.string("AXSubrole", element),
                   source.string("AXTitle", element), source.string("AXDescription", element),
                   std::move(windowTitle), std::move(dialogText), source.boolean("AXEnabled", element)};
}

std::optional<std::string> elementOf(const Request& request) {
  if (const auto* press = std::get_if<Request::PressElement>(&request.value)) return press->element;
  if (const auto* typing = std::get_if<Request::TypeText>(&request.value)) return typing->element;
  return std::nullopt;
}

}  // namespace

DesktopStepExecutor::DesktopStepExecutor(DesktopParts parts, std::function<OperatorCaps()> caps,
                                         std::shared_ptr<const Clock> clock, std::int64_t ownProcessId)
    : parts_(std::move(parts)), caps_(std::move(caps)), clock_(std::move(clock)), ownProcessId_(ownProcessId) {}

bool DesktopStepExecutor::serves(MacCapabilityClass klass) const {
  return klass == MacCapabilityClass::screen || klass == MacCapabilityClass::act;
}

asio::awaitable<Outcome> DesktopStepExecutor::run(Request request, OperatorStepContext context,
                                                  std::shared_ptr<BrainClient>) {
  if (std::holds_alternative<Request::ListApps>(request.value)) co_return co_await listApps();
  if (const auto* step = std::get_if<Request::Look>(&request.value)) co_return co_await look(step->app);
  if (const auto* step = std::get_if<Request::ReadScreenText>(&request.value)) {
    co_return co_await readScreenText(step->app);
  }
  co_return co_await act(std::move(request), std::move(context));
}

asio::awaitable<void> DesktopStepExecutor::onDesktop(std::function<void()> work) {
  co_await runOnWorker([&] { parts_.source->runBatch(work); });
}

asio::awaitable<std::vector<RunningApp>> DesktopStepExecutor::runningApps() {
  std::vector<RunningApp> apps;
  co_await onDesktop([&] { apps = parts_.source->runningApps(); });
  co_return apps;
}

asio::awaitable<Outcome> DesktopStepExecutor::listApps() {
  auto apps = co_await runningApps();
  std::erase_if(apps, [this](const RunningApp& app) { return app.processId == ownProcessId_; });
  co_return Outcome{Outcome::Apps{std::move(apps)}};
}

asio::awaitable<Outcome> DesktopStepExecutor::look(std::optional<std::string> app) {
  const auto running = co_await runningApps();
  std::optional<RunningApp> only;
  if (app) {
    auto target = lookedAt(app, running, ownProcessId_);
    if (auto* outcome = std::get_if<Outcome>(&target)) co_return std::move(*outcome);
    only = std::get<RunningApp>(std::move(target));
  }
  const auto excluded = OperatorLookPolicy::excludedProcesses(running, ownProcessId_);
  std::optional<Outcome> outcome;
  co_await onDesktop([&] {
    auto picture = parts_.capturer->capture(only, excluded);
    if (auto* sentence = std::get_if<std::string>(&picture)) {
      outcome = Outcome::failed(*sentence);
    } else {
      outcome = parts_.capturer->lookOutcome(std::get<CapturedPicture>(picture));
    }
  });
  co_return std::move(*outcome);
}

asio::awaitable<Outcome> DesktopStepExecutor::readScreenText(std::optional<std::string> app) {
  if (caps_().accessibility != CapabilityState::granted) co_return Outcome::failed(AXReader::untrustedSentence);
  const auto running = co_await runningApps();
  std::vector<std::int64_t> processes;
  for (const auto& each : running) {
    if (each.processId) processes.push_back(*each.processId);
  }
  registry_.forgetAllBut(processes);
  auto target = lookedAt(app, running, ownProcessId_);
  if (auto* outcome = std::get_if<Outcome>(&target)) co_return std::move(*outcome);
  std::variant<AXSnapshot, std::string> read;
  co_await onDesktop([&] { read = AXReader(*parts_.source, registry_).snapshot(std::get<RunningApp>(target)); });
  if (auto* sentence = std::get_if<std::string>(&read)) co_return Outcome::failed(*sentence);
  auto& snapshot = std::get<AXSnapshot>(read);
  boost::json::array elements;
  for (const auto& element : snapshot.elements) elements.push_back(element.wire());
  co_return Outcome{Outcome::ScreenText{std::move(snapshot.app), std::move(snapshot.text), snapshot.truncated,
                                        std::move(elements)}};
}

asio::awaitable<Outcome> DesktopStepExecutor::act(Request request, OperatorStepContext context) {
  const auto app = request.actApp();
  if (!app) co_return Outcome::refused(ActPolicy::noAppSentence);
  const auto caps = caps_();
  if (caps.accessibility != CapabilityState::granted) co_return Outcome::refused(ActPolicy::accessibilityOffSentence);
  if (caps.postEvents != CapabilityState::granted) co_return Outcome::refused(ActPolicy::restartSentence);
  const bool pressed = context.ownerPressed();
  const auto permit = MacPermit::forStep(context.permit);
  if (std::holds_alternative<Request::OpenApp>(request.value)) {
    if (auto hold = MacPermissionPolicy::actHold(request.kind(), *app, {}, permit); hold && !pressed) {
      co_return Outcome{Outcome::NeedsPress{hold->sentence, std::string(rawValue(hold->asks))}};
    }
    co_return co_await openApp(*app);
  }

  const auto front = frontOf(co_await runningApps());
  if (!ActPolicy::isFront(*app, front)) co_return Outcome::refused(ActPolicy::notInFrontSentence(*app));
  std::optional<AXElement> element;
  std::optional<ActTarget> target;
  if (const auto id = elementOf(request)) {
    auto found = front->processId ? registry_.element(*id, *front->processId) : std::nullopt;
    if (!found && front->processId && registry_.isOfLastRead(*id, *front->processId)) {
      co_return Outcome::refused(ActPolicy::notAControlSentence(*app));
    }
    if (!found) co_return Outcome::refused(ActPolicy::staleControlSentence(*app));
    co_await onDesktop([&] { target = describe(*parts_.source, found->element, found->windowTitle, found->dialogText); });
    element = found->element;
  }
  if (std::holds_alternative<Request::TypeText>(request.value)) {
    // Typing that names no control goes into the one holding the focus, which must be no
    // password field either.
    auto typedInto = target;
    if (!element) {
      co_await onDesktop([&] {
        element = front->processId ? parts_.source->focusedElement(*front->processId) : std::nullopt;
        if (element) typedInto = describe(*parts_.source, *element);
      });
      if (!element) co_return Outcome::failed(ActPolicy::noFocusSentence(*app));
    }
    if (typedInto->isSecure()) co_return Outcome::refused(ActPolicy::secureFieldSentence);
  }
  if (const auto* key = std::get_if<Request::Key>(&request.value)) {
    const auto code = MacKeyCodes::code(key->key);
    if (!code) co_return Outcome::failed(ActPolicy::unknownKeySentence);
    if (MacKeyCodes::isStopKeys(*code, key->modifiers)) co_return Outcome::refused(ActPolicy::stopKeysSentence);
  }
  if (!pressed) {
    std::vector<std::string> alsoKnownAs;
    if (front->bundleId) alsoKnownAs.push_back(*front->bundleId);
    if (auto hold = MacPermissionPolicy::actHold(request.kind(), *app, alsoKnownAs, permit)) {
      co_return Outcome{Outcome::NeedsPress{hold->sentence, std::string(rawValue(hold->asks))}};
    }
    auto weighed = request;
    if (auto* key = std::get_if<Request::Key>(&weighed.value)) key->modifiers = parts_.actor->heldAs(key->modifiers);
    if (auto sentence = ActPolicy::hold(weighed, target, front->bundleId)) {
      co_return Outcome{Outcome::NeedsPress{*sentence, std::nullopt}};
    }
  }
  std::optional<std::string> failure;
  co_await onDesktop([&] { failure = perform(request, *front, element); });
  if (failure) co_return Outcome::failed(*failure);
  co_return co_await acted(request.kind());
}

std::optional<std::string> DesktopStepExecutor::perform(const Request& request, const RunningApp& front,
                                                        const std::optional<AXElement>& element) {
  auto& actor = *parts_.actor;
  if (std::holds_alternative<Request::PressElement>(request.value)) return actor.press(*element, front.name);
  if (const auto* typing = std::get_if<Request::TypeText>(&request.value)) {
    return actor.type(*element, typing->text, front);
  }
  if (const auto* key = std::get_if<Request::Key>(&request.value)) return actor.key(front, key->key, key->modifiers);
  const auto& scroll = std::get<Request::Scroll>(request.value);
  return actor.scroll(front, scroll.direction, scroll.amount);
}

// Waits for the app by name: a launch need not start a process of its own.
asio::awaitable<Outcome> DesktopStepExecutor::openApp(std::string app) {
  std::optional<std::string> failure;
  co_await onDesktop([&] { failure = parts_.actor->openApp(app); });
  if (failure) co_return Outcome::failed(*failure);
  const auto deadline = clock_->now() + frontWait;
  while (true) {
    if (ActPolicy::isFront(app, frontOf(co_await runningApps()))) co_return co_await acted("open_app");
    if (clock_->now() >= deadline) break;
    co_await clock_->sleep(frontPoll);
  }
  co_return Outcome::failed(ActPolicy::openedNotFrontSentence(app));
}

// What the front of the screen shows once the act is done: the app in front and its windows.
asio::awaitable<Outcome> DesktopStepExecutor::acted(std::string_view kind) {
  const auto front = frontOf(co_await runningApps());
  boost::json::object after;
  if (front) {
    after["app"] = front->name;
    if (!front->windows.empty()) after["window"] = front->windows.front();
  }
  co_return Outcome{Outcome::Acted{std::string(kind), std::move(after)}};
}

}  // namespace quarl
