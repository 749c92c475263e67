#include "PanelSession.h"

#include <boost/algorithm/string/predicate.hpp>

namespace quarl {

std::string PanelSession::joined(std::string_view baseURL, std::string_view path) {
  while (baseURL.ends_with('/')) baseURL.remove_suffix(1);
  return std::string(baseURL) + std::string(path);
}

PanelSession::Outcome PanelSession::outcomeOf(int status) {
  if (status == 200) return Outcome::established;
  if (status == 429) return Outcome::rateLimited;
  if (status == 401) return Outcome::signInNeeded;
  return Outcome::refused;
}

std::vector<std::string> PanelSession::setCookieValues(const HttpHeaders& headers) {
  std::vector<std::string> values;
  for (const auto& [name, value] : headers) {
    if (boost::algorithm::iequals(name, "set-cookie")) values.push_back(value);
  }
  return values;
}

}  // namespace quarl
