#pragma once

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <chrono>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace devbrain {

struct Answer;

// The part of devbrain that takes what the Mac captured and hands it the sends to make:
// ingest, inbound attachment bytes, message events, and relay jobs with their attachments.
// It keeps everything it received for the admin surface.
class IngestDesk {
 public:
  // The wire rule a body for one of the desk's paths breaks; none when it keeps them, or when
  // the path is not the desk's.
  std::optional<std::string> wireProblem(const std::string& method, const std::string& path,
                                         const boost::json::object* body) const;
  // The answer for a signed call to one of the desk's paths; none when the path is not its.
  std::optional<Answer> route(const std::string& method, const std::string& path, const boost::json::object& body);
  // The desk's admin calls; none when the path is not one of them.
  std::optional<Answer> admin(const std::string& method, const std::string& path, const boost::json::object& body);
  // The desk's part of /admin/settings: "wantBytes" (true unless told otherwise) and
  // "claimLeaseMs" (a claimed job not reported within it is offered again).
  void applySettings(const boost::json::object& body);
  // The desk's part of /admin/stats.
  void addStats(boost::json::object& stats) const;

 private:
  struct Job {
    boost::json::object record;                        // as claimed
    std::map<std::string, boost::json::object> files;  // attachment id -> FetchedAttachment
    bool claimed = false;
    std::chrono::steady_clock::time_point claimedAt;
  };

  Answer ingest(const boost::json::object& body);
  Answer upload(const std::string& attachmentId, const boost::json::object& body);
  Answer claim(const boost::json::object& body);
  Answer report(const std::string& jobId, const boost::json::object& body);
  Answer fetchJobFile(const std::string& jobId, const std::string& attachmentId) const;
  Answer queueJob(const boost::json::object& body);

  boost::json::array ingested_;                     // each message once, as first received
  std::set<std::pair<std::string, std::string>> ingestedIds_;  // (channel id, message id)
  int duplicateIngests_ = 0;
  std::set<std::string> announcedAttachments_;
  boost::json::object uploads_;  // attachment id -> {"sizeBytes", "dataBase64"}
  boost::json::array events_;
  boost::json::array reports_;
  std::deque<Job> jobs_;
  bool wantBytes_ = true;
  // Like the service, a job claimed and not reported within this is offered again; none: never.
  std::optional<std::chrono::milliseconds> claimLease_;
  int jobCounter_ = 0;
};

}  // namespace devbrain
