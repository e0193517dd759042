// Preloaded into a process of ours, counts what its heap holds, numbers the calls that can fail and
// makes chosen ones fail.
//
// A call is one that our program or plug-in makes of a library's function, numbered by function;
// those that libraries make of each other are left alone. An allocation, called "memory" here,
// counts whoever makes it. Numbers begin with 1.
//
//     FAILING_CALLS         what fails: words such as "recv:3:2", for the third call of recv, in
//                           the second way in which it can fail, and "memory:100:1". With "3+"
//                           that call fails, and all later ones of the function. Without this
//                           variable, only the heap is counted.
//     FAILING_CALLS_REPORT  file of sizeof(Report) bytes, or of sizeof(Heap) if only the heap is
//                           counted; filled in while the process runs
//     LD_BIND_NOW           must be set: the addresses have to be bound before they are changed
//
// Calls of ours are caught in the table of addresses through which the linker resolves them, so
// that tail calls are caught as well.

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <iterator>
#include <link.h>
#include <sys/mman.h>
#include <tuple>
#include <unistd.h>
#include <utility>

extern "C" { // the C library's own
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* memory);
}

namespace {

enum class Kind {
    None,
    Instead,    ///< the call is not made
    Afterwards, ///< the call is made, and its result is replaced
    OneByte,    ///< the call is made with a length of 1, in the third argument
    Status,     ///< the call is not made; an ICU status is set, at the place that an argument gives
    Error,      ///< the call is not made; a GError is set, at the place that an argument gives
};

struct Failure {
    Kind kind = Kind::None;
    long result = 0;
    int code = 0; ///< errno, status or code of the error
    std::size_t place = 0;
};

constexpr Failure systemError(int number) {
    return {.kind = Kind::Instead, .result = -1, .code = number};
}
/// Reports an error although it has done its work.
constexpr Failure doneWith(int number) {
    return {.kind = Kind::Afterwards, .result = -1, .code = number};
}
constexpr Failure answer(long result) {
    return {.kind = Kind::Instead, .result = result, .code = ENOMEM};
}
constexpr Failure oneByte = {.kind = Kind::OneByte};
constexpr Failure status(std::size_t place) {
    return {.kind = Kind::Status, .code = 7 /* U_MEMORY_ALLOCATION_ERROR */, .place = place};
}
constexpr Failure error(std::size_t place, int code) {
    return {.kind = Kind::Error, .code = code, .place = place};
}

// GIOErrorEnum's.
constexpr int failed = 0, noSpace = 12, closed = 18, timedOut = 24;

struct Group {
    const char* functions; ///< separated by spaces; "?" stands for a digit of ICU's version
    Failure failures[6];   ///< every way in which each of them can fail
};

constexpr Group groups[] = {
    // The system.
    {"__fprintf_chk __printf_chk ioctl puts tcsetattr", {systemError(EIO)}},
    {"__snprintf_chk", {systemError(ENOMEM)}},
    {"access", {systemError(EACCES)}},
    {"close", {doneWith(EIO), doneWith(EINTR)}},
    {"connect",
     {systemError(ECONNREFUSED), doneWith(EINTR), systemError(EADDRNOTAVAIL), systemError(ENOMEM)}},
    {"eventfd socket", {systemError(EMFILE), systemError(ENOMEM)}},
    {"fstat stat", {systemError(EIO), systemError(ENOMEM)}},
    {"getpeername getsockname getsockopt", {systemError(ENOBUFS)}},
    {"inet_pton localtime_r strftime", {answer(0)}},
    {"malloc", {}}, // fails as memory does
    {"listxattr", {systemError(ENOTSUP), systemError(ERANGE), systemError(ENOMEM)}},
    {"open", {systemError(EMFILE), systemError(EINTR), systemError(EACCES), systemError(ENOMEM)}},
    {"poll", {systemError(EINTR), systemError(ENOMEM)}},
    {"read __read_chk", {systemError(EINTR), systemError(EIO), oneByte, answer(0)}},
    {"readlink", {systemError(EACCES), systemError(ENOMEM)}},
    {"recv", {systemError(EINTR), systemError(ECONNRESET), systemError(ENOMEM), oneByte}},
    {"send",
     {systemError(EPIPE), systemError(ECONNRESET), systemError(EAGAIN), systemError(ENOBUFS),
      oneByte}},
    {"write",
     {systemError(EINTR), systemError(EAGAIN), systemError(EIO), systemError(EPIPE), oneByte}},
    // libsystemd, which returns the error's number, negated.
    {"sd_bus_add_filter sd_bus_add_object_vtable sd_bus_attach_event sd_bus_message_append "
     "sd_bus_emit_properties_changed sd_bus_message_append_basic sd_bus_message_close_container "
     "sd_bus_message_new_method_return sd_bus_message_new_signal sd_bus_message_open_container "
     "sd_bus_reply_method_return "
     "sd_event_add_defer sd_event_add_time sd_event_run sd_event_source_set_enabled "
     "sd_event_source_set_io_events sd_event_source_set_time_relative",
     {answer(-ENOMEM)}},
    {"sd_bus_creds_get_pid", {answer(-ENODATA)}},
    {"sd_bus_emit_properties_changed_strv", {answer(-ENOMEM), answer(-ENOTCONN)}},
    {"sd_bus_get_name_creds", {answer(-ENOMEM), answer(-ENXIO), answer(-ETIMEDOUT)}},
    {"sd_bus_get_n_queued_write", {answer(-ENOTCONN)}},
    {"sd_bus_message_enter_container sd_bus_message_read_basic",
     {answer(-ENOMEM), answer(-EBADMSG)}},
    {"sd_bus_message_exit_container", {answer(-EBUSY)}},
    {"sd_bus_open_user", {answer(-ENOMEM), answer(-ECONNREFUSED), answer(-ENOMEDIUM)}},
    {"sd_bus_request_name", {answer(-ENOMEM), answer(-ETIMEDOUT), answer(-ECONNRESET)}},
    {"sd_bus_send", {answer(-ENOBUFS), answer(-ENOTCONN), answer(-ENOMEM)}},
    {"sd_event_add_io", {answer(-ENOMEM), answer(-ENOSPC)}},
    {"sd_event_default", {answer(-ENOMEM), answer(-EMFILE)}},
    // ICU.
    {"_ZN6icu_??11Normalizer214getNFDInstanceER10UErrorCode", {status(0)}},
    {"_ZN6icu_??13BreakIterator23createCharacterInstanceERKNS_6LocaleER10UErrorCode", {status(1)}},
    {"unorm_compare_??", {status(5)}},
    // GLib, the file managers' own libraries, and Qt.
    {"g_bus_get_finish", {error(1, failed), error(1, noSpace)}},
    {"g_dbus_connection_call_finish", {error(2, failed), error(2, closed), error(2, timedOut)}},
    {"g_file_query_info_finish", {error(2, failed)}},
    {"g_file_set_attributes_finish", {error(3, failed)}},
    {"g_file_monitor_file thunarx_file_info_get_file_info", {answer(0)}},
    {"g_filename_from_uri g_utf8_normalize g_utf8_validate g_variant_lookup_value "
     "caja_file_info_get_name nemo_file_info_get_name nautilus_file_info_get_name "
     "caja_file_info_get_uri nemo_file_info_get_uri nautilus_file_info_get_uri "
     "thunarx_file_info_get_uri "
     "_ZN15QDBusConnection7connectERK7QStringS2_S2_S2_P7QObjectPKc",
     {answer(0)}},
    {"_ZNK16QDBusPendingCall7isErrorEv", {answer(1)}},
};

/// More than any function takes. What a call does not have is read from the stack and not used.
using Arguments = std::array<long, 12>;
using Any = long(long, long, long, long, long, long, long, long, long, long, long, long);

struct Function {
    char name[96];
    const Failure* failures;
    std::size_t ways;
    Any* original;
    std::uint64_t called; ///< how often
};

Function functions[110];
std::size_t functionCount = 0;

void listFunctions() {
    for (const Group& group : groups) {
        std::size_t ways = 0;
        while (ways < std::size(group.failures) && group.failures[ways].kind != Kind::None)
            ++ways;
        int length = 0;
        for (const char* name = group.functions;
             std::sscanf(name, "%95s%n", functions[functionCount].name, &length) == 1;
             name += length) {
            functions[functionCount].failures = group.failures;
            functions[functionCount].ways = ways;
            if (++functionCount == std::size(functions))
                std::abort();
        }
    }
}

struct Order {
    const Function* function; ///< null for memory
    std::uint64_t number;
    bool isFromThereOn;
    std::size_t way;
};

Order orders[4];
std::size_t orderCount = 0;

/// The order that makes a call or an allocation fail, or null.
const Order* orderFor(const Function* function, std::uint64_t number) {
    for (const Order* order = orders; order != orders + orderCount; ++order)
        if (function == order->function &&
            (number == order->number || (order->isFromThereOn && number > order->number)))
            return order;
    return nullptr;
}

/// What has been allocated and not freed. What was there when the file was opened does not count.
struct Heap {
    std::atomic<std::int64_t> bytes; ///< as requested, without what the allocator adds
    std::atomic<std::int64_t> blocks;
};

struct Report {
    Heap heap;
    std::int64_t blocksAtEnd; ///< when the process has exited; -1 before that
    /// Of the text: a line for each call and allocation, and one for each failure.
    std::atomic<std::uint64_t> length;
    /// Room for the system's table of sockets, read byte by byte; what is not written takes none.
    char text[std::size_t{1} << 24];
};

Report* report = nullptr;
bool isProgramOurs = false; ///< if not, only its plug-ins are, and their memory is not told apart
std::atomic<std::uint64_t> allocations{0};
Heap beforeTheFileIsOpen;
Heap* heap = &beforeTheFileIsOpen;

[[gnu::format(printf, 1, 2)]] void say(const char* format, ...) {
    char line[256];
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    if (report == nullptr || length < 0)
        return;
    // Without a lock, since threads and signal handlers get here.
    const std::uint64_t place = report->length.fetch_add(static_cast<std::uint64_t>(length));
    if (place + static_cast<std::uint64_t>(length) <= sizeof report->text)
        std::memcpy(report->text + place, line, static_cast<std::size_t>(length));
}

// Calls.

void setError(void** place, int code) {
    using Set = void(void**, unsigned, int, const char*);
    using Quark = unsigned();
    auto* const set = reinterpret_cast<Set*>(::dlsym(RTLD_DEFAULT, "g_set_error_literal"));
    auto* const quark = reinterpret_cast<Quark*>(::dlsym(RTLD_DEFAULT, "g_io_error_quark"));
    set(place, quark(), code, "made to fail");
}

long failWith(const Failure& failure, const Arguments& arguments) {
    if (failure.kind == Kind::Status)
        *reinterpret_cast<int*>(arguments[failure.place]) = failure.code;
    else if (failure.kind == Kind::Error)
        setError(reinterpret_cast<void**>(arguments[failure.place]), failure.code);
    else
        errno = failure.code;
    return failure.result;
}

/// How this call of the function is to fail, if it is.
Failure failureOf(Function& function, const Arguments& arguments) {
    const std::uint64_t number = ++function.called;
    say("call %llu %s %zu %ld\n", static_cast<unsigned long long>(number), function.name,
        function.ways, arguments[0]);
    const Order* const order = orderFor(&function, number);
    if (order == nullptr || order->way > function.ways)
        return {};
    const Failure& failure = function.failures[order->way - 1];
    // Interruptions and full buffers pass.
    if (number != order->number && (failure.code == EINTR || failure.code == EAGAIN))
        return {};
    say("failed call %llu %s %zu\n", static_cast<unsigned long long>(number), function.name,
        order->way);
    return failure;
}

template <std::size_t index> long call(long a, long b, long c, long d, long e, long f, long g,
                                       long h, long i, long j, long k, long l) {
    Arguments arguments = {a, b, c, d, e, f, g, h, i, j, k, l};
    const int errnoBefore = errno;
    const Failure failure = failureOf(functions[index], arguments);
    if (failure.kind == Kind::OneByte && arguments[2] > 1)
        arguments[2] = 1;
    errno = errnoBefore;
    if (failure.kind != Kind::None && failure.kind != Kind::OneByte &&
        failure.kind != Kind::Afterwards)
        return failWith(failure, arguments);
    const long result = std::apply(functions[index].original, arguments);
    return failure.kind == Kind::Afterwards ? failWith(failure, arguments) : result;
}

constexpr auto wrappers = []<std::size_t... index>(std::index_sequence<index...>) {
    return std::array{&call<index>...};
}(std::make_index_sequence<std::size(functions)>());

void redirect(void** slot, const char* symbol) {
    for (std::size_t index = 0; index < functionCount; ++index) {
        void* const wrapper = reinterpret_cast<void*>(wrappers[index]);
        if (::fnmatch(functions[index].name, symbol, 0) != 0 || *slot == wrapper)
            continue;
        functions[index].original = reinterpret_cast<Any*>(*slot);
        const auto pageSize = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
        auto* const page =
            reinterpret_cast<void*>(reinterpret_cast<std::uintptr_t>(slot) & ~(pageSize - 1));
        (void)::mprotect(page, pageSize, PROT_READ | PROT_WRITE);
        *slot = wrapper;
    }
}

const char* baseName(const char* file) {
    const char* const slash = std::strrchr(file, '/');
    return slash == nullptr ? file : slash + 1;
}

/// Redirects the calls of an object that has been loaded and bound.
void redirectCalls(const link_map& object) {
    ElfW(Addr) values[DT_NUM] = {};
    for (const ElfW(Dyn)* entry = object.l_ld; entry->d_tag != DT_NULL; ++entry)
        if (entry->d_tag < DT_NUM)
            values[entry->d_tag] = entry->d_un.d_ptr;
    const auto* const symbols = reinterpret_cast<const ElfW(Sym)*>(values[DT_SYMTAB]);
    const auto* const names = reinterpret_cast<const char*>(values[DT_STRTAB]);
    for (const auto& [table, size] :
         {std::pair(DT_RELA, DT_RELASZ), std::pair(DT_JMPREL, DT_PLTRELSZ)}) {
        const auto* const first = reinterpret_cast<const ElfW(Rela)*>(values[table]);
        for (const auto* entry = first; entry != first + values[size] / sizeof *first; ++entry)
            if (const auto symbol = ELF64_R_SYM(entry->r_info))
                redirect(reinterpret_cast<void**>(object.l_addr + entry->r_offset),
                         names + symbols[symbol].st_name);
    }
}

void redirectCallsOfOurs() {
    for (const link_map* object = _r_debug.r_map; object != nullptr; object = object->l_next) {
        Dl_info info{};
        // The program itself has no name in the list.
        if (::dladdr(object->l_ld, &info) == 0 ||
            std::strstr(baseName(info.dli_fname), "finder-sync") == nullptr)
            continue;
        redirectCalls(*object);
        isProgramOurs = isProgramOurs || object == _r_debug.r_map;
    }
}

// Memory.

bool isAllocationToFail(const void* caller) {
    if (report == nullptr || !isProgramOurs)
        return false;
    const std::uint64_t number = ++allocations;
    const bool fails = orderFor(nullptr, number) != nullptr;
    Dl_info info{};
    const char* const object = ::dladdr(caller, &info) != 0 ? baseName(info.dli_fname) : "?";
    say("%smemory %llu %s %s\n", fails ? "failed " : "", static_cast<unsigned long long>(number),
        object, info.dli_sname == nullptr ? "?" : info.dli_sname);
    return fails;
}

/// Precedes each block.
struct alignas(std::max_align_t) Note {
    std::size_t size; ///< as requested
    void* block;      ///< as the C library gave it
};

Note* noteOf(void* memory) {
    return static_cast<Note*>(memory) - 1;
}

void* allocate(const void* caller, std::size_t alignment, std::size_t elementSize,
               std::size_t count = 1) {
    const std::size_t offset = std::max(alignment, sizeof(Note));
    std::size_t size = 0;
    std::size_t total = 0;
    const bool fails = isAllocationToFail(caller) ||
                       __builtin_mul_overflow(count, elementSize, &size) ||
                       __builtin_add_overflow(size, offset, &total);
    void* const block = fails ? nullptr : __libc_memalign(alignment, total);
    if (block == nullptr) {
        errno = ENOMEM;
        return nullptr;
    }
    void* const memory = static_cast<std::byte*>(block) + offset;
    *noteOf(memory) = {.size = size, .block = block};
    heap->bytes += static_cast<std::int64_t>(size);
    ++heap->blocks;
    return memory;
}

// Orders and report.

[[noreturn]] void refuse(const char* variable, const char* text, const char* reason) {
    (void)std::fprintf(stderr, "%s: \"%s\": %s\n", variable, text, reason);
    std::abort();
}

void take(const char* word) {
    char name[128];
    unsigned long long number = 0;
    char suffix[2] = "";
    unsigned way = 0;
    const bool isRead =
        std::sscanf(word, "%127[^:]:%llu%1[+]:%u", name, &number, suffix, &way) == 4 ||
        std::sscanf(word, "%127[^:]:%llu:%u", name, &number, &way) == 3;
    Order order = {nullptr, number, suffix[0] == '+', way};
    for (std::size_t index = 0; isRead && index < functionCount; ++index)
        if (std::strcmp(functions[index].name, name) == 0)
            order.function = &functions[index];
    const bool isKnown = order.function != nullptr || (isRead && std::strcmp(name, "memory") == 0);
    if (!isKnown || way == 0 || orderCount == std::size(orders))
        refuse("FAILING_CALLS", word, "no order, or one too many");
    orders[orderCount++] = order;
}

[[gnu::constructor]] void begin() {
    const char* const file = std::getenv("FAILING_CALLS_REPORT");
    if (file == nullptr)
        return; // a process that another one has started
    // The processes that it starts are not observed.
    (void)::unsetenv("FAILING_CALLS_REPORT");
    const int descriptor = ::open(file, O_RDWR | O_CLOEXEC);
    auto* const opened = static_cast<Report*>(
        ::mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0));
    (void)::close(descriptor);
    if (opened == MAP_FAILED)
        refuse("FAILING_CALLS_REPORT", file, std::strerror(errno));
    char* const words = std::getenv("FAILING_CALLS");
    if (words != nullptr) {
        listFunctions();
        for (char* word = std::strtok(words, " "); word != nullptr;
             word = std::strtok(nullptr, " "))
            take(word);
        redirectCallsOfOurs();
        opened->blocksAtEnd = -1;
    }
    opened->heap.bytes = 0;
    opened->heap.blocks = 0;
    heap = &opened->heap;
    report = words == nullptr ? nullptr : opened;
}

