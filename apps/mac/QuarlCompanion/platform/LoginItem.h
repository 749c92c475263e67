#pragma once

#include <boost/asio/awaitable.hpp>
#include <optional>
#include <string>

namespace quarl {

// The question of whether the application opens at login, with its two answers.
struct LoginQuestion {
  std::string message;
  std::string informativeText;
  std::string yes;  // the first button
  std::string no;
};

// Opening the application at login: the question, the registration and what the owner is told
// when it fails. Main executor only.
class LoginItem {
 public:
  virtual ~LoginItem() = default;
  // Shows the question; true when the owner chose its first button.
  virtual boost::asio::awaitable<bool> ask(LoginQuestion question) = 0;
  // Registers the application to open at login; none on success, else the system's description of the failure.
  virtual std::optional<std::string> registerMainApplication() = 0;
  // The application opens at login now.
  virtual bool isRegistered() = 0;
  virtual void tell(const std::string& sentence) = 0;
};

}  // namespace quarl
