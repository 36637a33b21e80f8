#include "core/trace.h"

DbTraceInitializer::DbTraceInitializer(const char* name, TSupportDbContext_*& context)
    : m_context(nullptr) {
    support_print_done(context);
    context = nullptr;
    m_context = &context;
    context = support_print_init(0, name, 0, 127);
}

DbTraceInitializer::~DbTraceInitializer() {
    if (m_context) {
        support_print_done(*m_context);
        *m_context = nullptr;
    }
}
