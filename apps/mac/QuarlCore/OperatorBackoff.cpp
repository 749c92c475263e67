#include "OperatorBackoff.h"

#include <algorithm>
#include <cmath>

namespace quarl {

double OperatorBackoff::delay(int failures, std::optional<int> status, double random) {
  if (status == 403 || status == 404) return 60;
  const double r = std::clamp(random, 0.0, 0.999999);
  double wait = failures < 2 ? r + 0.5 : std::min(std::pow(2.0, failures - 1), cap) * (0.75 + r * 0.5);
  wait = std::min(wait, cap);
  if (status == 429) wait = std::max(wait, cap);
  return wait;
}

}  // namespace quarl
