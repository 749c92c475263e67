#pragma once

#include <cstddef>
#include <vector>

#include "AXNode.h"

namespace quarl {

// Reads a window's tree depth first, children in the platform's order, bounded in depth and in
// nodes so that a huge window costs no more than a small one.
struct AXWalk {
  static constexpr int maxDepth = 14;
  static constexpr std::size_t maxNodes = 2000;

  struct Kept {
    AXNode root;
    // The platform elements of the nodes an act may name later, in the order of their `ref`.
    std::vector<AXElement> elements;
  };

  static AXNode build(AXElementSource& source, const AXElement& root, int maxDepth = AXWalk::maxDepth,
                      std::size_t maxNodes = AXWalk::maxNodes);
  // As `build`, keeping the element of every node whose role an act can work.
  static Kept buildKeeping(AXElementSource& source, const AXElement& root, int maxDepth = AXWalk::maxDepth,
                           std::size_t maxNodes = AXWalk::maxNodes);
};

}  // namespace quarl
