#include "platform/CompanionHost.h"

namespace quarl {

MessagesStoreReading readMessagesStoreNow(const ChatDatabase& database) {
  MessagesStoreReading reading;
  reading.readable = database.isReadable();
  if (!reading.readable) return reading;
  if (auto verified = database.verifySchema(); !verified) reading.schemaFailure = verified.error().description();
  return reading;
}

}  // namespace quarl
