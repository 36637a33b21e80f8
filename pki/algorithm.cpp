#include "pki/algorithm.h"

#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <sstream>
#include <vector>

namespace Quorvane {
namespace ASN1 {

namespace {

bool isCSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

unsigned decimalLength(ASN1UINT v) {
    unsigned n = 1;
    while (v >= 10) {
        v /= 10;
        ++n;
    }
    return n;
}

[[noreturn]] void throwLastError() { ATL::AtlThrowImpl(ATL::AtlHresultFromWin32(GetLastError())); }

}  // namespace

// ---- Object identifiers ----------------------------------------------------------------------------

int str2oid(const char* text, ASN1OBJID* out) {
    out->numids = 0;
    const char* pos = text;
    const char* next = std::strchr(pos, '.');
    for (;;) {
        char* end = nullptr;
        // Read in 64 bits and cut to 32, so that both builds agree on an arc past 2^32.
        const ASN1UINT arc = static_cast<ASN1UINT>(std::strtoull(pos, &end, 10));
        const bool valid = end != pos;
        if (next == nullptr) {
            if (!valid || arc == 0xFFFFFFFFu || out->numids >= ASN_K_MAXSUBIDS)
                return 1;
            out->subid[out->numids++] = arc;
            for (; *end != 0; ++end)
                if ((*end & 0x80) != 0 || !isCSpace(*end))
                    return 1;
            return 0;
        }
        // The record holds 128 arcs; more is a refusal rather than a write past it.
        if (!valid || out->numids >= ASN_K_MAXSUBIDS)
            return 1;
        out->subid[out->numids++] = arc;
        if (*end == 0 || (*end & 0x80) != 0)
            return 1;
        while (isCSpace(*end))
            if (*++end == 0)
                return 1;
        if (*end != '.')
            return 1;
        pos = next + 1;
        next = std::strchr(pos, '.');
    }
}

unsigned oid2str(CBlob& out, const ASN1OBJID* oid) {
    unsigned long size = 1;
    for (ASN1UINT i = 0; i < oid->numids; ++i)
        size += decimalLength(oid->subid[i]) + (i != 0 ? 1 : 0);
    out.resize_to(size);
    char* p = reinterpret_cast<char*>(out.pbData());
    for (ASN1UINT i = 0; i < oid->numids; ++i) {
        if (i != 0)
            *p++ = '.';
        char digits[12];
        const unsigned n = decimalLength(oid->subid[i]);
        ASN1UINT v = oid->subid[i];
        for (unsigned k = n; k-- > 0; v /= 10)
            digits[k] = static_cast<char>('0' + v % 10);
        std::memcpy(p, digits, n);
        p += n;
    }
    *p = 0;
    return 1;
}

ASN1OBJID toASN1OBJID(const char* text) {
    ASN1OBJID oid;
    if (str2oid(text, &oid) != 0)
        ATL::AtlThrowImpl(E_INVALIDARG);
    return oid;
}

CStringProxy toOID(const ASN1OBJID& oid) {
    CStringProxy text;
    ASN1TObjId_traits::get(oid, text);
    return text;
}

// ---- CAlgorithmIdentifier ------------------------------------------------------------------------

CAlgorithmIdentifier::CAlgorithmIdentifier() {}

CAlgorithmIdentifier::CAlgorithmIdentifier(const char* oid) : m_algorithm(oid) {}

CAlgorithmIdentifier::CAlgorithmIdentifier(const CAlgorithmIdentifier& other)
    : m_algorithm(other.m_algorithm), m_parameters(other.m_parameters) {}

CAlgorithmIdentifier::~CAlgorithmIdentifier() {}

void CAlgorithmIdentifier::assign(const CAlgorithmIdentifier& other) {
    m_algorithm = other.m_algorithm;
    m_parameters = other.m_parameters;
}

void CAlgorithmIdentifier::swap(CAlgorithmIdentifier& other) {
    CStringProxy text(m_algorithm);
    m_algorithm = other.m_algorithm;
    other.m_algorithm = text;
    m_parameters.swap(other.m_parameters);
}

CAlgorithmIdentifier& CAlgorithmIdentifier::operator=(const CAlgorithmIdentifier& other) {
    if (this == &other)
        return *this;
    CAlgorithmIdentifier copy(other);
    swap(copy);
    return *this;
}

void CAlgorithmIdentifier::put_algorithm(const char* oid) { m_algorithm = CStringProxy(oid); }

void CAlgorithmIdentifier::put_parameters(const CBlob& parameters) { m_parameters = parameters; }

CBlob CAlgorithmIdentifier::encode() const {
    return asn1Encode<ASN1T_AlgorithmIdentifier_traits, CAlgorithmIdentifier>(*this);
}

void CAlgorithmIdentifier::decode(const CBlob& blob) {
    asn1Decode<ASN1T_AlgorithmIdentifier_traits, CAlgorithmIdentifier>(blob, *this);
}

bool operator==(const CAlgorithmIdentifier& a, const CAlgorithmIdentifier& b) {
    return std::strcmp(a.get_algorithm(), b.get_algorithm()) == 0 && a.get_parameters() == b.get_parameters();
}

bool operator!=(const CAlgorithmIdentifier& a, const CAlgorithmIdentifier& b) { return !(a == b); }

void CAlgorithmIdentifierEx::put_algorithm(const char* oid) {
    if (std::strcmp(oid, get_algorithm()) == 0)
        return;
    m_algId = 0;
    CAlgorithmIdentifier::put_algorithm(oid);
}

asn1data::ASN1T_AlgorithmIdentifier* ASN1T_AlgorithmIdentifier_set(ASN1CTXT* ctxt, const char* oid,
                                                                    const CBlob* parameters) {
    void* room = rtMemHeapAllocZ(&ctxt->typeHeap, static_cast<int>(sizeof(asn1data::ASN1T_AlgorithmIdentifier)));
    auto* result = new (room) asn1data::ASN1T_AlgorithmIdentifier();
    asn1data::ASN1T_AlgorithmIdentifier local;
    local.m.parametersPresent = 0;
    if (str2oid(oid, &local.algorithm) != 0)
        ATL::AtlThrowImpl(CRYPT_E_ASN1_INTERNAL);
    if (parameters == nullptr || parameters->cbData() == 0) {
        asn1data::asn1Copy_AlgorithmIdentifier(ctxt, &local, result);
        return result;
    }
    local.m.parametersPresent = 1;
    Asn1TObject_traits::set(ctxt, local.parameters, *parameters);
    // The scratch context holds the decoded parameters until the copy has taken them.
    ASN1BERDecodeBuffer scratch;
    if (asn1data::asn1DTC_AlgorithmIdentifier(scratch.getCtxtPtr(), &local) != 0)
        ATL::AtlThrowImpl(CRYPT_E_ASN1_INTERNAL);
    asn1data::asn1Copy_AlgorithmIdentifier(ctxt, &local, result);
    return result;
}

void ASN1T_AlgorithmIdentifier_get(CAlgorithmIdentifier& value, const asn1data::ASN1T_AlgorithmIdentifier& src) {
    CStringProxy text;
    ASN1TObjId_traits::get(src.algorithm, text);
    CBlob parameters;
    if (src.m.parametersPresent)
        Asn1TObject_traits::get(src.parameters, parameters);
    value.put_algorithm(text.c_str());
    value.put_parameters(parameters);
}

void ASN1T_AlgorithmIdentifier_traits::set(ASN1CTXT* ctxt, ASN1_T& dst, const CAlgorithmIdentifier& src) {
    const ASN1_T* built = ASN1T_AlgorithmIdentifier_set(ctxt, src.get_algorithm(), &src.get_parameters());
    dst.m = built->m;
    dst.algorithm = built->algorithm;
    dst.parameters = built->parameters;
}

// ---- Big integers --------------------------------------------------------------------------------

void StringToBigInteger(const char* text, CBigInteger& value) {
    if (text == nullptr || std::strlen(text) < 3 || text[0] != '0' || text[1] != 'x')
        ATL::AtlThrowImpl(CRYPT_E_ASN1_INTERNAL);
    // The runtime writes "0x0" and one digit pair for a leading zero it keeps; the odd
    // count is evened out in front, where a "0" cannot change the value.
    if (std::strlen(text) % 2 != 0 && text[2] == '0') {
        std::string digits(text + 2);
        digits.insert(0, "0");
        value.readFromHexString(digits.c_str());
        return;
    }
    value.readFromHexString(text + 2);
}

void BigIntegerToString(const CBigInteger& value, CBlob& out) {
    out.resize_to(value.cbData() * 2 + 3);
    char* p = reinterpret_cast<char*>(out.pbData());
    p[0] = '0';
    p[1] = 'x';
    const CStringProxy digits = value.writeToHexString(0);
    std::memcpy(p + 2, digits.c_str(), value.cbData() * 2 + 1);
}

void ASN1StringToBigInteger(const char* text, CBigInteger& value) { StringToBigInteger(text, value); }

const char* BigIntegerToASN1String(ASN1CTXT* ctxt, const CBigInteger& value) {
    CBlob text;
    BigIntegerToString(value, text);
    char* out = static_cast<char*>(rtMemHeapAlloc(&ctxt->typeHeap, static_cast<int>(text.cbData())));
    if (out == nullptr)
        ATL::AtlThrowImpl(CRYPT_E_ASN1_MEMORY);
    std::strcpy(out, reinterpret_cast<const char*>(text.pbData()));
    return out;
}

char* DWORDToASN1BigInteger(ASN1CTXT* ctxt, unsigned int value) {
    const unsigned char bytes[4] = {static_cast<unsigned char>(value >> 24), static_cast<unsigned char>(value >> 16),
                                    static_cast<unsigned char>(value >> 8), static_cast<unsigned char>(value)};
    CBlob text;
    BigIntegerToString(CBigInteger(bytes, 4), text);
    char* out = static_cast<char*>(rtMemHeapAlloc(&ctxt->typeHeap, static_cast<int>(text.cbData())));
    if (out == nullptr)
        ATL::AtlThrowImpl(E_OUTOFMEMORY);
    std::strcpy(out, reinterpret_cast<const char*>(text.pbData()));
    return out;
}

unsigned int ASN1BigIntegerToDWORD(const char* text) {
    CBigInteger value;
    StringToBigInteger(text, value);
    if (value.cbData() > 4)
        ATL::AtlThrowImpl(E_INVALIDARG);
    unsigned int result = 0;
    for (unsigned long i = 0; i < value.cbData(); ++i)
        result = result * 11u + value.pbData()[i];
    return result;
}

unsigned char* ASN1T_BigInt_inc(unsigned char* data, int length, int stop) {
    if (length <= 0)
        return data;
    int i = length - 1;
    for (;;) {
        unsigned char* last = data + i;
        if (*last != 0xFF) {
            ++*last;
            return last;
        }
        *last = 0;
        // Below the first byte there is nothing left to carry into.
        if (--i == stop || i < 0)
            return last;
    }
}

void CBigInteger::increment(int stop) { ASN1T_BigInt_inc(pbData(), static_cast<int>(cbData()), stop); }

CBigInteger& CBigInteger::operator++() {
    unsigned char* p = pbData();
    for (unsigned long i = cbData(); i-- > 0;) {
        if (p[i] != 0xFF) {
            ++p[i];
            break;
        }
        p[i] = 0;
    }
    return *this;
}

CBigInteger CBigInteger::operator++(int) {
    CBigInteger old(*this);
    ++*this;
    return old;
}

int CBigInteger::add(const CBigInteger& other) {
    if (cbData() != other.cbData())
        ATL::AtlThrowImpl(E_INVALIDARG);
    const unsigned long n = cbData();
    if (n == 0)
        return 0;
    CBigInteger sum(n);
    unsigned carry = 0;
    for (unsigned long i = n; i-- > 0;) {
        const unsigned s = static_cast<unsigned>(pbData()[i]) + other.pbData()[i] + carry;
        sum.pbData()[i] = static_cast<unsigned char>(s);
        carry = s >> 8;
    }
    *this = sum;
    return static_cast<int>(carry);
}

int CBigInteger::compare(const CBigInteger& other) const {
    const unsigned char* a = pbData();
    const unsigned char* b = other.pbData();
    uint32_t la = static_cast<uint32_t>(cbData());
    uint32_t lb = static_cast<uint32_t>(other.cbData());
    if (la == 0 || lb == 0) {
        if (la == lb)
            return 0;
        if (la != 0)
            return (a[0] & 0x80) ? -1 : 1;
        return (b[0] & 0x80) ? 1 : -1;
    }
    const bool negA = (a[0] & 0x80) != 0;
    const bool negB = (b[0] & 0x80) != 0;
    if (negA != negB)
        return negA ? -1 : 1;
    if (la == lb)
        return std::memcmp(a, b, la);
    // Sign-extension bytes go, so equal values of different widths meet.
    const unsigned char pad = negA ? 0xFF : 0x00;
    auto strip = [pad](const unsigned char*& p, uint32_t& n) {
        while (n > 1 && p[0] == pad && ((p[1] & 0x80) != 0) == (pad != 0)) {
            ++p;
            --n;
        }
    };
    strip(a, la);
    strip(b, lb);
    if (la == lb)
        return std::memcmp(a, b, la);
    return la < lb ? -1 : 1;
}

CBigInteger CBigInteger::abs() const {
    CBigInteger copy(*this);
    if (copy.cbData() != 0)
        copy.pbData()[0] &= 0x7F;
    return copy;
}

CBlob CBigInteger::encode() const {
    ASN1BEREncodeBuffer writer;
    CBlob text;
    BigIntegerToString(*this, text);
    asn1data::ASN1T_CertificateSerialNumber serial = reinterpret_cast<const char*>(text.pbData());
    int len;
    {
        asn1data::ASN1C_CertificateSerialNumber control(writer, serial);
        len = control.Encode();
    }
    // Nothing written is no integer either.
    if (len < 1)
        ATL::AtlThrowImpl(CRYPT_E_ASN1_INTERNAL);
    return CBlob(writer.getMsgPtr(), static_cast<unsigned long>(len));
}

void CBigInteger::decode(const CBlob& blob) {
    ASN1BERDecodeBuffer buffer(blob.pbData(), static_cast<int>(blob.cbData()));
    asn1data::ASN1T_CertificateSerialNumber serial = nullptr;
    int stat;
    {
        asn1data::ASN1C_CertificateSerialNumber control(buffer, serial);
        stat = control.Decode();
    }
    asn1Check(stat);
    StringToBigInteger(serial, *this);
}

bool operator==(const CBigInteger& a, const CBigInteger& b) { return a.compare(b) == 0; }
bool operator!=(const CBigInteger& a, const CBigInteger& b) { return a.compare(b) != 0; }
bool operator<(const CBigInteger& a, const CBigInteger& b) { return a.compare(b) < 0; }
bool operator>(const CBigInteger& a, const CBigInteger& b) { return a.compare(b) > 0; }
bool operator<=(const CBigInteger& a, const CBigInteger& b) { return a.compare(b) <= 0; }
bool operator>=(const CBigInteger& a, const CBigInteger& b) { return a.compare(b) >= 0; }

// ---- Text of the other width -----------------------------------------------------------------------

std::string tostring(const wchar_t* text) {
    const size_t size = std::wcslen(text) + 1;
    std::vector<char> out(size, '\0');
    if (WideCharToMultiByte(0, 0, text, -1, out.data(), static_cast<int>(size), nullptr, nullptr) == 0)
        throwLastError();
    return std::string(out.data());
}

std::string tostring(const unsigned short* text) { return tostring(reinterpret_cast<const wchar_t*>(text)); }

std::string tostring(int value) {
    std::ostringstream out;
    out << value;
    return out.str();
}

std::wstring towstring(const char* text) {
    const size_t size = std::strlen(text) + 1;
    std::vector<wchar_t> out(size, L'\0');
    if (MultiByteToWideChar(0, 0, text, -1, out.data(), static_cast<int>(size)) == 0)
        throwLastError();
    return std::wstring(out.data());
}

std::wstring towstring(int value) { return towstring(tostring(value).c_str()); }

}  // namespace ASN1
}  // namespace Quorvane
