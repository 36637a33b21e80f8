#include "common.h"

#include "command.h"

#include <cstdio>
#include <cstdlib>

namespace chainvet_tool {

std::vector<Command>& registry() {
    static std::vector<Command> commands;
    return commands;
}

const char* errorName(unsigned code) {
    switch (code) {
    case 0: return "ERROR_SUCCESS";
    case 2: return "ERROR_FILE_NOT_FOUND";
    case 5: return "ERROR_ACCESS_DENIED";
    case 8: return "ERROR_NOT_ENOUGH_MEMORY";
    case 13: return "ERROR_INVALID_DATA";
    case 87: return "ERROR_INVALID_PARAMETER";
    case 122: return "ERROR_INSUFFICIENT_BUFFER";
    case 234: return "ERROR_MORE_DATA";
    case 259: return "ERROR_NO_MORE_ITEMS";
    case 0x80004001u: return "E_NOTIMPL";
    case 0x80004005u: return "E_FAIL";
    case 0x8007000Eu: return "E_OUTOFMEMORY";
    case 0x80070057u: return "E_INVALIDARG";
    case 0x800700EAu: return "HRESULT_FROM_WIN32(ERROR_MORE_DATA)";
    case 0x80090008u: return "NTE_BAD_ALGID";
    case 0x80090016u: return "NTE_BAD_KEYSET";
    case 0x80092002u: return "CRYPT_E_BAD_ENCODE";
    case 0x80092004u: return "CRYPT_E_NOT_FOUND";
    case 0x80091003u: return "CRYPT_E_OID_FORMAT";
    case 0x80093100u: return "CRYPT_E_ASN1_ERROR";
    case 0x80093101u: return "CRYPT_E_ASN1_INTERNAL";
    case 0x80093102u: return "CRYPT_E_ASN1_EOD";
    case 0x80093103u: return "CRYPT_E_ASN1_CORRUPT";
    case 0x80093106u: return "CRYPT_E_ASN1_MEMORY";
    case 0x8009310Bu: return "CRYPT_E_ASN1_BADTAG";
    case 0x80096019u: return "TRUST_E_BASIC_CONSTRAINTS";
    case 0x800B0101u: return "CERT_E_EXPIRED";
    case 0x800B0110u: return "CERT_E_WRONG_USAGE";
    default: return "";
    }
}

std::string describeError(DWORD code) {
    char buf[32];
    if (code < 0x10000u)
        std::snprintf(buf, sizeof buf, "%u", static_cast<unsigned>(code));
    else
        std::snprintf(buf, sizeof buf, "0x%08X", static_cast<unsigned>(code));
    std::string s = buf;
    const char* name = errorName(code);
    if (*name) {
        s += " (";
        s += name;
        s += ")";
    }
    return s;
}

int usage(const Command& c, const std::string& why) {
    std::fprintf(stderr, "chainvet %s: %s\n\n%s", c.path, why.c_str(), c.help);
    return kUsage;
}

CertList::~CertList() {
    for (PCCERT_CONTEXT c : m_certs)
        CertFreeCertificateContext(c);
}

bool CertList::load(const std::vector<std::string>& paths) {
    for (const std::string& p : paths) {
        PCCERT_CONTEXT c = QVCertLoadFile(p.c_str());
        if (c == nullptr) {
            std::fprintf(stderr, "chainvet: cannot load certificate %s: %s\n", p.c_str(),
                         describeError(GetLastError()).c_str());
            return false;
        }
        m_certs.push_back(c);
    }
    return true;
}

bool CertList::loadMemory(const std::vector<std::vector<unsigned char>>& ders) {
    for (const auto& d : ders) {
        PCCERT_CONTEXT c = CertCreateCertificateContext(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING,
                                                        d.data(), static_cast<DWORD>(d.size()));
        if (c == nullptr)
            return false;
        m_certs.push_back(c);
    }
    return true;
}

Chain::Chain(const CertList& certs)
    : m_chain(QVCertBuildChain(certs.certs().data(), static_cast<DWORD>(certs.certs().size()))) {}

Chain::~Chain() {
    if (m_chain)
        QVCertFreeChain(m_chain);
}

bool parseHex32(const std::string& text, DWORD& out) {
    std::string s = text;
    if (s.size() > 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X'))
        s = s.substr(2);
    if (s.empty() || s.size() > 8)
        return false;
    char* end = nullptr;
    unsigned long v = std::strtoul(s.c_str(), &end, 16);
    if (*end != '\0')
        return false;
    out = static_cast<DWORD>(v);
    return true;
}

int reportOutcome(BOOL result, DWORD lastError, const CERT_CHAIN_POLICY_STATUS& status,
                  const char* passText, const char* failText) {
    std::printf("callback: %s\n", result ? "TRUE" : "FALSE");
    std::printf("status:   dwError %s, lChainIndex %d, lElementIndex %d\n",
                describeError(status.dwError).c_str(), static_cast<int>(status.lChainIndex),
                static_cast<int>(status.lElementIndex));
    if (!result) {
        std::printf("verdict:  ERROR: the policy could not run, last error %s\n",
                    describeError(lastError).c_str());
        return kCouldNotRun;
    }
    if (status.dwError != 0) {
        std::printf("verdict:  FAIL: %s\n", failText);
        return kChainFailed;
    }
    std::printf("verdict:  PASS: %s\n", passText);
    return kPass;
}

}  // namespace chainvet_tool
