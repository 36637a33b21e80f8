// A program built against an installed libchainvet. It touches every exported class and
// template and each family of exported functions once, through calls that need the
// library's symbol, so that a header promising what libchainvet.so does not export fails
// to link here. Results are checked where that is cheap.
#include "asn1rt/asn1time.h"
#include "asn1rt/ber.h"
#include "asn1rt/bigint.h"
#include "asn1rt/bitstr.h"
#include "asn1rt/oscstream.h"
#include "asn1rt/seqoflist.h"
#include "core/blob.h"
#include "core/datetime.h"
#include "core/errortext.h"
#include "core/trace.h"
#include "policies/chain_policies.h"
#include "policies/crypt.h"

#include <cstdio>
#include <cstring>
#include <cwchar>
#include <string>
#include <type_traits>
#include <typeinfo>

namespace {

using ATL::CAtlException;

int failures = 0;

void check(bool ok, const char* what) {
    if (!ok) {
        std::printf("consumer: FAILED %s\n", what);
        ++failures;
    }
}

bool same(const char* a, const char* b) { return std::strcmp(a, b) == 0; }

int codeOf(const CAtlException& e) { return e.m_hr; }
int codeOf(const ASN1RTLException& e) { return e.getStatus(); }

// f must throw E with this code; catching it needs the library's type information.
template <class E, class F>
void expectThrow(int code, F f, const char* what) {
    try {
        f();
        check(false, what);
    } catch (const E& e) {
        check(codeOf(e) == code, what);
    }
}

void coreValues(const std::string& scratch) {
    using namespace Quorvane;
    CBlob blob, copy;
    blob.readFromHexString("01 ab FF");
    check(same(blob.writeToHexString(0).c_str(), "01ABFF"), "CBlob hex round trip");
    const std::string path = scratch + "/blob.bin";
    blob.writeToFile(path.c_str());
    copy.readFromFile(path.c_str());
    copy.reverse();
    copy += blob;
    check(copy.cbData() == 6 && copy.pbData()[0] == 0xFF && copy.pbData()[3] == 0x01, "CBlob file, reverse, append");
    expectThrow<CAtlException>(0x80070002, [] { CBlob().readFromFile(L"/nonexistent"); }, "CBlob missing file");

    const CDateTime leap("20240229235959.5Z");
    check(leap.year() == 2024 && leap.day() == 29 && leap.millisecond() == 500 &&
              same(leap.getGeneralizedTime().c_str(), "20240229235959.5Z"),
          "CDateTime from and to generalized time");
    check(CDateTime(leap.getFileTime()) == leap, "CDateTime FILETIME round trip");
    const CDateTime next = DateAddA("d", 1, leap);
    check(next.month() == 3 && next.day() == 1 && next - leap == CDateTimeSpan::OneDay(), "DateAddA, span between");
    check(DateAddW(L"y", 1, leap) > next && OS_daysInMonth[1] == 28, "DateAddW, OS_daysInMonth");
    check((CDateTimeSpan::OneDay() * 2) / CDateTimeSpan(3600, 0) == 48, "CDateTimeSpan arithmetic");

    ATL::CSimpleStringT<char> text("chain", &ATL::g_defaultStrMgr);
    text += "vet";
    check(text.GetLength() == 8 && same(text, "chainvet"), "CSimpleStringT<char>");
    check(std::wcscmp(GetErrorMessage(static_cast<int>(0xC2110126u)), L"Certificate is revoked.") == 0 &&
              std::wcscmp(GetErrorMessage(12345), L"Internal error.") == 0,
          "GetErrorMessage");
    check(std::wcscmp(CWStringProxy(L"proxy").c_str(), L"proxy") == 0, "CWStringProxy");

    ATL::CCRTHeap heap;
    heap.Free(heap.Reallocate(heap.Allocate(16), 64));
    ATL::CStringData* data = ATL::g_defaultStrMgr.Allocate(4, 1);
    check(data != nullptr && data->pStringMgr == &ATL::g_defaultStrMgr, "CAtlStringMgr");
    ATL::g_defaultStrMgr.Free(data);
    check(ATL::CFixedStringMgr::s_pLog == nullptr, "CFixedStringMgr");

    expectThrow<CAtlException>(E_INVALIDARG, [] { ATL::AtlThrowImpl(E_INVALIDARG); }, "AtlThrowImpl");
    SetLastError(5);
    expectThrow<CAtlException>(0x80070005, [] { ATL::AtlThrowLastWin32(); }, "AtlThrowLastWin32");

    TSupportDbContext_* trace = nullptr;
    {
        DbTraceInitializer init("consumer", trace);
        check(trace != nullptr, "DbTraceInitializer");
    }
    check(trace == nullptr, "~DbTraceInitializer");
}

// The enumerator templates run on the stand-in's providers; their buffers are the
// CTempBufferEx instantiations the library does not export.
struct TypeCounter : ATL2::CCryptProviderTypesEnumT<char> {
    int count = 0;
    bool OnType(DWORD, const char*) override { return ++count, true; }
};
struct ProviderCounter : ATL2::CCryptProvidersEnumT<char> {
    int named = 0;
    bool OnProv(const char* name, DWORD) override { return named += name[0] != 0, true; }
};

void hashing() {
    TypeCounter types;
    check(types.Enum() == S_OK && types.count >= 2, "CCryptProviderTypesEnumT<char>");
    ProviderCounter providers;
    check(providers.Enum() == S_OK && providers.named >= 2, "CCryptProvidersEnumT<char>");
    ATL2::CTempBufferEx<char, 128> buffer;
    std::strcpy(buffer.Reallocate(8), "kept");
    const bool inner = buffer.IsInner();
    buffer.Reallocate(4096);
    check(inner && !buffer.IsInner() && same(buffer, "kept"), "CTempBufferEx grows with its contents");
    check(ATL::CCryptHash::EmptyHash == 0 && ATL::CCryptKey::EmptyKey == 0 && ATL2::EmptyProv == 0, "empty handles");
    // Of the finders only the type information is exported.
    check(typeid(Quorvane::CFindAlgIdInDefaultProviders) != typeid(Quorvane::CFindAlgIdInProviders), "finder types");
}

// INTEGER under a control class, as generated types carry their values.
class IntegerControl : public ASN1CType {
public:
    IntegerControl(ASN1MessageBufferIF& buffer, ASN1INT& value) : ASN1CType(buffer), m_value(value) {}
    int EncodeTo(ASN1MessageBufferIF& buffer) override {
        const int length = xe_integer(buffer.getCtxtPtr(), &m_value, ASN1EXPL);
        return length < 0 ? length : 0;
    }
    int DecodeFrom(ASN1MessageBufferIF& buffer) override {
        const int status = buffer.init();
        return status != 0 ? status : xd_integer(buffer.getCtxtPtr(), &m_value, ASN1EXPL, 0);
    }

private:
    ASN1INT& m_value;
};

void runtimeClasses() {
    ASN1INT value = 300, decoded = 0;
    ASN1BEREncodeBuffer encoder;
    IntegerControl source(encoder, value);
    encoder << source;
    const ASN1OCTET expected[] = {0x02, 0x02, 0x01, 0x2C};
    check(std::memcmp(encoder.getMsgPtr(), expected, sizeof expected) == 0, "BER encode of INTEGER 300");
    ASN1BERDecodeBuffer decoder(encoder.getMsgPtr(), sizeof expected);
    IntegerControl target(decoder, decoded);
    decoder >> target;
    check(decoded == 300, "BER decode of INTEGER 300");
    ASN1OCTET tiny[2];
    ASN1BEREncodeBuffer small(tiny, sizeof tiny);
    IntegerControl overflow(small, value);
    expectThrow<ASN1RTLException>(RT_E_BUFFER_FULL, [&] { small << overflow; }, "encode into a full buffer");

    ASN1CtxtPtr context(new ASN1Context());
    check(context->getRefCount() == 1, "ASN1Context");
    ASN1MemBuf memory(*context);
    int length = 0;
    check(memory.append(expected, sizeof expected) == 0 && memory.getData(&length) && length == 4, "ASN1MemBuf");
    ASN1CBitStr bits(*context, 16);
    check(bits.set(9) == 0 && bits.get(9) && bits.length() == 10 && bits.cardinality() == 1, "ASN1CBitStr");
    ASN1TSeqOfList list;
    ASN1CSeqOfList seq(*context, list);
    int first = 1, second = 2;
    seq.append(&first);
    seq.append(&second);
    check(seq.size() == 2 && seq.get(1) == &second && seq.iterator()->next() == &first, "ASN1CSeqOfList");
    const char* generalized = "20240229120000Z";
    const char* utc = "240229120000Z";
    ASN1CGeneralizedTime gt(generalized);
    ASN1CUTCTime ut(utc);
    check(gt.getYear() == 2024 && gt.getMonth() == 2 && ut.getYear() == 2024 && ut.getDay() == 29, "time classes");
    OSCInputStream input;
    unsigned char octet = 0;
    expectThrow<OSCStreamException>(RT_E_NOT_READY, [&] { input.read(&octet, 1); }, "stream without transport");
    const long long arcs[] = {1, 2, 5000000000LL};
    check(ASN1TObjId64(3, arcs).subid[2] == 5000000000LL, "ASN1TObjId64");
}

void runtimeFunctions() {
    ASN1CTXT ctxt;
    check(rtInitContext(&ctxt, nullptr) == 0 && ctxt.magic == RT_CTXT_MAGIC, "rtInitContext");
    ASN1OBJID oid, back;
    char text[64];
    check(rtStrToOid("1.2.840.113549", &oid) == 1 && oid.numids == 4 && rtOidToStr(&oid, text, sizeof text) == 1 &&
              same(text, "1.2.840.113549"),
          "rtStrToOid, rtOidToStr");
    ASN1OCTET message[32];
    check(xe_setp(&ctxt, message, sizeof message) == 0 && xe_objid(&ctxt, &oid, ASN1EXPL) == 8, "xe_objid");
    check(xd_setp(&ctxt, xe_getp(&ctxt), 8, nullptr, nullptr) == 0 && xd_objid(&ctxt, &back, ASN1EXPL, 0) == 0 &&
              back == ASN1TObjId(oid),
          "xd_objid");
    RtTimeFields fields;
    check(rtParseGeneralizedTime(&ctxt, "20240229120000Z", &fields) == 0 && fields.year == 2024 && fields.utc,
          "rtParseGeneralizedTime");
    ASN1BigInt big;
    rtBigIntInit(&big);
    check(rtBigIntSetStr(&ctxt, &big, "0x0100", 0) == 0 && rtBigIntToString(&ctxt, &big, 10, text, sizeof text) == 0 &&
              same(text, "256"),
          "big integers");
    rtBigIntFree(&ctxt, &big);
    Asn1RTDList list;
    rtDListInit(&list);
    check(rtDListAppend(&ctxt, &list, rtMemHeapAlloc(&ctxt.typeHeap, 16)) && list.count == 1, "lists and heap");
    check(rtUTF8Len(reinterpret_cast<const unsigned char*>("\xc3\xa9t\xc3\xa9")) == 3 &&
              (rtCtypeTable['A'] & RT_CTYPE_UPPER),
          "character strings");
    rtSetDiag(0);
    check(g_debug == 0 && g_defBlkSize == RT_DEFAULT_BLOCK_SIZE && g_malloc_func == rtDefaultMalloc, "runtime globals");
    rtFreeContext(&ctxt);
    check(ctxt.magic == 0, "rtFreeContext");
}

typedef BOOL (*PolicyCallback)(LPCSTR, PCCERT_CHAIN_CONTEXT, PCERT_CHAIN_POLICY_PARA, PCERT_CHAIN_POLICY_STATUS);
typedef void (*PolicyImpl)(LPCSTR, PCCERT_CHAIN_CONTEXT, PCERT_CHAIN_POLICY_PARA, PCERT_CHAIN_POLICY_STATUS);

// A status record of the wrong size: the callback answers FALSE with last error 87, its
// implementation throws 87.
void policy(const char* name, PolicyCallback callback, PolicyImpl impl) {
    CERT_CHAIN_POLICY_STATUS status{1, 0, 0, 0, nullptr};
    SetLastError(0);
    check(callback(name, nullptr, nullptr, &status) == FALSE && GetLastError() == 87, name);
    expectThrow<CAtlException>(87, [&] { impl(name, nullptr, nullptr, &status); }, name);
}

}  // namespace

