// The string managers, the heap wrapper and the string proxies.
#include "core/strings.h"

#include <climits>
#include <cstdlib>
#include <new>

namespace ATL {

static_assert(sizeof(CNilStringData) == sizeof(CStringData) + 2 * sizeof(wchar_t), "nil record");

void* CCRTHeap::Allocate(size_t nBytes) noexcept { return std::malloc(nBytes); }

void CCRTHeap::Free(void* p) noexcept { std::free(p); }

void* CCRTHeap::Reallocate(void* p, size_t nBytes) noexcept { return std::realloc(p, nBytes); }

size_t CCRTHeap::GetSize(void*) noexcept {
    // The C heap keeps no sizes it would tell; asking is a programming error that ends
    // the process from inside this no-throw function.
    AtlThrowImpl(E_FAIL);
}

namespace {

// Bytes for nChars characters, rounded up to a multiple of 8 with room for the
// terminator; false when the count or the byte size does not fit.
bool StringBlockSize(int nChars, int nCharSize, int& nAllocLength, size_t& nBytes) {
    if (nChars < 0 || nCharSize <= 0)
        return false;
    const int64_t rounded = (static_cast<int64_t>(nChars) + 8) & ~int64_t(7);
    if (rounded - 1 > INT_MAX)
        return false;
    const uint64_t total = static_cast<uint64_t>(rounded) * static_cast<uint64_t>(nCharSize) + sizeof(CStringData);
    if (total > static_cast<uint64_t>(PTRDIFF_MAX))
        return false;
    nAllocLength = static_cast<int>(rounded - 1);
    nBytes = static_cast<size_t>(total);
    return true;
}

}  // namespace

CStringData* CAtlStringMgr::Allocate(int nChars, int nCharSize) noexcept {
    int nAllocLength;
    size_t nBytes;
    if (!StringBlockSize(nChars, nCharSize, nAllocLength, nBytes))
        return nullptr;
    auto* pData = static_cast<CStringData*>(m_pMemMgr->Allocate(nBytes));
    if (pData == nullptr)
        return nullptr;
    pData->pStringMgr = this;
    pData->nRefs = 1;
    pData->nAllocLength = nAllocLength;
    pData->nDataLength = 0;
    return pData;
}

void CAtlStringMgr::Free(CStringData* pData) noexcept { m_pMemMgr->Free(pData); }

CStringData* CAtlStringMgr::Reallocate(CStringData* pData, int nChars, int nCharSize) noexcept {
    int nAllocLength;
    size_t nBytes;
    if (!StringBlockSize(nChars, nCharSize, nAllocLength, nBytes))
        return nullptr;
    auto* pNewData = static_cast<CStringData*>(m_pMemMgr->Reallocate(pData, nBytes));
    if (pNewData == nullptr)
        return nullptr;
    pNewData->nAllocLength = nAllocLength;
    return pNewData;
}

CStringData* CAtlStringMgr::GetNilString() noexcept {
    m_nil.AddRef();
    return &m_nil;
}

IAtlStringMgr* CAtlStringMgr::Clone() noexcept { return this; }

namespace {
CCRTHeap s_defaultHeap;
}

// Both objects are constant-initialised: usable from any static initialiser, in any order.
CAtlStringMgr g_defaultStrMgr(&s_defaultHeap);

IFixedStringLog* CFixedStringMgr::s_pLog = nullptr;

}  // namespace ATL

namespace ATL2 {
template class CTempBufferEx<char, 128>;
template class CTempBufferEx<char, 256>;
}  // namespace ATL2

namespace Quorvane {

CStringProxy::CStringProxy(const char* psz) : m_pString(new std::string(psz ? psz : "")) {}

CStringProxy::CStringProxy(const CStringProxy& other) : m_pString(new std::string(*other.m_pString)) {}

CStringProxy& CStringProxy::operator=(const CStringProxy& other) {
    *m_pString = *other.m_pString;
    return *this;
}

CStringProxy::~CStringProxy() { delete m_pString; }

const char* CStringProxy::c_str() const { return m_pString->c_str(); }

CWStringProxy::CWStringProxy(const wchar_t* psz) : m_pString(new std::wstring(psz ? psz : L"")) {}

CWStringProxy::CWStringProxy(const CWStringProxy& other)
    : m_pString(new std::wstring(*other.m_pString)) {}

CWStringProxy& CWStringProxy::operator=(const CWStringProxy& other) {
    *m_pString = *other.m_pString;
    return *this;
}

CWStringProxy::~CWStringProxy() { delete m_pString; }

const wchar_t* CWStringProxy::c_str() const { return m_pString->c_str(); }

}  // namespace Quorvane
