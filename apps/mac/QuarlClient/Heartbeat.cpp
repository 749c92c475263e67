#include "Heartbeat.h"

#include <boost/json/value.hpp>

#include "JsonFields.h"

namespace quarl {
namespace json = boost::json;

json::object heartbeatBody(const HeartbeatReport& report) {
  json::array channels;
  for (const auto& channel : report.channels) channels.emplace_back(channel);
  json::object body{{"channels", std::move(channels)}};
  body["blockedReason"] = report.blockedReason ? json::value(*report.blockedReason) : json::value(nullptr);
  if (report.capture) body["capture"] = *report.capture;
  if (report.operatorCaps) body["operator"] = *report.operatorCaps;
  if (report.chatDb) body["chatDb"] = *report.chatDb;
  if (report.device) body["device"] = *report.device;
  if (report.nudgeNotices) body["nudgeNotices"] = true;
  return body;
}

HeartbeatNudge tag_invoke(json::value_to_tag<HeartbeatNudge>, const json::value& value) {
  const auto& object = value.as_object();
  return {json::value_to<std::string>(object.at("turnId")), json::value_to<std::string>(object.at("title")),
          json::value_to<std::string>(object.at("body"))};
}

HeartbeatResponse tag_invoke(json::value_to_tag<HeartbeatResponse>, const json::value& value) {
  const auto& object = value.as_object();
  HeartbeatResponse response;
  response.channels = json::value_to<std::vector<std::string>>(object.at("channels"));
  response.waitingJobs = json::value_to<std::int64_t>(object.at("waitingJobs"));
  response.needsYou = optionalMember<std::int64_t>(object, "needsYou");
  response.followUpCount = optionalMember<std::int64_t>(object, "followUpCount");
  response.channelIds = optionalMember<std::map<std::string, std::string>>(object, "channelIds");
  response.unmatched = optionalMember<std::vector<std::string>>(object, "unmatched");
  response.nudge = optionalMember<HeartbeatNudge>(object, "nudge");
  response.macPermissionMode = optionalMember<std::string>(object, "macPermissionMode");
  return response;
}

}  // namespace quarl
