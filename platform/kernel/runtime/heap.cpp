// malloc and its kin over non-paged pool; operator new comes here too. Null if there is no memory,
// which the library turns into an exception that the face detector catches.
#include "platform/kernel/runtime/heap.h"

#include <stddef.h>
#include <stdint.h>

#include "module/memory.h"

namespace kolm {
namespace {

// Stands before each block; its size keeps the block aligned to 16 bytes as the pool's are.
struct alignas(16) Block {
  Block* previous;
  Block* next;
  size_t bytes;
};

// One thread at a time is in the library, so the list needs no lock.
Block ring = {&ring, &ring, 0};

Block* BlockOf(void* memory) { return static_cast<Block*>(memory) - 1; }

}  // namespace

void FreeHeap() {
  while (ring.next != &ring) {
    Block* block = ring.next;
    ring.next = block->next;
    KolmFree(block);
  }
  ring.previous = &ring;
}

}  // namespace kolm

extern "C" {

void* malloc(size_t bytes) {
  using kolm::ring;
  if (bytes > SIZE_MAX - sizeof(kolm::Block)) return nullptr;
  auto* block = static_cast<kolm::Block*>(kolm::KolmAllocate(sizeof(kolm::Block) + bytes));
  if (block == nullptr) return nullptr;
  *block = {ring.previous, &ring, bytes};
  ring.previous->next = block;
  ring.previous = block;
  return block + 1;
}

void free(void* memory) {
  if (memory == nullptr) return;
  kolm::Block* block = kolm::BlockOf(memory);
  block->previous->next = block->next;
  block->next->previous = block->previous;
  kolm::KolmFree(block);
}

void* calloc(size_t count, size_t size) {
  size_t bytes = 0;
  if (__builtin_mul_overflow(count, size, &bytes)) return nullptr;
  void* memory = malloc(bytes);
  if (memory != nullptr) kolm::KolmZero(memory, bytes);
  return memory;
}

void* realloc(void* memory, size_t bytes) {
  void* moved = malloc(bytes);
  if (moved == nullptr || memory == nullptr) return moved;
  const size_t old = kolm::BlockOf(memory)->bytes;
  kolm::KolmCopy(moved, memory, old < bytes ? old : bytes);
  free(memory);
  return moved;
}
}
