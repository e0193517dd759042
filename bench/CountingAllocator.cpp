// counting-allocator: loaded in front of the C library, it notes how many bytes of the heap a
// program has requested and not freed. Each block is preceded by a note of its size.

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

// The C library's own allocator, by the names that stay reachable when the usual ones are replaced.
extern "C" {
void* __libc_memalign(std::size_t, std::size_t);
void __libc_free(void*);
}

namespace {

/// What the heap holds, kept in a file that other processes can map.
struct LiveBytes {
    std::atomic<std::int64_t> bytes;  ///< as requested, without what the allocator adds
    std::atomic<std::int64_t> blocks; ///< allocations that have not been freed
};
static_assert(std::atomic<std::int64_t>::is_always_lock_free);

struct alignas(std::max_align_t) Note {
    std::size_t size; ///< as requested
    void* block;      ///< as the C library gave it
};

LiveBytes beforeTheFileIsOpen;
LiveBytes* liveBytes = &beforeTheFileIsOpen;

/// Goes on counting in the file that the environment names, which must exist and be large enough.
__attribute__((constructor)) void openFile() {
    const char* const path = std::getenv("FINDER_SYNC_BENCH_LIVE_BYTES");
    const int file = path == nullptr ? -1 : ::open(path, O_RDWR | O_CLOEXEC);
    void* const memory =
        ::mmap(nullptr, sizeof(LiveBytes), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (memory == MAP_FAILED)
        std::abort();
    ::close(file);
    auto* const opened = static_cast<LiveBytes*>(memory);
    opened->bytes = beforeTheFileIsOpen.bytes.load();
    opened->blocks = beforeTheFileIsOpen.blocks.load();
    liveBytes = opened;
}

Note* noteOf(void* memory) {
    return static_cast<Note*>(memory) - 1;
}

void* allocate(std::size_t alignment, std::size_t size) {
    const std::size_t offset = alignment > sizeof(Note) ? alignment : sizeof(Note);
    std::size_t total = 0;
    if (__builtin_add_overflow(size, offset, &total)) {
        errno = ENOMEM;
        return nullptr;
    }
    void* const block = __libc_memalign(alignment, total);
    if (block == nullptr)
        return nullptr;
    void* const memory = static_cast<std::byte*>(block) + offset;
    *noteOf(memory) = {.size = size, .block = block};
    liveBytes->bytes += static_cast<std::int64_t>(size);
    ++liveBytes->blocks;
    return memory;
}

} // namespace

extern "C" {

void* malloc(std::size_t size) {
    return allocate(alignof(Note), size);
}

void* calloc(std::size_t count, std::size_t elementSize) {
    std::size_t size = 0;
    if (__builtin_mul_overflow(count, elementSize, &size)) {
        errno = ENOMEM;
        return nullptr;
    }
    void* const memory = allocate(alignof(Note), size);
    return memory == nullptr ? nullptr : std::memset(memory, 0, size);
}

void free(void* memory) {
    if (memory == nullptr)
        return;
    const Note note = *noteOf(memory);
    liveBytes->bytes -= static_cast<std::int64_t>(note.size);
    --liveBytes->blocks;
    __libc_free(note.block);
}

void* realloc(void* memory, std::size_t size) {
    if (memory == nullptr)
        return malloc(size);
    if (size == 0) {
        free(memory);
        return nullptr;
    }
    void* const larger = malloc(size);
    if (larger != nullptr) {
        const std::size_t before = noteOf(memory)->size;
        std::memcpy(larger, memory, before < size ? before : size);
        free(memory);
    }
    return larger;
}

void* memalign(std::size_t alignment, std::size_t size) {
    return allocate(alignment, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
    return allocate(alignment, size);
}

int posix_memalign(void** result, std::size_t alignment, std::size_t size) {
    *result = allocate(alignment, size);
    return *result == nullptr ? ENOMEM : 0;
}

std::size_t malloc_usable_size(void* memory) {
    return memory == nullptr ? 0 : noteOf(memory)->size;
}

} // extern "C"
