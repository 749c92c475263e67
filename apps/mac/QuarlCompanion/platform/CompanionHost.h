#pragma once

#include <boost/asio/awaitable.hpp>
#include <optional>
#include <string>

#include "ChannelOffer.h"
#include "ChatDatabase.h"
#include "OperatorCaps.h"

namespace quarl {

// Whether the Messages store can be read and its shape is one this companion knows.
struct MessagesStoreReading {
  bool readable = false;
  std::optional<std::string> schemaFailure;  // the failure's sentence when the shape is wrong
};

// Asks the store both questions; blocks, so hosts call it on a worker.
MessagesStoreReading readMessagesStoreNow(const ChatDatabase& database);

// The parts of the Mac the coordinator asks about or shows things through. Each platform
// gives one; the Linux host answers for what Linux has, and "unavailable" for the rest.
class CompanionHost {
 public:
  virtual ~CompanionHost() = default;
  // Checks the Messages store at `path` off the main executor.
  virtual boost::asio::awaitable<MessagesStoreReading> readMessagesStore(std::string path) = 0;
  // The owner's name for a sender, from the contacts directory; none when it has none.
  virtual std::optional<std::string> contactName(const std::string& handle) = 0;
  // Shows the pairing code and sends the owner to the approval page.
  virtual void showPairingCode(const std::string& userCode, const std::string& verificationUrl) = 0;
  // The waiting count on the application's icon; none clears it.
  virtual void setBadge(const std::optional<std::string>& label) = 0;
  // The Mac's hardware, as the heartbeat's device fields describe it.
  virtual std::string hardwareDescription() = 0;
  // What the system lets the operator do now; the owner's switch and keep-awake choice are
  // the coordinator's to fill in.
  virtual OperatorCaps operatorCaps() = 0;
};

}  // namespace quarl
