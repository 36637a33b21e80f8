// A program built against an installed libchainvet: it touches every exported class and
// template and each family of exported functions once, through calls that need the
// library's symbols, so that a header promising what libchainvet.so does not export fails
// to link here. Behaviour is the unit tests' business; only a few results are looked at.
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
#include <string>
#include <typeinfo>

namespace {

int failures = 0;
#define CHECK(e) ((e) ? void() : void((++failures, std::printf("consumer: FAILED line %d: %s\n", __LINE__, #e))))

// Catching E needs the library's type information.
template <class E, class F>
bool throws(F f) {
    try {
        f();
    } catch (const E&) {
        return true;
    }
    return false;
}

// The enumerator templates run on the stand-in's providers, in buffers of the
// CTempBufferEx instantiations the library does not export.
struct Types : ATL2::CCryptProviderTypesEnumT<char> {
    bool OnType(DWORD, const char*) override { return true; }
};
struct Providers : ATL2::CCryptProvidersEnumT<char> {
    bool OnProv(const char*, DWORD) override { return true; }
};

void core(const std::string& file) {
    using namespace Quorvane;
    CBlob blob, copy;
    blob.readFromHexString("01ab");
    blob.writeToFile(file.c_str());
    copy.readFromFile(file.c_str());
    copy.reverse();
    copy += blob;
    CHECK(std::strcmp(copy.writeToHexString(0).c_str(), "AB0101AB") == 0);
    CHECK(throws<ATL::CAtlException>([] { CBlob().readFromFile(L"/nonexistent"); }));
    const CDateTime leap("20240229235959.5Z"), next = DateAddA("d", 1, leap);
    CHECK(CDateTime(leap.getFileTime()) == leap && next - leap == CDateTimeSpan::OneDay() &&
          DateAddW(L"y", 1, leap) > next && OS_daysInMonth[1] == 28 &&
          (CDateTimeSpan::OneDay() * 2) / CDateTimeSpan(3600, 0) == 48 &&
          std::strcmp(leap.getGeneralizedTime().c_str(), "20240229235959.5Z") == 0);
    ATL::CSimpleStringT<char> text("chain", &ATL::g_defaultStrMgr);
    text += "vet";
    CHECK(text.GetLength() == 8 && std::wcscmp(GetErrorMessage(12345), L"Internal error.") == 0 &&
          std::wcscmp(CWStringProxy(L"proxy").c_str(), L"proxy") == 0 && ATL::CFixedStringMgr::s_pLog == nullptr);
    ATL::CCRTHeap heap;
    heap.Free(heap.Reallocate(heap.Allocate(16), 64));
    ATL::g_defaultStrMgr.Free(ATL::g_defaultStrMgr.Allocate(4, 1));
    CHECK(throws<ATL::CAtlException>([] { ATL::AtlThrowImpl(E_INVALIDARG); }) &&
          throws<ATL::CAtlException>([] { ATL::AtlThrowLastWin32(); }));
    TSupportDbContext_* trace = nullptr;
    { DbTraceInitializer init("consumer", trace); }
    ATL2::CTempBufferEx<char, 128> buffer;
    buffer.Reallocate(4096);
    CHECK(trace == nullptr && Types().Enum() == S_OK && Providers().Enum() == S_OK && !buffer.IsInner() &&
          ATL::CCryptHash::EmptyHash == 0 && ATL::CCryptKey::EmptyKey == 0 && ATL2::EmptyProv == 0 &&
          typeid(CFindAlgIdInDefaultProviders) != typeid(CFindAlgIdInProviders));
}

// INTEGER under a control class, as generated types carry their values.
struct IntegerControl : ASN1CType {
    ASN1INT& value;
    IntegerControl(ASN1MessageBufferIF& buffer, ASN1INT& v) : ASN1CType(buffer), value(v) {}
    int EncodeTo(ASN1MessageBufferIF& buffer) override {
        const int length = xe_integer(buffer.getCtxtPtr(), &value, ASN1EXPL);
        return length < 0 ? length : 0;
    }
    int DecodeFrom(ASN1MessageBufferIF& buffer) override {
        const int status = buffer.init();
        return status != 0 ? status : xd_integer(buffer.getCtxtPtr(), &value, ASN1EXPL, 0);
    }
};

void runtime() {
    ASN1INT value = 300, decoded = 0;
    ASN1BEREncodeBuffer encoder;
    IntegerControl source(encoder, value);
    encoder << source;
    ASN1BERDecodeBuffer decoder(encoder.getMsgPtr(), 4);
    IntegerControl target(decoder, decoded);
    decoder >> target;
    ASN1OCTET tiny[2];
    ASN1BEREncodeBuffer small(tiny, sizeof tiny);
    IntegerControl overflow(small, value);
    OSCInputStream input;
    CHECK(decoded == 300 && throws<ASN1RTLException>([&] { small << overflow; }) &&
          throws<OSCStreamException>([&] { input.read(tiny, 1); }));
    ASN1CtxtPtr context(new ASN1Context());
    ASN1MemBuf memory(*context);
    ASN1CBitStr bits(*context, 16);
    ASN1TSeqOfList list;
    ASN1CSeqOfList seq(*context, list);
    int first = 1, second = 2, length = 0;
    seq.append(&first);
    seq.append(&second);
    const char *generalized = "20240229120000Z", *utc = "240229120000Z";
    ASN1CGeneralizedTime gt(generalized);
    ASN1CUTCTime ut(utc);
    const long long arcs[] = {1, 2, 5000000000LL};
    CHECK(memory.append(tiny, 1) == 0 && memory.getData(&length) && bits.set(9) == 0 && bits.get(9) &&
          bits.length() == 10 && bits.cardinality() == 1 && seq.size() == 2 && seq.get(1) == &second &&
          seq.iterator()->next() == &first && gt.getYear() == 2024 && gt.getMonth() == 2 && ut.getDay() == 29 &&
          ASN1TObjId64(3, arcs).subid[2] == 5000000000LL);

    ASN1CTXT ctxt;
    ASN1OBJID oid, back;
    char text[64];
    ASN1OCTET message[32];
    RtTimeFields fields;
    ASN1BigInt big;
    Asn1RTDList dlist;
    rtBigIntInit(&big);
    rtDListInit(&dlist);
    CHECK(rtInitContext(&ctxt, nullptr) == 0 && rtStrToOid("1.2.840", &oid) == 1 && rtOidToStr(&oid, text, 64) == 1 &&
          xe_setp(&ctxt, message, sizeof message) == 0 && xe_objid(&ctxt, &oid, ASN1EXPL) == 5 &&
          xd_setp(&ctxt, xe_getp(&ctxt), 5, nullptr, nullptr) == 0 && xd_objid(&ctxt, &back, ASN1EXPL, 0) == 0 &&
          back == ASN1TObjId(oid) && rtParseGeneralizedTime(&ctxt, "20240229120000Z", &fields) == 0 &&
          rtBigIntSetStr(&ctxt, &big, "0x0100", 0) == 0 && rtBigIntToString(&ctxt, &big, 10, text, 64) == 0 &&
          rtDListAppend(&ctxt, &dlist, rtMemHeapAlloc(&ctxt.typeHeap, 16)) &&
          rtUTF8Len(reinterpret_cast<const unsigned char*>("t")) == 1 && (rtCtypeTable['A'] & RT_CTYPE_UPPER));
    rtBigIntFree(&ctxt, &big);
    rtSetDiag(0);
    CHECK(g_debug == 0 && g_defBlkSize == RT_DEFAULT_BLOCK_SIZE && g_malloc_func == rtDefaultMalloc);
    rtFreeContext(&ctxt);
}

}  // namespace

int main(int argc, char** argv) {
    core(std::string(argc > 1 ? argv[1] : ".") + "/blob.bin");
    runtime();
    // A status record of the wrong size: each callback answers FALSE, its implementation throws.
    for (const auto& [callback, impl] :
         {std::make_pair(CertDllVerifyBasicConstraintsCertificateChainPolicy, BasicConstraintsImpl),
          std::make_pair(CertDllVerifySignatureCertificateChainPolicy, SignatureImpl),
          std::make_pair(CertDllVerifyTimestampSigningCertificateChainPolicy, TimestampSigningImpl),
          std::make_pair(CertDllVerifyOCSPSigningCertificateChainPolicy, OCSPSigningImpl)}) {
        CERT_CHAIN_POLICY_STATUS status{1, 0, 0, 0, nullptr};
        CHECK(callback("consumer", nullptr, nullptr, &status) == FALSE &&
              throws<ATL::CAtlException>([&, impl = impl] { impl("consumer", nullptr, nullptr, &status); }));
    }
    std::printf("consumer: %s\n", failures == 0 ? "every check passed" : "checks failed");
    return failures == 0 ? 0 : 1;
}
