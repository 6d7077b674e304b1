#include "kvrxoverrule.h"

#include "kernel/kvrximpclass.h"
#include "kvrxruntime.h"

#include <memory>

KVRX_DEFINE_MEMBERS(KvRxOverrule, u"OvRxOverrule", u"OvRxObject");
KVRX_DEFINE_MEMBERS(KvRxQueryXOverrule, u"OvRxGenHand", u"OvRxObject");

namespace {

// Not synchronised: the switch is read and written on the host's main thread.
bool gIsOverruling = true;

// Registered names of the family classes, by family index.
const char16_t* const kFamilyNames[kOverruleFamilyCount] = {
    u"OvGiDrawableOverrule",   u"OvDbObjectOverrule",         u"OvDbPropertiesOverrule",
    u"OvDbGeometryOverrule",   u"OvDbHighlightOverrule",      u"OvDbHighlightStateOverrule",
    u"OvDbSubentityOverrule",  u"OvDbGripOverrule",           u"OvDbTransformOverrule",
    u"OvDbOsnapOverrule",      u"OvDbDimensionStyleOverrule", u"OvDbVisibilityOverrule",
};

// The class of `cls`'s line that stands directly below "OvRxOverrule", or null: one
// look at the line, which holds "OvRxOverrule" at its own depth if it passes there.
KvRxClass* familyClassOf(KvRxClass* cls) {
    // desc() answers from gpDesc once it is known; read it here without the call.
    KvRxClass* overruleRoot = KvRxOverrule::gpDesc ? KvRxOverrule::gpDesc : KvRxOverrule::desc();
    const KvRxClassState* state = KvRxClassState::of(cls);
    if (!overruleRoot || !state) return nullptr;
    const KvRxClassAncestry& line = state->ancestry();
    int below = KvRxClassState::of(overruleRoot)->ancestry().depth() + 1;
    if (below > line.depth() || line.at(below - 1) != overruleRoot) return nullptr;
    return const_cast<KvRxClass*>(line.at(below));
}

int familyOfName(const char16_t* name) {
    for (int family = 0; family < kOverruleFamilyCount; ++family)
        if (LumCharOp::compare(name, kFamilyNames[family]) == 0) return family;
    return kOverruleFamilyCount;
}

// The family class's name decides; each class keeps the answer for its own name.
int familyIndexOf(const KvRxClass* familyClass) {
    if (!familyClass) return kOverruleFamilyCount;
    return KvRxClassState::of(familyClass)->nameFamily(&familyOfName);
}

// Out of line: it runs once per line, and inlined it would make every caller save
// registers for it.
[[gnu::noinline]] int familyOfLine(KvRxClass* cls) { return familyIndexOf(familyClassOf(cls)); }

// Each class keeps the family of its line until the line is made anew.
int familyOf(KvRxClass* cls) {
    const KvRxClassState* state = KvRxClassState::of(cls);
    return state ? state->lineFamily(&familyOfLine) : kOverruleFamilyCount;
}

// Calls `visit` with the implementation of every registered class derived from
// `target`, the target included. False if there is no class dictionary.
template <class Visit>
bool forEachClassBelow(const KvRxClass* target, Visit visit) {
    KvRxDictionary* registry = kvrxSysRegistry();
    KvRxDictionary* classes =
        registry ? KvRxDictionary::cast(registry->at(u"ClassDictionary")) : nullptr;
    if (!classes) return false;
    std::unique_ptr<KvRxDictionaryIterator> it(classes->newIterator());
    for (; !it->done(); it->next()) {
        KvRxClass* c = kvrxClassValue(it->object());
        if (c->isDerivedFrom(target)) visit(KvRxClassState::of(c));
    }
    return true;
}

}  // namespace

Kvore::ErrorStatus KvRxOverrule::addOverrule(KvRxClass* target, KvRxOverrule* overrule,
                                             bool addAtEnd) {
    if (!target || !overrule) return Kvore::eInvalidInput;
    KvRxClass* familyClass = familyClassOf(overrule->isA());
    if (!familyClass) return Kvore::eInvalidInput;
    int family = familyIndexOf(familyClass);
    if (family == kOverruleFamilyCount) return Kvore::eOk;
    bool walked = forEachClassBelow(target, [&](KvRxClassState* impl) {
        impl->addOverruleNode(family, overrule, addAtEnd);
    });
    return walked ? Kvore::eOk : Kvore::eInvalidInput;
}

Kvore::ErrorStatus KvRxOverrule::removeOverrule(KvRxClass* target, KvRxOverrule* overrule) {
    if (!target || !overrule) return Kvore::eInvalidInput;
    int family = familyOf(overrule->isA());
    if (family == kOverruleFamilyCount) return Kvore::eKeyNotFound;
    bool removed = false;
    forEachClassBelow(target, [&](KvRxClassState* impl) {
        removed = impl->removeOverruleNode(family, overrule) || removed;
    });
    return removed ? Kvore::eOk : Kvore::eKeyNotFound;
}

void KvRxOverrule::setIsOverruling(bool overruling) { gIsOverruling = overruling; }

bool KvRxOverrule::isOverruling() { return gIsOverruling; }

bool KvRxOverrule::hasOverrule(const KvRxObject* subject, KvRxClass* overruleClass) {
    if (!subject || !overruleClass) return false;
    int family = familyOf(overruleClass);
    if (family == kOverruleFamilyCount) return false;
    const KvRxClassState* state = KvRxClassState::of(subject->isA());
    return state && state->overruleList(family) != nullptr;
}

KvRxObject* KvRxQueryXOverrule::queryX(const KvRxObject*, const KvRxClass*) const {
    return nullptr;
}
