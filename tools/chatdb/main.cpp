// quarl-chatdb: reads a Messages store the way the companion does and prints what it finds,
// one JSON object per line, for the team and for support.

#include <boost/json/serialize.hpp>
#include <boost/json/value.hpp>
#include <charconv>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "ChatDatabase.h"
#include "DateText.h"

namespace {

namespace json = boost::json;
using quarl::ChatDatabase;

constexpr int defaultLimit = 100;

constexpr std::string_view usage =
    "usage: quarl-chatdb [--db PATH] verify\n"
    "       quarl-chatdb [--db PATH] messages --after ISO8601 [--limit N]\n"
    "       quarl-chatdb [--db PATH] tapbacks --after-row N --since ISO8601 [--limit N]\n"
    "       quarl-chatdb [--db PATH] receipts --changed-after N --sent-since ISO8601 [--limit N]\n"
    "       quarl-chatdb [--db PATH] sends --at ISO8601 [--limit N]\n"
    "       quarl-chatdb [--db PATH] reply-address CHAT-IDENTIFIER\n";

// A mistake in how the tool was called: its sentence, then the usage.
struct UsageError {
  std::string sentence;
};

struct Command {
  std::string db = ChatDatabase::defaultPath();
  std::string verb;
  std::vector<std::string> operands;
  std::map<std::string, std::string> options;
};

Command parse(int argc, char** argv) {
  Command command;
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    if (word.starts_with("--")) {
      if (i + 1 >= argc) throw UsageError{word + " needs a value."};
      (word == "--db" ? command.db : command.options[word.substr(2)]) = argv[++i];
    } else if (command.verb.empty()) {
      command.verb = word;
    } else {
      command.operands.push_back(word);
    }
  }
  if (command.verb.empty()) throw UsageError{"Say what to read."};
  return command;
}

std::string required(const Command& command, const std::string& name) {
  const auto found = command.options.find(name);
  if (found == command.options.end()) throw UsageError{command.verb + " needs --" + name + "."};
  return found->second;
}

quarl::SystemTime instant(const Command& command, const std::string& name) {
  const auto text = required(command, name);
  const auto parsed = quarl::instantFromIso8601(text);
  if (!parsed) throw UsageError{"--" + name + " takes an ISO 8601 instant such as 2026-11-23T09:00:00Z, not " + text + "."};
  return *parsed;
}

std::int64_t integer(const Command& command, const std::string& name, std::optional<std::int64_t> fallback = {}) {
  if (fallback && !command.options.contains(name)) return *fallback;
  const auto text = required(command, name);
  std::int64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || value < 0) {
    throw UsageError{"--" + name + " takes a whole number of zero or more, not " + text + "."};
  }
  return value;
}

int limit(const Command& command) {
  const auto value = integer(command, "limit", defaultLimit);
  if (value < 1 || value > 1'000'000) throw UsageError{"--limit takes a whole number from 1 to 1000000."};
  return static_cast<int>(value);
}

json::value optional(const std::optional<std::string>& text) {
  return text ? json::value(*text) : json::value(nullptr);
}

void print(const json::object& row) { std::cout << json::serialize(row) << '\n'; }

json::object attachmentJson(const ChatDatabase::Attachment& attachment) {
  return {{"guid", attachment.guid},
          {"filename", attachment.filename},
          {"mimeType", attachment.mimeType},
          {"sizeBytes", attachment.sizeBytes},
          {"providerHint", optional(attachment.providerHint)},
          {"sensitive", attachment.sensitive},
          {"localPath", optional(attachment.localPath)}};
}

json::object messageJson(const ChatDatabase::Message& message) {
  json::array attachments;
  for (const auto& attachment : message.attachments) attachments.push_back(attachmentJson(attachment));
  return {{"rowId", message.rowId},
          {"guid", message.guid},
          {"chatIdentifier", message.chatIdentifier},
          {"isFromMe", message.isFromMe},
          {"handle", optional(message.handle)},
          {"text", message.text},
          {"date", quarl::iso8601(message.date)},
          {"isSMS", message.isSMS},
          {"isGroup", message.isGroup},
          {"groupName", optional(message.groupName)},
          {"attachments", std::move(attachments)}};
}

