#include "ChatDatabaseFailure.h"

#include <stdexcept>

namespace quarl {

std::string ChatDatabaseFailure::description() const {
  switch (kind_) {
    case Kind::permissionDenied:
      return "macOS refused access to " + detail_ + ". Quarl needs Full Disk Access.";
    case Kind::notFound:
      return "No Messages database at " + detail_ + ".";
    case Kind::schemaChanged:
      return "The Messages database is not the shape Quarl knows how to read: " + detail_;
    case Kind::query:
      return "Reading the Messages database failed: " + detail_;
  }
  return detail_;
}

void throw_exception_from_error(const ChatDatabaseFailure& failure, const boost::source_location&) {
  throw std::runtime_error(failure.description());
}

}  // namespace quarl
