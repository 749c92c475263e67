#pragma once

#include <boost/assert/source_location.hpp>
#include <string>

namespace quarl {

// Why the Messages store could not be read. Its description is the sentence the log and the
// report show.
class ChatDatabaseFailure {
 public:
  enum class Kind { permissionDenied, notFound, schemaChanged, query };

  // boost::system::result needs a default value; a result that holds a value never shows it.
  ChatDatabaseFailure() = default;

  static ChatDatabaseFailure permissionDenied(std::string path) { return {Kind::permissionDenied, std::move(path)}; }
  static ChatDatabaseFailure notFound(std::string path) { return {Kind::notFound, std::move(path)}; }
  static ChatDatabaseFailure schemaChanged(std::string detail) { return {Kind::schemaChanged, std::move(detail)}; }
  static ChatDatabaseFailure query(std::string detail) { return {Kind::query, std::move(detail)}; }

  Kind kind() const { return kind_; }
  // The path for permissionDenied and notFound, the detail for the others.
  const std::string& detail() const { return detail_; }
  std::string description() const;

  friend bool operator==(const ChatDatabaseFailure&, const ChatDatabaseFailure&) = default;

 private:
  ChatDatabaseFailure(Kind kind, std::string detail) : kind_(kind), detail_(std::move(detail)) {}
  Kind kind_ = Kind::query;
  std::string detail_;
};

// Reading the value of a failed result is a programming error; boost::system::result finds this
// by argument-dependent lookup and throws the failure's sentence.
[[noreturn]] void throw_exception_from_error(const ChatDatabaseFailure& failure, const boost::source_location& location);

}  // namespace quarl
