#pragma once

#include <boost/asio/any_io_executor.hpp>
#include <functional>
#include <memory>

namespace quarl {

class Companion;

// The menu-bar item and its menu, drawn afresh from the companion's status each time it opens.
class MacStatusMenu {
 public:
  // `quit` ends the application the way its Quit command does.
  MacStatusMenu(std::shared_ptr<Companion> companion, boost::asio::any_io_executor executor, std::function<void()> quit);
  ~MacStatusMenu();
  MacStatusMenu(const MacStatusMenu&) = delete;
  MacStatusMenu& operator=(const MacStatusMenu&) = delete;

  struct Item;

 private:
  Item* item_;
};

}  // namespace quarl
