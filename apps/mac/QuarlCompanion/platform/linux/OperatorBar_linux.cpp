#include "OperatorBar_linux.h"

#include <iostream>

namespace quarl {

// There is no Stop button to press here; `quarl-companion operator-stop` takes its place.
void StandardErrorOperatorBar::show(const std::string& runId, std::function<void()>) {
  if (shownFor_ == runId) return;
  shownFor_ = runId;
  std::cerr << "Quarl is operating this computer (run " << runId
            << "). To stop it, run: quarl-companion operator-stop" << std::endl;
}

void StandardErrorOperatorBar::hide() {
  if (!shownFor_) return;
  std::cerr << "Quarl has stopped operating this computer (run " << *shownFor_ << ")." << std::endl;
  shownFor_.reset();
}

}  // namespace quarl
