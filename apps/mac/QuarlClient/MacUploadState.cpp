#include "MacUploadState.h"

#include <boost/json/value.hpp>

#include "JsonFields.h"

namespace quarl {

MacUploadState tag_invoke(boost::json::value_to_tag<MacUploadState>, const boost::json::value& value) {
  const auto& object = value.as_object();
  MacUploadState state;
  state.received = boost::json::value_to<std::int64_t>(object.at("received"));
  state.total = optionalMember<std::int64_t>(object, "total");
  state.complete = boost::json::value_to<bool>(object.at("complete"));
  state.documentId = optionalMember<std::string>(object, "documentId");
  state.fileKept = optionalMember<bool>(object, "fileKept");
  state.sentence = optionalMember<std::string>(object, "sentence");
  return state;
}

}  // namespace quarl
