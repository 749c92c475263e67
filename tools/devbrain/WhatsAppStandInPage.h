#pragma once

#include <string_view>

// The WhatsApp Web stand-in's page and script, built into devbrain from whatsapp/ at build time.
namespace devbrain {

std::string_view standInPage();
std::string_view standInScript();

}  // namespace devbrain
