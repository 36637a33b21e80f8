// chainvet check signature, chainvet check timestamp-signing
#include "command.h"
#include "common.h"

#include "policies/chain_policies.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

using namespace chainvet_tool;

namespace {

const char* kSignatureHelp =
    "usage: chainvet check signature [--flags HEX] [--extra] [--at TIME] CERT [ISSUER...]\n\n"
    "May the end certificate sign? Its private key usage period and its Key Usage\n"
    "decide. CERT is the end certificate, ISSUERs follow towards the root; DER or PEM.\n\n"
    "  --flags HEX   dwFlags of CERT_CHAIN_POLICY_PARA, handed on unchanged (default 0)\n"
    "  --extra       hand over the extra records, so that every failure comes back at once\n"
    "  --at TIME     moment of use for the private key usage period, UTC:\n"
    "                YYYY-MM-DD, YYYY-MM-DDTHH:MM:SS[Z] or YYYYMMDDHHMMSSZ (default now)\n"
    "  --trace       the library's trace on stderr (before the command)\n\n"
    "Exit status: 0 pass, 1 the chain failed, 2 the policy could not run, 64 bad usage.\n";

const char* kTimestampHelp =
    "usage: chainvet check timestamp-signing [--flags HEX] [--extra] [--at TIME] CERT [ISSUER...]\n\n"
    "May the end certificate sign time stamps? It must pass the signature policy and be\n"
    "valid for id-kp-timeStamping (1.3.6.1.5.5.7.3.8).\n\n"
    "  --flags HEX   dwFlags (default 0): the low 16 bits go on to the signature policy;\n"
    "                20000: a certificate without EKU is not valid for any purpose;\n"
    "                40000: a chain without application usage is not valid for any purpose;\n"
    "                every other bit is refused\n"
    "  --extra       hand over the extra records, so that every failure comes back at once\n"
    "  --at TIME     moment of use for the private key usage period, UTC:\n"
    "                YYYY-MM-DD, YYYY-MM-DDTHH:MM:SS[Z] or YYYYMMDDHHMMSSZ (default now)\n"
    "  --trace       the library's trace on stderr (before the command)\n\n"
    "Exit status: 0 pass, 1 the chain failed, 2 the policy could not run, 64 bad usage.\n";

int runSignature(const std::vector<std::string>& args);
int runTimestamp(const std::vector<std::string>& args);

const Command kSignature{"check signature", "may the end certificate sign?", kSignatureHelp,
                         runSignature};
const Command kTimestamp{"check timestamp-signing", "may the end certificate sign time stamps?",
                         kTimestampHelp, runTimestamp};
Registrar s_signature(kSignature);
Registrar s_timestamp(kTimestamp);

int64_t daysFromCivil(int64_t y, unsigned m, unsigned d) {
    y -= m <= 2;
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

bool digits(const std::string& s, size_t at, size_t n, int& v) {
    if (at + n > s.size())
        return false;
    v = 0;
    for (size_t i = at; i < at + n; ++i) {
        if (s[i] < '0' || s[i] > '9')
            return false;
        v = v * 10 + (s[i] - '0');
    }
    return true;
}

// UTC moment of use as FILETIME ticks.
bool parseMoment(const std::string& text, FILETIME& out) {
    int y = 0, mo = 0, d = 0, h = 0, mi = 0, s = 0;
    std::string t = text;
    if (!t.empty() && (t.back() == 'Z' || t.back() == 'z'))
        t.pop_back();
    if (t.size() == 14) {  // YYYYMMDDHHMMSS
        if (!digits(t, 0, 4, y) || !digits(t, 4, 2, mo) || !digits(t, 6, 2, d) || !digits(t, 8, 2, h) ||
            !digits(t, 10, 2, mi) || !digits(t, 12, 2, s))
            return false;
    } else {
        if (t.size() < 10 || t[4] != '-' || t[7] != '-' || !digits(t, 0, 4, y) || !digits(t, 5, 2, mo) ||
            !digits(t, 8, 2, d))
            return false;
        if (t.size() > 10) {
            if ((t[10] != 'T' && t[10] != ' ') || t.size() < 16 || t[13] != ':' || !digits(t, 11, 2, h) ||
                !digits(t, 14, 2, mi))
                return false;
            if (t.size() == 19) {
                if (t[16] != ':' || !digits(t, 17, 2, s))
                    return false;
            } else if (t.size() != 16) {
                return false;
            }
        }
    }
    if (y < 1601 || mo < 1 || mo > 12 || d < 1 || d > 31 || h > 23 || mi > 59 || s > 59)
        return false;
    const int64_t secs = daysFromCivil(y, static_cast<unsigned>(mo), static_cast<unsigned>(d)) * 86400 +
                         h * 3600 + mi * 60 + s + 11644473600LL;
    const uint64_t ticks = static_cast<uint64_t>(secs) * 10000000ULL;
    out.dwLowDateTime = static_cast<DWORD>(ticks);
    out.dwHighDateTime = static_cast<DWORD>(ticks >> 32);
    return true;
}

const char* bitMeaning(DWORD bit) {
    switch (bit) {
    case QV_PKUP_ERR_BEFORE: return "the moment of use lies before the private key usage period";
    case QV_PKUP_ERR_AFTER: return "the moment of use lies after the private key usage period";
    case QV_USAGE_CERT_LACKS: return "the certificate's extended key usage lacks the purpose";
    case QV_USAGE_CHAIN_LACKS: return "the chain's application usage lacks the purpose";
    case QVCERT_CHAIN_POLICY_ERR_KEY_USAGE: return "Key Usage holds neither digitalSignature nor nonRepudiation";
    default: return "unknown failure bit";
    }
}

struct Options {
    DWORD flags = 0;
    bool extra = false;
    bool hasMoment = false;
    FILETIME moment{0, 0};
    std::vector<std::string> files;
};

int parse(const Command& cmd, const std::vector<std::string>& args, Options& o) {
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--flags") {
            if (i + 1 >= args.size() || !parseHex32(args[i + 1], o.flags))
                return usage(cmd, "--flags needs a hexadecimal value");
            ++i;
        } else if (args[i] == "--extra") {
            o.extra = true;
        } else if (args[i] == "--at") {
            if (i + 1 >= args.size() || !parseMoment(args[i + 1], o.moment))
                return usage(cmd, "--at needs a UTC time such as 2024-05-01T12:00:00Z");
            o.hasMoment = true;
            ++i;
        } else if (!args[i].empty() && args[i][0] == '-') {
            return usage(cmd, "unknown option " + args[i]);
        } else {
            o.files.push_back(args[i]);
        }
    }
    if (o.files.empty())
        return usage(cmd, "no certificate given");
    return kPass;
}

