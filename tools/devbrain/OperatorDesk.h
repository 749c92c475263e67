#pragma once

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace devbrain {

struct Answer;

// The part of devbrain that operates the Mac: the long poll for the next step, the steps'
// results and the runs the Mac stopped. Steps and stops are queued by the admin surface; a
// poll with nothing to hand over is held until something is queued or its wait runs out, and
// a newer poll answers the one it replaces at once. Like the service, it hands a queued step to
// the Mac whether or not the Mac advertised its class, so that tests see how the Mac answers.
// One queue serves whichever device polls.
class OperatorDesk {
 public:
  // The wire rule a body for one of the desk's paths breaks; none when it keeps them, or when
  // the path is not the desk's.
  std::optional<std::string> wireProblem(const std::string& method, const std::string& path,
                                         const boost::json::object* body) const;
  std::optional<Answer> route(const std::string& method, const std::string& path, const boost::json::object& body);
  std::optional<Answer> admin(const std::string& method, const std::string& path, const boost::json::object& body);
  // The file a "send_file" step brings: its state, and its chunks as raw bytes with the headers
  // x-quarl-offset, x-quarl-total and x-quarl-sha256. None when the path is not a step's file.
  std::optional<Answer> fileTransfer(const std::string& method, const std::string& path,
                                     const std::map<std::string, std::string>& headers, const std::string& bytes);
  // The desk's part of /admin/settings: "operatorHoldMs" caps how long a poll is held;
  // "fileChunkTakeMax" makes it keep only that many bytes of each chunk, as a service under
  // strain may, so that the Mac goes on from what was taken.
  void applySettings(const boost::json::object& body);
  // Called whenever a held poll may now have an answer: something was queued, or a newer poll
  // came.
  void onChange(std::function<void()> changed) { changed_ = std::move(changed); }

 private:
  struct Step {
    std::string runId;
    bool answered = false;
    bool bringsFile = false;  // a "send_file" step
  };
  struct Transfer {
    std::string bytes;
    std::optional<std::int64_t> total;
    std::optional<std::string> sha256;
    bool complete = false;
  };

  Answer poll(const boost::json::object& body);
  // The next queued answer, handed over now; none when the queue is empty.
  std::optional<boost::json::object> takeQueued();
  boost::json::object idle() const;
  Answer result(const std::string& stepId, const boost::json::object& body);
  Answer stopped(const std::string& runId, const boost::json::object& body);
  bool wasStopped(const std::string& runId) const;
  Answer queueStep(const boost::json::object& body);
  Answer queueStop(const boost::json::object& body);
  Answer takeChunk(const std::string& stepId, const std::map<std::string, std::string>& headers, const std::string& bytes);
  static boost::json::object stateOf(const Transfer& transfer);
  void changed() const;

  std::deque<boost::json::object> queue_;  // poll answers waiting: steps and stops
  std::map<std::string, Step> steps_;      // by step id
  std::set<std::string> handedRuns_;       // runs a step of which reached the Mac
  std::optional<std::string> liveRunId_;
  std::uint64_t pollGeneration_ = 0;
  std::optional<std::chrono::milliseconds> holdLimit_;
  std::map<std::string, Transfer> transfers_;  // by step id
  std::optional<std::int64_t> chunkTakeMax_;
  boost::json::array results_;
  boost::json::array stops_;
  std::int64_t ordinal_ = 0;
  int counter_ = 0;
  std::function<void()> changed_;
};

}  // namespace devbrain
