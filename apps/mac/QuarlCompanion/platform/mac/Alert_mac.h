#pragma once

#import <AppKit/AppKit.h>

#include <boost/asio/awaitable.hpp>
#include <functional>
#include <string>

namespace quarl {

// Runs `alert` modally once the main queue's current block has returned, then tells
// `answered` which button was chosen. A modal loop entered inside a main-queue block would
// hold every later block of that queue, the coordinator's work among them, until the owner
// answered.
void runAlertLater(NSAlert* alert, std::function<void(NSModalResponse)> answered);
// The same, awaited from a coroutine on the main executor: the button chosen.
boost::asio::awaitable<NSModalResponse> answerTo(NSAlert* alert);
// A sentence with an OK button.
void tellLater(const std::string& sentence);

}  // namespace quarl
