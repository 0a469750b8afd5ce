// IObject, the virtual base of the system's reference-counted objects (the
// ones that archives carry by class name, and records passed between
// threads), and CPtr, the pointer that holds one reference to such an object.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <windows.h>

#include "errors.h"

namespace Tsl {

class CArchive;

// Classes derive from it virtually. The count starts at 0: the first CPtr
// that takes the object makes it 1, and the last one that lets go deletes
// it. The two virtual operations stand in this order in the table:
// Serialize, then the destructor.
class IObject {
 public:
  IObject() : references(0) {}
  // A copy is a new object: it starts without references.
  IObject(const IObject&) : references(0) {}
  IObject& operator=(const IObject&) { return *this; }

  // Reads the object's data from a loading archive or writes it to a storing
  // one. A class that travels through archives overrides it; reaching this
  // default is an internal error.
  virtual void Serialize(CArchive& archive);
  virtual ~IObject();

  void AddReference() { ::InterlockedIncrement(&references); }
  // Deletes the object when the count reaches 0.
  void ReleaseReference() {
    if (::InterlockedDecrement(&references) == 0) delete this;
  }
  // For diagnostics and tests: the count may change at once in another thread.
  int32_t GetReferenceCount() const { return references; }

 private:
  volatile LONG references;  // changed only by interlocked operations
};

// Holds one reference to an object of class T (an IObject, usually through a
// virtual base). Copying costs one interlocked increment. Dereferencing a
// null pointer is an internal error; Get and the tests for null are not.
template <class T>
class CPtr {
 public:
  CPtr() : object(nullptr) {}
  CPtr(std::nullptr_t) : object(nullptr) {}
  // Takes a reference to `raw`, which may be null. Explicit: a raw pointer
  // passed where a CPtr is expected would otherwise be deleted when that
  // temporary goes, if nobody else held it.
  explicit CPtr(T* raw) : object(raw) {
    if (object != nullptr) object->AddReference();
  }
  CPtr(const CPtr& other) : object(other.object) {
    if (object != nullptr) object->AddReference();
  }
  CPtr(CPtr&& other) noexcept : object(other.object) { other.object = nullptr; }
  // From a pointer to a derived class.
  template <class U>
  CPtr(const CPtr<U>& other) : object(other.Get()) {
    if (object != nullptr) object->AddReference();
  }
  ~CPtr() {
    if (object != nullptr) object->ReleaseReference();
  }

  // The new object gains its reference before the old one loses its own, so
  // assigning a pointer to itself, or to something the old object owns, is
  // harmless.
  CPtr& operator=(const CPtr& other) {
    Assign(other.object);
    return *this;
  }
  CPtr& operator=(CPtr&& other) noexcept {
    if (this != &other) {
      T* old = object;
      object = other.object;
      other.object = nullptr;
      if (old != nullptr) old->ReleaseReference();
    }
    return *this;
  }
  CPtr& operator=(std::nullptr_t) {
    Reset();
    return *this;
  }
  // Takes a reference to `raw`, which may be null.
  void Assign(T* raw) {
    if (raw != nullptr) raw->AddReference();
    T* old = object;
    object = raw;
    if (old != nullptr) old->ReleaseReference();
  }
  void Reset() {
    T* old = object;
    object = nullptr;
    if (old != nullptr) old->ReleaseReference();
  }

  T* Get() const { return object; }
  bool IsNull() const { return object == nullptr; }
  explicit operator bool() const { return object != nullptr; }

  T* operator->() const {
    TSL_ASSERT(object != nullptr, L"Object", 268);
    return object;
  }
  T& operator*() const {
    TSL_ASSERT(object != nullptr, L"Object", 268);
    return *object;
  }

  // The same object seen as class U, or null when it isn't one. Virtual
  // bases rule out a static conversion downwards.
  template <class U>
  CPtr<U> DynamicCast() const {
    return CPtr<U>(dynamic_cast<U*>(object));
  }

 private:
  T* object;  // null, or an object holding one reference for this pointer
};

template <class T, class U>
inline bool operator==(const CPtr<T>& a, const CPtr<U>& b) {
  return a.Get() == b.Get();
}
template <class T, class U>
inline bool operator!=(const CPtr<T>& a, const CPtr<U>& b) {
  return a.Get() != b.Get();
}

}  // namespace Tsl
