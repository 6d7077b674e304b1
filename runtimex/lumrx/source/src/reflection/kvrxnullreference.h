#pragma once

// The fixed null references of the reflection surface (types, sentinels, attribute
// collections, variable names and values). Binding a reference to null is what the
// sanitizer's null check reports, and the check runs wherever a reference is bound:
// in the helper that makes one and again in every function that returns it. Each of
// them carries KVRX_GIVES_NULL_REFERENCE, which turns that one check off for it alone,
// so that a host built with the sanitizer can call the whole surface.
#define KVRX_GIVES_NULL_REFERENCE __attribute__((no_sanitize("null")))

template <class T>
KVRX_GIVES_NULL_REFERENCE T& kvrxNullReference() {
    return *static_cast<T*>(nullptr);
}
