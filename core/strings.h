// Reference-counted strings with a pluggable manager, the heap wrapper under them, a
// temporary buffer, and the two string proxies that cross the library's boundary.
#pragma once

#include "core/exception.h"
#include "core/export.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace ATL {

class IAtlStringMgr;

// The header in front of every string's characters.
struct CStringData {
    IAtlStringMgr* pStringMgr;
    int nDataLength;   // characters in use
    int nAllocLength;  // room in characters, terminator not counted
    int nRefs;         // changed only atomically; below 0: locked

    void* data() noexcept { return this + 1; }

    void AddRef() noexcept { __atomic_fetch_add(&nRefs, 1, __ATOMIC_RELAXED); }
    inline void Release() noexcept;
    int Refs() const noexcept { return __atomic_load_n(&nRefs, __ATOMIC_ACQUIRE); }
    bool IsLocked() const noexcept { return Refs() < 0; }
    bool IsShared() const noexcept { return Refs() > 1; }
    // Only an unshared string is locked: its count goes from 1 to -1 and back.
    void Lock() noexcept {
        if (__atomic_sub_fetch(&nRefs, 1, __ATOMIC_ACQ_REL) == 0)
            __atomic_store_n(&nRefs, -1, __ATOMIC_RELEASE);
    }
    void Unlock() noexcept {
        if (IsLocked() && __atomic_add_fetch(&nRefs, 1, __ATOMIC_ACQ_REL) == 0)
            __atomic_store_n(&nRefs, 1, __ATOMIC_RELEASE);
    }
};

#if UINTPTR_MAX == 0xFFFFFFFFu
static_assert(sizeof(CStringData) == 16, "CStringData");
#else
static_assert(sizeof(CStringData) == 24, "CStringData");
#endif

class IAtlMemMgr {
public:
    virtual void* Allocate(size_t nBytes) noexcept = 0;
    virtual void Free(void* p) noexcept = 0;
    virtual void* Reallocate(void* p, size_t nBytes) noexcept = 0;
    virtual size_t GetSize(void* p) noexcept = 0;
};

// The C heap behind the interface. The heap cannot tell a block's size.
class CHAINVET_API CCRTHeap : public IAtlMemMgr {
public:
    constexpr CCRTHeap() noexcept {}
    void* Allocate(size_t nBytes) noexcept override;
    void Free(void* p) noexcept override;
    void* Reallocate(void* p, size_t nBytes) noexcept override;
    size_t GetSize(void* p) noexcept override;
};

class IAtlStringMgr {
public:
    virtual CStringData* Allocate(int nChars, int nCharSize) noexcept = 0;
    virtual void Free(CStringData* pData) noexcept = 0;
    virtual CStringData* Reallocate(CStringData* pData, int nChars, int nCharSize) noexcept = 0;
    virtual CStringData* GetNilString() noexcept = 0;
    virtual IAtlStringMgr* Clone() noexcept = 0;
};

inline void CStringData::Release() noexcept {
    if (__atomic_fetch_sub(&nRefs, 1, __ATOMIC_ACQ_REL) < 2)
        pStringMgr->Free(this);
}

// The shared empty string of a manager: never freed, since its count starts at 2.
struct CNilStringData : CStringData {
    wchar_t achNil[2];
};

class CHAINVET_API CAtlStringMgr : public IAtlStringMgr {
public:
    // Constant-initialised, so the default manager is ready before any static
    // initialiser of another translation unit runs.
    constexpr explicit CAtlStringMgr(IAtlMemMgr* pMemMgr = nullptr) noexcept
        : m_pMemMgr(pMemMgr), m_nil{{this, 0, 0, 2}, {0, 0}} {}
    CAtlStringMgr(const CAtlStringMgr&) = delete;
    CAtlStringMgr& operator=(const CAtlStringMgr&) = delete;

    void SetMemoryManager(IAtlMemMgr* pMemMgr) noexcept { m_pMemMgr = pMemMgr; }
    IAtlMemMgr* GetMemoryManager() const noexcept { return m_pMemMgr; }

    CStringData* Allocate(int nChars, int nCharSize) noexcept override;
    void Free(CStringData* pData) noexcept override;
    CStringData* Reallocate(CStringData* pData, int nChars, int nCharSize) noexcept override;
    CStringData* GetNilString() noexcept override;
    IAtlStringMgr* Clone() noexcept override;

protected:
    IAtlMemMgr* m_pMemMgr;
    CNilStringData m_nil;
};

// The process-wide manager over the C heap.
CHAINVET_API extern CAtlStringMgr g_defaultStrMgr;

class IFixedStringLog;
class CHAINVET_API CFixedStringMgr {
public:
    static IFixedStringLog* s_pLog;  // kept for callers that look it up; always null
};

