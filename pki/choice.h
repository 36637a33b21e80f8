// The frame under every CHOICE value of the object model. A value class holds one pointer
// to an implementation object (a discriminant and an untyped owned value); all typed work
// is delegated to a stateless traits singleton that findTraits picks by the discriminant,
// so no copy, assignment or destructor needs a switch over the alternatives.
#pragma once

#include <memory>

namespace Quorvane {
namespace ASN1 {

class ChoiceValueTraits {
public:
    constexpr ChoiceValueTraits() {}
    virtual ~ChoiceValueTraits() {}
    virtual bool isType(unsigned int type) const = 0;
    // A null value is a no-op.
    virtual void deleteValue(void* value) const = 0;
    virtual void* newValue(const void* source) const = 0;
    virtual void copyValue(void* target, const void* source) const = 0;
};

// Alternative N stored as a T; N is the discriminant of the generated structure. The only
// objects are the `instance` members made in choice.cpp for the table there, constant
// initialised so that they are ready before any other static initialiser runs.
// ChoiceValueTraitsT<void*, 0> is the empty alternative: its stored type is a pointer word,
// and its newValue reads that word through `source`.
template <class T, unsigned int N>
class ChoiceValueTraitsT : public ChoiceValueTraits {
    constexpr ChoiceValueTraitsT() {}

public:
    bool isType(unsigned int type) const override { return type == N; }
    void deleteValue(void* value) const override { delete static_cast<T*>(value); }
    void* newValue(const void* source) const override { return new T(*static_cast<const T*>(source)); }
    void copyValue(void* target, const void* source) const override {
        *static_cast<T*>(target) = *static_cast<const T*>(source);
    }

    static const ChoiceValueTraitsT instance;
};

// Copying a choice that is still empty hands the null value of its source here: the copy
// is empty too, where reading the word through null would fault.
template <>
inline void* ChoiceValueTraitsT<void*, 0>::newValue(const void* source) const {
    return source == nullptr ? nullptr : new void*(*static_cast<void* const*>(source));
}

typedef ChoiceValueTraitsT<void*, 0> EmptyChoiceTraits;

// Base of the implementation objects. Empty: type 0 and a null value.
class Choice {
public:
    Choice() : m_type(0), m_value(nullptr) {}
    virtual ~Choice() {}
    // Never null in the four classes below; unknown types give the empty alternative.
    virtual const ChoiceValueTraits* findTraits(unsigned int type) const = 0;

    unsigned int m_type;
    void* m_value;

private:
    Choice(const Choice&) = delete;
    Choice& operator=(const Choice&) = delete;
};

// Each derived destructor hands its value to the traits of its type; a throwing
// deleteValue ends the program.
class CGeneralNameImpl : public Choice {
public:
    ~CGeneralNameImpl() override;
    const ChoiceValueTraits* findTraits(unsigned int type) const override;
};

class CTimeChoiceImpl : public Choice {
public:
    ~CTimeChoiceImpl() override;
    const ChoiceValueTraits* findTraits(unsigned int type) const override;
};

class COtherHashImpl : public Choice {
public:
    ~COtherHashImpl() override;
    const ChoiceValueTraits* findTraits(unsigned int type) const override;
};

class CDistributionPointNameImpl : public Choice {
public:
    ~CDistributionPointNameImpl() override;
    const ChoiceValueTraits* findTraits(unsigned int type) const override;
};

// The put step of alternative `type` from the value at `source`. The old value is deleted
// before the new one is made: an exception from newValue leaves m_value dangling.
void choicePut(Choice& impl, unsigned int type, const void* source);

// The copy step: a fresh implementation object put from the source's own value. A source
// still empty (type 0, null value) is read through its null pointer.
template <class Impl>
Impl* choiceCopy(const Impl& source) {
    std::unique_ptr<Impl> fresh(new Impl);
    choicePut(*fresh, source.m_type, source.m_value);
    return fresh.release();
}

// operator= of a choice value: nothing for the same implementation object, otherwise the
// old one goes and a copy replaces it, which also revives a clear()ed target.
template <class Impl>
void choiceAssign(Impl*& target, const Impl* source) {
    if (target == source)
        return;
    delete target;
    target = nullptr;
    target = choiceCopy(*source);
}

// The stored value when the discriminant is `type`, else null.
template <class T>
const T* choiceGet(const Choice& impl, unsigned int type) {
    return impl.m_type == type ? static_cast<const T*>(impl.m_value) : nullptr;
}

}  // namespace ASN1
}  // namespace Quorvane
