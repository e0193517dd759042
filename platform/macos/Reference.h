#pragma once

// The only place where Objective-C objects are retained and released.

#import <Foundation/Foundation.h>
#include <type_traits>
#include <utility>

#if __has_feature(objc_arc)
#error "The counts are kept by hand here: compile with -fno-objc-arc"
#endif

namespace platform::macos {

/// A pointer to an Objective-C object. Cast Core Foundation objects to their bridged classes first.
template <typename T>
concept ObjectPointer = std::is_pointer_v<T> && std::is_convertible_v<T, id>;

template <ObjectPointer T> class Reference;

/// Takes ownership of a reference that the caller holds: the result of `alloc`, `new`, `copy` and
/// of functions named `Create` or `Copy`.
template <ObjectPointer T> [[nodiscard]] Reference<T> adopt(T object);

/// Retains the object: for every other object that is kept.
template <ObjectPointer T> [[nodiscard]] Reference<T> retain(T object);

/// Owns one reference to an Objective-C object, or nil. Made only by `adopt` or `retain`: a bare
/// pointer does not convert.
///
/// The result of `get` is valid while a reference to the object lives, so `get` does not compile on
/// a temporary.
template <ObjectPointer T> class Reference {
public:
    Reference() = default;
    Reference(const Reference& other) : object_(other.object_) { [object_ retain]; }
    Reference(Reference&& other) noexcept : object_(std::exchange(other.object_, nil)) {}
    ~Reference() { [object_ release]; }

    Reference& operator=(const Reference& other) {
        Reference copied(other);
        std::swap(object_, copied.object_);
        return *this;
    }
    Reference& operator=(Reference&& other) noexcept {
        Reference taken(std::move(other));
        std::swap(object_, taken.object_);
        return *this;
    }

    [[nodiscard]] T get() const& { return object_; }
    [[nodiscard]] T get() const&& = delete;

    /// Gives up ownership: the object is released with the current autorelease pool.
    [[nodiscard]] T autoreleased() && { return [std::exchange(object_, nil) autorelease]; }

    [[nodiscard]] explicit operator bool() const { return object_ != nil; }

private:
    friend Reference adopt<T>(T object);
    friend Reference retain<T>(T object);

    explicit Reference(T counted) : object_(counted) {}

    T object_ = nil;
};

template <ObjectPointer T> Reference<T> adopt(T object) {
    return Reference<T>(object);
}

template <ObjectPointer T> Reference<T> retain(T object) {
    return Reference<T>([object retain]);
}

} // namespace platform::macos
