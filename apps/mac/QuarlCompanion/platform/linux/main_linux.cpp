// quarl-companion: the headless Linux host of the companion.
//   quarl-companion           runs until SIGINT or SIGTERM, then exits 0 once the tick in hand ends
//   quarl-companion --once    pairs if needed, runs one full tick and one relay pass, exits
//   quarl-companion sign-out  forgets this computer's credentials, in the running host when one runs
//   quarl-companion operator-stop
//                             stops the operator run of the running host, as the menu does on a Mac
//   quarl-companion operator on|off
//                             switches operator mode, in the running host or for its next start
//   quarl-companion whatsapp-link
//                             switches WhatsApp on and links it: prints each QR code WhatsApp Web
//                             shows (and saves a picture of the page) until a phone scans it, through
//                             the running host when one runs
//   quarl-companion status    what the menu would show: the running host's, else what is kept
//   quarl-companion extract-text DEVICE INODE BORN PATH
//                             the text of one found document, as JSON; the host runs it as a child
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/this_coro.hpp>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <string_view>

#include "Companion.h"
#include "CompanionHost_linux.h"
#include "FileOperator_linux.h"
#include "platform/DocumentReading.h"
#include "FileStepExecutor.h"
#include "MacStepExecutor.h"
#include "desktop/LinuxDesktop_linux.h"
#include "BeastHttpTransport.h"
#include "InstanceLock_linux.h"
#include "KeepAwake_linux.h"
#include "Keychain_linux.h"
#include "LogSink_linux.h"
#include "OperatorBar_linux.h"
#include "PrivateDisplay_linux.h"
#include "HostControl_linux.h"
#include "QuarlLog.h"
#include "SettingsKeys.h"
#include "SettingsStore_linux.h"
#include "StopHotKey_linux.h"
#include "StoreWatcher_linux.h"
#include "TerminalQr_linux.h"
#include "WhatsAppPageModule_linux.h"
#include "platform/HostIdentity.h"

namespace asio = boost::asio;
using namespace quarl;

