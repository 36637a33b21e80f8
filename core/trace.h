// Every diagnostic of the library goes through these macros: nothing is evaluated and
// nothing is called beyond support_print_is while the trace context is off.
#pragma once

#include "core/export.h"
#include "qvcapi/support.h"

#define QV_TRACE_MASK 8u

#define QV_TRACE_ON() (chainvet_db_ctx != nullptr && support_print_is(chainvet_db_ctx, QV_TRACE_MASK))

// A line with its own label and arguments.
#define QV_TRACE_L(label, fmt, ...)                                                        \
    do {                                                                                   \
        if (QV_TRACE_ON())                                                                 \
            support_dprint_print_(chainvet_db_ctx, fmt, "", __LINE__, label, __VA_ARGS__); \
    } while (0)

// A line with no arguments of its own hands the empty text once more as a spare.
#define QV_TRACE0_L(label, fmt) QV_TRACE_L(label, fmt, "")

#define QV_TRACE(fmt, ...) QV_TRACE_L(__func__, fmt, __VA_ARGS__)
#define QV_TRACE0(fmt) QV_TRACE0_L(__func__, fmt)

// Gives a program's trace context the lifetime of this object.
class CHAINVET_API DbTraceInitializer {
public:
    DbTraceInitializer(const char* name, TSupportDbContext_*& context);
    ~DbTraceInitializer();
    DbTraceInitializer(const DbTraceInitializer&) = delete;
    DbTraceInitializer& operator=(const DbTraceInitializer&) = delete;

private:
    TSupportDbContext_** m_context;
};