typedef QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA ExtraPara;
typedef QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS ExtraStatus;

int check(const Command& cmd, const char* name, PFN_CERT_DLL_VERIFY_CERTIFICATE_CHAIN_POLICY policy,
          LPCSTR policyOid, const std::vector<std::string>& args, const char* passText,
          const char* failText) {
    Options o;
    if (int rc = parse(cmd, args, o))
        return rc;
    CertList certs;
    if (!certs.load(o.files))
        return kCouldNotRun;
    Chain chain(certs);

    // The moment of use travels in the extra parameter; --extra alone hands over one
    // without a moment (now).
    ExtraPara extraPara{sizeof(ExtraPara), o.hasMoment ? &o.moment : nullptr};
    ExtraStatus extraStatus{sizeof(ExtraStatus), 0, 0, 0};
    CERT_CHAIN_POLICY_PARA para{sizeof para, o.flags, (o.extra || o.hasMoment) ? &extraPara : nullptr};
    CERT_CHAIN_POLICY_STATUS status{sizeof status, 0, 0, 0, o.extra ? &extraStatus : nullptr};

    std::printf("policy:   %s, dwFlags 0x%08X, %zu certificate(s)%s\n", name, static_cast<unsigned>(o.flags),
                o.files.size(), o.extra ? ", extra records" : "");
    SetLastError(0);
    const BOOL ok = policy(policyOid, chain.get(), &para, &status);
    const DWORD lastError = GetLastError();
    if (!o.extra)
        return reportOutcome(ok, lastError, status, passText, failText);

    std::printf("callback: %s\n", ok ? "TRUE" : "FALSE");
    std::printf("status:   dwError %s, lChainIndex %d, lElementIndex %d\n", describeError(status.dwError).c_str(),
                static_cast<int>(status.lChainIndex), static_cast<int>(status.lElementIndex));
    std::printf("extra:    dwError 0x%08X, lChainIndex %d, lElementIndex %d\n",
                static_cast<unsigned>(extraStatus.dwError), static_cast<int>(extraStatus.lChainIndex),
                static_cast<int>(extraStatus.lElementIndex));
    for (DWORD bit = 1; bit != 0; bit <<= 1)
        if (extraStatus.dwError & bit)
            std::printf("          0x%08X %s\n", static_cast<unsigned>(bit), bitMeaning(bit));
    if (!ok) {
        std::printf("verdict:  ERROR: the policy could not run, last error %s\n", describeError(lastError).c_str());
        return kCouldNotRun;
    }
    if (status.dwError != 0 || extraStatus.dwError != 0) {
        std::printf("verdict:  FAIL: %s\n", failText);
        return kChainFailed;
    }
    std::printf("verdict:  PASS: %s\n", passText);
    return kPass;
}

int runSignature(const std::vector<std::string>& args) {
    return check(kSignature, "signature", CertDllVerifySignatureCertificateChainPolicy,
                 QVCERT_CHAIN_POLICY_SIGNATURE, args, "the end certificate may sign",
                 "the end certificate may not sign");
}

int runTimestamp(const std::vector<std::string>& args) {
    return check(kTimestamp, "timestamp-signing", CertDllVerifyTimestampSigningCertificateChainPolicy, nullptr,
                 args, "the end certificate may sign time stamps", "the end certificate may not sign time stamps");
}

}  // namespace
