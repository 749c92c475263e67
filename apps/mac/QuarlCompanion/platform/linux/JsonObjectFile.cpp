#include "JsonObjectFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "DateText.h"
#include "QuarlLog.h"
#include "Utf16Text.h"

namespace quarl {
namespace fs = std::filesystem;

namespace {

// A name for a set-aside file that sorts by time and is safe in any file system.
std::string asideSuffix(SystemTime now) {
  std::string stamp = iso8601(now);
  for (auto& c : stamp) {
    if (c == ':') c = '-';
  }
  return ".corrupt-" + stamp;
}

bool writeAll(int fd, const std::string& text) {
  std::size_t written = 0;
  while (written < text.size()) {
    const auto n = ::write(fd, text.data() + written, text.size() - written);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    written += static_cast<std::size_t>(n);
  }
  return true;
}

// The whole file; none when it cannot be read.
std::optional<std::string> contents(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in.is_open()) return std::nullopt;
  std::stringstream text;
  text << in.rdbuf();
  if (in.bad()) return std::nullopt;
  return text.str();
}

std::optional<boost::json::object> asObject(std::string_view text) {
  boost::system::error_code error;
  auto parsed = boost::json::parse(text, error);
  if (error || !parsed.is_object()) return std::nullopt;
  return std::move(parsed.as_object());
}

}  // namespace

fs::path configDirectory() {
  if (const char* xdg = std::getenv("XDG_CONFIG_HOME"); xdg && *xdg) return fs::path(xdg) / "quarl";
  const char* home = std::getenv("HOME");
  return fs::path(home && *home ? home : ".") / ".config" / "quarl";
}

JsonObjectFile::JsonObjectFile(fs::path path, mode_t mode, const Clock& clock)
    : path_(std::move(path)), mode_(mode) {
  load(clock);
}

void JsonObjectFile::load(const Clock& clock) {
  std::error_code exists;
  if (!fs::exists(path_, exists)) return;

  const auto text = contents(path_);
  if (!text) {
    writable_ = false;
    QuarlLog::say("quarl: could not read " + path_.string() + " (" + std::strerror(errno) +
                  ") — leaving it untouched; changes this run are kept in memory only");
    return;
  }
  if (auto object = asObject(*text)) {
    object_ = std::move(*object);
    return;
  }
  auto aside = path_;
  aside += asideSuffix(clock.now());
  std::error_code renamed;
  fs::rename(path_, aside, renamed);
  if (renamed) {
    writable_ = false;
    QuarlLog::say("quarl: " + path_.string() + " is not a JSON object and could not be set aside (" +
                  renamed.message() + ") — starting without it and leaving it untouched");
    return;
  }
  QuarlLog::say("quarl: " + path_.string() + " is not a JSON object — set it aside as " + aside.string() +
                " and started without it");
}

std::optional<boost::json::value> JsonObjectFile::member(std::string_view key) const {
  std::lock_guard lock(mutex_);
  const auto* value = object_.if_contains(key);
  if (!value) return std::nullopt;
  return *value;
}

std::optional<boost::json::object> JsonObjectFile::current() const {
  std::error_code exists;
  if (!fs::exists(path_, exists)) return boost::json::object{};
  const auto text = contents(path_);
  return text ? asObject(*text) : std::nullopt;
}

bool JsonObjectFile::update(const std::function<void(boost::json::object&)>& change) {
  std::lock_guard lock(mutex_);
  if (!writable_) return false;
  std::error_code error;
  fs::create_directories(path_.parent_path(), error);
  const auto lockPath = path_.string() + ".lock";
  const int held = ::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, mode_);
  if (held < 0) return false;
  while (::flock(held, LOCK_EX) != 0 && errno == EINTR) {
  }
  // A file another process spoiled since it was loaded is not overwritten from memory blindly:
  // the change is made to what this process last saw.
  auto next = current().value_or(object_);
  change(next);
  // Boost.JSON writes string bytes as they are; text that is not UTF-8 would make the whole
  // file unreadable next time.
  const auto text = boost::json::serialize(next);
  const bool saved = isValidUtf8(text) && writeAtomically(text);
  ::close(held);  // releases the lock
  if (saved) object_ = std::move(next);
  return saved;
}

bool JsonObjectFile::writeAtomically(const std::string& text) const {
  std::string temporary = path_.string() + ".XXXXXX";
  const int fd = ::mkstemp(temporary.data());
  if (fd < 0) return false;
  const bool written = ::fchmod(fd, mode_) == 0 && writeAll(fd, text) && ::fsync(fd) == 0;
  const bool closed = ::close(fd) == 0;
  if (!written || !closed || ::rename(temporary.c_str(), path_.c_str()) != 0) {
    ::unlink(temporary.c_str());
    return false;
  }
  // The rename is lasting only once the folder itself reaches the disk.
  if (const int dir = ::open(path_.parent_path().c_str(), O_RDONLY | O_DIRECTORY); dir >= 0) {
    ::fsync(dir);
    ::close(dir);
  }
  return true;
}

}  // namespace quarl
