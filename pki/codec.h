// The codec frame of the object model: how a value object becomes BER and back. Value
// classes never hold a generated structure; a traits class converts between the two on
// the stack of one asn1Encode or asn1Decode call, on a runtime heap that dies with it.
#pragma once

#include "asn1data/catalogue.h"
#include "core/blob.h"
#include "core/datetime.h"
#include "core/exception.h"
#include "core/strings.h"

#include <list>
#include <memory>
#include <new>

namespace Quorvane {
namespace ASN1 {

typedef std::list<CBlob> CBlobList;

// The one rule: every negative runtime status collapses into CRYPT_E_ASN1_INTERNAL; the
// runtime's own status stays in the context's error block and dies with it.
inline int asn1Check(int status) {
    if (status < 0)
        ATL::AtlThrowImpl(CRYPT_E_ASN1_INTERNAL);
    return status;
}

// Memory from a context's type heap; a refusal is CRYPT_E_ASN1_MEMORY.
void* asn1Alloc(ASN1CTXT* ctxt, size_t size, bool zeroed = false);

// A bare runtime context where no message buffer is needed. release() belongs on every
// way out, the one after a failed init() included.
class ctxt_handle {
public:
    ctxt_handle() : m_ctxt() {}
    bool init() { return rtInitContext(&m_ctxt, nullptr) == 0; }
    void release() { rtFreeContext(&m_ctxt); }
    ASN1CTXT* get() { return &m_ctxt; }

private:
    ASN1CTXT m_ctxt;
};

// ---- Conversions shared by the traits ----------------------------------------------------

// Dotted text to arcs: 0 success, 1 refusal.
int str2oid(const char* text, ASN1OBJID* out);
// Arcs to dotted text with its NUL in out; always 1.
unsigned oid2str(CBlob& out, const ASN1OBJID* oid);
// E_INVALIDARG for a text str2oid refuses.
ASN1OBJID toASN1OBJID(const char* text);
CStringProxy toOID(const ASN1OBJID& oid);

// Generalized time text on the context's heap. With round set the fraction is cut off.
const char* DateToASN1GeneralizedTime(ASN1CTXT* ctxt, const CDateTime& date, bool round);

// ---- The templates -------------------------------------------------------------------------

template <class Traits, class Value>
CBlob asn1Encode(const Value& value) {
    ASN1BEREncodeBuffer writer;
    // Never read from: it only owns the context the temporary structure is built in.
    ASN1BERDecodeBuffer scratch;
    typename Traits::ASN1_T temp;
    Traits::set(scratch.getCtxtPtr(), temp, value);
    int len;
    {
        typename Traits::ASN1_C control(writer, temp);
        len = control.Encode();
    }
    asn1Check(len);
    return CBlob(writer.getMsgPtr(), static_cast<unsigned long>(len));
}

template <class Traits, class Value>
void asn1Decode(const CBlob& blob, Value& value) {
    ASN1BERDecodeBuffer buffer(blob.pbData(), static_cast<int>(blob.cbData()));
    typename Traits::ASN1_T temp;
    int stat;
    {
        typename Traits::ASN1_C control(buffer, temp);
        stat = control.Decode();
    }
    asn1Check(stat);
    Traits::get(temp, value);
}

// Encodes a structure that already exists, from a deep copy on the writer's context.
template <class Traits>
CBlob asn1EncodeT(const typename Traits::ASN1_T& value) {
    ASN1BEREncodeBuffer writer;
    typename Traits::ASN1_T temp;
    Traits::copy(writer.getCtxtPtr(), value, temp);
    int len;
    {
        typename Traits::ASN1_C control(writer, temp);
        len = control.Encode();
    }
    asn1Check(len);
    return CBlob(writer.getMsgPtr(), static_cast<unsigned long>(len));
}

// Decodes into the caller's structure on the caller's context, so that it outlives the
// local buffer.
template <class Traits>
void asn1DecodeT(const CBlob& blob, ASN1CTXT* ctxt, typename Traits::ASN1_T& value) {
    ASN1BERDecodeBuffer buffer(blob.pbData(), static_cast<int>(blob.cbData()));
    typename Traits::ASN1_T temp;
    int stat;
    {
        typename Traits::ASN1_C control(buffer, temp);
        stat = control.Decode();
    }
    asn1Check(stat);
    Traits::copy(ctxt, temp, value);
}

// The copy rule of optional members: always a deep copy, never shared.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
template <class T>
void copy_to_auto_ptr(std::auto_ptr<T>& dst, const T* src) {
    T* fresh = src != nullptr ? new T(*src) : nullptr;
    if (dst.get() != fresh)
        dst.reset(fresh);
}
#pragma GCC diagnostic pop

// ---- Leaf traits ----------------------------------------------------------------------------

struct ASN1TObjId_traits {
    typedef ASN1OBJID ASN1_T;
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const char* src);
    static void get(const ASN1_T& src, CStringProxy& dst);
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst);
};

struct ASN1TDynOctStr_traits {
    typedef ASN1TDynOctStr ASN1_T;
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CBlob& src);
    static void get(const ASN1_T& src, CBlob& dst);
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst);
};

struct ASN1TDynBitStr_traits {
    typedef ASN1TDynBitStr ASN1_T;
    // Whole bytes: an odd bit count does not survive a get followed by a set.
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CBlob& src);
    static void get(const ASN1_T& src, CBlob& dst);
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst);
};

struct ASN1TOpenType_traits {
    typedef ASN1OpenType ASN1_T;
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CBlob& src);
    static void get(const ASN1_T& src, CBlob& dst);
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst);
};

