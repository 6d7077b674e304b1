// Pimpl::ApiPart<Base, Imp>: a Base part followed by one pointer to an implementation
// object. The reflection classes stand on it. No Imp class exists in this system, so
// the pointer is null unless a caller passes one; it is never owned, never deleted.
#pragma once

namespace Pimpl {

template <class Base, class Imp>
class ApiPart : public Base {
protected:
    ApiPart() : m_imp(nullptr) {}
    explicit ApiPart(Imp* imp) : m_imp(imp) {}
    // The bases copy nothing of their own.
    ApiPart(const ApiPart& o) : Base(), m_imp(o.m_imp) {}
    ApiPart& operator=(const ApiPart& o) {
        Base::operator=(o);
        m_imp = o.m_imp;
        return *this;
    }
    ~ApiPart() = default;

private:
    Imp* m_imp;
};

// No base: the part is the pointer alone.
template <class Imp>
class ApiPart<void, Imp> {
protected:
    ApiPart() : m_imp(nullptr) {}
    explicit ApiPart(Imp* imp) : m_imp(imp) {}
    ApiPart(const ApiPart& o) = default;
    ApiPart& operator=(const ApiPart& o) = default;
    ~ApiPart() = default;

private:
    Imp* m_imp;
};

}  // namespace Pimpl
