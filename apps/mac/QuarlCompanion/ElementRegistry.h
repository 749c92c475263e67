#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "AXNode.h"
#include "AXSnapshot.h"

namespace quarl {

// The platform elements of the last read of each app, so that an act can have the control an
// id names. A read replaces the app's earlier one: an id from before it names nothing. Touched
// from the worker that reads and acts, and from the main executor.
class ElementRegistry {
 public:
  struct Found {
    AXElement element;
    std::optional<std::string> windowTitle;
    std::optional<std::string> dialogText;  // the words of the dialog the control sits in
  };

  // The generation the next read takes: every read of any app takes a new one.
  std::int64_t nextGeneration();
  void keep(std::int64_t processId, const AXSnapshot& snapshot, const AXNode& window, std::vector<AXElement> elements);
  // The element `id` names in `processId`'s last read; none for an id of any other read, and for
  // one of that read that names no control (a text, say).
  std::optional<Found> element(const std::string& id, std::int64_t processId) const;
  // Whether `id` is of `processId`'s last read, control or not.
  bool isOfLastRead(const std::string& id, std::int64_t processId) const;
  // Lets go of the reads of processes no longer running, and with them their elements.
  void forgetAllBut(const std::vector<std::int64_t>& running);

 private:
  struct Read {
    std::int64_t generation = 0;
    std::map<std::string, std::size_t> refs;
    std::vector<AXElement> elements;
    std::optional<std::string> windowTitle;
    std::optional<std::string> dialogText;
  };
  mutable std::mutex lock_;
  std::int64_t generation_ = 0;
  std::map<std::int64_t, Read> reads_;
};

}  // namespace quarl
