#pragma once

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <chrono>
#include <optional>
#include <string>

namespace devbrain {

struct Answer;

// A stand-in of WhatsApp Web, served under /whatsapp/ for the companion's page host in tests and
// the demo. The page itself (whatsapp/standin.js) draws what this state says and reports what
// it was made to do; the admin calls play the phone and the account: show the link screen,
// link, evict, add chats and messages, decrypt a message, and tell what was opened and sent.
class WhatsAppStandIn {
 public:
  WhatsAppStandIn();
  // The page, its script, its state and its events; none when the path is not under /whatsapp/.
  std::optional<Answer> route(const std::string& method, const std::string& path, const std::string& cookies,
                              const boost::json::object& body);
  // The stand-in's admin calls under /admin/whatsapp; none when the path is not one of them.
  std::optional<Answer> admin(const std::string& method, const std::string& path, const boost::json::object& body);

 private:
  Answer page(const std::string& cookies);
  Answer event(const boost::json::object& body);
  void sentMedia(const boost::json::object& media);
  boost::json::object& chat(const std::string& id);
  void changed() { ++version_; }
  // A phone that scanned, or a session taken back, shows "syncing" for a moment, then the chats.
  void syncThenLink();
  void settle();

  std::string screen_ = "link";  // link, loading, syncing, linked, evicted, broken
  std::string markup_ = "2026";
  std::string ref_;
  int rotations_ = 0;
  boost::json::array chats_;
  boost::json::object tuning_;  // visibleRows, rowsPerFrame, frameMs, and the sending variants
  std::optional<std::chrono::steady_clock::time_point> linkAt_;
  boost::json::array opened_;
  boost::json::array sent_;
  boost::json::array sessionsSeen_;  // the session cookie each page load presented, "" for none
  int reclaimed_ = 0;
  std::int64_t version_ = 0;
};

}  // namespace devbrain
