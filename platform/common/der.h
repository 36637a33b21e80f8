// A small bounds-checked DER reader for the stand-in's own needs (certificate fields,
// extension values). Not part of the library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace qvplat {

struct Tlv {
    uint8_t tag = 0;          // first identifier octet
    const uint8_t* hdr = nullptr;  // start of the element (identifier octet)
    const uint8_t* val = nullptr;  // start of contents
    size_t len = 0;           // contents length
    size_t total() const { return static_cast<size_t>(val - hdr) + len; }
};

class DerReader {
public:
    DerReader(const uint8_t* p, size_t n) : m_p(p), m_end(p + n) {}
    bool atEnd() const { return m_p >= m_end; }
    // Reads the next element (single-octet tags, definite lengths up to 4 octets).
    bool next(Tlv& out);
    // Reads the next element if its tag is `tag`, else leaves the cursor.
    bool nextIf(uint8_t tag, Tlv& out);
    bool peekTag(uint8_t& tag) const;

private:
    const uint8_t* m_p;
    const uint8_t* m_end;
};

// Dotted text of an OID's contents octets; false on a malformed encoding.
bool oidToText(const uint8_t* p, size_t n, std::string& out);

// Decodes the BasicConstraints value: SEQUENCE { cA BOOLEAN DEFAULT FALSE, pathLen INTEGER OPTIONAL }.
bool decodeBasicConstraints(const uint8_t* p, size_t n, bool& ca, bool& hasPathLen,
                            uint32_t& pathLen);

// Decodes ExtKeyUsageSyntax: SEQUENCE OF OBJECT IDENTIFIER.
bool decodeEku(const uint8_t* p, size_t n, std::vector<std::string>& oids);

// Base64 body of the first PEM block with this label ("CERTIFICATE").
bool pemDecode(const std::string& text, const char* label, std::vector<uint8_t>& der);

}  // namespace qvplat
