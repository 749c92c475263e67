#pragma once

#include <boost/asio/io_context.hpp>
#include <memory>
#include <string>

#include "Companion.h"
#include "DevBrainAdmin.h"
#include "FakeCompanionHost.h"
#include "MemorySettingsStore.h"
#include "SettingsKeys.h"
#include "BeastHttpTransport.h"
#include "platform/linux/Keychain_linux.h"

namespace quarl::testing {

// A coordinator in this process, signed in as a device devbrain has just issued, whose Messages
// store at `storePath` reads as readable.
inline std::shared_ptr<Companion> signedInCompanion(const DevBrainProcess& brain, DevBrainAdmin& admin,
                                                    boost::asio::io_context& io, std::shared_ptr<const Clock> clock,
                                                    std::shared_ptr<MemorySettingsStore> defaults,
                                                    std::shared_ptr<FileKeychain> keychain,
                                                    std::shared_ptr<FakeCompanionHost> host, std::string storePath) {
  defaults->write(keys::apiURL, boost::json::value(brain.baseURL()));
  const auto issued = admin.post("/admin/devices");
  defaults->write(keys::deviceId, issued.at("deviceId"));
  keychain->write(keys::accessTokenAccount, issued.at("accessToken").as_string());
  keychain->write(keys::refreshTokenAccount, issued.at("refreshToken").as_string());
  host->reading = {true, std::nullopt};
  return Companion::create(CompanionParts{io.get_executor(), std::move(clock), std::move(defaults), std::move(keychain),
                                          std::make_shared<BeastHttpTransport>(io.get_executor()), std::move(host),
                                          ClientIdentity{"linux", 1, "0.1.0", "test", "Linux"}, std::move(storePath)});
}

}  // namespace quarl::testing