namespace {

// Pairs first when this computer has no credentials; the exit code says how it went.
asio::awaitable<int> runOnce(std::shared_ptr<Companion> companion) {
  if (!companion->hasCredentials()) {
    if (auto failure = co_await companion->pair()) {
      std::cerr << *failure << std::endl;
      co_return 1;
    }
  } else {
    // One run must be able to read and send WhatsApp: the page gets its chance to settle first.
    if (companion->whatsapp().isEnabled()) co_await companion->whatsapp().settledState();
    co_await companion->guardedTick();
  }
  co_await companion->guardedRelayPass();
  co_return 0;
}

// How long `whatsapp-link` waits for a phone to scan a code.
constexpr std::chrono::seconds linkBound{300};
// The last line of a linking that worked; a terminal that asked the running host ends with 0 on it.
constexpr std::string_view linkedSentence = "WhatsApp is linked";

using Say = std::function<void(const std::string&)>;

void sayOnTerminal(const std::string& text) {
  std::cout << text;
  if (text.empty() || text.back() != '\n') std::cout << '\n';
  std::cout << std::flush;
}

asio::awaitable<void> showCode(std::shared_ptr<Companion> companion, std::filesystem::path picture, Say say,
                               std::string code) {
  say("\nScan this with WhatsApp on your phone (Settings, Linked devices, Link a device):\n" +
      terminalQr(code).value_or("(this code could not be drawn here; open the picture below)\n"));
  const auto failure = co_await companion->whatsapp().savePicture(picture.string());
  say(failure ? *failure : "A picture of the page is at " + picture.string());
}

// Says every code WhatsApp Web shows until the page reads linked or the bound passes; whether it did.
asio::awaitable<bool> linkWhatsApp(std::shared_ptr<Companion> companion, std::filesystem::path picture, Say say) {
  std::function<asio::awaitable<void>(std::string)> shown = [companion, picture, say](std::string code) {
    return showCode(companion, picture, say, std::move(code));
  };
  const auto state = co_await companion->linkWhatsApp(linkBound, std::move(shown));
  const bool linked = WhatsAppWeb::isSettled(state);
  say(linked ? std::string(linkedSentence) : "WhatsApp is not linked: " + WhatsAppWeb::describe(state));
  co_return linked;
}

// The running host links for a terminal that asks; one terminal at a time, since there is one page.
asio::awaitable<void> linkForTerminal(std::shared_ptr<Companion> companion, std::filesystem::path picture, Say say,
                                      std::shared_ptr<bool> linking) {
  if (*linking) {
    say("WhatsApp is already being linked from another terminal: scan the code shown there.");
    co_return;
  }
  *linking = true;
  co_await linkWhatsApp(std::move(companion), std::move(picture), std::move(say));
  *linking = false;
}

int linkThroughRunningHost(const std::filesystem::path& socket) {
  const auto last = HostControl::askLineByLine(socket, "whatsapp-link", sayOnTerminal);
  if (!last) {
    std::cerr << "Quarl is running on this computer but did not answer, so WhatsApp was not linked. Quit it and run "
                 "this again."
              << std::endl;
    return 1;
  }
  return *last == linkedSentence ? 0 : 1;
}

asio::awaitable<void> runUntilStopped(std::shared_ptr<Companion> companion, int* exitCode) {
  if (!companion->hasCredentials()) {
    if (auto failure = co_await companion->pair()) {
      std::cerr << *failure << std::endl;
      *exitCode = 1;
      co_return;
    }
  }
  companion->start();
}

// How long a quitting host gives the report of the run it ends.
constexpr std::chrono::seconds stopReportBound{2};
// How long a quitting host waits for the relay job in hand: its confirmation (44 s) and the
// retries of its report (17 s), with room for slow answers. A job still unsettled then stays in
// the journal and is settled, never sent again, at the next start.
constexpr std::chrono::seconds relayFinishBound{90};

// Ends a live operator run as the companion quitting, stops claiming relay jobs, lets the tick
// and the relay job in hand finish, then stops the loop.
asio::awaitable<void> stopWhenIdle(std::shared_ptr<Companion> companion, std::shared_ptr<const Clock> clock,
                                   asio::io_context* io) {
  companion->stopTimers();
  co_await companion->finishOperating(stopReportBound);
  const auto deadline = clock->now() + relayFinishBound;
  while ((companion->isTicking() || companion->isRelaying()) && clock->now() < deadline) {
    co_await clock->sleep(std::chrono::milliseconds(50));
  }
  if (companion->isRelaying()) {
    QuarlLog::say("quarl: quitting with a relay job unsettled — the next start confirms it from the store and reports it");
  }
  io->stop();
}

// The running host signs out itself, since it holds the session in memory; without one, this
// process does, holding the lock so that no host starts meanwhile.
int signOut(const std::function<std::shared_ptr<Companion>()>& makeCompanion) {
  const auto directory = configDirectory();
  if (auto answer = HostControl::ask(HostControl::socketPath(directory), "sign-out")) {
    std::cout << *answer << std::endl;
    return 0;
  }
  std::string refusal;
  const auto lock = InstanceLock::take(directory, refusal);
  if (!lock) {
    std::cerr << "Quarl is running on this computer but did not answer, so it was not signed out. Quit it and try again."
              << std::endl;
    return 1;
  }
  makeCompanion()->signOut();
  std::cout << HostControl::signedOutSentence << std::endl;
  return 0;
}

// The running host says what it knows; when none answers, what the companion keeps is all there
// is. The lock is not taken to tell a silent host from none: a host starting meanwhile would refuse.
int showStatus() {
  const auto directory = configDirectory();
  if (auto answer = HostControl::ask(HostControl::socketPath(directory), "status")) {
    std::cout << *answer << std::endl;
    return 0;
  }
  SystemClock clock;
  const auto status = CompanionStatus::kept(FileSettingsStore(directory, clock), FileKeychain(directory, clock));
  std::cout << status.text(clock.now()) << std::flush;
  return 0;
}

int stopOperatorRun() {
  if (auto answer = HostControl::ask(HostControl::socketPath(configDirectory()), "stop")) {
    std::cout << *answer << std::endl;
    return 0;
  }
  std::cerr << "Quarl is not running on this computer, so there was nothing to stop." << std::endl;
  return 1;
}

// The running host takes the choice itself; without one, it is saved for the next start.
int switchOperator(bool on) {
  const auto directory = configDirectory();
  if (auto answer = HostControl::ask(HostControl::socketPath(directory), on ? "on" : "off")) {
    std::cout << *answer << std::endl;
    return 0;
  }
  SystemClock clock;
  if (!FileSettingsStore(directory, clock).write(keys::operatorAllowed, boost::json::value(on))) {
    std::cerr << "The setting could not be saved, so operator mode is unchanged." << std::endl;
    return 1;
  }
  std::cout << HostControl::switchedSentence(on) << std::endl;
  return 0;
}

// Documents are read by this same program in a child of its own, ended after 20 s. On a desktop
// the operator also looks at and works the screen, and the bar and the stop keys are real.
OperatorParts linuxOperatorParts(const std::shared_ptr<LinuxDesktop>& desktop,
                                 const std::shared_ptr<LinuxCompanionHost>& host,
                                 const std::shared_ptr<const Clock>& clock) {
  const char* home = std::getenv("HOME");
  auto files = std::make_shared<FileStepExecutor>(std::make_shared<LinuxFileOperator>(
      home ? home : "/", documentReaderInChild("/proc/self/exe", std::chrono::seconds(20)),
      LinuxFileOperator::Limits{}, std::vector<std::string>{configDirectory().string()}));
  if (!desktop) {
    return {std::make_shared<StandardErrorOperatorBar>(), std::make_shared<UnavailableStopHotKey>(),
            std::make_shared<UnavailableKeepAwake>(), std::make_shared<MacStepExecutor>(std::move(files), nullptr)};
  }
  auto screen = std::make_shared<DesktopStepExecutor>(desktop->parts(), [host] { return host->operatorCaps(); }, clock,
                                                      static_cast<std::int64_t>(::getpid()));
  return {desktop->events, desktop->events, std::make_shared<UnavailableKeepAwake>(),
          std::make_shared<MacStepExecutor>(std::move(files), std::move(screen))};
}

}  // namespace

