// The holder of the runtime's roots and its fatal paths.
//
// There is at most one instance, made by InitializeKvRxSystem and freed by
// UninitializeKvRxSystem. It owns the roots: the three dictionaries, the kernel
// service and the dynamic linker. systemRegistry doesn't own what it holds.
#pragma once

#include "kvrxruntime.h"

#include <cstdarg>

class KvRxKernel;
class KvRxDynamicLinker;

class KvRxModuleGlobal {
public:
    KvRxDictionary* systemRegistry = nullptr;
    KvRxDictionary* classDictionary = nullptr;
    KvRxDictionary* serviceDictionary = nullptr;
    KvRxKernel* kernelService = nullptr;
    KvRxDynamicLinker* dynamicLinker = nullptr;

    // The instance, or null before start-up and after shut-down.
    static KvRxModuleGlobal* GetInstance();

    // Formats the message, reports the exception to the crash recorder and throws it as
    // a LumExceptionWithMsg*. A null format gives "Error abort!".
    [[noreturn]] static void fatalError(const char16_t* format, ...);
    [[noreturn]] static void fatalErrorV(const char16_t* format, va_list args);
    // fatalError for an object of the wrong class (status 46).
    [[noreturn]] static void fatalStatus();
};

// A text formatted into a block from _lumMalloc, with `prefix` in front; the caller
// frees it with _lumFree. Null if the format is malformed or no memory is left.
char16_t* kvrxFormatAlloc(const char16_t* prefix, const char16_t* format, va_list args);
