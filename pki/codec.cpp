#include "pki/codec.h"

#include <cstring>
#include <cwchar>
#include <vector>

namespace Quorvane {
namespace ASN1 {

namespace {

const ASN1TAG kGeneralizedTimeTag = TM_UNIV | TM_PRIM | ASN_ID_GeneralTime;

// Bytes onto the context's heap; no bytes give a null pointer.
const ASN1OCTET* heapBytes(ASN1CTXT* ctxt, const void* pb, size_t cb) {
    if (cb == 0)
        return nullptr;
    void* p = asn1Alloc(ctxt, cb);
    std::memcpy(p, pb, cb);
    return static_cast<const ASN1OCTET*>(p);
}

char* heapText(ASN1CTXT* ctxt, const char* text) {
    const size_t n = std::strlen(text) + 1;
    char* p = static_cast<char*>(asn1Alloc(ctxt, n));
    std::memcpy(p, text, n);
    return p;
}

}  // namespace

void* asn1Alloc(ASN1CTXT* ctxt, size_t size, bool zeroed) {
    void* p = size > static_cast<size_t>(RT_MEMHEAP_MAX_ALLOC)
                  ? nullptr
                  : zeroed ? rtMemHeapAllocZ(&ctxt->typeHeap, static_cast<int>(size))
                           : rtMemHeapAlloc(&ctxt->typeHeap, static_cast<int>(size));
    if (p == nullptr)
        ATL::AtlThrowImpl(CRYPT_E_ASN1_MEMORY);
    return p;
}

const char* DateToASN1GeneralizedTime(ASN1CTXT* ctxt, const CDateTime& date, bool round) {
    CDateTime local(date);
    if (round) {
        // Rebuilt from the caller's fields with no milliseconds: the fraction is cut off,
        // whatever a rounding step before would have made of it.
        if (local.millisecond() >= 500)
            local = local + CDateTimeSpan::OneSecond();
        local = CDateTime(date.year(), date.month(), date.day(), date.hour(), date.minute(), date.second(), 0, 0);
    }
    return heapText(ctxt, local.getGeneralizedTime().c_str());
}

// ---- Leaf traits -------------------------------------------------------------------------------

void ASN1TObjId_traits::set(ASN1CTXT*, ASN1_T& dst, const char* src) {
    if (str2oid(src, &dst) != 0)
        ATL::AtlThrowImpl(E_INVALIDARG);
}

void ASN1TObjId_traits::get(const ASN1_T& src, CStringProxy& dst) {
    CBlob text;
    if (oid2str(text, &src) == 0)
        ATL::AtlThrowImpl(E_INVALIDARG);
    dst = CStringProxy(reinterpret_cast<const char*>(text.pbData()));
}

void ASN1TObjId_traits::copy(ASN1CTXT*, const ASN1_T& src, ASN1_T& dst) { std::memcpy(&dst, &src, sizeof dst); }

void ASN1TDynOctStr_traits::set(ASN1CTXT* ctxt, ASN1_T& dst, const CBlob& src) {
    dst.data = heapBytes(ctxt, src.pbData(), src.cbData());
    dst.numocts = static_cast<ASN1UINT>(src.cbData());
}

void ASN1TDynOctStr_traits::get(const ASN1_T& src, CBlob& dst) { dst.assign(src.data, src.numocts); }

void ASN1TDynOctStr_traits::copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
    dst.data = heapBytes(ctxt, src.data, src.numocts);
    dst.numocts = src.numocts;
}

void ASN1TDynBitStr_traits::set(ASN1CTXT* ctxt, ASN1_T& dst, const CBlob& src) {
    dst.data = heapBytes(ctxt, src.pbData(), src.cbData());
    dst.numbits = static_cast<ASN1UINT>(src.cbData()) * 8u;
}

void ASN1TDynBitStr_traits::get(const ASN1_T& src, CBlob& dst) {
    dst.assign(src.data, src.numbits == 0 ? 0 : ((src.numbits - 1) >> 3) + 1);
}

void ASN1TDynBitStr_traits::copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) { rtCopyDynBitStr(ctxt, &src, &dst); }

void ASN1TOpenType_traits::set(ASN1CTXT* ctxt, ASN1_T& dst, const CBlob& src) {
    dst.data = heapBytes(ctxt, src.pbData(), src.cbData());
    dst.numocts = static_cast<ASN1UINT>(src.cbData());
}

void ASN1TOpenType_traits::get(const ASN1_T& src, CBlob& dst) { dst.assign(src.data, src.numocts); }

void ASN1TOpenType_traits::copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
    dst.data = heapBytes(ctxt, src.data, src.numocts);
    dst.numocts = src.numocts;
}

void Asn1TObject_traits::set(ASN1CTXT* ctxt, ASN1_T& dst, const CBlob& src) {
    dst.data = heapBytes(ctxt, src.pbData(), src.cbData());
    dst.numocts = static_cast<ASN1UINT>(src.cbData());
}

void Asn1TObject_traits::get(const ASN1_T& src, CBlob& dst) { dst.assign(src.data, src.numocts); }

void Asn1TObject_traits::copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
    // The element and its count lead the record as they lead an open type.
    rtCopyOpenType(ctxt, reinterpret_cast<const ASN1OpenType*>(&src), reinterpret_cast<ASN1OpenType*>(&dst));
}