int main(int argc, char** argv) {
  PrivateDisplay::reserveEnvironment();
  // The companion's own windows (the page host's, the bar) stay out of the accessibility tree:
  // Quarl never reads itself, and GTK's bridge would share AT-SPI with the operator's reads.
  ::setenv("NO_AT_BRIDGE", "1", 1);
  const std::string_view command = argc > 1 ? argv[1] : "";
  const std::string_view choice = argc > 2 ? argv[2] : "";
  if (command == "extract-text") return extractTextCommand(argc, argv);
  const bool switching = command == "operator" && argc == 3 && (choice == "on" || choice == "off");
  const bool known = command.empty() || command == "--once" || command == "sign-out" || command == "operator-stop" ||
                     command == "whatsapp-link" || command == "status";
  if (!switching && (argc > 2 || !known)) {
    std::cerr << "usage: quarl-companion [--once | status | sign-out | operator-stop | operator on|off | whatsapp-link]"
              << std::endl;
    return 2;
  }
  if (command == "operator-stop") return stopOperatorRun();
  if (command == "status") return showStatus();
  if (switching) return switchOperator(choice == "on");
  QuarlLog::install(std::make_shared<StandardErrorLogSink>());

  asio::io_context io;
  auto clock = std::make_shared<SystemClock>();
  const auto directory = configDirectory();
  const auto makeCompanion = [&] {
    // Only the host that runs, not a command beside it, works the desktop.
    std::string noDesktop;
    const auto desktop = command.empty() ? LinuxDesktop::open(io.get_executor(), noDesktop) : nullptr;
    if (command.empty()) {
      QuarlLog::say(desktop ? "quarl: the operator can look at and work this desktop (display " +
                                  std::string(std::getenv("DISPLAY")) + ")"
                            : "quarl: " + noDesktop);
    }
    const auto host = std::make_shared<LinuxCompanionHost>(desktop);
    return Companion::create(CompanionParts{io.get_executor(), clock, std::make_shared<FileSettingsStore>(directory, *clock),
                                            std::make_shared<FileKeychain>(directory, *clock),
                                            std::make_shared<BeastHttpTransport>(io.get_executor()),
                                            host, hostIdentity(),
                                            ChatDatabase::defaultPath(),
                                            std::make_shared<InotifyStoreWatcher>(io.get_executor()),
                                            linuxOperatorParts(desktop, host, clock),
                                            std::make_shared<WhatsAppPageModule>(io.get_executor(),
                                                                                 WhatsAppPageModule::defaultDataFolder(),
                                                                                 WhatsAppPageModule::besideThisProgram())});
  };
  if (command == "sign-out") return signOut(makeCompanion);

  std::string refusal;
  const auto lock = InstanceLock::take(directory, refusal);
  if (!lock) {
    // Only the running host may own WhatsApp's page, so it links for this terminal.
    if (command == "whatsapp-link") return linkThroughRunningHost(HostControl::socketPath(directory));
    std::cerr << refusal << std::endl;
    return 1;
  }
  auto companion = makeCompanion();

  int exitCode = 0;
  if (command == "whatsapp-link") {
    asio::co_spawn(io, linkWhatsApp(companion, directory / "whatsapp-link.png", sayOnTerminal),
                   [&](std::exception_ptr, bool linked) {
                     exitCode = linked ? 0 : 1;
                     io.stop();
                   });
    io.run();
    return exitCode;
  }

  if (command == "--once") {
    asio::co_spawn(io, runOnce(companion), [&](std::exception_ptr, int code) { exitCode = code; });
    io.run();
    return exitCode;
  }
  HostControl control(io.get_executor(), HostControl::socketPath(directory),
                      {[&companion] { return companion->stopOperating(); },
                       [&companion](bool on) { return companion->setOperatorAllowed(on); },
                       [&companion] { companion->signOut(); },
                       [&companion, picture = directory / "whatsapp-link.png",
                        linking = std::make_shared<bool>(false)](Say say) {
                         return linkForTerminal(companion, picture, std::move(say), linking);
                       },
                       [&companion, clock] { return companion->status().text(clock->now()); }});
  if (auto refusal = control.listen()) QuarlLog::say("quarl: commands will not reach this host — " + *refusal);
  asio::signal_set signals(io, SIGINT, SIGTERM);
  signals.async_wait([&](const boost::system::error_code& error, int) {
    if (!error) asio::co_spawn(io, stopWhenIdle(companion, clock, &io), asio::detached);
  });
  asio::co_spawn(io, runUntilStopped(companion, &exitCode), [&](std::exception_ptr) {
    if (exitCode != 0) io.stop();
  });
  io.run();
  return exitCode;
}
