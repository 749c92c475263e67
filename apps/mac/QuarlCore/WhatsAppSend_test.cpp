#include "WhatsAppSend.h"

#include <gmock/gmock.h>

namespace quarl::WhatsAppWeb {
namespace {
}  // namespace
}  // namespace quarl::WhatsAppWeb