/// Runs after the program has destroyed everything it has.
[[gnu::destructor]] void end() {
    if (report != nullptr)
        report->blocksAtEnd = heap->blocks;
}

} // namespace

extern "C" {

/// A plug-in is loaded while its file manager runs.
void* dlopen(const char* file, int flags) {
    using Open = void*(const char*, int);
    static auto* const open = reinterpret_cast<Open*>(::dlsym(RTLD_NEXT, "dlopen"));
    void* const object = open(file, flags);
    if (report != nullptr)
        redirectCallsOfOurs();
    return object;
}

void* malloc(std::size_t size) {
    return allocate(__builtin_return_address(0), alignof(Note), size);
}

void* calloc(std::size_t count, std::size_t elementSize) {
    void* const memory = allocate(__builtin_return_address(0), alignof(Note), elementSize, count);
    return memory == nullptr ? nullptr : std::memset(memory, 0, noteOf(memory)->size);
}

void free(void* memory) {
    if (memory == nullptr)
        return;
    const Note note = *noteOf(memory);
    heap->bytes -= static_cast<std::int64_t>(note.size);
    --heap->blocks;
    __libc_free(note.block);
}

void* realloc(void* memory, std::size_t size) {
    if (memory != nullptr && size == 0) {
        free(memory);
        return nullptr;
    }
    void* const resized = allocate(__builtin_return_address(0), alignof(Note), size);
    if (memory != nullptr && resized != nullptr) {
        std::memcpy(resized, memory, std::min(noteOf(memory)->size, size));
        free(memory);
    }
    return resized;
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
    return allocate(__builtin_return_address(0), alignment, size);
}

void* memalign(std::size_t alignment, std::size_t size) {
    return allocate(__builtin_return_address(0), alignment, size);
}

int posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
    *memory = allocate(__builtin_return_address(0), alignment, size);
    return *memory == nullptr ? ENOMEM : 0;
}

std::size_t malloc_usable_size(void* memory) {
    return memory == nullptr ? 0 : noteOf(memory)->size;
}

} // extern "C"