template <typename BaseType, bool t_bMFCDLL = false>
class CSimpleStringT {
public:
    typedef BaseType XCHAR;
    typedef BaseType* PXSTR;
    typedef const BaseType* PCXSTR;

    explicit CSimpleStringT(IAtlStringMgr* pStringMgr) noexcept { Attach(pStringMgr->GetNilString()); }
    CSimpleStringT(PCXSTR pszSrc, IAtlStringMgr* pStringMgr) {
        Attach(pStringMgr->GetNilString());
        SetString(pszSrc, pszSrc ? StringLength(pszSrc) : 0);
    }
    CSimpleStringT(const XCHAR* pchSrc, int nLength, IAtlStringMgr* pStringMgr) {
        Attach(pStringMgr->GetNilString());
        SetString(pchSrc, nLength);
    }
    CSimpleStringT(const CSimpleStringT& src) { Attach(CloneData(src.GetData())); }
    ~CSimpleStringT() noexcept { GetData()->Release(); }

    CSimpleStringT& operator=(const CSimpleStringT& src) {
        CStringData* pSrcData = src.GetData();
        CStringData* pOldData = GetData();
        if (pSrcData != pOldData) {
            if (pOldData->IsLocked() || pSrcData->pStringMgr != pOldData->pStringMgr) {
                SetString(src.GetString(), src.GetLength());
            } else {
                CStringData* pNewData = CloneData(pSrcData);
                pOldData->Release();
                Attach(pNewData);
            }
        }
        return *this;
    }
    CSimpleStringT& operator=(PCXSTR pszSrc) {
        SetString(pszSrc);
        return *this;
    }
    CSimpleStringT& operator+=(const CSimpleStringT& src) {
        Append(src.GetString(), src.GetLength());
        return *this;
    }
    CSimpleStringT& operator+=(PCXSTR pszSrc) {
        Append(pszSrc, pszSrc ? StringLength(pszSrc) : 0);
        return *this;
    }

    operator PCXSTR() const noexcept { return m_pszData; }
    PCXSTR GetString() const noexcept { return m_pszData; }
    int GetLength() const noexcept { return GetData()->nDataLength; }
    int GetAllocLength() const noexcept { return GetData()->nAllocLength; }
    bool IsEmpty() const noexcept { return GetLength() == 0; }
    IAtlStringMgr* GetManager() const noexcept { return GetData()->pStringMgr->Clone(); }
    XCHAR GetAt(int iChar) const {
        if (iChar < 0 || iChar > GetLength())
            AtlThrowImpl(E_INVALIDARG);
        return m_pszData[iChar];
    }
    void SetAt(int iChar, XCHAR ch) {
        if (iChar < 0 || iChar >= GetLength())
            AtlThrowImpl(E_INVALIDARG);
        int nLength = GetLength();
        PXSTR pszBuffer = GetBuffer();
        pszBuffer[iChar] = ch;
        ReleaseBufferSetLength(nLength);
    }

    void Empty() noexcept {
        CStringData* pOldData = GetData();
        IAtlStringMgr* pStringMgr = pOldData->pStringMgr;
        if (pOldData->nDataLength == 0)
            return;
        if (pOldData->IsLocked()) {
            SetLength(0);
        } else {
            pOldData->Release();
            Attach(pStringMgr->GetNilString());
        }
    }

    void Append(PCXSTR pszSrc, int nLength) {
        if (nLength < 0)
            AtlThrowImpl(E_INVALIDARG);
        if (nLength == 0)
            return;
        if (pszSrc == nullptr)
            AtlThrowImpl(E_INVALIDARG);
        const uintptr_t nOffset = static_cast<uintptr_t>(pszSrc - GetString());
        const int nOldLength = GetLength();
        if (nLength > INT32_MAX - nOldLength)
            ThrowMemoryException();
        const int nNewLength = nOldLength + nLength;
        PXSTR pszBuffer = GetBuffer(nNewLength);
        if (nOffset <= static_cast<uintptr_t>(nOldLength))
            pszSrc = pszBuffer + nOffset;  // the source was part of this string
        std::memmove(pszBuffer + nOldLength, pszSrc, static_cast<size_t>(nLength) * sizeof(XCHAR));
        ReleaseBufferSetLength(nNewLength);
    }

