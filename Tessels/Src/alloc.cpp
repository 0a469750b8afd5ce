// INTERIM allocation front end: every policy and the string allocator take
// plain runtime-heap memory. Replaced by the real managers.
#include "alloc.h"

#include <stdlib.h>

#include "errors.h"

namespace Tsl {

namespace {
class CInterimRuntimeHeapManager : public IMemoryManager {
 public:
  void* Alloc(size_t size) override {
    void* p = malloc(size ? size : 1);
    if (!p) GenerateMemoryError();
    return p;
  }
  void Free(void* block) override { free(block); }
};
CInterimRuntimeHeapManager runtimeHeapManager;
thread_local IMemoryManager* currentManager = nullptr;
}  // namespace

IMemoryManager* GetRuntimeHeapManager() { return &runtimeHeapManager; }
IMemoryManager* GetCurrentMemoryManager() { return currentManager ? currentManager : &runtimeHeapManager; }
void SetCurrentMemoryManager(IMemoryManager* manager) { currentManager = manager; }

void* CurrentMemoryManager::Alloc(size_t size) { return runtimeHeapManager.Alloc(size); }
void CurrentMemoryManager::Free(void* block) { runtimeHeapManager.Free(block); }
void* RuntimeHeap::Alloc(size_t size) { return runtimeHeapManager.Alloc(size); }
void RuntimeHeap::Free(void* block) { runtimeHeapManager.Free(block); }
void* ProcessHeap::Alloc(size_t size) { return runtimeHeapManager.Alloc(size); }
void ProcessHeap::Free(void* block) { runtimeHeapManager.Free(block); }

CRuntimeHeapSwitch::CRuntimeHeapSwitch() : saved(GetCurrentMemoryManager()) { currentManager = &runtimeHeapManager; }
CRuntimeHeapSwitch::~CRuntimeHeapSwitch() { currentManager = saved; }
CMemoryManagerSwitch::CMemoryManagerSwitch(IMemoryManager* manager) : saved(GetCurrentMemoryManager()) { currentManager = manager; }
CMemoryManagerSwitch::~CMemoryManagerSwitch() { currentManager = saved; }

void* AllocStringBlock(int32_t size, int32_t& capacity) {
  capacity = size;
  return runtimeHeapManager.Alloc(size);
}
void FreeStringBlock(void* block, int32_t) { runtimeHeapManager.Free(block); }

}  // namespace Tsl
