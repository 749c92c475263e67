#pragma once

// What the WhatsApp benches stand on: devbrain with its WhatsApp Web stand-in, and the page host
// in a real WebKitGTK (on a private display when $DISPLAY is unset) with WhatsApp switched on
// and pointed at the stand-in. Nothing of the page starts until the bench loads it.
#include <cstdio>
#include <memory>

#include "../apps/mac/tests/support/DevBrainAdmin.h"
#include "../apps/mac/tests/support/MemorySettingsStore.h"
#include "../apps/mac/tests/support/RunAwaitable.h"
#include "../apps/mac/tests/support/TemporaryDirectory.h"
#include "BrainClient.h"
#include "PrivateDisplay_linux.h"
#include "SettingsKeys.h"
#include "WhatsAppPage_linux.h"
#include "WhatsAppSession.h"
#include "BeastHttpTransport.h"

namespace quarl::bench {

struct StandInBench {
  // The display's environment is settled before devbrain or GTK can read it.
  struct DisplayReserved {
    DisplayReserved() { PrivateDisplay::reserveEnvironment(); }
  };

  DisplayReserved reserved;
  testing::DevBrainProcess brain;
  testing::DevBrainAdmin admin{brain};
  boost::asio::io_context io;
  testing::TemporaryDirectory folder;
  std::shared_ptr<SystemClock> clock = std::make_shared<SystemClock>();
  std::shared_ptr<testing::MemorySettingsStore> defaults = whatsappAtTheStandIn();
  std::shared_ptr<WebKitWhatsAppPage> page = std::make_shared<WebKitWhatsAppPage>(io.get_executor(), folder.path());
  std::shared_ptr<WhatsAppSession> session = WhatsAppSession::create(io.get_executor(), clock, defaults, page);

  // Loads the page and waits for it to read linked; false, said on standard output, when it never did.
  bool linked() {
    testing::runAwaitable(io, session->load());
    const auto state = testing::runAwaitable(io, session->settledState());
    if (!WhatsAppWeb::isSettled(state)) std::printf("the stand-in never read linked: %s\n", WhatsAppWeb::describe(state).c_str());
    return WhatsAppWeb::isSettled(state);
  }

  // A client signed in as a new device of devbrain.
  std::unique_ptr<BrainClient> signedInClient() {
    const auto device = admin.post("/admin/devices").as_object();
    return std::make_unique<BrainClient>(io.get_executor(), brain.baseURL(), ClientIdentity{"linux", 1, "bench", "bench", "bench"},
                                         Credentials{std::string(device.at("accessToken").as_string()),
                                                     std::string(device.at("refreshToken").as_string()),
                                                     std::string(device.at("deviceId").as_string())},
                                         std::make_shared<BeastHttpTransport>(io.get_executor()), clock, nullptr);
  }

 private:
  std::shared_ptr<testing::MemorySettingsStore> whatsappAtTheStandIn() {
    auto store = std::make_shared<testing::MemorySettingsStore>();
    store->write(keys::whatsappEnabled, true);
    store->write(keys::whatsappWebURL, boost::json::string(brain.baseURL() + "/whatsapp/"));
    return store;
  }
};

}  // namespace quarl::bench