    PXSTR GetBuffer() {
        CStringData* pData = GetData();
        if (pData->IsShared())
            Fork(pData->nDataLength);
        return m_pszData;
    }
    PXSTR GetBuffer(int nMinBufferLength) { return PrepareWrite(nMinBufferLength); }
    PXSTR GetBufferSetLength(int nLength) {
        PXSTR pszBuffer = GetBuffer(nLength);
        SetLength(nLength);
        return pszBuffer;
    }
    void ReleaseBuffer(int nNewLength = -1) {
        if (nNewLength == -1)
            nNewLength = StringLengthN(m_pszData, GetData()->nAllocLength);
        SetLength(nNewLength);
    }
    void ReleaseBufferSetLength(int nNewLength) { SetLength(nNewLength); }
    void Preallocate(int nLength) { PrepareWrite(nLength); }
    void Truncate(int nNewLength) {
        if (nNewLength < 0 || nNewLength > GetLength())
            AtlThrowImpl(E_INVALIDARG);
        GetBuffer(nNewLength);
        ReleaseBufferSetLength(nNewLength);
    }

    PXSTR LockBuffer() {
        CStringData* pData = GetData();
        if (pData->IsShared()) {
            Fork(pData->nDataLength);
            pData = GetData();
        }
        pData->Lock();
        return m_pszData;
    }
    void UnlockBuffer() noexcept { GetData()->Unlock(); }

    void SetString(PCXSTR pszSrc) { SetString(pszSrc, pszSrc ? StringLength(pszSrc) : 0); }

    // The source may lie inside this string: its distance from the characters is taken
    // before any reallocation, and the copy then reads from the new buffer.
    void SetString(PCXSTR pszSrc, int nLength) {
        if (nLength == 0) {
            Empty();
            return;
        }
        if (pszSrc == nullptr)
            AtlThrowImpl(E_INVALIDARG);
        const uintptr_t nOldLength = static_cast<uintptr_t>(GetLength());
        const uintptr_t nOffset = static_cast<uintptr_t>(pszSrc - GetString());
        CStringData* pData = GetData();
        if (pData->nAllocLength < nLength || pData->IsShared())
            PrepareWrite2(nLength);
        if (nLength < 0 || nLength > GetData()->nAllocLength)
            AtlThrowImpl(E_INVALIDARG);
        const size_t nBytes = static_cast<size_t>(nLength) * sizeof(XCHAR);
        if (nOffset <= nOldLength)
            std::memmove(m_pszData, m_pszData + nOffset, nBytes);
        else
            std::memcpy(m_pszData, pszSrc, nBytes);
        SetLength(nLength);
    }

    static int StringLength(PCXSTR psz) noexcept {
        size_t n = 0;
        if (psz != nullptr)
            while (psz[n] != 0)
                ++n;
        return n > static_cast<size_t>(INT32_MAX) ? INT32_MAX : static_cast<int>(n);
    }

    [[noreturn]] static void ThrowMemoryException() { AtlThrowImpl(E_OUTOFMEMORY); }

    // Makes the string unshared with room for nLength characters.
    void PrepareWrite2(int nLength) {
        CStringData* pOldData = GetData();
        if (pOldData->nDataLength > nLength)
            nLength = pOldData->nDataLength;
        if (pOldData->IsShared()) {
            Fork(nLength);
        } else if (pOldData->nAllocLength < nLength) {
            // Doubling up to 1024 characters, then steps of 1024 up to 1G characters.
            int nNewLength = pOldData->nAllocLength;
            if (nNewLength < 1025)
                nNewLength *= 2;
            else if (nNewLength < 0x40000001)
                nNewLength += 1024;
            if (nNewLength < nLength)
                nNewLength = nLength;
            Reallocate(nNewLength);
        }
    }

    CStringData* GetData() const noexcept { return reinterpret_cast<CStringData*>(m_pszData) - 1; }

private:
    static int StringLengthN(PCXSTR psz, int nMax) noexcept {
        int n = 0;
        while (n < nMax && psz[n] != 0)
            ++n;
        return n;
    }

    void Attach(CStringData* pData) noexcept { m_pszData = static_cast<PXSTR>(pData->data()); }

    static CStringData* CloneData(CStringData* pData) {
        IAtlStringMgr* pNewStringMgr = pData->pStringMgr->Clone();
        if (!pData->IsLocked() && pNewStringMgr == pData->pStringMgr) {
            pData->AddRef();
            return pData;
        }
        CStringData* pNewData = pNewStringMgr->Allocate(pData->nDataLength, sizeof(XCHAR));
        if (pNewData == nullptr)
            ThrowMemoryException();
        pNewData->nDataLength = pData->nDataLength;
        std::memcpy(pNewData->data(), pData->data(),
                    (static_cast<size_t>(pData->nDataLength) + 1) * sizeof(XCHAR));
        return pNewData;
    }

    void Fork(int nLength) {
        CStringData* pOldData = GetData();
        const int nOldLength = pOldData->nDataLength;
        CStringData* pNewData = pOldData->pStringMgr->Clone()->Allocate(nLength, sizeof(XCHAR));
        if (pNewData == nullptr)
            ThrowMemoryException();
        const int nCharsToCopy = (nOldLength < nLength ? nOldLength : nLength) + 1;
        std::memcpy(pNewData->data(), pOldData->data(), static_cast<size_t>(nCharsToCopy) * sizeof(XCHAR));
        pNewData->nDataLength = nOldLength;
        pOldData->Release();
        Attach(pNewData);
    }

