// The tree node's destruction order: children first, then the node itself
// leaves its parent.
#include "tree.h"

namespace Tsl {

// The base classes would give the same order (the list of children is
// destroyed before the node part), but the order matters enough to a
// directory tree that it is made explicit here.
CTreeBase::~CTreeBase() {
  DeleteAll();
  Unlink();
}

}  // namespace Tsl
