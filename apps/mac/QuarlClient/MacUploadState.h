#pragma once

#include <boost/json/value_to.hpp>
#include <cstdint>
#include <optional>
#include <string>

namespace quarl {

// The service's view of a file the Mac is bringing to it by step.
struct MacUploadState {
  std::int64_t received = 0;  // bytes the service holds
  std::optional<std::int64_t> total;
  bool complete = false;
  std::optional<std::string> documentId;
  std::optional<bool> fileKept;
  std::optional<std::string> sentence;  // an explanation for the person, in the service's words
};

MacUploadState tag_invoke(boost::json::value_to_tag<MacUploadState>, const boost::json::value& value);

}  // namespace quarl
