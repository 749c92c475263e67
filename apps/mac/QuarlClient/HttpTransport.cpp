#include "HttpTransport.h"

#include <boost/url/parse.hpp>
#include <boost/url/url.hpp>

namespace quarl {

std::string serviceURL(std::string_view baseURL, std::string_view path) {
  if (path.starts_with('/')) path.remove_prefix(1);
  auto parsed = boost::urls::parse_uri(baseURL);
  if (!parsed) return std::string(baseURL) + "/" + std::string(path);
  boost::urls::url url(*parsed);
  std::string joined = url.path();
  while (joined.ends_with('/')) joined.pop_back();
  joined.append("/").append(path);
  url.set_path(joined);
  return std::string(url.buffer());
}

}  // namespace quarl
