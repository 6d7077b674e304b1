// System variables: the dictionary of variables, one variable, and the arguments of
// their change events.
//
// Inert: the dictionary is never there (get() gives null), every getter gives its
// fixed result whatever the default argument, every setter status 1. The classes have
// no state at all; their private constructors from an implementation pointer store
// nothing. Nothing here allocates.
#pragma once

#include "kvarray.h"
#include "kvore.h"
#include "kvstring.h"

struct resbuf;
class KvRxVariableImp;
class KvRxVariablesDictionaryImp;
class KvRxVariableChangedEventArgsImp;
class KvRxVariableChangingEventArgsImp;
class KvRxVariableReactor;
class KvRxVariablesDictionaryReactor;
typedef KvArray<KvString, KvArrayObjectCopyReallocator<KvString>> KvStringArray;

class KvRxVariable {
public:
    enum StorageType { kStorageSession = 0, kStorageUser = 1, kStorageProfile = 2, kStorageDatabase = 3 };
    class Range;

    const char16_t* name() const;
    const Range* range() const;
    short primaryType() const;
    short secondaryType() const;
    unsigned typeFlags() const;
    StorageType storageType() const;
    bool isLocked() const;
    bool isReadOnly(KvString* note = nullptr) const;
    Kvore::ErrorStatus getValue(resbuf& value) const;
    Kvore::ErrorStatus setValue(const resbuf& value);
    Kvore::ErrorStatus setIsReadOnly(bool readOnly, const KvString* note = nullptr);
    Kvore::ErrorStatus reset();
    void addReactor(KvRxVariableReactor* reactor);
    void removeReactor(KvRxVariableReactor* reactor);

private:
    explicit KvRxVariable(KvRxVariableImp* imp);
};

class KvRxVariablesDictionary {
public:
    static KvRxVariablesDictionary* get();
    const KvRxVariable* getVariable(const char16_t* name) const;
    // A null reference.
    const KvStringArray& getAllNames() const;

    static bool getBool(const char16_t* name, bool defaultValue);
    static bool getBool(const KvRxVariable& variable, bool defaultValue);
    static short getInt16(const char16_t* name, short defaultValue);
    static short getInt16(const KvRxVariable& variable, short defaultValue);
    static double getDouble(const char16_t* name, double defaultValue);
    static double getDouble(const KvRxVariable& variable, double defaultValue);
    static KvString getString(const char16_t* name);
    static KvString getString(const KvRxVariable& variable);
    static Kvore::ErrorStatus setBool(const char16_t* name, bool value);
    static Kvore::ErrorStatus setBool(const KvRxVariable& variable, bool value);
    static Kvore::ErrorStatus setInt16(const char16_t* name, short value);
    static Kvore::ErrorStatus setInt16(const KvRxVariable& variable, short value);
    static Kvore::ErrorStatus setDouble(const char16_t* name, double value);
    static Kvore::ErrorStatus setDouble(const KvRxVariable& variable, double value);
    static Kvore::ErrorStatus setString(const char16_t* name, const char16_t* value);
    static Kvore::ErrorStatus setString(const KvRxVariable& variable, const char16_t* value);

    Kvore::ErrorStatus reset(KvRxVariable::StorageType storageType);
    void addReactor(KvRxVariablesDictionaryReactor* reactor);
    void removeReactor(KvRxVariablesDictionaryReactor* reactor);

private:
    explicit KvRxVariablesDictionary(KvRxVariablesDictionaryImp* imp);
};

class KvRxVariableChangedEventArgs {
public:
    // Null references.
    const resbuf& newValue() const;
    const resbuf& oldValue() const;

private:
    explicit KvRxVariableChangedEventArgs(KvRxVariableChangedEventArgsImp* imp);
};

class KvRxVariableChangingEventArgs {
public:
    bool isResetting() const;
    Kvore::ErrorStatus setNewValue(const resbuf* value);
    void veto(const char16_t* reason);

private:
    explicit KvRxVariableChangingEventArgs(KvRxVariableChangingEventArgsImp* imp);
};
