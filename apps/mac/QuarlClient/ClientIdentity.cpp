#include "ClientIdentity.h"

namespace quarl {

HttpHeaders identityHeaders(const ClientIdentity& identity, std::string contentType) {
  HttpHeaders headers;
  if (!contentType.empty()) headers.emplace_back("content-type", std::move(contentType));
  headers.emplace_back("x-quarl-platform", identity.platform);
  headers.emplace_back("x-quarl-build", std::to_string(identity.build));
  headers.emplace_back("x-quarl-version", identity.version);
  return headers;
}

}  // namespace quarl
