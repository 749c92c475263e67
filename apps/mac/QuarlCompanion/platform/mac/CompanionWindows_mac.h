#pragma once

#include <boost/asio/any_io_executor.hpp>
#include <memory>

#include "platform/CompanionWindows.h"

namespace quarl {

class Companion;
class MacPanelView;

// The setup window and the panel window. Only one of them is up at a time: the panel replaces
// setup once the Mac is paired, and setup replaces the panel at sign-out. Their buttons reach
// the coordinator, which is attached once it exists, since it is built with these windows.
class MacCompanionWindows final : public CompanionWindows {
 public:
  explicit MacCompanionWindows(boost::asio::any_io_executor executor);
  ~MacCompanionWindows() override;

  void attach(std::weak_ptr<Companion> companion);

  void showSetupWindow() override;
  std::shared_ptr<PanelView> openPanelWindow() override;
  void closePanelWindow() override;
  // Draws the setup steps again from what the Mac allows now.
  void refreshSetupWindow();

  struct Setup;

 private:
  void pressed(int step);
  void redrawAfterPress();

  boost::asio::any_io_executor executor_;
  std::weak_ptr<Companion> companion_;
  std::shared_ptr<MacPanelView> panel_;
  Setup* setup_;
};

}  // namespace quarl
