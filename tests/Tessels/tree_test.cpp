// Tests of the tree: creation order of children, navigation by the typed
// node, and deletion of whole subtrees.
#include "tree.h"

#include <gtest/gtest.h>

#include <string>

using namespace Tsl;

namespace {

std::string endings;

struct Folder : CTree<Folder, Folder, Folder> {
  std::string name;
  explicit Folder(const std::string& name, Folder* parent = nullptr) : name(name) {
    if (parent != nullptr) parent->AddChild(this);
  }
  ~Folder() override { endings += name + " "; }
};

// Pre-order listing with parentheses around children.
std::string Shape(const Folder* folder) {
  std::string text = folder->name;
  if (folder->HasChildren()) {
    text += "(";
    for (Folder* child = folder->GetFirstChild(); child != nullptr;
         child = child->GetNextSibling()) {
      EXPECT_EQ(folder, child->GetParent());
      text += Shape(child) + (child->GetNextSibling() ? " " : "");
    }
    text += ")";
  }
  return text;
}

}  // namespace

TEST(Tree, ChildrenStandInCreationOrder) {
  Folder root("r");
  Folder* a = new Folder("a", &root);
  new Folder("b", &root);
  new Folder("a1", a);
  Folder* a2 = new Folder("a2", a);
  a->AddChildFirst(new Folder("a0"));
  EXPECT_EQ("r(a(a0 a1 a2) b)", Shape(&root));
  EXPECT_EQ(a, a2->GetParent());
  EXPECT_EQ(nullptr, root.GetParent());
  EXPECT_EQ("a1", a2->GetPreviousSibling()->name);
  EXPECT_EQ(3, a->GetChildCount());
}

TEST(Tree, DeletingANodeDeletesItsSubtreeAndClosesTheGap) {
  Folder root("r");
  Folder* a = new Folder("a", &root);
  Folder* b = new Folder("b", &root);
  new Folder("c", &root);
  new Folder("b2", new Folder("b1", b));
  new Folder("b3", b);
  endings.clear();
  delete b;
  EXPECT_EQ("b b1 b2 b3 ", endings);  // depth first, in list order
  EXPECT_EQ("r(a c)", Shape(&root));
  EXPECT_EQ("c", a->GetNextSibling()->name);
  EXPECT_EQ(a, root.GetLastChild()->GetPreviousSibling());
}
