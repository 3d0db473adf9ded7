// The boundary between our C++ and the C callers.
#pragma once

#include <exception>

#include "common/log.h"

namespace flashcache {

// Runs an exported function's body; whatever it throws (allocation failure, above all) becomes the
// function's failure result.
template <class Result, class Body>
Result Guarded(Result failure, Body body, Where where = Where::current()) noexcept {
    try {
        return body();
    } catch (const std::exception& error) {
        LogError(where)("%s", error.what());
    } catch (...) {
        LogError(where)("unknown exception");
    }
    return failure;
}

}  // namespace flashcache
