/* Basic scalar types of the ASN.1 runtime and the tag word.
 * C-compatible; the widths are the same on 32- and 64-bit builds. */
#ifndef ASN1RT_ASN1TYPE_H
#define ASN1RT_ASN1TYPE_H

#include <stddef.h>
#include <stdint.h>

#include "asn1rt/export.h"

/* ---- Scalars ---------------------------------------------------------------------- */

typedef uint8_t ASN1OCTET;   /* one octet of a message or a value */
typedef ASN1OCTET OSOCTET;   /* the same, under its other customary name */
typedef int8_t ASN1INT8;
typedef uint8_t ASN1UINT8;
typedef int16_t ASN1SINT;    /* 16-bit signed */
typedef uint16_t ASN1USINT;  /* 16-bit unsigned */
typedef int32_t ASN1INT;     /* 32-bit signed: statuses, INTEGER values */
typedef uint32_t ASN1UINT;   /* 32-bit unsigned: counts, indices, sizes */
typedef int64_t ASN1INT64;
typedef uint64_t ASN1UINT64;
typedef ASN1UINT8 ASN1BOOL;  /* 8-bit truth value: 0 false, anything else true */
typedef ASN1INT ASN1ENUM;    /* value of an ENUMERATED */
typedef ASN1UINT ASN1TAG;    /* tag word, see below */
typedef ASN1INT ASN1STATUS;  /* 0 or a positive count for success, negative for failure */

#define ASN1FALSE 0
#define ASN1TRUE 1

/* ---- Tag word ----------------------------------------------------------------------
 * bits 31-30: class (00 universal, 01 application, 10 context-specific, 11 private)
 * bit  29   : form (1 constructed)
 * bits 28-0 : tag number
 * The top three bits of the word are the top three bits of the identifier octet:
 * 0x20000011 is a universal constructed SET, 0xa0000002 is context-specific
 * constructed [2]. */

#define TM_UNIV 0x00000000u        /* universal class */
#define TM_APPL 0x40000000u        /* application class */
#define TM_CTXT 0x80000000u        /* context-specific class */
#define TM_PRIV 0xC0000000u        /* private class */
#define TM_CLASS_MASK 0xC0000000u  /* bits 31-30 */
#define TM_PRIM 0x00000000u        /* primitive form */
#define TM_CONS 0x20000000u        /* constructed form, bit 29 */
#define TM_FORM_MASK 0x20000000u
#define TM_IDCODE_MASK 0x1FFFFFFFu /* tag number, bits 28-0 */
#define TM_MAX_IDCODE 0x1FFFFFFFu  /* largest tag number a tag word holds */
#define TM_MATCH_MASK 0xDFFFFFFFu  /* xd_match compares tags without the form bit */
#define TM_B_MATCH_MASK 0xDFu      /* xd_match1 compares identifier octets under this mask */

/* Identifier-octet bits: class 0xc0, form 0x20, number 0x1f (31: long form follows). */
#define TM_B_CLASS_MASK 0xC0u
#define TM_B_CONS 0x20u
#define TM_B_IDCODE_MASK 0x1Fu
#define TM_B_LONG_FORM 0x1Fu

/* Builds a tag word from class, form and number. */
#define ASN1_MAKE_TAG(cls, form, num) \
    ((ASN1TAG)(((ASN1TAG)(cls)) | ((ASN1TAG)(form)) | (((ASN1TAG)(num)) & TM_IDCODE_MASK)))
/* The single-octet form of a tag word, as xd_match1 takes it: the word shifted right by
 * 24, ORed with its low five bits. */
#define ASN1_TAG_TO_OCTET(tag) ((ASN1OCTET)((((ASN1TAG)(tag)) >> 24) | (((ASN1TAG)(tag)) & 0x1Fu)))

/* Universal tag numbers. */
#define ASN_ID_EOC 0
#define ASN_ID_BOOL 1
#define ASN_ID_INT 2
#define ASN_ID_BITSTR 3
#define ASN_ID_OCTSTR 4
#define ASN_ID_NULL 5
#define ASN_ID_OBJID 6
#define ASN_ID_OBJDSC 7
#define ASN_ID_EXTERN 8
#define ASN_ID_REAL 9
#define ASN_ID_ENUM 10
#define ASN_ID_EMBEDDED_PDV 11
#define ASN_ID_UTF8String 12
#define ASN_ID_RELATIVE_OID 13
#define ASN_ID_SEQ 16
#define ASN_ID_SET 17
#define ASN_ID_NumericString 18
#define ASN_ID_PrintableString 19
#define ASN_ID_TeletexString 20
#define ASN_ID_T61String 20
#define ASN_ID_VideotexString 21
#define ASN_ID_IA5String 22
#define ASN_ID_UTCTime 23
#define ASN_ID_GeneralTime 24
#define ASN_ID_GraphicString 25
#define ASN_ID_VisibleString 26
#define ASN_ID_GeneralString 27
#define ASN_ID_UniversalString 28
#define ASN_ID_BMPString 30

/* ---- Lengths ------------------------------------------------------------------------ */

/* The indefinite form, in every length argument and result.  No status. */
#define RT_INDEFINITE_LENGTH (-9999)

#endif /* ASN1RT_ASN1TYPE_H */
