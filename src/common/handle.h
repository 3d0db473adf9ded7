// Owners of what C interfaces hand out.
#pragma once

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "platform/vemocore.h"

namespace flashcache {

// Owns one C object and releases it with `Release`, errno kept. Unlike std::unique_ptr it lends its
// address to the calls that make or replace the object.
template <class Object, auto Release>
class Handle {
  public:
    explicit Handle(Object* object = nullptr) noexcept : object_(object) {}
    Handle(Handle&& other) noexcept : object_(other.release()) {}
    Handle& operator=(Handle&& other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle() {
        if (object_ != nullptr) {
            const int callersErrno = errno;
            Release(object_);
            errno = callersErrno;
        }
    }

    Object* get() const noexcept { return object_; }
    Object* operator->() const noexcept { return object_; }
    Object** address() noexcept { return &object_; }
    Object* release() noexcept { return std::exchange(object_, nullptr); }
    explicit operator bool() const noexcept { return object_ != nullptr; }

  private:
    Object* object_;
};

using StringList = Handle<VLIBC_SZLIST, VLIBCSzListFree>;
using StringHash = Handle<VLIBC_SZHASH, VLIBCSzHashFree>;
using File = Handle<std::FILE, std::fclose>;
// A running program whose output we read; closing it waits for its end.
using ChildStream = Handle<std::FILE, VLIBCPclose>;
// A text that C callers release with free().
using Text = Handle<char, std::free>;

// A copy of `text` for a C record. Throws std::bad_alloc.
inline Text CopyText(const char* text) {
    Text copy(strdup(text));
    if (!copy) {
        throw std::bad_alloc();
    }
    return copy;
}

}  // namespace flashcache
