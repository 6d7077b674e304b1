#include "kvrxvariable.h"

#include "kvrxnullreference.h"

namespace {

constexpr Kvore::ErrorStatus kNotImplemented = Kvore::eNotImplemented;


}  // namespace

KvRxVariable::KvRxVariable(KvRxVariableImp*) {}
const char16_t* KvRxVariable::name() const { return nullptr; }
const KvRxVariable::Range* KvRxVariable::range() const { return nullptr; }
short KvRxVariable::primaryType() const { return 0; }
short KvRxVariable::secondaryType() const { return 5; }
unsigned KvRxVariable::typeFlags() const { return 0; }
KvRxVariable::StorageType KvRxVariable::storageType() const { return kStorageDatabase; }
bool KvRxVariable::isLocked() const { return false; }
bool KvRxVariable::isReadOnly(KvString*) const { return false; }
Kvore::ErrorStatus KvRxVariable::getValue(resbuf&) const { return kNotImplemented; }
Kvore::ErrorStatus KvRxVariable::setValue(const resbuf&) { return kNotImplemented; }
Kvore::ErrorStatus KvRxVariable::setIsReadOnly(bool, const KvString*) { return kNotImplemented; }
Kvore::ErrorStatus KvRxVariable::reset() { return kNotImplemented; }
void KvRxVariable::addReactor(KvRxVariableReactor*) {}
void KvRxVariable::removeReactor(KvRxVariableReactor*) {}

KvRxVariablesDictionary::KvRxVariablesDictionary(KvRxVariablesDictionaryImp*) {}
KvRxVariablesDictionary* KvRxVariablesDictionary::get() { return nullptr; }
const KvRxVariable* KvRxVariablesDictionary::getVariable(const char16_t*) const { return nullptr; }
KVRX_GIVES_NULL_REFERENCE const KvStringArray& KvRxVariablesDictionary::getAllNames() const {
    return kvrxNullReference<const KvStringArray>();
}
bool KvRxVariablesDictionary::getBool(const char16_t*, bool) { return false; }
bool KvRxVariablesDictionary::getBool(const KvRxVariable&, bool) { return false; }
short KvRxVariablesDictionary::getInt16(const char16_t*, short) { return 0; }
short KvRxVariablesDictionary::getInt16(const KvRxVariable&, short) { return 0; }
double KvRxVariablesDictionary::getDouble(const char16_t*, double) { return 0.0; }
double KvRxVariablesDictionary::getDouble(const KvRxVariable&, double) { return 0.0; }
KvString KvRxVariablesDictionary::getString(const char16_t*) { return KvString(); }
KvString KvRxVariablesDictionary::getString(const KvRxVariable&) { return KvString(); }
Kvore::ErrorStatus KvRxVariablesDictionary::setBool(const char16_t*, bool) { return kNotImplemented; }
Kvore::ErrorStatus KvRxVariablesDictionary::setBool(const KvRxVariable&, bool) { return kNotImplemented; }
Kvore::ErrorStatus KvRxVariablesDictionary::setInt16(const char16_t*, short) { return kNotImplemented; }
Kvore::ErrorStatus KvRxVariablesDictionary::setInt16(const KvRxVariable&, short) { return kNotImplemented; }
Kvore::ErrorStatus KvRxVariablesDictionary::setDouble(const char16_t*, double) { return kNotImplemented; }
Kvore::ErrorStatus KvRxVariablesDictionary::setDouble(const KvRxVariable&, double) { return kNotImplemented; }
Kvore::ErrorStatus KvRxVariablesDictionary::setString(const char16_t*, const char16_t*) {
    return kNotImplemented;
}
Kvore::ErrorStatus KvRxVariablesDictionary::setString(const KvRxVariable&, const char16_t*) {
    return kNotImplemented;
}
Kvore::ErrorStatus KvRxVariablesDictionary::reset(KvRxVariable::StorageType) { return kNotImplemented; }
void KvRxVariablesDictionary::addReactor(KvRxVariablesDictionaryReactor*) {}
void KvRxVariablesDictionary::removeReactor(KvRxVariablesDictionaryReactor*) {}

KvRxVariableChangedEventArgs::KvRxVariableChangedEventArgs(KvRxVariableChangedEventArgsImp*) {}
KVRX_GIVES_NULL_REFERENCE const resbuf& KvRxVariableChangedEventArgs::newValue() const {
    return kvrxNullReference<const resbuf>();
}
KVRX_GIVES_NULL_REFERENCE const resbuf& KvRxVariableChangedEventArgs::oldValue() const {
    return kvrxNullReference<const resbuf>();
}

KvRxVariableChangingEventArgs::KvRxVariableChangingEventArgs(KvRxVariableChangingEventArgsImp*) {}
bool KvRxVariableChangingEventArgs::isResetting() const { return false; }
Kvore::ErrorStatus KvRxVariableChangingEventArgs::setNewValue(const resbuf*) { return kNotImplemented; }
void KvRxVariableChangingEventArgs::veto(const char16_t*) {}
