// The value of the CRL distribution points extension (RFC 5280), also the syntax of the
// freshest CRL extension: distribution points with their name, reasons and CRL issuer.
// A name relative to the CRL issuer has no model; only the full name is kept.
#pragma once

#include "pki/general_name.h"
#include "pki/pki_status.h"

#include <list>

namespace Quorvane {
namespace ASN1 {

class CDistributionPointNameImpl;
class CDistributionPointImpl;

// DistributionPointName, a choice value of one modelled alternative.
class CDistributionPointName {
public:
    // The discriminants of the generated DistributionPointName.
    enum { fullName = 1, nameRelativeToCRLIssuer = 2 };

    // Empty: nothing to copy from or encode yet.
    CDistributionPointName();
    CDistributionPointName(const CGeneralNames& fullName);
    CDistributionPointName(const CDistributionPointName& other);
    CDistributionPointName& operator=(const CDistributionPointName& other);
    ~CDistributionPointName();
    // Drops the implementation object: a last step, not a reset.
    void clear();

    unsigned int get_type() const;
    // Null unless the object holds a full name.
    const CGeneralNames* get_fullName() const;
    void put_fullName(const CGeneralNames& fullName);

    CBlob encode() const;
    // A name relative to the CRL issuer leaves the object as it was.
    void decode(const CBlob& blob);

private:
    CDistributionPointNameImpl* m_impl;
};

// Same alternative, then the full names pairwise by the weak equality of CGeneralName;
// two empty names are equal.
bool operator==(const CDistributionPointName& a, const CDistributionPointName& b);
bool operator!=(const CDistributionPointName& a, const CDistributionPointName& b);

class CDistributionPoint {
public:
    // All three fields absent.
    CDistributionPoint();
    CDistributionPoint(const CDistributionPoint& other);
    CDistributionPoint& operator=(const CDistributionPoint& other);
    ~CDistributionPoint();
    // Drops the record with its fields: a last step, not a reset.
    void clear();

    // Null when absent.
    const CDistributionPointName* get_distributionPoint() const;
    const CReasonFlags* get_reasons() const;
    const CGeneralNames* get_cRLIssuer() const;
    // A copy, or none for null. Reasons of value 0 are still written; an empty issuer
    // list is not. An empty name is read through its null value here.
    void put_distributionPoint(const CDistributionPointName* distributionPoint);
    void put_reasons(const CReasonFlags* reasons);
    void put_cRLIssuer(const CGeneralNames* cRLIssuer);

    CBlob encode() const;
    // A name relative to the CRL issuer comes out as an empty name, whose copy reads
    // through a null value: such points are not supported.
    void decode(const CBlob& blob);

private:
    CDistributionPointImpl* m_impl;
};

// The issuer, the name, then the reasons; absent equals absent only.
bool operator==(const CDistributionPoint& a, const CDistributionPoint& b);
bool operator!=(const CDistributionPoint& a, const CDistributionPoint& b);

// Also the value of the freshest CRL extension.
class CCRLDistPointsSyntax : public std::list<CDistributionPoint> {
public:
    // SIZE (1..MAX): an empty list does not encode.
    CBlob encode() const;
    // Replaces what the list held.
    void decode(const CBlob& blob);
};

// ---- Traits ------------------------------------------------------------------------------------

struct ASN1T_DistributionPointName_traits {
    typedef asn1data::ASN1T_DistributionPointName ASN1_T;
    typedef asn1data::ASN1C_DistributionPointName ASN1_C;
    // An empty name leaves the discriminant 0, which the encoder refuses.
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CDistributionPointName& src);
    // Only a full name is put; anything else leaves dst as it was.
    static void get(const ASN1_T& src, CDistributionPointName& dst);
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
        asn1data::asn1Copy_DistributionPointName(ctxt, const_cast<ASN1_T*>(&src), &dst);
    }
};

struct ASN1T_DistributionPoint_traits {
    typedef asn1data::ASN1T_DistributionPoint ASN1_T;
    typedef asn1data::ASN1C_DistributionPoint ASN1_C;
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CDistributionPoint& src);
    // Old fields go first; what the wire lacks stays absent.
    static void get(const ASN1_T& src, CDistributionPoint& dst);
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
        asn1data::asn1Copy_DistributionPoint(ctxt, const_cast<ASN1_T*>(&src), &dst);
    }
};

struct ASN1T_CRLDistPointsSyntax_traits {
    typedef asn1data::ASN1T_CRLDistPointsSyntax ASN1_T;
    typedef asn1data::ASN1C_CRLDistPointsSyntax ASN1_C;
    typedef ASN1TSeqOfList_traits<asn1data::ASN1T_DistributionPoint, ASN1T_DistributionPoint_traits, CDistributionPoint,
                                  CCRLDistPointsSyntax>
        List;
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CCRLDistPointsSyntax& src) { List::set(ctxt, dst, src); }
    static void get(const ASN1_T& src, CCRLDistPointsSyntax& dst) { List::get(src, dst); }
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
        asn1data::asn1Copy_CRLDistPointsSyntax(ctxt, const_cast<ASN1_T*>(&src), &dst);
    }
};

}  // namespace ASN1
}  // namespace Quorvane
