#pragma once

#include <boost/json/fwd.hpp>
#include <boost/json/object.hpp>
#include <boost/json/value_to.hpp>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace quarl {

struct HeartbeatNudge {
  std::string turnId;
  std::string title;
  std::string body;
};

// The service's answer to a heartbeat.
struct HeartbeatResponse {
  std::vector<std::string> channels;
  std::int64_t waitingJobs = 0;
  std::optional<std::int64_t> needsYou;
  std::optional<std::int64_t> followUpCount;
  std::optional<std::map<std::string, std::string>> channelIds;
  std::optional<std::vector<std::string>> unmatched;
  std::optional<HeartbeatNudge> nudge;
  std::optional<std::string> macPermissionMode;
};

// What a heartbeat tells the service. The optional objects are sent only when given.
struct HeartbeatReport {
  std::vector<std::string> channels;
  std::optional<std::string> blockedReason;
  std::optional<boost::json::object> capture;
  std::optional<boost::json::object> operatorCaps;
  std::optional<boost::json::object> chatDb;
  std::optional<boost::json::object> device;
  bool nudgeNotices = false;
};

// The heartbeat's body: "blockedReason" is always present, as null when there is none, and
// "nudgeNotices" only when true.
boost::json::object heartbeatBody(const HeartbeatReport& report);

HeartbeatNudge tag_invoke(boost::json::value_to_tag<HeartbeatNudge>, const boost::json::value& value);
HeartbeatResponse tag_invoke(boost::json::value_to_tag<HeartbeatResponse>, const boost::json::value& value);

}  // namespace quarl