    PXSTR PrepareWrite(int nLength) {
        if (nLength < 0)
            AtlThrowImpl(E_INVALIDARG);
        CStringData* pOldData = GetData();
        if (pOldData->IsShared() || pOldData->nAllocLength < nLength)
            PrepareWrite2(nLength);
        return m_pszData;
    }

    void Reallocate(int nLength) {
        CStringData* pOldData = GetData();
        if (pOldData->nAllocLength >= nLength || nLength <= 0)
            ThrowMemoryException();
        CStringData* pNewData = pOldData->pStringMgr->Reallocate(pOldData, nLength, sizeof(XCHAR));
        if (pNewData == nullptr)
            ThrowMemoryException();
        Attach(pNewData);
    }

    void SetLength(int nLength) {
        if (nLength < 0 || nLength > GetData()->nAllocLength)
            AtlThrowImpl(E_INVALIDARG);
        GetData()->nDataLength = nLength;
        m_pszData[nLength] = 0;
    }

    PXSTR m_pszData;
};

}  // namespace ATL

namespace ATL2 {

// A buffer that lives inside the object while it is small and moves to the heap when it
// grows past t_nFixedBytes.
template <typename T, int t_nFixedBytes = 128>
class CTempBufferEx {
public:
    CTempBufferEx() noexcept : m_p(nullptr), m_pMgr(&m_crtHeap) {}
    explicit CTempBufferEx(size_t nBytes) : m_p(nullptr), m_pMgr(&m_crtHeap) { Reallocate(nBytes); }
    CTempBufferEx(const CTempBufferEx&) = delete;
    CTempBufferEx& operator=(const CTempBufferEx&) = delete;
    ~CTempBufferEx() noexcept {
        if (m_p != nullptr && !IsInner())
            m_pMgr->Free(m_p);
    }

    operator T*() const noexcept { return m_p; }
    T* operator->() const noexcept { return m_p; }

    // Sizes are in bytes. Callers only grow; a shrink back to the inner size switches to
    // the inner buffer without copying or freeing.
    T* Reallocate(size_t nBytes) {
        if (m_p == nullptr) {
            if (nBytes <= static_cast<size_t>(t_nFixedBytes))
                m_p = reinterpret_cast<T*>(m_abFixedBuffer);
            else
                m_p = Checked(m_pMgr->Allocate(nBytes));
        } else if (nBytes > static_cast<size_t>(t_nFixedBytes)) {
            if (IsInner()) {
                T* p = Checked(m_pMgr->Allocate(nBytes));
                std::memcpy(p, m_abFixedBuffer, t_nFixedBytes);
                m_p = p;
            } else {
                m_p = Checked(m_pMgr->Reallocate(m_p, nBytes));
            }
        } else {
            m_p = reinterpret_cast<T*>(m_abFixedBuffer);
        }
        return m_p;
    }

    bool IsInner() const noexcept { return m_p == reinterpret_cast<const T*>(m_abFixedBuffer); }

private:
    static T* Checked(void* p) {
        if (p == nullptr)
            ATL::AtlThrowImpl(E_OUTOFMEMORY);
        return static_cast<T*>(p);
    }

    T* m_p;
    alignas(T) unsigned char m_abFixedBuffer[t_nFixedBytes];
    ATL::IAtlMemMgr* m_pMgr;
    static ATL::CCRTHeap m_crtHeap;
};

// Wholly defined here, so every user instantiates what it needs; the library's own
// instantiations (char with 128 and 256) are not exported.
template <typename T, int t_nFixedBytes>
ATL::CCRTHeap CTempBufferEx<T, t_nFixedBytes>::m_crtHeap;

}  // namespace ATL2

namespace Quorvane {

// One pointer to a heap-held std::string: callers need no knowledge of its layout.
class CHAINVET_API CStringProxy {
public:
    CStringProxy(const char* psz = nullptr);
    CStringProxy(const CStringProxy& other);
    CStringProxy& operator=(const CStringProxy& other);
    ~CStringProxy();
    const char* c_str() const;

private:
    std::string* m_pString;
};

class CHAINVET_API CWStringProxy {
public:
    CWStringProxy(const wchar_t* psz = nullptr);
    CWStringProxy(const CWStringProxy& other);
    CWStringProxy& operator=(const CWStringProxy& other);
    ~CWStringProxy();
    const wchar_t* c_str() const;

private:
    std::wstring* m_pString;
};

}  // namespace Quorvane
