// Tests of the tree: the order of children, navigation by the typed node,
// and deletion of whole subtrees.
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
  if (!folder->HasChildren()) return text;
  text += "(";
  for (Folder* child = folder->GetFirstChild(); child != nullptr; child = child->GetNextSibling()) {
    EXPECT_EQ(folder, child->GetParent());
    text += Shape(child) + (child->GetNextSibling() ? " " : ")");
  }
  return text;
}

}  // namespace

TEST(Tree, ChildrenKeepTheirOrderAndDieWithTheirSubtree) {
  Folder root("r");
  Folder* a = new Folder("a", &root);
  Folder* b = new Folder("b", &root);
  new Folder("c", &root);
  new Folder("b2", new Folder("b1", b));
  new Folder("b3", b);
  a->AddChildFirst(new Folder("a1"));
  a->AddChildFirst(new Folder("a0"));
  EXPECT_EQ("r(a(a0 a1) b(b1(b2) b3) c)", Shape(&root));
  endings.clear();
  delete b;
  EXPECT_EQ("b b1 b2 b3 ", endings);  // depth first, in list order
  EXPECT_EQ("r(a(a0 a1) c)", Shape(&root));
  EXPECT_EQ(a, root.GetLastChild()->GetPreviousSibling());
}
