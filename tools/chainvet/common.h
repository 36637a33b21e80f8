// Helpers shared by the chainvet sub-commands: certificate files, the records of one
// policy call, and printing its outcome.
#pragma once

#include "qvcapi.h"

#include <string>
#include <vector>

namespace chainvet_tool {

// Certificates loaded from DER or PEM files, end certificate first, freed on destruction.
class CertList {
public:
    ~CertList();
    // False (with a message on stderr) if a file cannot be read or parsed.
    bool load(const std::vector<std::string>& paths);
    bool loadMemory(const std::vector<std::vector<unsigned char>>& ders);
    const std::vector<PCCERT_CONTEXT>& certs() const { return m_certs; }

private:
    std::vector<PCCERT_CONTEXT> m_certs;
};

// A built chain over a CertList.
class Chain {
public:
    explicit Chain(const CertList& certs);
    ~Chain();
    PCCERT_CHAIN_CONTEXT get() const { return m_chain; }

private:
    PCCERT_CHAIN_CONTEXT m_chain;
};

// Parses "0x80000000" or "80000000"; false on anything else.
bool parseHex32(const std::string& text, DWORD& out);

// Prints "callback:", "status:" and the verdict line; returns the exit status.
int reportOutcome(BOOL result, DWORD lastError, const CERT_CHAIN_POLICY_STATUS& status,
                  const char* passText, const char* failText);

// "0x80096019 (TRUST_E_BASIC_CONSTRAINTS)" or "87 (ERROR_INVALID_PARAMETER)".
std::string describeError(DWORD code);

}  // namespace chainvet_tool