struct Asn1TObject_traits {
    typedef asn1data::Asn1TObject ASN1_T;
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CBlob& src);
    static void get(const ASN1_T& src, CBlob& dst);
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst);
};

struct ASN1IA5String_traits {
    typedef const char* ASN1_T;
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const char* src);
    static void get(const ASN1_T& src, CStringProxy& dst);
    // The copy aliases its source; the buffer it allocates stays unused until the context
    // dies. Nobody needs the copy to outlive the source.
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst);
};

struct ASN1UTF8String_traits {
    typedef const char* ASN1_T;
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const wchar_t* src);
    static void get(const ASN1_T& src, CWStringProxy& dst);
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst);
};

// A bare GeneralizedTime has no control class: encode and decode work on the buffer.
struct ASN1GeneralizedTime_traits {
    typedef const char* ASN1_T;
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CDateTime& src);
    static void get(const ASN1_T& src, CDateTime& dst);
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst);
    static int encode(ASN1BEREncodeBuffer& buffer, const char*& text);
    static int decode(ASN1BERDecodeBuffer& buffer, const char*& text);
};

// The numbers of X.509 CRLReason; no check is made that a value is one of them.
enum CrlReason : unsigned int {
    crlReasonUnspecified = 0,
    crlReasonKeyCompromise = 1,
    crlReasonCACompromise = 2,
    crlReasonAffiliationChanged = 3,
    crlReasonSuperseded = 4,
    crlReasonCessationOfOperation = 5,
    crlReasonCertificateHold = 6,
    crlReasonRemoveFromCRL = 8,
    crlReasonPrivilegeWithdrawn = 9,
    crlReasonAACompromise = 10,
};

struct ASN1T_CRLReason_traits {
    typedef asn1data::ASN1T_CRLReason ASN1_T;
    typedef asn1data::ASN1C_CRLReason ASN1_C;
    static void set(ASN1CTXT*, ASN1_T& dst, CrlReason src) { dst = src; }
    static void get(const ASN1_T& src, CrlReason& dst) { dst = static_cast<CrlReason>(src); }
    static void copy(ASN1CTXT*, const ASN1_T& src, ASN1_T& dst) { dst = src; }
};

template <>
CBlob asn1Encode<ASN1TObjId_traits, const char*>(const char* const& value);
template <>
void asn1Decode<ASN1TObjId_traits, CStringProxy>(const CBlob& blob, CStringProxy& value);
template <>
CBlob asn1Encode<ASN1GeneralizedTime_traits, CDateTime>(const CDateTime& value);
template <>
void asn1Decode<ASN1GeneralizedTime_traits, CDateTime>(const CBlob& blob, CDateTime& value);

// ---- Bridges: a certificate or revocation list stays an opaque CBlob ------------------------

template <class T, class C, void (*Copy)(ASN1CTXT*, T*, T*)>
struct ASN1TBlobBridge_traits {
    typedef T ASN1_T;
    typedef C ASN1_C;
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CBlob& src) {
        asn1DecodeT<ASN1TBlobBridge_traits>(src, ctxt, dst);
    }
    static void get(const ASN1_T& src, CBlob& dst) { dst = asn1EncodeT<ASN1TBlobBridge_traits>(src); }
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
        Copy(ctxt, const_cast<ASN1_T*>(&src), &dst);
    }
};

struct ASN1T_Certificate_traits
    : ASN1TBlobBridge_traits<asn1data::ASN1T_Certificate, asn1data::ASN1C_Certificate,
                             asn1data::asn1Copy_Certificate> {};
struct ASN1T_CertificateList_traits
    : ASN1TBlobBridge_traits<asn1data::ASN1T_CertificateList, asn1data::ASN1C_CertificateList,
                             asn1data::asn1Copy_CertificateList> {};

// ---- List traits ------------------------------------------------------------------------------

template <class ElemT, class ElemTraits, class Elem, class List>
struct ASN1TSeqOfList_traits {
    // Each element is built once on a local list and deep-copied once, so that every node
    // of dst lives on ctxt. Order is kept exactly; a SET OF is sorted by the encoder.
    static void set(ASN1CTXT* ctxt, ASN1TSeqOfList& dst, const List& list) {
        ASN1BEREncodeBuffer buffer;
        Asn1RTDList local;
        rtDListInit(&local);
        ASN1CSeqOfList nodes(buffer, local, 0);
        for (const Elem& element : list) {
            ElemT* node = new (asn1Alloc(ctxt, sizeof(ElemT), true)) ElemT();
            ElemTraits::set(ctxt, *node, element);
            nodes.append(node);
        }
        rtDListInit(&dst);
        for (Asn1RTDListNode* n = local.head; n != nullptr; n = n->next) {
            // Unchecked, as the runtime's own copies are.
            void* room = rtMemHeapAllocZ(&ctxt->typeHeap, static_cast<int>(sizeof(ElemT)));
            ElemT* fresh = new (room) ElemT();
            rtDListAppend(ctxt, &dst, fresh);
            ElemTraits::copy(ctxt, *static_cast<const ElemT*>(n->data), *fresh);
        }
    }
    // Replaces the list's contents with the elements in wire order.
    static void get(const ASN1TSeqOfList& src, List& list) {
        list.clear();
        for (const Asn1RTDListNode* n = src.head; n != nullptr; n = n->next) {
            Elem element;
            ElemTraits::get(*static_cast<const ElemT*>(n->data), element);
            list.push_back(element);
        }
    }
};

}  // namespace ASN1
}  // namespace Quorvane
