// The intrusive doubly linked list: nodes carry their own links and know
// their list, so an object can simply be deleted, in any order, and the list
// stays whole. A list owns its nodes: destroying it destroys them.
#pragma once

#include <stdint.h>

namespace Tsl {

class CListBase;

// A node that may stand in one list at a time.
class CListNodeBase {
 public:
  CListNodeBase() : list(nullptr), previous(nullptr), next(nullptr) {}
  // Unlinks the node from its list, if any.
  virtual ~CListNodeBase();
  CListNodeBase(const CListNodeBase&) = delete;
  CListNodeBase& operator=(const CListNodeBase&) = delete;

  CListBase* GetList() const { return list; }
  CListNodeBase* GetPreviousNode() const { return previous; }
  CListNodeBase* GetNextNode() const { return next; }
  // Takes the node out of its list without deleting it; nothing when free.
  void Unlink();

 private:
  friend class CListBase;
  CListBase* list;  // the list it is in; null when free
  CListNodeBase* previous;
  CListNodeBase* next;
};

// The list head: first and last node.
class CListBase {
 public:
  CListBase() : first(nullptr), last(nullptr) {}
  // Deletes every node, first to last; each node's links are cleared before
  // it dies, so its destructor does not touch the list.
  virtual ~CListBase();
  CListBase(const CListBase&) = delete;
  CListBase& operator=(const CListBase&) = delete;

  CListNodeBase* GetFirstNode() const { return first; }
  CListNodeBase* GetLastNode() const { return last; }
  bool IsEmpty() const { return first == nullptr; }
  // Counts by walking the list.
  int32_t GetCount() const;

  // Links a free node (one in no list) at the head, the tail, or next to a
  // node of this list. Linking a node that is in a list is an internal error.
  void AddHead(CListNodeBase* node);
  void AddTail(CListNodeBase* node);
  void InsertAfter(CListNodeBase* existing, CListNodeBase* node);
  void InsertBefore(CListNodeBase* existing, CListNodeBase* node);
  // Takes a node of this list out without deleting it.
  void Remove(CListNodeBase* node);
  // Deletes every node, as the destructor does.
  void DeleteAll();

 private:
  friend class CListNodeBase;
  bool CheckFreeNode(CListNodeBase* node);
  void Link(CListNodeBase* node, CListNodeBase* before, CListNodeBase* after);

  CListNodeBase* first;  // null when empty
  CListNodeBase* last;   // null when empty
};

// Typed forms: a class T derives from CListNode<T> and lives in a CList<T>.
template <class T>
class CListNode : public CListNodeBase {
 public:
  T* GetPrevious() const { return static_cast<T*>(GetPreviousNode()); }
  T* GetNext() const { return static_cast<T*>(GetNextNode()); }
};

template <class T>
class CList : public CListBase {
 public:
  T* GetFirst() const { return static_cast<T*>(GetFirstNode()); }
  T* GetLast() const { return static_cast<T*>(GetLastNode()); }
  void AddHead(T* node) { CListBase::AddHead(node); }
  void AddTail(T* node) { CListBase::AddTail(node); }
  void InsertAfter(T* existing, T* node) { CListBase::InsertAfter(existing, node); }
  void InsertBefore(T* existing, T* node) { CListBase::InsertBefore(existing, node); }
  void Remove(T* node) { CListBase::Remove(node); }
};

}  // namespace Tsl
