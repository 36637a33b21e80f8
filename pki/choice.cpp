#include "pki/choice.h"

#include "core/exception.h"
#include "pki/cert_id.h"
#include "pki/general_name.h"

#include <string>

namespace Quorvane {
namespace ASN1 {

template <class T, unsigned int N>
const ChoiceValueTraitsT<T, N> ChoiceValueTraitsT<T, N>::instance;

// The table of alternatives: these twelve singletons are all there are.
template class ChoiceValueTraitsT<void*, 0>;
template class ChoiceValueTraitsT<std::wstring, 2>;                // rfc822Name
template class ChoiceValueTraitsT<std::wstring, 3>;                // dNSName
template class ChoiceValueTraitsT<CBlob, 5>;                       // directoryName, encoded Name
template class ChoiceValueTraitsT<std::wstring, 7>;                // uniformResourceIdentifier
template class ChoiceValueTraitsT<CBlob, 8>;                       // iPAddress
template class ChoiceValueTraitsT<std::wstring, 9>;                // registeredID, dotted text
template class ChoiceValueTraitsT<CBlob, 1>;                       // sha1Hash
template class ChoiceValueTraitsT<COtherHashAlgAndValue, 2>;       // otherHash
template class ChoiceValueTraitsT<CGeneralNames, 1>;               // fullName
template class ChoiceValueTraitsT<CDateTime, 1>;                   // utcTime
template class ChoiceValueTraitsT<CDateTime, 2>;                   // generalTime

namespace {

// GeneralName types 2 to 9; otherName, x400Address and ediPartyName have no model.
const ChoiceValueTraits* const kGeneralNameTraits[8] = {
    &ChoiceValueTraitsT<std::wstring, 2>::instance, &ChoiceValueTraitsT<std::wstring, 3>::instance,
    &EmptyChoiceTraits::instance,                    &ChoiceValueTraitsT<CBlob, 5>::instance,
    &EmptyChoiceTraits::instance,                    &ChoiceValueTraitsT<std::wstring, 7>::instance,
    &ChoiceValueTraitsT<CBlob, 8>::instance,        &ChoiceValueTraitsT<std::wstring, 9>::instance,
};

}  // namespace

CGeneralNameImpl::~CGeneralNameImpl() { findTraits(m_type)->deleteValue(m_value); }

const ChoiceValueTraits* CGeneralNameImpl::findTraits(unsigned int type) const {
    if (type >= 2 && type <= 9)
        return kGeneralNameTraits[type - 2];
    return &EmptyChoiceTraits::instance;
}

CTimeChoiceImpl::~CTimeChoiceImpl() { findTraits(m_type)->deleteValue(m_value); }

const ChoiceValueTraits* CTimeChoiceImpl::findTraits(unsigned int type) const {
    switch (type) {
    case 1:
        return &ChoiceValueTraitsT<CDateTime, 1>::instance;
    case 2:
        return &ChoiceValueTraitsT<CDateTime, 2>::instance;
    default:
        return &EmptyChoiceTraits::instance;
    }
}

COtherHashImpl::~COtherHashImpl() { findTraits(m_type)->deleteValue(m_value); }

const ChoiceValueTraits* COtherHashImpl::findTraits(unsigned int type) const {
    switch (type) {
    case 1:
        return &ChoiceValueTraitsT<CBlob, 1>::instance;
    case 2:
        return &ChoiceValueTraitsT<COtherHashAlgAndValue, 2>::instance;
    default:
        return &EmptyChoiceTraits::instance;
    }
}

CDistributionPointNameImpl::~CDistributionPointNameImpl() { findTraits(m_type)->deleteValue(m_value); }

const ChoiceValueTraits* CDistributionPointNameImpl::findTraits(unsigned int type) const {
    // nameRelativeToCRLIssuer has no model.
    if (type == 1)
        return &ChoiceValueTraitsT<CGeneralNames, 1>::instance;
    return &EmptyChoiceTraits::instance;
}

void choicePut(Choice& impl, unsigned int type, const void* source) {
    const ChoiceValueTraits* oldTraits = impl.findTraits(impl.m_type);
    const ChoiceValueTraits* newTraits = impl.findTraits(type);
    if (newTraits == nullptr)
        ATL::AtlThrowImpl(E_INVALIDARG);
    oldTraits->deleteValue(impl.m_value);
    impl.m_value = newTraits->newValue(source);
    impl.m_type = type;
}

}  // namespace ASN1
}  // namespace Quorvane
