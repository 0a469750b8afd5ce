// The intrusive list: linking, unlinking and the owning destruction of
// CListBase and CListNodeBase.
#include "list.h"

#include "errors.h"

namespace Tsl {

// The node's own destruction unlinks it, so that deleting a node in any
// order leaves the list correct.
CListNodeBase::~CListNodeBase() { Unlink(); }

void CListNodeBase::Unlink() {
  if (list != nullptr) {
    if (list->first == this) list->first = next;
    if (list->last == this) list->last = previous;
  }
  list = nullptr;
  if (previous != nullptr) previous->next = next;
  if (next != nullptr) next->previous = previous;
  previous = nullptr;
  next = nullptr;
}

CListBase::~CListBase() { DeleteAll(); }

// Each node is cut loose before it is deleted: its destructor then finds no
// list and no neighbours and leaves the walk alone.
void CListBase::DeleteAll() {
  CListNodeBase* node = first;
  first = nullptr;
  last = nullptr;
  while (node != nullptr) {
    CListNodeBase* following = node->next;
    node->list = nullptr;
    node->previous = nullptr;
    node->next = nullptr;
    delete node;
    node = following;
  }
}

int32_t CListBase::GetCount() const {
  int32_t count = 0;
  for (CListNodeBase* node = first; node != nullptr; node = node->next) ++count;
  return count;
}

// A node can stand in one list only; a null node or one still linked is a
// programming error.
bool CListBase::CheckFreeNode(CListNodeBase* node) {
  TSL_ASSERT(node != nullptr, L"list", 48);
  if (node == nullptr) return false;
  TSL_ASSERT(node->list == nullptr, L"list", 50);
  return node->list == nullptr;
}

// Places `node` between `before` and `after` (either may be null at an end).
void CListBase::Link(CListNodeBase* node, CListNodeBase* before, CListNodeBase* after) {
  node->list = this;
  node->previous = before;
  node->next = after;
  if (before != nullptr)
    before->next = node;
  else
    first = node;
  if (after != nullptr)
    after->previous = node;
  else
    last = node;
}

void CListBase::AddHead(CListNodeBase* node) {
  if (CheckFreeNode(node)) Link(node, nullptr, first);
}

void CListBase::AddTail(CListNodeBase* node) {
  if (CheckFreeNode(node)) Link(node, last, nullptr);
}

void CListBase::InsertAfter(CListNodeBase* existing, CListNodeBase* node) {
  TSL_ASSERT(existing != nullptr && existing->list == this, L"list", 73);
  if (existing == nullptr || existing->list != this || !CheckFreeNode(node)) return;
  Link(node, existing, existing->next);
}

void CListBase::InsertBefore(CListNodeBase* existing, CListNodeBase* node) {
  TSL_ASSERT(existing != nullptr && existing->list == this, L"list", 79);
  if (existing == nullptr || existing->list != this || !CheckFreeNode(node)) return;
  Link(node, existing->previous, existing);
}

void CListBase::Remove(CListNodeBase* node) {
  TSL_ASSERT(node != nullptr && node->list == this, L"list", 85);
  if (node == nullptr || node->list != this) return;
  node->Unlink();
}

}  // namespace Tsl
