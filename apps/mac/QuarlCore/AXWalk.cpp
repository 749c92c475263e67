#include "AXWalk.h"

#include "AXSnapshot.h"

namespace quarl {

namespace {

class Walker {
 public:
  Walker(AXElementSource& source, int maxDepth, std::size_t maxNodes, std::vector<AXElement>* kept)
      : source_(source), maxDepth_(maxDepth), maxNodes_(maxNodes), kept_(kept) {}

  AXNode read(const AXElement& element, int depth) {
    ++visited_;
    AXNode node = source_.attributes(element);
    if (kept_ && AXSnapshot::isActionableRole(node.role)) {
      node.ref = kept_->size();
      kept_->push_back(element);
    }
    if (depth >= maxDepth_ || visited_ >= maxNodes_) return node;
    for (const auto& child : source_.children(element, maxNodes_ - visited_)) {
      if (visited_ >= maxNodes_) break;
      node.children.push_back(read(child, depth + 1));
    }
    return node;
  }

 private:
  AXElementSource& source_;
  int maxDepth_;
  std::size_t maxNodes_;
  std::vector<AXElement>* kept_;
  std::size_t visited_ = 0;
};

}  // namespace

AXNode AXElementSource::attributes(const AXElement& of) {
  AXNode node;
  node.role = string("AXRole", of).value_or("AXUnknown");
  node.subrole = string("AXSubrole", of);
  node.title = string("AXTitle", of);
  node.label = string("AXDescription", of);
  node.value = string("AXValue", of);
  node.enabled = boolean("AXEnabled", of);
  return node;
}

AXNode AXWalk::build(AXElementSource& source, const AXElement& root, int maxDepth, std::size_t maxNodes) {
  return Walker(source, maxDepth, maxNodes, nullptr).read(root, 0);
}

AXWalk::Kept AXWalk::buildKeeping(AXElementSource& source, const AXElement& root, int maxDepth,
                                  std::size_t maxNodes) {
  Kept kept;
  kept.root = Walker(source, maxDepth, maxNodes, &kept.elements).read(root, 0);
  return kept;
}

}  // namespace quarl
