#pragma once

#include <optional>

namespace quarl {

// How long the operator link waits after failed polls before it polls again, in seconds.
struct OperatorBackoff {
  static constexpr double cap = 30;

  // `random` is uniform in [0, 1). 403 and 404 wait a minute; a first failure waits about half a
  // second; later ones double, with jitter, up to 30 s; a 429 waits at least 30 s.
  static double delay(int failures, std::optional<int> status, double random);
};

}  // namespace quarl
