// quarl-companion: the headless Linux host of the companion.
//   quarl-companion           runs until SIGINT or SIGTERM, then exits 0 once the tick in hand ends
//   quarl-companion --once    pairs if needed, runs one full tick and one relay pass, exits
//   quarl-companion sign-out  forgets this computer's credentials
//   quarl-companion operator-stop
//                             stops the operator run of the running host, as the menu does on a Mac
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <iostream>
#include <string_view>

#include "Companion.h"
#include "CompanionHost_linux.h"
#include "HttpTransport_linux.h"
#include "KeepAwake_linux.h"
#include "Keychain_linux.h"
#include "LogSink_linux.h"
#include "OperatorBar_linux.h"
#include "OperatorStopControl_linux.h"
#include "QuarlLog.h"
#include "SettingsStore_linux.h"
#include "StopHotKey_linux.h"
#include "StoreWatcher_linux.h"
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
    co_await companion->guardedTick();
  }
  co_await companion->guardedRelayPass();
  co_return 0;
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

// Ends a live operator run as the companion quitting, lets the tick in hand finish, then stops
// the loop.
asio::awaitable<void> stopWhenIdle(std::shared_ptr<Companion> companion, std::shared_ptr<const Clock> clock,
                                   asio::io_context* io) {
  companion->stopTimers();
  co_await companion->finishOperating(stopReportBound);
  while (companion->isTicking()) co_await clock->sleep(std::chrono::milliseconds(50));
  io->stop();
}

OperatorParts linuxOperatorParts() {
  return {std::make_shared<StandardErrorOperatorBar>(), std::make_shared<UnavailableStopHotKey>(),
          std::make_shared<UnavailableKeepAwake>(), std::make_shared<RefusingOperatorExecutor>()};
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view command = argc > 1 ? argv[1] : "";
  if (argc > 2 || (!command.empty() && command != "--once" && command != "sign-out" && command != "operator-stop")) {
    std::cerr << "usage: quarl-companion [--once | sign-out | operator-stop]" << std::endl;
    return 2;
  }
  if (command == "operator-stop") {
    const auto answer = OperatorStopControl::ask(OperatorStopControl::socketPath(configDirectory()));
    (answer.answered ? std::cout : std::cerr) << answer.sentence << std::endl;
    return answer.answered ? 0 : 1;
  }
  QuarlLog::install(std::make_shared<StandardErrorLogSink>());

  asio::io_context io;
  auto clock = std::make_shared<SystemClock>();
  const auto directory = configDirectory();
  auto companion = Companion::create(CompanionParts{io.get_executor(), clock,
                                                    std::make_shared<FileSettingsStore>(directory, *clock),
                                                    std::make_shared<FileKeychain>(directory, *clock),
                                                    std::make_shared<BeastHttpTransport>(io.get_executor()),
                                                    std::make_shared<LinuxCompanionHost>(), hostIdentity(),
                                                    ChatDatabase::defaultPath(),
                                                    std::make_shared<InotifyStoreWatcher>(io.get_executor()),
                                                    linuxOperatorParts()});
  if (command == "sign-out") {
    companion->signOut();
    return 0;
  }

  int exitCode = 0;
  if (command == "--once") {
    asio::co_spawn(io, runOnce(companion), [&](std::exception_ptr, int code) { exitCode = code; });
    io.run();
    return exitCode;
  }
  OperatorStopControl stopControl(io.get_executor(), OperatorStopControl::socketPath(directory),
                                  [&companion] { return companion->stopOperating(); });
  if (auto refusal = stopControl.listen()) QuarlLog::say("quarl: operator-stop will not reach this host — " + *refusal);
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