void ASN1IA5String_traits::set(ASN1CTXT* ctxt, ASN1_T& dst, const char* src) { dst = heapText(ctxt, src); }

void ASN1IA5String_traits::get(const ASN1_T& src, CStringProxy& dst) { dst = CStringProxy(src); }

void ASN1IA5String_traits::copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
    heapText(ctxt, src);
    dst = src;
}

void ASN1UTF8String_traits::set(ASN1CTXT* ctxt, ASN1_T& dst, const wchar_t* src) {
    const size_t count = std::wcslen(src);
    size_t size = 1;
    for (size_t i = 0; i < count; ++i)
        size += static_cast<size_t>(rtUTF8CharSize(static_cast<ASN1UINT>(src[i])));
    char* out = static_cast<char*>(asn1Alloc(ctxt, size));
    const int n = rtWCSToUTF8(ctxt, src, count, reinterpret_cast<unsigned char*>(out), size);
    if (n < 0)
        ATL::AtlThrowImpl(E_INVALIDARG);
    out[n] = 0;
    dst = out;
}

void ASN1UTF8String_traits::get(const ASN1_T& src, CWStringProxy& dst) {
    ctxt_handle h;
    if (!h.init()) {
        h.release();
        ATL::AtlThrowImpl(CRYPT_E_ASN1_MEMORY);
    }
    const int len = rtUTF8Len(reinterpret_cast<const unsigned char*>(src));
    if (len < 0) {
        h.release();
        ATL::AtlThrowImpl(CRYPT_E_ASN1_INTERNAL);
    }
    std::vector<wchar_t> wide(static_cast<size_t>(len) + 1, L'\0');
    const int n = rtUTF8ToWCS(h.get(), reinterpret_cast<const unsigned char*>(src), wide.data(), wide.size());
    h.release();
    asn1Check(n);
    dst = CWStringProxy(wide.data());
}

void ASN1UTF8String_traits::copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
    char* out = nullptr;
    rtCopyCharStr(ctxt, src, &out);
    dst = out;
}

void ASN1GeneralizedTime_traits::set(ASN1CTXT* ctxt, ASN1_T& dst, const CDateTime& src) {
    dst = DateToASN1GeneralizedTime(ctxt, src, true);
}

void ASN1GeneralizedTime_traits::get(const ASN1_T& src, CDateTime& dst) { dst = CDateTime(src); }

void ASN1GeneralizedTime_traits::copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
    dst = DateToASN1GeneralizedTime(ctxt, CDateTime(src), false);
}

int ASN1GeneralizedTime_traits::encode(ASN1BEREncodeBuffer& buffer, const char*& text) {
    return xe_charstr(buffer.getCtxtPtr(), text, ASN1EXPL, kGeneralizedTimeTag);
}

int ASN1GeneralizedTime_traits::decode(ASN1BERDecodeBuffer& buffer, const char*& text) {
    return xd_charstr(buffer.getCtxtPtr(), &text, ASN1EXPL, kGeneralizedTimeTag, 0);
}

// ---- The two kinds without a control class --------------------------------------------------------

template <>
CBlob asn1Encode<ASN1TObjId_traits, const char*>(const char* const& value) {
    ASN1BEREncodeBuffer writer;
    ASN1BERDecodeBuffer scratch;
    ASN1OBJID temp;
    ASN1TObjId_traits::set(scratch.getCtxtPtr(), temp, value);
    writer.init();
    const int len = asn1Check(xe_objid(writer.getCtxtPtr(), &temp, ASN1EXPL));
    return CBlob(writer.getMsgPtr(), static_cast<unsigned long>(len));
}

template <>
void asn1Decode<ASN1TObjId_traits, CStringProxy>(const CBlob& blob, CStringProxy& value) {
    ASN1BERDecodeBuffer buffer(blob.pbData(), static_cast<int>(blob.cbData()));
    buffer.init();
    ASN1OBJID temp;
    temp.numids = 0;
    asn1Check(xd_objid(buffer.getCtxtPtr(), &temp, ASN1EXPL, 0));
    ASN1TObjId_traits::get(temp, value);
}

template <>
CBlob asn1Encode<ASN1GeneralizedTime_traits, CDateTime>(const CDateTime& value) {
    ASN1BEREncodeBuffer writer;
    ASN1BERDecodeBuffer scratch;
    const char* temp = nullptr;
    ASN1GeneralizedTime_traits::set(scratch.getCtxtPtr(), temp, value);
    writer.init();
    const int len = asn1Check(ASN1GeneralizedTime_traits::encode(writer, temp));
    return CBlob(writer.getMsgPtr(), static_cast<unsigned long>(len));
}

template <>
void asn1Decode<ASN1GeneralizedTime_traits, CDateTime>(const CBlob& blob, CDateTime& value) {
    ASN1BERDecodeBuffer buffer(blob.pbData(), static_cast<int>(blob.cbData()));
    buffer.init();
    const char* temp = nullptr;
    asn1Check(ASN1GeneralizedTime_traits::decode(buffer, temp));
    ASN1GeneralizedTime_traits::get(temp, value);
}

}  // namespace ASN1
}  // namespace Quorvane
