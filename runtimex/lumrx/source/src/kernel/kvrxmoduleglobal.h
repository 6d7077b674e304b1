// The state of the runtime's one KvRxModuleGlobal: its roots.
//
// There is at most one instance, made by InitializeKvRxSystem and freed by
// UninitializeKvRxSystem. It owns the roots: the three dictionaries, the kernel
// service and the dynamic linker. systemRegistry doesn't own what it holds.
#pragma once

#include "kernel/kvrxpendingclasses.h"
#include "kvrxruntime.h"

#include <cstdarg>

class KvRxKernel;
class KvRxDynamicLinker;

class KvRxModuleGlobalImp final : public KvRxModuleGlobal {
public:
    KvRxDictionary* systemRegistry = nullptr;
    KvRxDictionary* classDictionary = nullptr;
    KvRxDictionary* serviceDictionary = nullptr;
    KvRxKernel* kernelService = nullptr;
    KvRxDynamicLinker* dynamicLinker = nullptr;
    // Beside the class dictionary: its classes still waiting for their parent.
    KvRxPendingClasses pendingClasses;

    // The class registered under `name`, in any case, by the class dictionary's own key
    // index; null for none and for a null or empty name. Every value of the class
    // dictionary is a class.
    KvRxClass* findClass(const char16_t* name) const;

    // The instance, or null before start-up and after shut-down.
    static KvRxModuleGlobalImp* instance();

    // KvRxModuleGlobal::fatalError with its arguments in a list.
    [[noreturn]] static void fatalErrorV(const char16_t* format, va_list args);
};

// A text formatted into a block from _lumMalloc, with `prefix` in front; the caller
// frees it with _lumFree. Null if the format is malformed or no memory is left.
char16_t* kvrxFormatAlloc(const char16_t* prefix, const char16_t* format, va_list args);