json::object tapbackJson(const ChatDatabase::Tapback& tapback) {
  json::object row{{"rowId", tapback.rowId},
                   {"type", tapback.type},
                   {"targetGuid", tapback.targetGuid},
                   {"reactorKey", tapback.reactorKey},
                   {"fromMe", tapback.fromMe},
                   {"emoji", optional(tapback.emoji)},
                   {"date", quarl::iso8601(tapback.date)},
                   {"isSMS", tapback.isSMS}};
  const auto meaning = ChatDatabase::tapbackMeaning(tapback.type, tapback.emoji);
  row["meaning"] = meaning ? json::value(json::object{{"adds", meaning->adds}, {"emoji", optional(meaning->emoji)}})
                           : json::value(nullptr);
  return row;
}

json::object receiptJson(const ChatDatabase::Receipt& receipt) {
  return {{"guid", receipt.guid},
          {"status", receipt.status},
          {"at", quarl::iso8601(receipt.at)},
          {"changedAt", receipt.changedAt},
          {"isSMS", receipt.isSMS}};
}

json::object sendJson(const ChatDatabase::SendRecord& record) {
  return {{"guid", record.guid},
          {"chatIdentifier", record.chatIdentifier},
          {"date", quarl::iso8601(record.date)},
          {"errorCode", record.errorCode},
          {"isSent", record.isSent}};
}

template <class Row, class ToJson>
void printReadout(const ChatDatabase::Readout<Row>& readout, ToJson toJson) {
  if (readout.unavailableReason) print({{"unavailable", *readout.unavailableReason}});
  for (const auto& row : readout.rows) print(toJson(row));
}

// Runs the command; the store's failure when it could not be read.
std::optional<quarl::ChatDatabaseFailure> run(const Command& command) {
  const ChatDatabase database{command.db};
  const auto& verb = command.verb;
  if (verb != "reply-address" && !command.operands.empty()) {
    throw UsageError{verb + " takes no operand " + command.operands.front() + "."};
  }
  if (verb == "verify") {
    if (auto verified = database.verifySchema(); !verified) return verified.error();
    print({{"path", command.db}, {"readable", database.isReadable()}, {"schema", "known"}});
  } else if (verb == "messages") {
    const auto batch = database.messages(instant(command, "after"), limit(command));
    if (!batch) return batch.error();
    for (const auto& message : batch->messages) print(messageJson(message));
    print({{"skippedWithoutText", batch->skippedWithoutText}});
    if (batch->attachmentsUnavailable) print({{"attachmentsUnavailable", *batch->attachmentsUnavailable}});
  } else if (verb == "tapbacks") {
    const auto readout = database.tapbacks(integer(command, "after-row"), instant(command, "since"), limit(command));
    if (!readout) return readout.error();
    printReadout(*readout, tapbackJson);
  } else if (verb == "receipts") {
    const auto readout =
        database.receipts(integer(command, "changed-after"), instant(command, "sent-since"), limit(command));
    if (!readout) return readout.error();
    printReadout(*readout, receiptJson);
  } else if (verb == "sends") {
    const auto readout = database.outboundSends(instant(command, "at"), limit(command));
    if (!readout) return readout.error();
    printReadout(*readout, sendJson);
  } else if (verb == "reply-address") {
    if (command.operands.size() != 1) throw UsageError{"reply-address takes one chat identifier."};
    const auto address = database.replyAddress(command.operands.front());
    if (!address) return address.error();
    print({{"chatIdentifier", command.operands.front()},
           {"guid", optional(address->guid)},
           {"theirNewestService", optional(address->theirNewestService)}});
  } else {
    throw UsageError{"There is no command " + verb + "."};
  }
  return std::nullopt;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    if (const auto failure = run(parse(argc, argv))) {
      std::cerr << failure->description() << '\n';
      return 1;
    }
    return 0;
  } catch (const UsageError& error) {
    std::cerr << error.sentence << '\n' << usage;
    return 2;
  }
}
