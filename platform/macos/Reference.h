#pragma once

// The one place where objects of the platform are retained and released.

#import <Foundation/Foundation.h>
#include <type_traits>
#include <utility>

#if __has_feature(objc_arc)
#error "The counts are kept by hand here: compile with -fno-objc-arc"
#endif

namespace platform::macos {

/// What can be counted: a pointer to an Objective-C object. Core Foundation objects are cast to
/// their bridged classes first.
template <typename T>
concept ObjectPointer = std::is_pointer_v<T> && std::is_convertible_v<T, id>;

template <ObjectPointer T> class Reference;

/// Takes over a count that the caller holds: what `alloc`, `new`, `copy` and functions named
/// `Create` or `Copy` give.
template <ObjectPointer T> [[nodiscard]] Reference<T> adopt(T object);

/// Adds a count of its own: for everything else that is to be kept.
template <ObjectPointer T> [[nodiscard]] Reference<T> retain(T object);

/// One counted reference to an object of the platform, or to nil. Which of `adopt` and `retain` is
/// meant has to be said: there is no conversion from a bare pointer.
///
/// `get` gives the object for as long as a reference to it lives, so it is refused on a temporary.
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

    /// The object for a caller that is not to own it: released when the present pool is drained.
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