// The OCSP-signing pair joins the checks once a header declares it: until then these
// undefined stand-ins win overload resolution, and their result type says so.
namespace undeclared {
struct Missing {};
template <class... A> Missing CertDllVerifyOCSPSigningCertificateChainPolicy(A...);
template <class... A> Missing OCSPSigningImpl(A...);
}  // namespace undeclared
using namespace undeclared;

template <class Callback, class Impl>
void policyIfDeclared(const char* name, Callback callback, Impl impl) {
    using Result =
        decltype(callback(LPCSTR(), PCCERT_CHAIN_CONTEXT(), PCERT_CHAIN_POLICY_PARA(), PCERT_CHAIN_POLICY_STATUS()));
    if constexpr (!std::is_same_v<Result, undeclared::Missing>)
        policy(name, callback, impl);
}

int main(int argc, char** argv) {
    coreValues(argc > 1 ? argv[1] : ".");
    hashing();
    runtimeClasses();
    runtimeFunctions();
    policy("basic constraints", CertDllVerifyBasicConstraintsCertificateChainPolicy, BasicConstraintsImpl);
    policy("signature", CertDllVerifySignatureCertificateChainPolicy, SignatureImpl);
    policy("timestamp signing", CertDllVerifyTimestampSigningCertificateChainPolicy, TimestampSigningImpl);
    policyIfDeclared(
        "OCSP signing", [](auto... a) { return CertDllVerifyOCSPSigningCertificateChainPolicy(a...); },
        [](auto... a) { return OCSPSigningImpl(a...); });
    std::printf("consumer: %s\n", failures == 0 ? "every check passed" : "checks failed");
    return failures == 0 ? 0 : 1;
}
