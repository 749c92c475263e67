// A stand-in for the Messages application, run in place of /usr/bin/osascript through
// QUARL_OSASCRIPT. It reads the companion's script from standard input, refuses anything that is
// not one of the two scripts with well-formed literals, and writes into the store the rows
// Messages would write. What it does is set by the environment:
//   QUARL_STANDIN_STORE   the store (default: $HOME/Library/Messages/chat.db)
//   QUARL_STANDIN_MODE    "sent" (default): a row marked sent; "unsent": a row marked neither
//                         sent nor failed; "error:N": a row with error N; "none": no row;
//                         "unauthorised": the -1743 error; "hang": never answers, ignores SIGTERM
//   QUARL_STANDIN_FAIL_CALL  N: the Nth script of this store fails with a script error
//   QUARL_STANDIN_LOG     a file that gets one line per script: kind, target, service, body
//   QUARL_STANDIN_DELAY_MS  how long Messages takes, after the script is logged, to write its row
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <thread>

#include "MessagesScript.h"
#include "MessagesStore.h"

namespace {

std::string environment(const char* name, const std::string& fallback) {
  const char* value = std::getenv(name);
  return value && *value ? value : fallback;
}

int callNumber(const std::string& store) {
  const auto counter = store + ".standin-calls";
  int calls = 0;
  std::ifstream(counter) >> calls;
  std::ofstream(counter, std::ios::trunc) << ++calls;
  return calls;
}

}  // namespace

int main() {
  const std::string script((std::istreambuf_iterator<char>(std::cin)), std::istreambuf_iterator<char>());
  const auto parsed = quarl::testing::parseMessagesScript(script);
  if (!parsed) {
    std::cerr << "execution error: the stand-in does not know this script (-2741)\n";
    return 1;
  }
  const auto store = environment("QUARL_STANDIN_STORE", environment("HOME", ".") + "/Library/Messages/chat.db");
  const auto mode = environment("QUARL_STANDIN_MODE", "sent");
  if (const auto log = environment("QUARL_STANDIN_LOG", ""); !log.empty()) {
    std::ofstream(log, std::ios::app) << (parsed->isFile ? "file" : "text") << '\t' << parsed->target << '\t'
                                      << parsed->serviceType << '\t' << parsed->body << "\n";
  }
  if (mode == "hang") {
    ::signal(SIGTERM, SIG_IGN);
    for (;;) std::this_thread::sleep_for(std::chrono::seconds(1));
  }
  if (mode == "unauthorised") {
    std::cerr << "execution error: Not authorized to send Apple events to Messages. (-1743)\n";
    return 1;
  }
  const int call = callNumber(store);
  if (environment("QUARL_STANDIN_FAIL_CALL", "") == std::to_string(call)) {
    std::cerr << "execution error: Messages got an error: Can’t send this. (-1708)\n";
    return 1;
  }
  if (mode == "none") return 0;
  std::this_thread::sleep_for(std::chrono::milliseconds(std::stoi(environment("QUARL_STANDIN_DELAY_MS", "0"))));

  quarl::testing::MessagesStore messages(store, quarl::testing::MessagesSchema::tahoe,
                                         quarl::testing::MessagesStore::Opening::existing);
  std::int64_t chat = messages.chatRow(parsed->target);
  if (chat == 0) chat = messages.chat(parsed->target, parsed->isGroup ? "iMessage" : parsed->serviceType);
  quarl::testing::MessageRow row{.guid = "standin-" + std::to_string(::getpid()) + "-" + std::to_string(call),
                                 .chat = chat,
                                 .text = parsed->isFile ? "\xEF\xBF\xBC" : parsed->body,
                                 .date = quarl::testing::appleNanoseconds(
                                     std::chrono::time_point_cast<quarl::SystemTime::duration>(
                                         std::chrono::system_clock::now())),
                                 .isFromMe = true,
                                 .service = parsed->serviceType.empty() ? "iMessage" : parsed->serviceType};
  row.isSent = mode == "sent";
  if (mode.starts_with("error:")) row.error = std::stoll(mode.substr(6));
  const auto message = messages.message(row);
  if (parsed->isFile) {
    messages.attachment(message, {.guid = row.guid + "-file", .filename = parsed->body,
                                  .transferName = parsed->body.substr(parsed->body.rfind('/') + 1)});
  }
  return 0;
}
