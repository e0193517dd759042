// Preloaded into a process of ours, numbers the calls that can fail and has chosen ones fail.
//
// There are two kinds. A call is one that our program or plug-in makes of a library's function, and
// is numbered by function; those that libraries make of each other are not touched. An allocation,
// called "memory" here, counts whoever makes it. Numbers begin with 1.
//
//     FAILING_CALLS         what is to fail: words such as "recv:3:2", for the third call of that
//                           function and the second way in which it can fail, and "memory:100:1".
//                           With "3+" that call fails, and all later ones of the function.
//     FAILING_CALLS_REPORT  file of sizeof(Report) bytes, filled in as the process goes on
//     LD_BIND_NOW           set, as the addresses have to be there when they are changed
//
// A call of ours is met in the table of addresses through which the linker has it go. Whether it is
// a proper call or a jump at the end of a function, nothing can pass by.

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <iterator>
#include <link.h>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>
#include <utility>

extern "C" { // the C library's own
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* memory);
}

namespace {

// What calls answer when they fail.

enum class Kind {
    None,
    Result,     ///< the call is not made
    Afterwards, ///< the call is made, and its result withheld
    OneByte,    ///< the call is made with a length of 1, in the third argument
    // In these the call is not made, too.
    Status, ///< an ICU status, at the place that an argument tells
    Error,  ///< a GError, at the place that an argument tells
};

struct Failure {
    Kind kind = Kind::None;
    long result = 0;
    int code = 0; ///< errno, status or code of the error
    int place = 0;
};

constexpr Failure systemError(int number) {
    return {.kind = Kind::Result, .result = -1, .code = number};
}
/// Interrupted or failed, and done all the same.
constexpr Failure doneWith(int number) {
    return {.kind = Kind::Afterwards, .result = -1, .code = number};
}
/// The way of libsystemd.
constexpr Failure negative(int number) {
    return {.kind = Kind::Result, .result = -number};
}
constexpr Failure nothing() {
    return {.kind = Kind::Result, .result = 0, .code = ENOMEM};
}
constexpr Failure error(int place, int code) {
    return {.kind = Kind::Error, .code = code, .place = place};
}
constexpr Failure answer(long result) {
    return {.kind = Kind::Result, .result = result};
}
constexpr Failure oneByte() {
    return {.kind = Kind::OneByte};
}
constexpr Failure status(int place) {
    return {.kind = Kind::Status, .code = 7 /* U_MEMORY_ALLOCATION_ERROR */, .place = place};
}

// GIOErrorEnum's.
constexpr int failed = 0;
constexpr int closed = 18;
constexpr int timedOut = 24;
constexpr int noSpace = 12;

struct Function {
    const char* name;
    Failure failures[6];
    void* original = nullptr;
    std::uint64_t called = 0; ///< how often
};

Function functions[] = {
    // The system.
    {"__fprintf_chk", {systemError(EIO)}},
    {"__printf_chk", {systemError(EIO)}},
    {"__snprintf_chk", {systemError(ENOMEM)}},
    {"access", {systemError(EACCES)}},
    {"close", {doneWith(EIO), doneWith(EINTR)}},
    {"connect",
     {systemError(ECONNREFUSED), doneWith(EINTR), systemError(EADDRNOTAVAIL), systemError(ENOMEM)}},
    {"eventfd", {systemError(EMFILE), systemError(ENOMEM)}},
    {"fstat", {systemError(EIO), systemError(ENOMEM)}},
    {"getsockopt", {systemError(ENOBUFS)}},
    {"inet_pton", {nothing()}},
    {"ioctl", {systemError(EIO)}},
    {"malloc", {}}, // fails as memory does
    {"listxattr", {systemError(ENOTSUP), systemError(ERANGE), systemError(ENOMEM)}},
    {"localtime_r", {nothing()}},
    {"open", {systemError(EMFILE), systemError(EINTR), systemError(EACCES), systemError(ENOMEM)}},
    {"poll", {systemError(EINTR), systemError(ENOMEM)}},
    {"puts", {systemError(EIO)}},
    {"read", {systemError(EINTR), systemError(EIO), oneByte(), nothing()}},
    {"readlink", {systemError(EACCES), systemError(ENOMEM)}},
    {"recv", {systemError(EINTR), systemError(ECONNRESET), systemError(ENOMEM), oneByte()}},
    {"send",
     {systemError(EPIPE), systemError(ECONNRESET), systemError(EAGAIN), systemError(ENOBUFS),
      oneByte()}},
    {"socket", {systemError(EMFILE), systemError(ENOMEM)}},
    {"stat", {systemError(EIO), systemError(ENOMEM)}},
    {"strftime", {nothing()}},
    {"tcsetattr", {systemError(EIO)}},
    {"write",
     {systemError(EINTR), systemError(EAGAIN), systemError(EIO), systemError(EPIPE), oneByte()}},

    // libsystemd.
    {"sd_bus_add_filter", {negative(ENOMEM)}},
    {"sd_bus_add_object_vtable", {negative(ENOMEM)}},
    {"sd_bus_attach_event", {negative(ENOMEM)}},
    {"sd_bus_creds_get_pid", {negative(ENODATA)}},
    {"sd_bus_emit_properties_changed_strv", {negative(ENOMEM), negative(ENOTCONN)}},
    {"sd_bus_get_name_creds", {negative(ENOMEM), negative(ENXIO), negative(ETIMEDOUT)}},
    {"sd_bus_get_n_queued_write", {negative(ENOTCONN)}},
    {"sd_bus_message_append", {negative(ENOMEM)}},
    {"sd_bus_message_append_basic", {negative(ENOMEM)}},
    {"sd_bus_message_close_container", {negative(ENOMEM)}},
    {"sd_bus_message_enter_container", {negative(ENOMEM), negative(EBADMSG)}},
    {"sd_bus_message_exit_container", {negative(EBUSY)}},
    {"sd_bus_message_new_method_return", {negative(ENOMEM)}},
    {"sd_bus_message_open_container", {negative(ENOMEM)}},
    {"sd_bus_message_read_basic", {negative(ENOMEM), negative(EBADMSG)}},
    {"sd_bus_open_user", {negative(ENOMEM), negative(ECONNREFUSED), negative(ENOMEDIUM)}},
    {"sd_bus_request_name", {negative(ENOMEM), negative(ETIMEDOUT), negative(ECONNRESET)}},
    {"sd_bus_send", {negative(ENOBUFS), negative(ENOTCONN), negative(ENOMEM)}},
    {"sd_event_add_defer", {negative(ENOMEM)}},
    {"sd_event_add_io", {negative(ENOMEM), negative(ENOSPC)}},
    {"sd_event_add_time_relative", {negative(ENOMEM)}},
    {"sd_event_default", {negative(ENOMEM), negative(EMFILE)}},
    {"sd_event_run", {negative(ENOMEM)}},
    {"sd_event_source_set_enabled", {negative(ENOMEM)}},
    {"sd_event_source_set_io_events", {negative(ENOMEM)}},

    // ICU.
    {"_ZN6icu_7211Normalizer214getNFDInstanceER10UErrorCode", {status(0)}},
    {"_ZN6icu_7213BreakIterator23createCharacterInstanceERKNS_6LocaleER10UErrorCode", {status(1)}},
    {"unorm_compare_72", {status(5)}},

    // GLib, and the file managers' own libraries.
    {"g_async_initable_new_finish", {error(2, failed), error(2, noSpace)}},
    {"g_dbus_proxy_call_finish", {error(2, failed), error(2, closed), error(2, timedOut)}},
    {"g_dbus_proxy_call_sync", {error(6, failed), error(6, closed), error(6, timedOut)}},
    {"g_dbus_proxy_get_cached_property", {answer(0)}},
    {"g_dbus_proxy_get_name_owner", {answer(0)}},
    {"g_file_get_uri", {answer(0)}},
    {"g_uri_unescape_string", {answer(0)}},
    {"g_utf8_validate", {answer(0)}},
    {"g_variant_lookup_value", {answer(0)}},
    {"caja_file_info_get_uri", {answer(0)}},
    {"nemo_file_info_get_uri", {answer(0)}},
    {"nautilus_file_info_get_uri", {answer(0)}},
    {"thunarx_file_info_get_uri", {answer(0)}},

    // Qt.
    {"_ZN15QDBusConnection7connectERK7QStringS2_S2_S2_P7QObjectPKc", {answer(0)}},
    {"_ZNK16QDBusPendingCall7isErrorEv", {answer(1)}},
};

// What is to fail.

struct Order {
    const Function* function = nullptr; ///< null for memory
    std::uint64_t number = 0;
    bool isFromThereOn = false;
    std::size_t way = 0;
};

Order orders[4];
std::size_t orderCount = 0;

/// The way in which a call or allocation is to fail, or 0.
std::size_t wayToFail(const Function* function, std::uint64_t number, bool& isFirst) {
    for (std::size_t index = 0; index < orderCount; ++index) {
        const Order& order = orders[index];
        isFirst = number == order.number;
        if (function == order.function &&
            (isFirst || (order.isFromThereOn && number > order.number)))
            return order.way;
    }
    return 0;
}

struct Report {
    std::int64_t blocksAtEnd; ///< of memory, when the process has exited; -1 before that
    /// Of the text: a line for each call and allocation, and one for each failure.
    std::atomic<std::uint64_t> length;
    char text[std::size_t{1} << 18];
};

std::atomic<std::uint64_t> allocations{0};
Report* report = nullptr;
bool isProgramOurs = false; ///< and not only what it loads: a file manager's memory is its own
std::atomic<std::int64_t> liveBlocks{0};

[[gnu::format(printf, 1, 2)]] void say(const char* format, ...) {
    char line[256];
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    if (report == nullptr || length < 0)
        return;
    // Without a lock: threads come here, and a signal's handler.
    const std::uint64_t place = report->length.fetch_add(static_cast<std::uint64_t>(length));
    if (place + static_cast<std::uint64_t>(length) <= sizeof report->text)
        std::memcpy(report->text + place, line, static_cast<std::size_t>(length));
}

std::size_t waysToFail(const Function& function) {
    std::size_t count = 0;
    while (count < std::size(function.failures) && function.failures[count].kind != Kind::None)
        ++count;
    return count;
}

// Calls.

/// More than any of them takes. What a call does not have is read from the stack and not used.
using Argument = long;
using Any = long(Argument, Argument, Argument, Argument, Argument, Argument, Argument, Argument,
                 Argument, Argument, Argument, Argument);

void setError(void** place, int code) {
    using Set = void(void**, unsigned, int, const char*);
    using Quark = unsigned();
    auto* const set = reinterpret_cast<Set*>(::dlsym(RTLD_DEFAULT, "g_set_error_literal"));
    auto* const quark = reinterpret_cast<Quark*>(::dlsym(RTLD_DEFAULT, "g_io_error_quark"));
    set(place, quark(), code, "made to fail");
}

void failWith(const Failure& failure, const Argument* arguments) {
    if (failure.kind == Kind::Status)
        *reinterpret_cast<int*>(arguments[failure.place]) = failure.code;
    else if (failure.kind == Kind::Error)
        setError(reinterpret_cast<void**>(arguments[failure.place]), failure.code);
    else if (failure.code != 0)
        errno = failure.code;
}

template <std::size_t index, typename... Arguments> long call(Arguments... given) {
    Function& function = functions[index];
    Argument arguments[] = {given...};
    const int errnoBefore = errno;
    const std::uint64_t number = ++function.called;
    bool isFirst = false;
    const std::size_t way = wayToFail(&function, number, isFirst);
    say("call %llu %s %zu %ld\n", static_cast<unsigned long long>(number), function.name,
        waysToFail(function), arguments[0]);
    Failure failure =
        way == 0 || way > std::size(function.failures) ? Failure() : function.failures[way - 1];
    // An interruption passes, and so does a wait.
    if (way != 0 && !isFirst && (failure.code == EINTR || failure.code == EAGAIN))
        failure = {};
    if (failure.kind != Kind::None)
        say("failed call %llu %s %zu\n", static_cast<unsigned long long>(number), function.name,
            way);
    if (failure.kind == Kind::OneByte && arguments[2] > 1)
        arguments[2] = 1;
    errno = errnoBefore;
    long result = failure.result;
    if (failure.kind == Kind::None || failure.kind == Kind::Afterwards ||
        failure.kind == Kind::OneByte)
        result = [&]<std::size_t... place>(std::index_sequence<place...>) {
            return reinterpret_cast<Any*>(function.original)(arguments[place]...);
        }
    (std::index_sequence_for<Arguments...>());
    if (failure.kind == Kind::None || failure.kind == Kind::OneByte)
        return result;
    failWith(failure, arguments);
    return failure.result;
}

template <std::size_t... index> void* wrapperOf(std::size_t of, std::index_sequence<index...>) {
    Any* const wrappers[] = {
        &call<index, Argument, Argument, Argument, Argument, Argument, Argument, Argument, Argument,
              Argument, Argument, Argument, Argument>...};
    return reinterpret_cast<void*>(wrappers[of]);
}

void redirect(void** slot, std::string_view name) {
    for (std::size_t index = 0; index < std::size(functions); ++index) {
        void* const wrapper = wrapperOf(index, std::make_index_sequence<std::size(functions)>());
        if (functions[index].name != name || *slot == wrapper)
            continue;
        functions[index].original = *slot;
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

bool isOurs(const char* file) {
    return std::strstr(baseName(file), "finder-sync") != nullptr;
}

/// Redirects the calls of an object that has been loaded and bound.
void redirectCalls(const link_map& object) {
    const ElfW(Sym)* symbols = nullptr;
    const char* names = nullptr;
    std::pair<const ElfW(Rela)*, std::size_t> relocations[2] = {};
    for (const ElfW(Dyn)* entry = object.l_ld; entry->d_tag != DT_NULL; ++entry) {
        if (entry->d_tag == DT_SYMTAB)
            symbols = reinterpret_cast<const ElfW(Sym)*>(entry->d_un.d_ptr);
        else if (entry->d_tag == DT_STRTAB)
            names = reinterpret_cast<const char*>(entry->d_un.d_ptr);
        else if (entry->d_tag == DT_RELA)
            relocations[0].first = reinterpret_cast<const ElfW(Rela)*>(entry->d_un.d_ptr);
        else if (entry->d_tag == DT_RELASZ)
            relocations[0].second = entry->d_un.d_val / sizeof(ElfW(Rela));
        else if (entry->d_tag == DT_JMPREL)
            relocations[1].first = reinterpret_cast<const ElfW(Rela)*>(entry->d_un.d_ptr);
        else if (entry->d_tag == DT_PLTRELSZ)
            relocations[1].second = entry->d_un.d_val / sizeof(ElfW(Rela));
    }
    for (const auto& [first, count] : relocations) {
        for (std::size_t index = 0; index < count; ++index) {
            const auto symbol = first[index].r_info >> 32;
            if (symbol != 0)
                redirect(reinterpret_cast<void**>(object.l_addr + first[index].r_offset),
                         names + symbols[symbol].st_name);
        }
    }
}

void redirectCallsOfOurs() {
    for (const link_map* object = _r_debug.r_map; object != nullptr; object = object->l_next) {
        Dl_info info{};
        // The program itself has no name in the list.
        if (::dladdr(object->l_ld, &info) == 0 || !isOurs(info.dli_fname))
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
    bool isFirst = false;
    const std::size_t way = wayToFail(nullptr, number, isFirst);
    Dl_info info{};
    const char* const object = ::dladdr(caller, &info) != 0 ? baseName(info.dli_fname) : "?";
    say("%smemory %llu %s %s\n", way == 0 ? "" : "failed ", static_cast<unsigned long long>(number),
        object, info.dli_sname == nullptr ? "?" : info.dli_sname);
    if (way == 0)
        return false;
    errno = ENOMEM;
    return true;
}

void* counted(void* memory) {
    if (memory != nullptr)
        ++liveBlocks;
    return memory;
}

// What is ordered, and the report.

void take(const char* word) {
    char name[128];
    unsigned long long number = 0;
    char suffix[2] = "";
    unsigned way = 0;
    bool isKnown = std::sscanf(word, "%127[^:]:%llu%1[+]:%u", name, &number, suffix, &way) == 4 ||
                   std::sscanf(word, "%127[^:]:%llu:%u", name, &number, &way) == 3;
    Order order = {.number = number, .isFromThereOn = suffix[0] == '+', .way = way};
    for (const Function& function : functions)
        if (isKnown && std::strcmp(function.name, name) == 0)
            order.function = &function;
    isKnown = isKnown && (order.function != nullptr || std::strcmp(name, "memory") == 0);
    if (!isKnown || orderCount == std::size(orders)) {
        (void)std::fprintf(stderr, "FAILING_CALLS: \"%s\" is no order, or one too many\n", word);
        std::abort();
    }
    orders[orderCount++] = order;
}

[[gnu::constructor]] void begin() {
    const char* const file = std::getenv("FAILING_CALLS_REPORT");
    if (file == nullptr)
        return; // a process that another one has started
    char words[512] = "";
    if (const char* const given = std::getenv("FAILING_CALLS"))
        (void)std::snprintf(words, sizeof words, "%s", given);
    for (char* word = std::strtok(words, " "); word != nullptr; word = std::strtok(nullptr, " "))
        take(word);
    // What it starts is another matter.
    (void)::unsetenv("FAILING_CALLS_REPORT");
    const int descriptor = ::open(file, O_RDWR | O_CLOEXEC);
    void* const memory =
        ::mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    (void)::close(descriptor);
    if (memory == MAP_FAILED) {
        (void)std::fprintf(stderr, "FAILING_CALLS_REPORT: %s: %s\n", file, std::strerror(errno));
        std::abort();
    }
    redirectCallsOfOurs();
    liveBlocks = 0;
    static_cast<Report*>(memory)->blocksAtEnd = -1;
    report = static_cast<Report*>(memory);
}

/// After all that the program itself destroys.
[[gnu::destructor]] void end() {
    if (report != nullptr)
        report->blocksAtEnd = liveBlocks;
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
    return isAllocationToFail(__builtin_return_address(0)) ? nullptr : counted(__libc_malloc(size));
}

void* calloc(std::size_t count, std::size_t size) {
    return isAllocationToFail(__builtin_return_address(0)) ? nullptr
                                                           : counted(__libc_calloc(count, size));
}

void* realloc(void* memory, std::size_t size) {
    if (isAllocationToFail(__builtin_return_address(0)))
        return nullptr;
    void* const resized = __libc_realloc(memory, size);
    if (memory == nullptr)
        return counted(resized);
    if (resized == nullptr && size == 0)
        --liveBlocks;
    return resized;
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
    return isAllocationToFail(__builtin_return_address(0))
               ? nullptr
               : counted(__libc_memalign(alignment, size));
}

int posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
    if (isAllocationToFail(__builtin_return_address(0)))
        return ENOMEM;
    *memory = counted(__libc_memalign(alignment, size));
    return *memory == nullptr ? ENOMEM : 0;
}

void free(void* memory) {
    if (memory != nullptr)
        --liveBlocks;
    __libc_free(memory);
}

} // extern "C"
