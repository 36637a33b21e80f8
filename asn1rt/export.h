/* Export macro of the ASN.1 runtime.  Every runtime function and global
 * carries ASN1RT_API and has plain C linkage; libchainvet is built with hidden
 * visibility, so what does not carry the macro stays internal.  This header stands
 * alone: it includes nothing of core/. */
#ifndef ASN1RT_EXPORT_H
#define ASN1RT_EXPORT_H

#define ASN1RT_API __attribute__((visibility("default")))
#define ASN1RT_HIDDEN __attribute__((visibility("hidden")))

#ifdef __cplusplus
#define ASN1RT_EXTERN_C extern "C"
#define ASN1RT_BEGIN_C extern "C" {
#define ASN1RT_END_C }
#else
#define ASN1RT_EXTERN_C
#define ASN1RT_BEGIN_C
#define ASN1RT_END_C
#endif

/* Printf-style argument checking for the runtime's variadic diagnostics. */
#define ASN1RT_PRINTF(fmtIndex, firstArg) __attribute__((format(printf, fmtIndex, firstArg)))

#endif /* ASN1RT_EXPORT_H */
