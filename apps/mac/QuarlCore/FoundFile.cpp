#include "FoundFile.h"

#include "DateText.h"

namespace quarl {

boost::json::object FoundFile::wire() const {
  return {{"name", name}, {"folder", folder},  {"bytes", bytes},
          {"modifiedAt", iso8601(modifiedAt)}, {"cloudOnly", cloudOnly}, {"ref", ref}};
}

}  // namespace quarl
