// The tree built from the intrusive list: a node is a node in its parent's
// list of children and the list of its own children. Deleting a node deletes
// its subtree and closes the gap in its parent's list.
#pragma once

#include "list.h"

namespace Tsl {

class CTreeBase : public CListNodeBase, public CListBase {
 public:
  CTreeBase() {}
  // Children die first, depth first and in list order; only then does the
  // node leave its parent's list.
  ~CTreeBase() override;

  // The parent is whoever owns the list the node stands in; a root has none.
  CTreeBase* GetParentNode() const { return static_cast<CTreeBase*>(GetList()); }
  CTreeBase* GetFirstChildNode() const { return static_cast<CTreeBase*>(GetFirstNode()); }
  CTreeBase* GetLastChildNode() const { return static_cast<CTreeBase*>(GetLastNode()); }
  CTreeBase* GetNextSiblingNode() const { return static_cast<CTreeBase*>(GetNextNode()); }
  CTreeBase* GetPreviousSiblingNode() const { return static_cast<CTreeBase*>(GetPreviousNode()); }
  bool HasChildren() const { return !IsEmpty(); }
  int32_t GetChildCount() const { return GetCount(); }
  // Deletes the whole subtree below this node; the node stays.
  void DeleteChildren() { DeleteAll(); }
};

// The typed tree node. `Node` is the class that derives from it, `Parent`
// the class of its parent, `Child` that of its children; in a tree of one
// kind all three are the same class.
template <class Node, class Parent, class Child>
class CTree : public CTreeBase {
 public:
  Parent* GetParent() const { return static_cast<Parent*>(GetParentNode()); }
  Child* GetFirstChild() const { return static_cast<Child*>(GetFirstChildNode()); }
  Child* GetLastChild() const { return static_cast<Child*>(GetLastChildNode()); }
  Node* GetNextSibling() const { return static_cast<Node*>(GetNextSiblingNode()); }
  Node* GetPreviousSibling() const { return static_cast<Node*>(GetPreviousSiblingNode()); }

  // Takes ownership of a free `child`, placing it last (creation order).
  void AddChild(Child* child) { AddTail(child); }
  void AddChildFirst(Child* child) { AddHead(child); }
  void InsertChildAfter(Child* existing, Child* child) { InsertAfter(existing, child); }
  // Takes `child` out of this node's children without deleting it.
  void RemoveChild(Child* child) { Remove(child); }
};

}  // namespace Tsl
