#pragma once

#include <string>
#include <variant>

namespace quarl {

// The one failure of every service call. Its description is the sentence the user or the
// log sees.
class BrainClientFailure {
 public:
  struct Http {
    int status;
    std::string code;
    std::string message;
  };
  struct Transport {
    std::string detail;
  };
  struct Decoding {
    std::string detail;
  };
  struct NotSignedIn {};
  // Something this Mac had to send could not be written as the wire asks; nothing was sent.
  struct Unsendable {
    std::string detail;
  };

  // boost::system::result needs a default value; a result that holds a value never shows it.
  BrainClientFailure() : value_(NotSignedIn{}) {}

  static BrainClientFailure http(int status, std::string code, std::string message);
  static BrainClientFailure transport(std::string detail);
  static BrainClientFailure decoding(std::string detail);
  static BrainClientFailure notSignedIn();
  static BrainClientFailure unsendable(std::string detail);

  std::string description() const;
  // True when this Mac must sign in again; false when a later attempt may succeed.
  bool isSessionGone() const;
  // True when the service refused this one record for good (400, 409, 413, 422) for a reason of
  // its own; false for every failure that would fail any other record the same way (no
  // connection, 5xx, 408, 429, 401, 403, 404, a gone session, a channel switched off).
  bool refusesThisRecordOnly() const;

  const Http* asHttp() const { return std::get_if<Http>(&value_); }
  bool isTransport() const { return std::holds_alternative<Transport>(value_); }
  bool isDecoding() const { return std::holds_alternative<Decoding>(value_); }
  bool isNotSignedIn() const { return std::holds_alternative<NotSignedIn>(value_); }

 private:
  using Value = std::variant<Http, Transport, Decoding, NotSignedIn, Unsendable>;
  explicit BrainClientFailure(Value value) : value_(std::move(value)) {}
  Value value_;
};

}  // namespace quarl
